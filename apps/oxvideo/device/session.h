/// A connection to a broker and the subscriptions made over it.
#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <oxframework/oxvalue.h>
#include "device/imagereply.h"

namespace OX {
class OXRemoteBroker;
}

namespace OX::cli {

/// A connection, registered with the broker under a name. One thread only.
class OXSession {
 public:
  /// Throws OXFailure that names the address and says how to start a broker there.
  OXSession(const std::string& pAddress, const std::string& pVerb);

  /// Throws OXError: raised by the method, or for a lost connection or no answer within 20 s,
  /// to which a request for a frame adds the time that it may wait.
  OXValue call(const std::string& pModule, const std::string& pMethod, const OXValue& pArguments);

  /// The same for the video device.
  template <typename... Arguments>
  OXValue device(const std::string& pMethod, Arguments&&... pArguments) {
    return call("OXVideoDevice", pMethod, OXValue::array(std::forward<Arguments>(pArguments)...));
  }

  /// Calls pListener for each event with its name and value, on another thread: it must neither
  /// call this session nor throw. For events that were subscribed to under this connection's name.
  using Listener = std::function<void(const std::string& pEvent, const OXValue& pValue)>;
  void listen(Listener pListener);
  /// Whether the broker is on this machine, by its address: its files are then ours too.
  bool isLocal() const;
  /// Whether the connection still stands: when not, every call throws.
  bool isConnected() const;

  /// Whether the broker has a module. Asks once: what is loaded later is not seen.
  bool hasModule(const std::string& pName);

  /// The number of cameras: told by OXVideoStatus, of an older broker found by trying one index
  /// after the other.
  int countCameras();

  /// Throws OXFailure that says how to get a file camera, unless the device is one.
  void requireFileCamera();

  /// A unique subscriber id such as "oxvideo_watch_4711_1".
  std::string nextSubscriberId();

 private:
  bool xDeviceHas(const std::string& pMethod);

  std::string fAddress;
  std::string fName;
  int fSubscriptions = 0;
  std::optional<std::vector<std::string>> fModules;
  boost::shared_ptr<OXRemoteBroker> fBroker;
};

/// What to subscribe to on one camera.
struct StreamRequest {
  int camera = 0;
  int resolution = 0;
  int colorSpace = 0;
};

/// One subscription; its destructor unsubscribes. Borrows the session, which must live longer.
class OXSubscription {
 public:
  /// Throws OXError when the device refuses.
  OXSubscription(OXSession& pSession, const StreamRequest& pStream, int pFps);
  OXSubscription(OXSession& pSession, const std::vector<StreamRequest>& pStreams, int pFps);
  ~OXSubscription();
  OXSubscription(const OXSubscription&) = delete;
  OXSubscription& operator=(const OXSubscription&) = delete;

  /// The subscriber's id.
  const std::string& id() const { return fId; }

  /// The newest image; empty when the camera had none within a second.
  std::optional<CameraImage> image();
  /// The same for raw images.
  std::optional<CameraImage> rawImage();
  /// One entry per stream, in order; no entries when the device had no images.
  std::vector<std::optional<CameraImage>> images();

  /// Unsubscribes now. Throws OXError when that fails.
  void end();

 private:
  std::string xSubscribe(const std::string& pMethod, const OXValue& pArguments);

  OXSession& fSession;
  std::string fId;
  bool fActive = true;
};

/// Microseconds since 1970, now.
std::int64_t wallClockUs();

}  // namespace OX::cli
