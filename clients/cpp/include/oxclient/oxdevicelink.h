/// The way from the typed proxy to a device, in the same process or in another one.
#pragma once

#include <oxframework/oxbroker.h>
#include <oxframework/oximage.h>
#include <oxframework/oxproxies.h>
#include <oxframework/oxvalue.h>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <string>

namespace OX {

class IVideoInput;

/// Calls methods by name; in the same process it also reaches the device itself, since a pointer
/// does not cross the broker. Thread-safe. It keeps a remote connection, and no broker.
class OXDeviceLink {
 public:
  /// To the device of this process. Throws OXError for null, and when the broker has no module
  /// "OXVideoDevice".
  explicit OXDeviceLink(const boost::shared_ptr<OXBroker>& pBroker);
  /// To the device of another process. Throws OXError for null.
  explicit OXDeviceLink(boost::shared_ptr<OXProxy> pProxy);

  /// Calls a method by its published name. Throws the OXError of the device or of the way to it.
  template <typename... Arguments>
  OXValue call(const char* pMethod, const Arguments&... pArguments) const {
    return fProxy->call(pMethod, pArguments...);
  }

  /// An image that an operation of the device lends; null when there is none. From another process
  /// it throws OXError, which names the method to call instead, and leaves the device alone.
  OXImage* lend(OXImage* (IVideoInput::*pOperation)(const std::string&), const char* pMethod,
                const char* pRemoteMethod, const std::string& pName) const;

 private:
  boost::weak_ptr<OXBroker> fBroker;
  bool fIsLocal;
  boost::shared_ptr<OXProxy> fProxy;
};

}  // namespace OX
