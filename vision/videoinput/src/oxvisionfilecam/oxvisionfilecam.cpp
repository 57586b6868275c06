// Construction and destruction: one camera, and a ring of frames and a spare with storage for any
// format, so that a replay allocates nothing. The format is a default until a file is selected.
#include "oxvisionfilecam.h"

#include <boost/make_shared.hpp>

#include <oxframework/oxdefinitions.h>
#include "camerarecord.h"

namespace OX {
namespace {

boost::shared_ptr<RealCameraProperties> makeCamera() {
  auto camera = boost::make_shared<RealCameraProperties>();
  setSizeFromResolution(kQVGA, camera->fWidth, camera->fHeight);
  camera->fResolution = kQVGA;
  camera->fColorSpace = kYUV422;
  camera->fFrameRate = 5;
  camera->fBufferCount = 4;
  return camera;
}

}  // namespace

OXVisionFileCam::OXVisionFileCam(boost::shared_ptr<OXBroker> pBroker)
    : OXVisionVideoInput(std::move(pBroker), "OXVideoDevice") {
  xBindFileMethods();
  fNbCameras = 1;
  fCameraProperties.assign(1, makeCamera());
  for (Slot& slot : fFrames) slot = boost::make_shared<CamBuffer>();
  fSpare = boost::make_shared<CamBuffer>();
}

OXVisionFileCam::~OXVisionFileCam() { OXVisionVideoInput::stopFrameGrabber(); }

}  // namespace OX
