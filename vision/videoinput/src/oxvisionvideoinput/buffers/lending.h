/// The parts that a camera plays when the device lends one of its frames.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

namespace OX {

class OXImage;

/// A frame of a camera, counted by the camera as lent once more.
struct AcquiredFrame {
  const OXImage* image = nullptr;  ///< null: there is none, and a record says why
  boost::shared_ptr<void> source;  ///< keeps the pixels alive; handed back to xReturnRawSource
  std::int8_t cameraId = 0;
  /// Whether the lent image takes the frame's size and colour space: false where the camera's
  /// settings have brought the buffer to it already.
  bool setsFormat = false;
};

/// The words of one camera for the steps that all cameras share.
struct LendingTexts {
  const char* category;         ///< of the records
  const char* afterId;          ///< "): " or ") : "
  const char* releaseFunction;  ///< how the release calls itself
  std::string (*notReleased)(const std::string& pModule, const std::string& pId);
  std::string (*unknownAtRelease)(const std::string& pId);
};

}  // namespace OX
