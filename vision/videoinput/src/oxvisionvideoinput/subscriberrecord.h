/// The records of a subscriber. Plain data under fVisionModulesLock; the fields of a recording are
/// used by the call that has the subscriber's turn, also while the lock is paused.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "oxvisionbuffer.h"
#include "turn.h"

namespace OX {

class OXVideo;
class RecordingRecord;

/// What a subscriber asks of one camera.
struct RequestedCameraProperties {
  void demandAsWished() {
    fStreamResolution = fResolution;
    fStreamColorSpace = fColorSpace;
  }

  std::uint8_t fResolution = 1;
  std::uint8_t fColorSpace = 9;
  /// The buffer that the subscriber holds on this camera, which accounts for one of its read
  /// counts; null when it holds none. Shared: a buffer that was removed from the pool lives until
  /// its last release.
  boost::shared_ptr<OXVisionBuffer> fLockedImage;
  /// Whether a pair of buffers was made for this subscriber on this camera: only then is a pair
  /// removed when it unsubscribes.
  bool fHasBuffers = false;
  /// What its stream of frames of this camera delivers, whatever the wish becomes; -1: there is no
  /// such stream.
  int fStreamResolution = -1;
  int fStreamColorSpace = -1;
};

/// A subscriber: its identity, its wishes and its recording. Created by the subscribe operations,
/// removed from the map by unsubscribe; replies under way may share it for longer.
struct VisionModuleInfo {
  VisionModuleInfo();
  ~VisionModuleInfo();

  /// What it asks of one of the device's cameras. The index is not checked.
  RequestedCameraProperties& wish(int pCamera) const;

  std::string fName;  ///< the unique id, the same as the key in the map
  /// The number of the call that subscribed it, by which its connection owns it; 0 when nobody
  /// does.
  std::uint64_t fAcquisition = 0;
  /// One entry per camera of the device, index = camera index.
  std::vector<boost::shared_ptr<RequestedCameraProperties>> fRequestedProperties;
  bool fIsMultiStream = false;
  std::vector<int> fActiveCameras;  ///< of a multi-stream subscriber, in the caller's order
  int fActiveCamera = -1;           ///< negative: follows the device's active camera
  std::uint8_t fFrameRate = 0;      ///< images per second, one for all cameras
  bool fIsRecording = false;
  std::int32_t fRecordPeriod = 0;                 ///< one image in this many is written
  std::int32_t fRecordCountdown = 0;              ///< requests left until the next is written
  std::int32_t fRecordTotal = 0;                  ///< images to be written
  std::int32_t fRecordedCount = 0;                ///< images written so far
  std::unique_ptr<OXVideo> fVideo;                ///< the open recording
  boost::shared_ptr<RecordingRecord> fRecording;  ///< what is told of it; null when none is open
  int fStreamRate = 0;  ///< what streams of frames ask of their cameras, images per second
  /// Set when it is removed from the map, for replies and streams that still share the record.
  std::atomic<bool> fIsUnsubscribed{false};
  /// Had by a call from its look-up until its image is lent or its change is made, so that calls of
  /// one subscriber follow each other. Getters and the copying of a reply do without.
  Turn fTurn{"call of this subscriber"};
  OXWakeup fReleased;  ///< for changes that wait until it holds no image

  // Counters for the status (status/status.cpp). Changed in its turn and read by anyone, with the
  // lock held for reading: atomic, but never added to by two threads at once.
  void countServed(std::int64_t pNowUs, int pImages);
  void countHold(int pChange);
  /// A frame of a stream, outside of its turn.
  void countFrame(std::int64_t pNowUs);
  std::atomic<std::int64_t> fServedCount{0};   ///< images that it was served
  std::atomic<std::int64_t> fFrameCount{0};    ///< frames that its streams were served
  std::atomic<std::int64_t> fLastServedUs{0};  ///< when the last one was, by the device's clock
  std::atomic<int> fHoldCount{0};              ///< wishes with a fLockedImage
};

}  // namespace OX
