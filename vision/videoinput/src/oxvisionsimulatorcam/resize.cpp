// From a pushed RGB frame to a YUV422 frame of the camera's resolution.
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "oxvisionsimulatorcam.h"
#include "pixels/resample/resampling.h"
#include "records.h"

namespace OX {

bool OXVisionSimulatorCam::xReSize(int pCamera, const OXImage& pSource, OXImage& pTarget) {
  const int in = xStore(pCamera)->fInputResolution;
  const int width = pSource.fWidth;
  const int height = pSource.fHeight;
  if (in == xCamera(pCamera)->fResolution) {
    resampling::rgbToYuv422(pSource.fData, width, height, pTarget.fData);
    return true;
  }
  // The target size is that of the device's active camera, not of pCamera: on purpose. Where the
  // two differ the diagonal is reached, which is refused.
  const RealCameraProperties* const active = xCamera(fActiveCamera);
  const int out = active ? active->fResolution.load() : -1;
  if (in < kQQVGA || in > k4VGA) {
    report::log(ki::log::kError, "xReSize", "Simulator native resolution unsupported",
                kSimulatorCategory);
    return false;
  }
  if (out < kQQVGA || out > k4VGA || out == in) return false;
  int outWidth = 0;
  int outHeight = 0;
  setSizeFromResolution(out, outWidth, outHeight);
  const std::size_t needed =
      static_cast<std::size_t>(outWidth) * static_cast<std::size_t>(outHeight) * 2;
  if (needed > pTarget.fCapacityBytes) return false;
  return out < in
             ? resampling::subSample(1 << (in - out), width, height, pSource.fData, pTarget.fData)
             : resampling::overSample(1 << (out - in), width, height, pSource.fData, pTarget.fData);
}

}  // namespace OX
