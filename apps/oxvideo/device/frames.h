/// The frames of one camera as they come, for verbs that look at it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "device/session.h"

namespace OX::cli {

/// A subscription whose frames are taken one after the other, each once. One thread only. Borrows
/// the session, which must live longer. Its destructor ends the subscription.
class OXFrames {
 public:
  /// Through the service OXVideoStream, which says when a frame is there, if the broker has it and
  /// pMayWait; otherwise by asking the device often enough. pFps as the device takes it. Throws
  /// OXError when the device refuses.
  static std::unique_ptr<OXFrames> open(OXSession& pSession, const StreamRequest& pStream, int pFps,
                                        bool pMayWait = true);
  virtual ~OXFrames() = default;
  OXFrames(const OXFrames&) = delete;
  OXFrames& operator=(const OXFrames&) = delete;

  /// The subscriber's id at the device.
  const std::string& id() const { return fId; }
  /// Whether the broker says when a frame is there.
  virtual bool areAnnounced() const = 0;

  /// The next frame; empty when none has come within pWait or a signal has.
  virtual std::optional<CameraImage> next(std::chrono::milliseconds pWait) = 0;
  /// The newest image that there is, whether or not it was seen before; empty when the camera had
  /// none within a second.
  std::optional<CameraImage> newest();

  struct Request {
    double seconds = 0;
    bool isEmpty = false;  ///< the camera has had no frame, for a second at least
  };
  /// Calls pNote after each request.
  void onRequest(std::function<void(const Request&)> pNote) { fNote = std::move(pNote); }

  /// Frames that came and were passed over, as the broker counts them; empty when it doesn't.
  virtual std::optional<std::int64_t> skipped() { return {}; }

  /// Unsubscribes now. Throws OXError when that fails.
  virtual void end() = 0;

 protected:
  OXFrames(OXSession& pSession, std::string pId) : fSession(pSession), fId(std::move(pId)) {}
  /// Makes a request and notes it.
  std::optional<CameraImage> xRequest(const std::string& pModule, const std::string& pMethod,
                                      const OXValue& pArguments);
  /// Whether a request without an image has found the camera without frames.
  virtual bool xIsEmpty() = 0;

  OXSession& fSession;

 private:
  const std::string fId;
  std::function<void(const Request&)> fNote;
};

}  // namespace OX::cli
