/// Converts pushed RGB frames to raw YUV422 frames of any of the sizes, in one pass, on plain
/// pointers.
///
/// Source: 3 bytes a pixel, red, green, blue. Target: 4 bytes for two neighbouring pixels,
/// Y0 U Y1 V. Rows have no gaps. Integer arithmetic, the same to the bit on every processor;
/// docs/colour-formats.md has the formulas. No function keeps state or allocates, or fails except
/// as said; each may run on any number of threads at once. Buffers are borrowed for the call, need
/// no alignment and may not overlap. pWidth and pHeight are the source's, in pixels; 0 or less
/// writes nothing.
#pragma once

namespace OX::resampling {

/// The same size. Pixels are taken two by two through the whole frame, their U and V as means; an
/// odd number of pixels counts as the next even one in both buffers.
void rgbToYuv422(const unsigned char* pSource, int pWidth, int pHeight, unsigned char* pTarget);

/// Down by pRatio, by skipping pixels; U and V are means of the two pixels of a pair.
/// Odd on purpose: the right pixel of a pair is pRatio / 2 * pRatio pixels right of the left one
/// and pairs are 2 * pRatio pixels apart, so for 4 and 8 the samples are uneven and the last ones
/// of a row come from the row below. All of them are within pWidth * pHeight pixels. Target row y
/// starts at byte y * pWidth / pRatio * 2. False, with the target untouched, unless pRatio is 2, 4
/// or 8.
bool subSample(int pRatio, int pWidth, int pHeight, const unsigned char* pSource,
               unsigned char* pTarget);

/// Up by pRatio: each source pixel becomes a block of pRatio x pRatio pixels.
/// False, with the target untouched, unless pRatio is 2, 4 or 8.
bool overSample(int pRatio, int pWidth, int pHeight, const unsigned char* pSource,
                unsigned char* pTarget);

}  // namespace OX::resampling
