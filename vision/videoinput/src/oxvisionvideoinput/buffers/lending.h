/// What a camera supplies when the device lends one of its frames.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include <oxframework/oximage.h>
#include "oxvisionbuffer.h"

namespace OX {

/// A frame of a camera, which the camera has counted as lent once more.
struct AcquiredFrame {
  const OXImage* image = nullptr;  ///< borrowed from source; null: no frame, a record says why
  boost::shared_ptr<void> source;  ///< keeps the pixels alive; returned to xReturnRawSource
  std::int8_t cameraId = 0;
  /// Whether the lent image takes the frame's size and colour space; false if the camera's settings
  /// have already given the buffer that format.
  bool setsFormat = false;
  FrameMark mark{};
};

/// A frame of a camera, as streams read it: with its fields as they were when it was counted as
/// lent. xReturnLent() takes the source back.
struct LentFrame {
  std::optional<OXImage> image;    ///< a view
  boost::shared_ptr<void> source;  ///< null: there is no newer frame
  FrameMark mark{};
  bool isFailed = false;  ///< it could not be had, and a record says why
};

/// One camera's texts for the steps that all cameras share. Clients match on them.
struct LendingTexts {
  const char* category;         ///< of the records
  const char* afterId;          ///< "): " or ") : "
  const char* releaseFunction;  ///< the release's name in records
  std::string (*notReleased)(const std::string& pModule, const std::string& pId);
  std::string (*unknownAtRelease)(const std::string& pId);
};

}  // namespace OX
