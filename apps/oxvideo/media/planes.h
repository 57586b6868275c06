/// Raw frames as frames of the FFmpeg libraries, byte for byte where there is a format for it.
#pragma once

#include "media/cameraimage.h"
#include "media/ffmpeg.h"

namespace OX::cli {

/// The format in which a colour space's frames are kept without loss:
///
/// | colour space   | format     | what is kept                         |
/// |----------------|------------|--------------------------------------|
/// | kYUV422,kYYCbCr| YUV422P    | every byte; BT.601, luma 16 to 235   |
/// | kYUV           | YUV444P    | every byte; the same                 |
/// | kYuv           | GRAY8      | every byte                           |
/// | kRGB, kBGR     | BGR0       | every byte                           |
/// | the others     | BGR0       | the picture that a person is shown   |
AVPixelFormat losslessFormat(int pColorSpace);

/// An empty frame of that format. Throws OXFailure, also for an odd width where two pixels share
/// their chroma.
FrameOwner newFrame(int pWidth, int pHeight, int pColorSpace);

/// Writes the image's pixels into a frame of its size and format.
void fillFrame(const CameraImage& pImage, AVFrame& pFrame);

}  // namespace OX::cli
