/// A remote caller without a connection: the test decides when it has room for an answer.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/make_shared.hpp>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxcompletion.h>

namespace OX::test {

/// What one call was answered with.
struct FakeAnswer {
  std::mutex guard;
  std::optional<OXValue> value;
  std::optional<std::string> error;

  bool isThere() {
    const std::lock_guard hold(guard);
    return value || error;
  }
};

/// What it opens is nobody's.
class FakeCaller : public OXCallerContext {
 public:
  explicit FakeCaller(boost::shared_ptr<OXBroker> pBroker) : fBroker(std::move(pBroker)) {}
  void setClientName(const std::string&) override {}
  OXCaller getCaller() const override { return {.connection = 1000, .address = "fake"}; }

  template <typename... Arguments>
  boost::shared_ptr<FakeAnswer> ask(const std::string& pMethod, Arguments&&... pArguments) {
    const auto answer = boost::make_shared<FakeAnswer>();
    Deferral deferral(*this, answer);
    const Scope caller(this);
    const OXDeferral::Scope offer(&deferral);
    const OXValue result = fBroker->call("OXVideoStream", pMethod,
                                         OXValue::array(std::forward<Arguments>(pArguments)...));
    if (!deferral.fIsTaken) answer->value = result;
    return answer;
  }

  /// From now on there is room, or is not.
  void setRoom(bool pHasRoom) {
    std::vector<std::function<void()>> waiting;
    {
      const std::lock_guard hold(fGuard);
      fHasRoom = pHasRoom;
      if (pHasRoom) waiting.swap(fWaiting);
    }
    for (const auto& ready : waiting) ready();
  }
  std::size_t countWaitingForRoom() {
    const std::lock_guard hold(fGuard);
    return fWaiting.size();
  }

 private:
  struct Sink : OXCompletion::Sink {
    Sink(FakeCaller& pCaller, boost::shared_ptr<FakeAnswer> pAnswer)
        : caller(pCaller), given(std::move(pAnswer)) {}
    void answer(OXValue&& pResult, OXDescriptor&&) override {
      const std::lock_guard hold(given->guard);
      given->value = std::move(pResult);
    }
    void fail(const OXError& pError) override {
      const std::lock_guard hold(given->guard);
      given->error = pError.what();
    }
    bool takesDescriptor() const override { return false; }
    void whenReady(std::function<void()> pReady) override {
      {
        const std::lock_guard hold(caller.fGuard);
        if (!caller.fHasRoom) return caller.fWaiting.push_back(std::move(pReady));
      }
      pReady();
    }
    FakeCaller& caller;
    const boost::shared_ptr<FakeAnswer> given;
  };
  struct Deferral : OXDeferral {
    Deferral(FakeCaller& pCaller, boost::shared_ptr<FakeAnswer> pAnswer)
        : fCaller(pCaller), fAnswer(std::move(pAnswer)) {}
    OXCompletion defer() override {
      fIsTaken = true;
      return OXCompletion(std::make_unique<Sink>(fCaller, fAnswer));
    }
    FakeCaller& fCaller;
    const boost::shared_ptr<FakeAnswer> fAnswer;
    bool fIsTaken = false;
  };

  const boost::shared_ptr<OXBroker> fBroker;
  std::mutex fGuard;
  bool fHasRoom = true;
  std::vector<std::function<void()>> fWaiting;
};

}  // namespace OX::test
