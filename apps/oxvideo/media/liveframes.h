/// Reads a source that comes at its own pace on a thread of its own, and keeps the newest frame.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>

#include "media/ffmpeg.h"
#include "media/mediareader.h"

namespace OX::cli {

/// The reader is only touched by the thread, until that has ended.
class OXLiveFrames {
 public:
  /// A frame and its number, from 1.
  struct Frame {
    FrameOwner frame;
    Orientation orientation;
    std::int64_t number = 0;
  };

  /// Borrows the reader.
  explicit OXLiveFrames(OXMediaReader& pReader);
  /// Ends the thread, also while it waits for the source.
  ~OXLiveFrames();
  OXLiveFrames(const OXLiveFrames&) = delete;
  OXLiveFrames& operator=(const OXLiveFrames&) = delete;

  /// Waits for the first frame, the end or a failure; the reader bounds that.
  void waitForFirst();
  /// The newest frame, if one has come since the last call; otherwise empty. Throws what the reader
  /// threw, once all frames before have been taken.
  Frame take();
  /// Whether the source has ended and the last frame was taken.
  bool isOver() const;

 private:
  void xRead();

  OXMediaReader& fReader;
  mutable std::mutex fGuard;
  std::condition_variable fChanged;
  Frame fNewest;
  std::int64_t fCount = 0;
  bool fEnded = false;
  std::exception_ptr fFailure;
  std::thread fThread;  ///< the last member: it uses the others
};

}  // namespace OX::cli
