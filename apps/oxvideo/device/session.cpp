// Subscriptions end whatever happens: one that is left over keeps its camera at its frame rate and
// its buffers in memory.
#include "device/session.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string_view>

#include <oxframework/oxerror.h>
#include <oxframework/oxremotebroker.h>
#include "device/connecting.h"
#include "device/status.h"
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

// Longer than an unsubscribe may take, which waits up to ten seconds for a held image.
constexpr std::chrono::seconds kAnswerLimit{20};
// More cameras than any device has: bounds the search in one that accepts every index.
constexpr int kMostCameras = 256;

/// How long a call is meant to wait for a frame, beyond what any call may take.
std::chrono::milliseconds waitOf(const std::string& pModule, const std::string& pMethod,
                                 const OXValue& pArguments) {
  const bool waits = pModule == "OXVideoStream" && pMethod.starts_with("next") &&
                     pArguments.isArray() && pArguments.getSize() > 1 && pArguments[1].isInt();
  return std::chrono::milliseconds(waits ? std::max(pArguments[1].toInt(), 0) : 0);
}

OXValue::Array column(const std::vector<StreamRequest>& pStreams, int StreamRequest::*pField) {
  OXValue::Array result;
  for (const StreamRequest& stream : pStreams) result.emplace_back(stream.*pField);
  return result;
}

}  // namespace

OXSession::OXSession(const std::string& pAddress, const std::string& pVerb)
    : fAddress(pAddress),
      fName(fmt::format("oxvideo_{}_{}", pVerb, ::getpid())),
      fBroker(connectToBroker(pAddress, fName)) {
  fBroker->setTimeout(kAnswerLimit);
}

OXValue OXSession::call(const std::string& pModule, const std::string& pMethod,
                        const OXValue& pArguments) {
  return fBroker->call(pModule, pMethod, pArguments, waitOf(pModule, pMethod, pArguments));
}

void OXSession::listen(Listener pListener) {
  fBroker->setListener([listener = std::move(pListener)](const std::string&, const std::string&,
                                                         const OXValue& pArguments) {
    if (pArguments.isArray() && pArguments.getSize() >= 2 && pArguments[0].isString())
      listener(pArguments[0].toString(), pArguments[1]);
  });
}

std::string OXSession::nextSubscriberId() { return fmt::format("{}_{}", fName, ++fSubscriptions); }

bool OXSession::isLocal() const {
  for (const char* begin : {"unix:", "127.", "localhost:", "[::1]:"})
    if (fAddress.starts_with(begin)) return true;
  return false;
}

bool OXSession::isConnected() const { return fBroker->isConnected(); }

bool OXSession::hasModule(const std::string& pName) {
  if (!fModules) {
    fModules.emplace();
    const OXValue modules = call("OXBroker", "getModuleList", OXValue(OXValue::Array()));
    for (const OXValue& module : modules.toArray()) fModules->push_back(module.toString());
  }
  return std::find(fModules->begin(), fModules->end(), pName) != fModules->end();
}

int OXSession::countCameras() {
  if (const auto cameras = queryCameras(*this)) return static_cast<int>(cameras->size());
  int count = 0;
  try {
    while (count < kMostCameras) {
      device("getCameraModel", count);
      ++count;
    }
    // The device has no method that counts its cameras; this is its error for an index past the
    // last.
  } catch (const OXError& error) {
    if (!std::string_view(error.what()).ends_with("invalid Camera index")) throw;
  }
  return count;
}

bool OXSession::xDeviceHas(const std::string& pMethod) {
  const OXValue methods = call("OXBroker", "getMethodList", OXValue::array("OXVideoDevice"));
  for (const OXValue& method : methods.toArray())
    if (method[0].toString() == pMethod) return true;
  return false;
}

void OXSession::requireFileCamera() {
  if (!xDeviceHas("setVideo"))
    throw OXFailure(
        "this broker's device is not a file camera\n"
        "  to get one, end it and start: " +
        printable(brokerCommand(fAddress, "--source file ")));
}

OXSubscription::OXSubscription(OXSession& pSession, const StreamRequest& pStream, int pFps)
    : fSession(pSession),
      fId(xSubscribe("subscribeCamera",
                     OXValue::array(pSession.nextSubscriberId(), pStream.camera, pStream.resolution,
                                    pStream.colorSpace, pFps))) {}

OXSubscription::OXSubscription(OXSession& pSession, const std::vector<StreamRequest>& pStreams,
                               int pFps)
    : fSession(pSession),
      fId(xSubscribe(
          "subscribeCameras",
          OXValue::array(pSession.nextSubscriberId(), column(pStreams, &StreamRequest::camera),
                         column(pStreams, &StreamRequest::resolution),
                         column(pStreams, &StreamRequest::colorSpace), pFps))) {}

std::string OXSubscription::xSubscribe(const std::string& pMethod, const OXValue& pArguments) {
  try {
    return fSession.call("OXVideoDevice", pMethod, pArguments).toString();
  } catch (const OXError&) {
    // If the camera can't be started the device refuses, but keeps the subscriber.
    try {
      fSession.device("unsubscribe", pArguments[0]);
    } catch (const OXError&) {
      fActive = false;
    }
    throw;
  }
}

OXSubscription::~OXSubscription() {
  try {
    end();
  } catch (const OXError&) {
    // The broker is gone or has dropped this connection, and the subscription with it.
    fActive = false;
  }
}

void OXSubscription::end() {
  if (!fActive) return;
  // Before the call: if it fails, the destructor must not try again.
  fActive = false;
  fSession.device("unsubscribe", fId);
}

std::optional<CameraImage> OXSubscription::image() {
  return parseImageReply(fSession.device("getImageRemote", fId));
}

std::optional<CameraImage> OXSubscription::rawImage() {
  return parseImageReply(fSession.device("getDirectRawImageRemote", fId));
}

std::vector<std::optional<CameraImage>> OXSubscription::images() {
  return parseImagesReply(fSession.device("getImagesRemote", fId));
}

std::int64_t wallClockUs() {
  using namespace std::chrono;
  return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace OX::cli
