/// The record of a camera. Plain data under fVisionModulesLock, but for what is atomic in it.
#pragma once

#include <array>
#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <vector>

#include <oxframework/oxclock.h>
#include "oxvisionbuffer.h"

namespace OX {

/// The newest frame of a camera, read without a lock. Written by the concrete camera, under the
/// lock or in the turn that guards its frames.
struct NewestFrame {
  std::atomic<std::uint64_t> number{0};  ///< 0: none since the opening
  std::atomic<std::int64_t> arrivedUs{0};
  std::atomic<std::uint64_t> count{0};  ///< the highest number so far

  void set(const FrameMark& pMark) {
    arrivedUs = pMark.arrivedUs;
    number = pMark.number;
  }
};

/// What a camera runs at, and its buffers. Created by the concrete camera's constructor.
struct RealCameraProperties {
  int fWidth = 0;   ///< pixels
  int fHeight = 0;  ///< pixels
  int fCameraModel = 0;
  std::atomic<std::int8_t> fResolution{0};  ///< what it runs at; also read without the lock
  std::uint8_t fColorSpace = 0;             ///< what it delivers
  std::uint8_t fFrameRate = 0;              ///< what it runs at, images per second
  std::atomic<int> fGrabberState{0};        ///< a GrabberState
  int fBufferCount = 0;  ///< what kCameraBufferSizeID reads; nothing depends on it
  std::vector<boost::shared_ptr<OXVisionBuffer>> fImageBuffers;  ///< converted images
  std::vector<boost::shared_ptr<OXVisionBuffer>> fRawBuffers;    ///< raw images, as many
  /// How many conversions were begun. Requests that are answered by a shared image begin none.
  std::uint64_t fConversionCount = 0;
  /// While subscribers' wishes change the resolution: raw buffers take it when they are lent.
  bool fIsChanging = false;
  NewestFrame fNewestFrame;
  /// Buffers that left the pool of converted images while streams kept frames in them, and will
  /// take the place of the next ones that do.
  std::array<boost::shared_ptr<OXVisionBuffer>, 8> fSpareBuffers;
  OXWakeup fConversionEnded;  ///< for those who wait for a conversion that another request began
};

/// The states of a grabber, in an order that is relied on: up to kGrabberStopped it is off.
enum GrabberState : int {
  kGrabberFailed = -1,
  kGrabberStopped = 0,
  kGrabberOpening = 1,
  kGrabberClosing = 2,
  kGrabberRunning = 3,
};

}  // namespace OX
