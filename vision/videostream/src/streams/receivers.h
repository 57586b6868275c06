/// Callers of published methods that wait for a frame.
#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <memory>
#include <vector>

#include <oxframework/oxcompletion.h>
#include "durations.h"
#include "memory/segment.h"
#include "request.h"

namespace OX {

/// What the answers of a stream have in common.
struct AnswerForm {
  bool isMulti = false;  ///< a list of images
  bool isLocal = false;  ///< to a caller of this process, which may keep it
  bool mayWait = true;   ///< for room to send it
  bool isRaw = false;
  boost::shared_ptr<StreamDurations> durations{};
};

/// Answers with the pixels.
std::unique_ptr<Receiver> makeReceiver(OXCompletion pCompletion, const AnswerForm& pForm);
/// Answers with the places of the pixels in shared memory.
std::unique_ptr<Receiver> makeSharedReceiver(OXCompletion pCompletion, const AnswerForm& pForm,
                                             boost::shared_ptr<Segment> pSegment);

}  // namespace OX
