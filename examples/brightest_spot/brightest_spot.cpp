// A vision module that lives in the broker's process: it borrows images without a copy and says
// where the brightest spot is.
//
//   oxbroker --load libvideoinput.so --load libbrightestspot.so --preferences examples/preferences
//   oxvideo call BrightestSpot find 0        -> [x, y, luma]
#include <map>
#include <mutex>
#include <string>

#include <oxframework/oxapi.h>
#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oximage.h>
#include <oxframework/oxmodule.h>
#include <oxvalue/detail/publication.h>
#include <oxvision/ivideoinput.h>

namespace {

/// Gives an image back when its scope ends, whatever happens in between.
class BorrowedImage {
 public:
  BorrowedImage(OX::IVideoInput& pVideo, const std::string& pSubscriber)
      : fVideo(pVideo), fSubscriber(pSubscriber), fImage(pVideo.getImageLocal(pSubscriber)) {}
  ~BorrowedImage() {
    if (fImage) fVideo.releaseImage(fSubscriber);
  }
  BorrowedImage(const BorrowedImage&) = delete;
  BorrowedImage& operator=(const BorrowedImage&) = delete;

  const OX::OXImage* get() const { return fImage; }

 private:
  OX::IVideoInput& fVideo;
  const std::string& fSubscriber;
  OX::OXImage* fImage;
};

class BrightestSpot : public OX::OXModule {
 public:
  explicit BrightestSpot(boost::shared_ptr<OX::OXBroker> pBroker)
      : OXModule(pBroker, "BrightestSpot"), fVideoModule(pBroker->getModule("OXVideoDevice")) {
    // The module is in this process, so its interface can be called directly.
    fVideo = dynamic_cast<OX::IVideoInput*>(fVideoModule.get());
    if (!fVideo)
      throw OX::OXError(getName(), "BrightestSpot",
                        "There is no module OXVideoDevice in this process; load libvideoinput.so "
                        "before this library",
                        "", 0);
    setModuleDescription("Says where the brightest spot of a camera's picture is.");
    publish(OX::bindPublications(
        this, "BrightestSpot",
        std::vector<OX::OXPublication<BrightestSpot>>{
            {.name = "find",
             .description = "Finds the brightest pixel of the newest picture.",
             .method = OX::operation(&BrightestSpot::find),
             .parameters = {{"cameraIndex", "Camera to look at."}},
             .result = {"spot",
                        "[x, y, luma] in a picture of 320 x 240; empty when there is no picture"},
             .examples = {{"shell", "oxvideo call BrightestSpot find 0"}}},
        }));
  }

  ~BrightestSpot() override {
    for (const auto& [camera, subscriber] : fSubscribers) {
      try {
        fVideo->unsubscribe(subscriber);
      } catch (const OX::OXError&) {
        // Somebody else ended the subscription: then there is nothing left to end.
      }
    }
  }

  OX::OXValue find(const int& pCamera) {
    const std::lock_guard guard(fGuard);  // one image at a time for each subscriber
    const BorrowedImage image(*fVideo, xSubscriber(pCamera));
    if (!image.get()) return OX::OXValue(OX::OXValue::Array());
    const OX::OXImage& luma = *image.get();
    int brightest = 0;
    for (int i = 1; i < luma.fWidth * luma.fHeight; ++i)
      if (luma.fData[i] > luma.fData[brightest]) brightest = i;
    return OX::OXValue::array(brightest % luma.fWidth, brightest / luma.fWidth,
                              static_cast<int>(luma.fData[brightest]));
  }

 private:
  const std::string& xSubscriber(int pCamera) {
    const auto found = fSubscribers.find(pCamera);
    if (found != fSubscribers.end()) return found->second;
    const std::string id =
        fVideo->subscribeCamera("brightestSpot", pCamera, OX::kQVGA, OX::kYuv, 30);
    return fSubscribers.emplace(pCamera, id).first->second;
  }

  boost::shared_ptr<OX::OXModuleCore> fVideoModule;  ///< keeps what fVideo points to
  OX::IVideoInput* fVideo = nullptr;
  std::mutex fGuard;
  std::map<int, std::string> fSubscribers;  ///< ids by camera
};

}  // namespace

extern "C" OX_API int _createModule(boost::shared_ptr<OX::OXBroker> pBroker) {
  OX::OXModule::createModule<BrightestSpot>(pBroker);
  return 0;
}
