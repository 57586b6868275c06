// A link from a broker goes by that broker's proxy, as one from another process does. It remembers
// the broker only to find the device itself, each time anew: the device may end before the link.
#include <oxclient/oxdevicelink.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxmodule.h>
#include <oxvision/ivideoinput.h>

#include <utility>

namespace OX {
namespace {

constexpr const char* kDevice = "OXVideoDevice";

[[noreturn]] void fail(const char* pFunction, const std::string& pText, unsigned int pLine) {
  throw OXError("OXVideoDeviceProxy", pFunction, pText, "clients/cpp/src/oxdevicelink", pLine);
}

boost::shared_ptr<OXProxy> proxyOf(const boost::shared_ptr<OXBroker>& pBroker) {
  if (!pBroker) fail("OXVideoDeviceProxy", "There is no broker to find the device by", __LINE__);
  return pBroker->getProxy(kDevice);
}

}  // namespace

OXDeviceLink::OXDeviceLink(const boost::shared_ptr<OXBroker>& pBroker)
    : fBroker(pBroker), fIsLocal(true), fProxy(proxyOf(pBroker)) {}

OXDeviceLink::OXDeviceLink(boost::shared_ptr<OXProxy> pProxy)
    : fIsLocal(false), fProxy(std::move(pProxy)) {
  if (!fProxy) fail("OXVideoDeviceProxy", "There is no proxy to reach the device by", __LINE__);
}

OXImage* OXDeviceLink::lend(OXImage* (IVideoInput::*pOperation)(const std::string&),
                            const char* pMethod, const char* pRemoteMethod,
                            const std::string& pName) const {
  if (!fIsLocal)
    fail(pMethod,
         std::string("An image of another process has no pointer here, use ") + pRemoteMethod +
             " instead",
         __LINE__);
  const boost::shared_ptr<OXBroker> broker = fBroker.lock();
  // Held during the call: the device cannot end while it lends.
  const boost::shared_ptr<OXModuleCore> module =
      broker ? broker->getModule(kDevice) : boost::shared_ptr<OXModuleCore>();
  IVideoInput* const device = dynamic_cast<IVideoInput*>(module.get());
  if (!device) fail(pMethod, "The device of this process is gone", __LINE__);
  return (device->*pOperation)(pName);
}

}  // namespace OX
