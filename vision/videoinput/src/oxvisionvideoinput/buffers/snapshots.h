/// The images of one multi-stream reply between the lock and the copy of their pixels.
#pragma once

#include <memory>
#include <vector>

#include "oxvisionvideoinput.h"
#include "readpin.h"

namespace OX {

/// Made with fVisionModulesLock held for writing: takes the headers of the images and a pin on
/// each. join() and the destructor run without the lock.
class OXVisionVideoInput::Snapshots {
 public:
  /// pImages: one for each of the first pImages.size() cameras of the subscriber; may hold nulls.
  Snapshots(OXVisionVideoInput& pDevice, const VisionModuleInfo& pModule,
            const std::vector<OXImage*>& pImages);

  /// The arrays of all images, each with an empty array in place of its pixels (or an empty array
  /// in place of the whole for a null image), and behind them one binary with the pixels of all.
  OXValue join() const;

 private:
  std::vector<std::unique_ptr<OXImage>> fViews;
  std::vector<std::unique_ptr<ReadPin>> fPins;
};

}  // namespace OX
