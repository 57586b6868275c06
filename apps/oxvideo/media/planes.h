/// Copies images into FFmpeg frames, byte for byte where a pixel format allows it.
#pragma once

#include "media/cameraimage.h"
#include "media/ffmpeg.h"

namespace OX::cli {

/// The pixel format that stores a colour space without loss:
///
/// | colour space   | format     | what is kept                         |
/// |----------------|------------|--------------------------------------|
/// | kYUV422,kYYCbCr| YUV422P    | every byte; BT.601, luma 16 to 235   |
/// | kYUV           | YUV444P    | every byte; the same                 |
/// | kYuv           | GRAY8      | every byte                           |
/// | kRGB, kBGR     | BGR0       | every byte                           |
/// | the others     | BGR0       | the picture of toPicture()           |
AVPixelFormat losslessFormat(int pColorSpace);

/// An empty frame of that format. Throws OXFailure when out of memory, and for an odd width where
/// two pixels share chroma.
FrameOwner newFrame(int pWidth, int pHeight, int pColorSpace);

/// Writes the image's pixels into a frame of its size and format.
void fillFrame(const CameraImage& pImage, AVFrame& pFrame);

}  // namespace OX::cli
