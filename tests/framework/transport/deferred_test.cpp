// Calls that are answered later: by whom, and whatever becomes of their callers.
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <thread>

#include <oxframework/oxcompletion.h>
#include <oxframework/oxproxies.h>
#include "served_broker.h"
#include "support/raw_client.h"

namespace OX::test {
namespace {

/// Keeps completions until it is told to end them.
class Bell : public OXModule {
 public:
  explicit Bell(boost::shared_ptr<OXBroker> pBroker) : OXModule(std::move(pBroker), "Bell") {
    functionName("wait", "Bell", "Waits for ring()");
    completeAndCheck(&Bell::wait, getCurrentMethodDescription());
    bindMethod(createFunctor(this, &Bell::wait));
    functionName("relay", "Bell", "Calls wait() itself");
    completeAndCheck(&Bell::relay, getCurrentMethodDescription());
    bindMethod(createFunctor(this, &Bell::relay));
  }

  void wait(const std::string& pWhat, OXCompletion pCompletion) {
    if (pWhat == "throws") raiseError("Bell", "wait", "broken");
    if (pWhat == "drops") return;
    if (pWhat == "now") return pCompletion.answer("at once");
    pCompletion.onCancel([this] { ++cancelled; });
    const std::lock_guard hold(guard);
    waiting.push_back(std::move(pCompletion));
    ++begun;
  }

  OXValue relay(const std::string& pWhat) {
    return getParentBroker()->call("Bell", "wait", OXValue::array(pWhat));
  }

  void ring(const OXValue& pAnswer) {
    std::vector<OXCompletion> all;
    {
      const std::lock_guard hold(guard);
      all.swap(waiting);
    }
    for (const OXCompletion& one : all) {
      one.answer(pAnswer);
      one.answer("a second answer");  // does nothing
    }
  }

  std::mutex guard;
  std::vector<OXCompletion> waiting;
  std::atomic<int> begun{0};
  std::atomic<int> cancelled{0};
};

/// Answers with a descriptor.
class Lender : public OXModule {
 public:
  explicit Lender(boost::shared_ptr<OXBroker> pBroker) : OXModule(std::move(pBroker), "Lender") {
    functionName("lend", "Lender", "A file that holds the text, and so many bytes");
    completeAndCheck(&Lender::lend, getCurrentMethodDescription());
    bindMethod(createFunctor(this, &Lender::lend));
  }
  void lend(const std::string& pText, int pBytes, OXCompletion pCompletion) {
    OXDescriptor file(::memfd_create("lent", MFD_CLOEXEC));
    EXPECT_EQ(::write(file.number(), pText.data(), pText.size()),
              static_cast<ssize_t>(pText.size()));
    OXValue bytes;
    bytes.SetBinary(std::string(static_cast<std::size_t>(pBytes), 'b').data(), pBytes);
    pCompletion.answer(OXValue::array(pText, bytes), std::move(file));
  }
};

std::string contentOf(const OXDescriptor& pFile) {
  char text[64];
  const ssize_t size = ::pread(pFile.number(), text, sizeof text, 0);
  return size < 0 ? "none" : std::string(text, static_cast<std::size_t>(size));
}

std::ptrdiff_t countDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

class Deferred : public ServedBroker {
 protected:
  void startWithBell(const OXWireLimits& pLimits = {}, int pMaxThreads = 128) {
    start(pLimits, pMaxThreads);
    bell = OXModule::createModule<Bell>(broker);
  }
  std::future<OXValue> wait(const boost::shared_ptr<OXRemoteBroker>& pClient) {
    return std::async(std::launch::async,
                      [pClient] { return pClient->call("Bell", "wait", OXValue::array("ring")); });
  }
  bool awaitWaiting(int pCount) {
    return eventually([&] { return bell->begun == pCount; });
  }

