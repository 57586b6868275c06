// The replies are read field by field from the front, so that a newer broker may add fields. They
// come from another process: every kind is checked, and what is wrong is said with its place.
#include "device/status.h"

#include <fmt/format.h>

#include <algorithm>

#include "device/jsonvalues.h"
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

constexpr const char* kService = "OXVideoStatus";

/// The fields of one array, in order.
class Fields {
 public:
  Fields(const OXValue& pValue, const char* pWhat) : fValue(pValue), fWhat(pWhat) {
    if (!fValue.isArray()) xRefuse();
  }

  int integer() {
    const OXValue& value = xNext();
    if (!value.isInt()) xRefuse();
    return value.toInt();
  }
  double number() {
    const OXValue& value = xNext();
    if (!value.isInt() && !value.isFloat()) xRefuse();
    return static_cast<double>(value.toFloat());
  }
  std::string text() {
    const OXValue& value = xNext();
    if (!value.isString()) xRefuse();
    return value.toString();
  }
  std::vector<int> integers() {
    std::vector<int> result;
    for (Fields list(xNext(), fWhat); !list.atEnd();) result.push_back(list.integer());
    return result;
  }
  /// Two integers, or 0 and 0 for an empty array.
  std::pair<int, int> pair() {
    const std::vector<int> values = integers();
    if (values.empty()) return {0, 0};
    if (values.size() != 2) xRefuse();
    return {values[0], values[1]};
  }
  FrameSize size() {
    const auto [width, height] = pair();
    return {width, height};
  }
  std::vector<FrameSize> sizes() {
    std::vector<FrameSize> result;
    for (Fields list(xNext(), fWhat); !list.atEnd();) result.push_back(list.size());
    return result;
  }
  std::int64_t stampUs() {
    const auto [seconds, micros] = pair();
    return std::int64_t{seconds} * 1000000 + micros;
  }
  bool atEnd() const { return fIndex >= fValue.getSize(); }

 private:
  const OXValue& xNext() {
    if (atEnd()) xRefuse();
    return fValue[fIndex++];
  }
  [[noreturn]] void xRefuse() const {
    throw OXFailure(
        fmt::format("the broker sent an invalid {}: {}", fWhat, printable(toJson(fValue))));
  }

  const OXValue& fValue;
  const char* fWhat;
  int fIndex = 0;
};

template <typename Status>
std::vector<Status> parseAll(const OXValue& pReply, const char* pWhat, Status (*pParse)(Fields)) {
  if (!pReply.isArray())
    throw OXFailure(fmt::format("the broker sent no list of each {}, but {}", pWhat,
                                OXValue::TypeToString(pReply.getType())));
  std::vector<Status> result;
  for (const OXValue& element : pReply.toArray()) result.push_back(pParse(Fields(element, pWhat)));
  return result;
}

CameraStatus parseCamera(Fields pFields) {
  CameraStatus camera;
  camera.index = pFields.integer();
  camera.model = pFields.integer();
  camera.size = pFields.size();
  camera.colorSpace = pFields.integer();
  camera.fps = pFields.integer();
  camera.grabber = pFields.integer();
  camera.sizes = pFields.sizes();
  camera.lowestFps = pFields.integer();
  camera.highestFps = pFields.integer();
  camera.stampUs = pFields.stampUs();
  camera.pushed = pFields.size();
  camera.feeder = pFields.text();
  camera.perSecond = pFields.number();
  camera.dropped = pFields.integer();
  camera.ageMs = pFields.integer();
  camera.isReplay = pFields.text() == "replay";
  return camera;
}

SubscriberStatus parseSubscriber(Fields pFields) {
  SubscriberStatus subscriber;
  subscriber.id = pFields.text();
  subscriber.owner = pFields.text();
  subscriber.cameras = pFields.integers();
  subscriber.sizes = pFields.sizes();
  subscriber.colorSpaces = pFields.integers();
  subscriber.fps = pFields.integer();
  subscriber.cameraFps = pFields.integers();
  subscriber.served = pFields.integer();
  subscriber.ageMs = pFields.integer();
  subscriber.held = pFields.integer();
  return subscriber;
}

RecordingStatus parseRecording(Fields pFields) {
  RecordingStatus recording;
  recording.id = pFields.text();
  recording.path = pFields.text();
  recording.images = pFields.integer();
  recording.bytes = pFields.number();
  recording.state = pFields.text();
  recording.reason = pFields.text();
  recording.missing = pFields.integer();
  recording.firstUs = pFields.stampUs();
  recording.lastUs = pFields.stampUs();
  return recording;
}

template <typename Status>
std::optional<std::vector<Status>> query(OXSession& pSession, const char* pMethod,
                                         std::vector<Status> (*pParse)(const OXValue&)) {
  if (!pSession.hasModule(kService)) return std::nullopt;
  return pParse(pSession.call(kService, pMethod, OXValue(OXValue::Array())));
}

}  // namespace

std::vector<CameraStatus> parseCameras(const OXValue& pReply) {
  return parseAll(pReply, "camera", parseCamera);
}

std::vector<SubscriberStatus> parseSubscribers(const OXValue& pReply) {
  return parseAll(pReply, "subscriber", parseSubscriber);
}

std::vector<RecordingStatus> parseRecordings(const OXValue& pReply) {
  return parseAll(pReply, "recording", parseRecording);
}

std::optional<std::vector<CameraStatus>> queryCameras(OXSession& pSession) {
  return query(pSession, "getCameras", parseCameras);
}

std::optional<std::vector<SubscriberStatus>> querySubscribers(OXSession& pSession) {
  return query(pSession, "getSubscribers", parseSubscribers);
}

std::optional<std::vector<RecordingStatus>> queryRecordings(OXSession& pSession) {
  return query(pSession, "getRecordings", parseRecordings);
}

std::optional<CameraStatus> queryCamera(OXSession& pSession, int pCamera) {
  const auto cameras = queryCameras(pSession);
  if (cameras)
    for (const CameraStatus& camera : *cameras)
      if (camera.index == pCamera) return camera;
  return std::nullopt;
}

std::optional<RecordingStatus> queryRecording(OXSession& pSession, const std::string& pId) {
  const auto recordings = queryRecordings(pSession);
  if (!recordings) return std::nullopt;
  const auto found = std::find_if(recordings->rbegin(), recordings->rend(),
                                  [&](const RecordingStatus& r) { return r.id == pId; });
  return found == recordings->rend() ? std::nullopt : std::optional(*found);
}

}  // namespace OX::cli
