/// The colour-space kernels: one raw kYUV422 frame into one subscriber's format, on plain pointers.
///
/// All of it is integer arithmetic and is the same to the bit on every processor. No function
/// keeps state, allocates or fails; each may run on any number of threads at once.
/// The formats byte by byte, with their formulas, are in docs/colour-formats.md.
///
/// Terms. A macro-pixel is the four bytes Y0 U Y1 V that two neighbouring source pixels share.
/// pWidth and pHeight are the destination's, in pixels; step = pSourceWidth / pWidth, truncating.
///
/// Where pixels come from: destination row y from the source at byte y * 2 * step * step * pWidth,
/// destination macro-pixel x from byte 4 * step * x of that row. Source pixels between are skipped;
/// nothing is filtered. A source narrower than the destination has step 0: every destination
/// macro-pixel repeats the first one of the source. Functions say where they differ.
///
/// Bounds. Rows are whole macro-pixels: an odd pWidth counts as the next even one in both buffers,
/// unless said otherwise. Nothing but the bytes that these rules name, and source bytes between
/// them, is read; nothing but destination pixels is written. The caller checks that the source has
/// enough rows. Sizes of 0 or less write nothing. Buffers are borrowed for the call, need no
/// alignment and may not overlap.
#pragma once

#include <cstddef>

namespace OX::kernels {

/// kYuv, 1 byte a pixel: luma. Byte 2k is source byte 4 * step * k of the row and byte 2k + 1 is
/// source byte 4 * step * k + 2 * step: above step 1 both are a Y0, step pixels apart.
void yuv422ToYuv(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                 int pWidth, int pHeight);

/// kHsy, 1 byte a pixel: the hue, the same for both pixels of a macro-pixel.
/// Odd on purpose: source macro-pixels are 2 * step bytes apart, source rows step * step * pWidth
/// bytes, and every row is written to the first row of the destination, where the last one remains.
void yuv422ToHsy(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                 int pWidth, int pHeight);

/// kYUV422, 2 bytes a pixel: Y0 U Y1 V. At step 1 a copy of pWidth * pHeight / 4 words of 8 bytes,
/// at least one. Else pWidth / 2 macro-pixels a row, where Y1 is the Y0 of the macro-pixel
/// step / 2 further on.
void yuv422ToYUV422(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                    int pWidth, int pHeight);

/// kYUV, 3 bytes a pixel: Y0 U V Y1 U V.
void yuv422ToYUV(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                 int pWidth, int pHeight);

/// kRGB, 3 bytes a pixel: R0 G0 B0 R1 G1 B1.
void yuv422ToRGB(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                 int pWidth, int pHeight);

/// kHSY, 3 bytes a pixel: H S0 Y0 H S1 Y1.
void yuv422ToHSY(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                 int pWidth, int pHeight);

/// kBGR, 3 bytes a pixel: B0 G0 R0 B1 G1 R1.
void yuv422ToBGR(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                 int pWidth, int pHeight);

/// kYYCbCr, 2 bytes a pixel: Y0 Y1 U V. pWidth / 2 macro-pixels a row, and source rows are
/// step * (pSourceWidth / 2) macro-pixels apart.
void yuv422ToYYCbCr(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                    int pWidth, int pHeight);

/// kH2RGB, 3 bytes a pixel: the hue as a fully saturated colour, blue first, for both pixels alike.
void yuv422ToH2RGB(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                   int pWidth, int pHeight);

/// kHSMixed, 3 bytes a pixel: H S0 H H S1 H.
void yuv422ToHSMixed(const unsigned char* pSource, int pSourceWidth, unsigned char* pDestination,
                     int pWidth, int pHeight);

/// Bytes of scratch memory that touchFrame() needs: few enough to stay in the first-level cache.
constexpr std::size_t kTouchScratchBytes = std::size_t{16} * 1024;

/// Reads pBytes of a raw frame once from start to end, by copying it in pieces to pScratch
/// (kTouchScratchBytes). Each piece overwrites the one before, so the copies displace little of the
/// frame from the cache. Frames of a driver are in memory that is slow to read in small pieces: one
/// pass in large ones makes the kernel's reads that follow cheap. The compiler can't remove it.
void touchFrame(const unsigned char* pSource, std::size_t pBytes, unsigned char* pScratch);

}  // namespace OX::kernels