  boost::shared_ptr<Bell> bell;
};

TEST_F(Deferred, CallersGetWhatTheMethodEndsWith) {
  startWithBell();
  const auto client = connect();
  const auto call = [&](const std::string& pMethod, const std::string& pWhat, bool pRemote) {
    std::string result;
    const std::string failure = failureOf([&] {
      const OXValue arguments = OXValue::array(pWhat);
      result = (pRemote ? client->call("Bell", pMethod, arguments)
                        : broker->call("Bell", pMethod, arguments))
                   .toString();
    });
    return failure == "none" ? result : failure;
  };
  for (const bool remote : {false, true})
    for (const char* const method : {"wait", "relay"}) {
      SCOPED_TRACE(std::string(method) + (remote ? " remote" : " local"));
      EXPECT_EQ(call(method, "now", remote), "at once");
      EXPECT_EQ(call(method, "throws", remote), "Bell: broken");
      EXPECT_EQ(call(method, "drops", remote), "OXBroker: The method ended without an answer");
    }
  const std::vector<OXMethodInfo>& methods = bell->getMethods();
  EXPECT_EQ(methods.front().signature(), "OXValue wait(string)");
}

TEST_F(Deferred, WaitingCallsTakeNoThreadAndNoRequestOfTheirConnection) {
  OXWireLimits limits;
  limits.maxRequestsUnderWay = 1;
  limits.maxRequestsWaiting = 3;
  startWithBell(limits, 1);
  const auto client = connect();
  std::vector<std::future<OXValue>> answers;
  for (int i = 0; i < 3; ++i) answers.push_back(wait(client));
  ASSERT_TRUE(awaitWaiting(3));
  EXPECT_EQ(client->call("Probe", "echo", OXValue::array(7)).toInt(), 7);
  EXPECT_EQ(failureOf([&] { client->call("Bell", "wait", OXValue::array("one more")); }),
            "OXServer: This connection has 3 calls waiting already, which is the limit: wait for "
            "an answer first");
  bell->ring("rung");
  for (auto& answer : answers) EXPECT_EQ(answer.get().toString(), "rung");
  // There is room again.
  answers.push_back(wait(client));
  ASSERT_TRUE(awaitWaiting(4));
  bell->ring("again");
  EXPECT_EQ(answers.back().get().toString(), "again");
}

TEST_F(Deferred, AClientThatEndsCancelsItsCalls) {
  startWithBell();
  const auto staying = connect();
  auto answer = wait(staying);
  const auto leaving = connect();
  auto lost = wait(leaving);
  ASSERT_TRUE(awaitWaiting(2));
  leaving->close();
  EXPECT_THROW(lost.get(), OXError);
  EXPECT_TRUE(eventually([&] { return bell->cancelled == 1; }));
  bell->ring("rung");
  EXPECT_EQ(answer.get().toString(), "rung");
  EXPECT_EQ(bell->cancelled, 1);
}

TEST_F(Deferred, ADescriptorComesWithItsAnswerAndNoOther) {
  start();
  OXModule::createModule<Lender>(broker);
  const auto client = OXRemoteBroker::connect(server->listen("unix:" + socketPath("lent")));
  const auto tcp = connect();
  for (const auto& one : {client, tcp}) one->call("Probe", "echo", OXValue::array(1));
  const std::ptrdiff_t before = countDescriptors();
  // From small ones of which many come at once to those that take several reads.
  std::vector<std::thread> callers;
  std::atomic<int> wrong{0};
  for (const int bytes : {0, 100, 20000, 500000})
    callers.emplace_back([&, bytes] {
      for (int i = 0; i < 50; ++i) {
        const std::string text = std::to_string(bytes) + " " + std::to_string(i);
        OXDescriptor file;
        const OXValue answer = client->call("Lender", "lend", OXValue::array(text, bytes), file);
        if (answer[0].toString() != text || contentOf(file) != text) ++wrong;
        OXDescriptor none(::dup(0));
        client->call("Probe", "echo", OXValue::array(i), none);
        if (none.isOpen()) ++wrong;
        client->call("Lender", "lend", OXValue::array("not asked for", bytes));
      }
    });
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(
      failureOf([&] { tcp->call("Lender", "lend", OXValue::array("a", 1)); }),
      "OXBroker: The answer has a file descriptor, which only a Unix-domain socket can carry");
  EXPECT_TRUE(eventually([&] { return countDescriptors() == before; })) << countDescriptors();
}

TEST_F(Deferred, IsReadyWhenItsClientHasTakenWhatWasSent) {
  startWithBell();
  for (const bool reads : {true, false}) {
    RawClient client(address);
    bell->begun = 0;
    client.send(request(1, "Bell.wait", "\x91\xa1r") + request(2, "Bell.wait", "\x91\xa1r"));
    ASSERT_TRUE(awaitWaiting(2));
    const std::vector<OXCompletion> waiting = std::exchange(bell->waiting, {});
    std::atomic<int> ready{0};
    waiting[1].whenReady([&] { ++ready; });
    EXPECT_EQ(ready, 1) << "nothing was sent yet";
    constexpr int kLarge = 12 * 1024 * 1024;  // more than the sockets hold
    OXValue large;
    large.SetBinary(std::string(kLarge, 'l').data(), kLarge);
    waiting[0].answer(large);
    waiting[1].whenReady([&] { ++ready; });
    EXPECT_EQ(ready, 1);
    if (reads)
      EXPECT_EQ(client.read(kLarge + 9).size(), static_cast<std::size_t>(kLarge + 9));
    else
      client.reset();
    EXPECT_TRUE(eventually([&] { return ready == 2; })) << (reads ? "read" : "gone");
    waiting[1].answer(1);
  }
}

TEST_F(Deferred, AClosingServerAnswersThoseThatWait) {
  startWithBell();
  const auto client = connect();
  auto answer = wait(client);
  ASSERT_TRUE(awaitWaiting(1));
  server->close();
  EXPECT_EQ(failureOf([&] { answer.get(); }), "OXServer: The broker is shutting down");
}

}  // namespace
}  // namespace OX::test
