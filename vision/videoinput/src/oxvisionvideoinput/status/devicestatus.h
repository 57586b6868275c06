/// What a device tells about its own state: a read-only view, and the copies that it returns.
///
/// The view changes nothing and waits for nobody: each operation copies what it returns in one hold
/// of fVisionModulesLock for reading. Images, recordings and subscriptions are where they were.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace OX {

/// What came to a camera lately.
struct FeedStatus {
  bool isReplay = false;      ///< images come from a recording, and only when somebody asks
  bool isFed = false;         ///< whether anything came so far; the next four have a meaning then
  std::int64_t stampUs = 0;   ///< of the last push or replay step, microseconds since 1970
  int width = 0, height = 0;  ///< of that frame as it came, pixels
  std::int64_t ageUs = 0;     ///< microseconds since it came, by the device's own clock
  std::string feeder;         ///< who pushed it: a client's name or address, "local"; replay: ""
  double perSecond = 0;       ///< frames a second, over the last two seconds
  std::uint64_t dropped = 0;  ///< frames that came and were never served
};

struct CameraStatus {
  int index = 0;
  int model = 0;
  int width = 0, height = 0;     ///< what it runs at, pixels; -1 for a resolution without a size
  int colorSpace = 0;            ///< what it delivers
  int frameRate = 0;             ///< what it runs at, images a second
  int grabberState = 0;          ///< a GrabberState
  std::vector<int> resolutions;  ///< those that subscribers may ask for, rising
  int lowestRate = 0, highestRate = 0;  ///< that it can run at, images a second
  FeedStatus feed;
};

struct SubscriberStatus {
  std::string id;
  std::vector<int> cameras;  ///< empty when its camera does not exist
  // One entry a camera.
  std::vector<int> resolutions;
  std::vector<int> colorSpaces;
  std::vector<int> cameraRates;  ///< what the camera runs at, images a second
  int frameRate = 0;             ///< what it asks for, images a second
  std::int64_t served = 0;       ///< images so far, of all cameras
  std::int64_t ageUs = -1;       ///< microseconds since the last one; -1: none so far
  int holds = 0;                 ///< images that it has and did not release
};

enum class RecordingState { kRecording, kComplete, kStopped, kFailed };

struct RecordingStatus {
  std::string id;    ///< of the subscriber
  std::string path;  ///< as it was passed
  std::int64_t images = 0;
  std::uint64_t bytes = 0;  ///< of pixels
  RecordingState state = RecordingState::kRecording;
  std::string reason;                    ///< why it ended; "" while it records
  std::uint64_t missing = 0;             ///< images between those recorded, by the rate asked for
  std::int64_t firstUs = 0, lastUs = 0;  ///< stamps of the first and the last image
  int wanted = 0;                        ///< images to be recorded
  int frameRate = 0;                     ///< asked for when it began, images a second
  int period = 1;                        ///< one image in this many is recorded
};

/// Thread-safe.
class DeviceStatus {
 public:
  virtual ~DeviceStatus() = default;
  virtual std::vector<SubscriberStatus> subscriberStatus() const = 0;  ///< by id
  virtual std::vector<CameraStatus> cameraStatus() const = 0;          ///< by index
  /// In the order of their beginning: those under way, and the last 64 that have ended.
  virtual std::vector<RecordingStatus> recordingStatus() const = 0;
};

}  // namespace OX
