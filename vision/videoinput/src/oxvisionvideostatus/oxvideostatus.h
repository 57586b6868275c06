/// The service OXVideoStatus: what the video device is doing, for programs that look after it.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <oxframework/oxmodule.h>
#include <oxframework/oxvalue.h>

namespace OX {

class DeviceStatus;

/// A module beside the device, whose publications are complete. It reads the device's state through
/// DeviceStatus, changes nothing and waits for nobody. Made after the device, which it does not
/// keep alive; the broker owns both. Thread-safe.
class OXVideoStatus : public OXModule {
 public:
  /// Throws OXError when the broker has no video device.
  explicit OXVideoStatus(boost::shared_ptr<OXBroker> pBroker);

  // Published; the arrays are described in oxvideostatus.cpp. Throw OXError once the device has
  // ended.
  OXValue getSubscribers();
  OXValue getCameras();
  OXValue getRecordings();

 private:
  boost::shared_ptr<const DeviceStatus> xDevice(const char* pMethod) const;

  boost::weak_ptr<const DeviceStatus> fDevice;
};

}  // namespace OX
