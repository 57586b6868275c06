// A vision module that lives in the broker's process: it borrows each frame without a copy and says
// where the brightest spot is.
//
//   oxbroker --load libvideoinput.so --load libbrightestspot.so --preferences examples/preferences
//   oxvideo call BrightestSpot find 0        -> [x, y, luma]
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <oxframework/oxapi.h>
#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oximage.h>
#include <oxframework/oxmodule.h>
#include <oxvalue/detail/publication.h>
#include <oxvision/ivideostream.h>

namespace {

// The camera may deliver nothing: a caller is not kept waiting for longer.
constexpr std::chrono::seconds kLongestWait(1);

class BrightestSpot : public OX::OXModule {
 public:
  explicit BrightestSpot(boost::shared_ptr<OX::OXBroker> pBroker)
      : OXModule(pBroker, "BrightestSpot"), fStreamModule(pBroker->getModule("OXVideoStream")) {
    // The module is in this process, so its interface can be called directly.
    fVideo = dynamic_cast<OX::IVideoStream*>(fStreamModule.get());
    if (!fVideo)
      throw OX::OXError(getName(), "BrightestSpot",
                        "There is no module OXVideoStream in this process; load libvideoinput.so "
                        "and libvideostream.so before this library",
                        "", 0);
    setModuleDescription("Says where the brightest spot of a camera's picture is.");
    publish(OX::bindPublications(
        this, "BrightestSpot",
        std::vector<OX::OXPublication<BrightestSpot>>{
            {.name = "find",
             .description = "Finds the brightest pixel of the next picture.",
             .method = OX::operation(&BrightestSpot::find),
             .parameters = {{"cameraIndex", "Camera to look at."}},
             .result = {"spot",
                        "[x, y, luma] in a picture of 320 x 240; empty when there is no picture"},
             .examples = {{"shell", "oxvideo call BrightestSpot find 0"}}},
        }));
  }

  OX::OXValue find(const int& pCamera) {
    const OX::Frame frame = xStream(pCamera)->waitForFrame(kLongestWait);
    if (!frame) return OX::OXValue(OX::OXValue::Array());
    const OX::OXImage& luma = frame.image();
    int brightest = 0;
    for (int i = 1; i < luma.fWidth * luma.fHeight; ++i)
      if (luma.fData[i] > luma.fData[brightest]) brightest = i;
    return OX::OXValue::array(brightest % luma.fWidth, brightest / luma.fWidth,
                              static_cast<int>(luma.fData[brightest]));
  }  // the frame is given back here

 private:
  /// Shared, since another call may open it anew meanwhile.
  std::shared_ptr<OX::FrameStream> xStream(int pCamera) {
    const std::lock_guard guard(fGuard);
    std::shared_ptr<OX::FrameStream>& stream = fStreams[pCamera];
    // Also anew: somebody may have ended the subscription.
    if (!stream || stream->isOver())
      stream = fVideo->open("brightestSpot", {pCamera, OX::kQVGA, OX::kYuv}, kEachFrame);
    return stream;
  }

  static constexpr int kEachFrame = 0;

  boost::shared_ptr<OX::OXModuleCore> fStreamModule;  ///< keeps what fVideo points to
  OX::IVideoStream* fVideo = nullptr;
  std::mutex fGuard;
  std::map<int, std::shared_ptr<OX::FrameStream>> fStreams;  ///< by camera
};

}  // namespace

extern "C" OX_API int _createModule(boost::shared_ptr<OX::OXBroker> pBroker) {
  OX::OXModule::createModule<BrightestSpot>(pBroker);
  return 0;
}
