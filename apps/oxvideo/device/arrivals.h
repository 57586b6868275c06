/// Tells from OXVideoStatus what an image was made of: whether it is young, and whether its camera
/// was fed with fewer pixels than it has.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "device/session.h"
#include "device/status.h"
#include "terminal/json.h"

namespace OX::cli {

/// After a subscription has raised a camera, the next pushes are still in the old size, since their
/// feeder learns of it later: images come enlarged. This notes what was pushed when, as often as a
/// verb looks, and judges images by that. One thread only. Borrows the session.
class OXArrivals {
 public:
  explicit OXArrivals(OXSession& pSession) : fSession(pSession) {}

  /// Looks at all cameras. Call it before the first request and after each image.
  void look();
  /// False for a broker without the service: every image then passes.
  bool isKnown() const { return !fLooks.empty(); }

  struct Verdict {
    /// What was pushed, when that has fewer pixels than the image.
    std::optional<FrameSize> enlargedFrom;
    /// The device has scaled the frame for another camera's size: its pixels mean nothing.
    bool isMisfit = false;
    /// By the broker's clock; empty for a replay, whose stamps are those of its recording.
    std::optional<double> ageSeconds;
  };
  Verdict judge(const CameraImage& pImage) const;

  /// Why a camera delivers nothing: "not fed", or "fed with 320x240, camera 1 runs at 1280x960: not
  /// delivered". Empty when that is not known.
  std::string whyNothing(int pCamera) const;

 private:
  struct Look {
    std::vector<CameraStatus> cameras;
    int active = -1;
  };
  /// As it was when a frame with this stamp came; null when the camera is unknown.
  const Look* xLookAt(int pCamera, std::int64_t pStampUs) const;

  OXSession& fSession;
  std::vector<Look> fLooks;
};

/// "fed, 30 a second, 12 ms old", "not fed", "not fed for 5.9 s"; of a replay likewise.
std::string feedText(const CameraStatus& pCamera);

/// "fed with 320x240, camera 1 runs at 1280x960: its images are not whole", of an image that the
/// device has scaled for another camera's size. Empty of any other.
std::string whyMisfit(OXSession& pSession, const CameraImage& pImage);

/// "640x480".
std::string sizeText(FrameSize pSize);

/// "640x480 kRGB of camera 0, 12 ms old, enlarged from 320x240". Without an age by the broker's
/// clock it is by this machine's, and above a minute the time of the stamp, as of a replayed image.
std::string describe(const CameraImage& pImage, const OXArrivals::Verdict& pVerdict);
/// Adds "enlarged_from" and "age_ms", as far as they are known.
void addVerdict(OXJson& pJson, const OXArrivals::Verdict& pVerdict);

}  // namespace OX::cli
