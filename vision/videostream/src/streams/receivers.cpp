#include "receivers.h"

#include <span>
#include <utility>

#include "memory/aheadframe.h"
#include "reply.h"

namespace OX {
namespace {

class CallReceiver : public Receiver {
 public:
  CallReceiver(OXCompletion pCompletion, AnswerForm pForm)
      : fCompletion(std::move(pCompletion)), fForm(std::move(pForm)) {}
  bool isOver() const override { return fCompletion.isOver(); }
  void giveNothing() override { fCompletion.answer(OXValue()); }
  void fail(const OXError& pError) override { fCompletion.fail(pError); }

 protected:
  void xAnswer(OXValue&& pValue) {
    const OXDurationScope scope(fForm.durations->send);
    fCompletion.answer(std::move(pValue));
  }

  const OXCompletion fCompletion;
  const AnswerForm fForm;
};

/// A frame for another process is taken when it would be sent at once: one that waits in a queue
/// grows old there, and keeps its buffer from the device. Unless it is wanted now or never.
class SocketReceiver final : public CallReceiver {
 public:
  using CallReceiver::CallReceiver;
  bool mustBeReady() const override { return !fForm.isLocal && fForm.mayWait; }
  void whenReady(std::function<void()> pReady) override {
    fCompletion.whenReady(std::move(pReady));
  }
  void give(std::span<Frame> pFrames) override { xAnswer(xReply(pFrames)); }

 private:
  OXValue xReply(std::span<Frame> pFrames) const {
    if (!fForm.isMulti && !fForm.isLocal) return lentReply(std::move(pFrames[0]));
    const OXDurationScope scope(fForm.durations->join);
    return fForm.isMulti ? joinedReply(pFrames) : copiedReply(pFrames[0]);
  }
};

/// Has slots from before a frame is taken until it is answered with, when they are the client's.
class SharedReceiver final : public CallReceiver {
 public:
  SharedReceiver(OXCompletion pCompletion, AnswerForm pForm, boost::shared_ptr<Segment> pSegment)
      : CallReceiver(std::move(pCompletion), std::move(pForm)), fSegment(std::move(pSegment)) {}
  ~SharedReceiver() override { xPutBack(); }

  void giveNothing() override {
    xPutBack();
    CallReceiver::giveNothing();
  }

  bool prepare(std::vector<FrameTarget>& pTargets, std::size_t pCount) override {
    if (fSlots.empty()) fSlots = fSegment->slots().take(pCount);
    for (const Slots::Slot& slot : fSlots) pTargets.push_back(fSegment->target(slot.index));
    return !fSlots.empty();
  }

  bool adopt(AheadFrame& pAhead) override {
    if (fForm.isRaw || !fSlots.empty()) return false;
    fSlots.push_back(pAhead.takeSlot());
    return true;
  }

  void give(std::span<Frame> pFrames) override {
    OXValue::Array images;
    std::vector<Slots::Slot> unused;
    for (std::size_t i = 0; i < pFrames.size(); ++i) {
      if (pFrames[i])
        fSegment->slots().give(fSlots[i]);
      else
        unused.push_back(fSlots[i]);
      images.push_back(pFrames[i] ? sharedReply(pFrames[i], *fSegment, fSlots[i]) : OXValue());
    }
    fSlots = std::move(unused);
    if (fForm.isMulti)
      xAnswer(std::move(images));
    else
      xAnswer(std::move(images[0]));
  }

 private:
  void xPutBack() {
    for (const Slots::Slot& slot : fSlots) fSegment->slots().putBack(slot);
    fSlots.clear();
  }

  const boost::shared_ptr<Segment> fSegment;
  std::vector<Slots::Slot> fSlots;  ///< taken and not given
};

}  // namespace

std::unique_ptr<Receiver> makeReceiver(OXCompletion pCompletion, const AnswerForm& pForm) {
  return std::make_unique<SocketReceiver>(std::move(pCompletion), pForm);
}

std::unique_ptr<Receiver> makeSharedReceiver(OXCompletion pCompletion, const AnswerForm& pForm,
                                             boost::shared_ptr<Segment> pSegment) {
  return std::make_unique<SharedReceiver>(std::move(pCompletion), pForm, std::move(pSegment));
}

}  // namespace OX
