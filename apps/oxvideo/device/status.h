/// What the service OXVideoStatus of a broker tells, decoded. Older brokers don't have it: every
/// query is then empty, and verbs say less. A session remembers which one it talks to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <oxframework/oxvalue.h>
#include "device/session.h"
#include "media/framesize.h"

namespace OX::cli {

struct CameraStatus {
  int index = 0;
  int model = 0;
  FrameSize size;                ///< what it runs at
  int colorSpace = 0;            ///< what it delivers
  int fps = 0;                   ///< what it runs at
  int grabber = 0;               ///< -1 failed, 0 stopped, 1 opening, 2 closing, 3 running
  std::vector<FrameSize> sizes;  ///< that it can do
  int lowestFps = 0, highestFps = 0;
  /// Of the last push or replay step, microseconds since 1970 by the broker's clock; 0: none yet.
  std::int64_t stampUs = 0;
  FrameSize pushed;    ///< its size as it came; 0x0: none yet
  std::string feeder;  ///< who pushed it: a client's name or address, "local"
  double perSecond = 0;
  int dropped = 0;
  int ageMs = -1;  ///< milliseconds since it came; -1: none yet
  bool isReplay = false;

  /// Whether somebody feeds it: the last push or replay step is no older than two seconds.
  bool isFed() const { return ageMs >= 0 && ageMs <= 2000; }
};

struct SubscriberStatus {
  std::string id;
  std::string owner;  ///< the connection; "": nobody's
  std::vector<int> cameras;
  std::vector<FrameSize> sizes;  ///< asked for, one a camera
  std::vector<int> colorSpaces;  ///< asked for, one a camera
  int fps = 0;                   ///< asked for
  std::vector<int> cameraFps;    ///< what its cameras run at, one each
  int served = 0;
  int ageMs = -1;  ///< milliseconds since it was served last; -1: never
  int held = 0;
};

struct RecordingStatus {
  std::string id;    ///< of the subscriber
  std::string path;  ///< on the broker's machine
  int images = 0;
  double bytes = 0;    ///< of pixels, to seven digits
  std::string state;   ///< "recording", "complete", "stopped", "failed"
  std::string reason;  ///< why it ended; "" while it records
  int missing = 0;
  std::int64_t firstUs = 0, lastUs = 0;  ///< stamps of the first and the last image
};

/// All throw OXFailure for a malformed reply, and OXError as OXSession::call() does.
std::optional<std::vector<CameraStatus>> queryCameras(OXSession& pSession);
std::optional<std::vector<SubscriberStatus>> querySubscribers(OXSession& pSession);
std::optional<std::vector<RecordingStatus>> queryRecordings(OXSession& pSession);
/// One camera; also empty when the device does not have it.
std::optional<CameraStatus> queryCamera(OXSession& pSession, int pCamera);
/// The latest recording of a subscriber; also empty when there is none.
std::optional<RecordingStatus> queryRecording(OXSession& pSession, const std::string& pId);

/// The decoding alone.
std::vector<CameraStatus> parseCameras(const OXValue& pReply);
std::vector<SubscriberStatus> parseSubscribers(const OXValue& pReply);
std::vector<RecordingStatus> parseRecordings(const OXValue& pReply);

}  // namespace OX::cli
