// The client's end: many threads on one connection, time limits, events, and lost connections.
#include <oxframework/oxremotebroker.h>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <latch>
#include <mutex>
#include <set>
#include <string_view>
#include <thread>
#include <vector>

#include <oxframework/oxproxies.h>
#include "served_broker.h"

namespace {

std::latch resolverMayAnswer(1);
std::latch resolverHasAnswered(1);

}  // namespace

// In place of the system's, which the framework then calls through this program: for one name it
// answers only when a test lets it.
extern "C" [[gnu::visibility("default")]] int getaddrinfo(const char* pHost, const char* pService,
                                                          const addrinfo* pHints,
                                                          addrinfo** pResult) {
  if (pHost && std::string_view(pHost) == "slow.invalid") {
    resolverMayAnswer.wait();
    resolverHasAnswered.count_down();
    return EAI_NONAME;
  }
  using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
  static const auto system = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  return system(pHost, pService, pHints, pResult);
}

namespace OX::test {
namespace {

using Client = ServedBroker;

TEST_F(Client, ServesManyCallersOfOneClient) {
  start();
  const auto client = connect();
  std::atomic<int> wrong{0};
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 8; ++caller)
    callers.emplace_back([&, caller] {
      for (int i = 0; i < 200; ++i)
        if (client->call("Probe", "echo", OXValue::array(caller * 1000 + i)) !=
            OXValue(caller * 1000 + i))
          ++wrong;
    });
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(wrong, 0);
}

// Callers read for each other, and events come between their answers.
TEST_F(Client, MixesNoAnswersAndKeepsEventsInOrder) {
  start();
  const std::string path = "unix:" + socketPath("mixed");
  server->listen(path);
  const auto client = OXRemoteBroker::connect(path);
  constexpr int kEvents = 500;
  std::mutex guard;
  std::vector<int> heard;
  std::set<std::thread::id> listeners;
  client->setListener([&](const std::string&, const std::string&, const OXValue& pArguments) {
    const std::lock_guard hold(guard);
    heard.push_back(pArguments[0].toInt());
    listeners.insert(std::this_thread::get_id());
  });
  client->call("OXBroker", "setClientName", OXValue::array("one"));
  std::thread waiting([&] { client->call("Probe", "hold", OXValue::Array()); });
  ASSERT_TRUE(probe->awaitHolds(1));
  std::atomic<int> wrong{0};
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 6; ++caller)
    callers.emplace_back([&, caller] {
      OXValue large;  // takes several reads
      large.SetBinary(std::string(300000 * (caller % 3), 'p').data(), 300000 * (caller % 3));
      for (int i = 0; i < 50; ++i) {
        const OXValue value = OXValue::array(caller, i, large);
        if (client->call("Probe", "echo", OXValue::array(value)) != value) ++wrong;
      }
    });
  for (int i = 0; i < kEvents; ++i) broker->notify("one", "m", OXValue::array(i));
  for (std::thread& caller : callers) caller.join();
  probe->release();
  waiting.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(eventually([&] {
    const std::lock_guard hold(guard);
    return heard.size() == static_cast<std::size_t>(kEvents);
  }));
  EXPECT_TRUE(std::is_sorted(heard.begin(), heard.end()));
  EXPECT_EQ(listeners.size(), 1u) << "the connection's own thread";
}

TEST_F(Client, ACallerThatGivesUpLetsAnotherRead) {
  start();
  const auto client = connect();
  client->setTimeout(std::chrono::milliseconds(50));
  std::string failure;
  std::thread first(
      [&] { failure = failureOf([&] { client->call("Probe", "hold", OXValue::Array()); }); });
  ASSERT_TRUE(probe->awaitHolds(1));
  OXValue result;
  std::thread second(
      [&] { result = client->call("Probe", "hold", OXValue::Array(), std::chrono::seconds(20)); });
  ASSERT_TRUE(probe->awaitHolds(2));
  first.join();
  probe->release(2);
  second.join();
  EXPECT_TRUE(failure.ends_with("within 50 ms")) << failure;
  EXPECT_EQ(result, OXValue(1));
}

TEST_F(Client, CallersThatGiveUpTogetherLeaveTheConnectionReadable) {
  start();
  const auto client = connect();
  for (int round = 0; round < 40; ++round) {
    client->setTimeout(std::chrono::milliseconds(3));
    std::vector<std::thread> callers;
    for (int i = 0; i < 6; ++i)
      // Not all give up: one that began late is released with the next round's.
      callers.emplace_back(
          [&] { failureOf([&] { client->call("Probe", "hold", OXValue::Array()); }); });
    for (std::thread& caller : callers) caller.join();
    probe->release(6);
    client->setTimeout(std::chrono::seconds(20));
    ASSERT_EQ(client->call("Probe", "echo", OXValue::array(round)).toInt(), round);
  }
}

TEST_F(Client, EndsACallAfterItsTimeLimit) {
  start();
  const auto client = connect();
  client->setTimeout(std::chrono::milliseconds(1));
  const std::string failure = failureOf([&] { client->call("Probe", "hold", OXValue::Array()); });
  EXPECT_TRUE(failure.ends_with("within 1 ms")) << failure;
  client->setTimeout(std::chrono::milliseconds(20000));
  ASSERT_TRUE(probe->awaitHolds(1));
  probe->release();  // nobody waits for the late answer
  EXPECT_EQ(client->call("Probe", "echo", OXValue::array(3)), OXValue(3));
  client->setTimeout(std::chrono::milliseconds::max());
  EXPECT_EQ(client->call("Probe", "echo", OXValue::array(4)), OXValue(4)) << "no limit to speak of";
}

TEST_F(Client, LetsAListenerReleaseTheLastReference) {
  start();
  auto client = connect();
  client->call("OXBroker", "setClientName", OXValue::array("one"));
  std::atomic<bool> dropped{false};
  client->setListener([&](const std::string&, const std::string&, const OXValue&) {
    client.reset();
    dropped = true;
  });
  broker->notify("one", "m", OXValue::array(1));
  EXPECT_TRUE(eventually([&] { return dropped.load(); }));
}

TEST_F(Client, EndsWhileCallsAreUnderWay) {
  start();
  const auto client = connect();
  std::string failure;
  std::thread caller(
      [&] { failure = failureOf([&] { client->call("Probe", "hold", OXValue::Array()); }); });
  ASSERT_TRUE(probe->awaitHolds(1));
  server.reset();
  caller.join();
  EXPECT_TRUE(failure.starts_with("OXRemoteBroker: Probe.hold: the connection to")) << failure;
  EXPECT_FALSE(client->isConnected());
  EXPECT_NE(failureOf([&] { client->notify("Probe", "note", OXValue::array(1)); }), "none");
  probe->release();  // its answer is dropped
}

TEST_F(Client, SendsEventsToClientsByTheirName) {
  start();
  const auto client = connect();
  std::mutex guard;
  std::string heard;
  client->setListener(
      [&](const std::string& pTarget, const std::string& pMethod, const OXValue& pArguments) {
        const std::lock_guard hold(guard);
        heard += pTarget + "." + pMethod + "(" + pArguments[0].toString() + " " +
                 std::to_string(pArguments[1].toInt()) + " " + pArguments[2].toString() + ")";
      });
  client->call("OXBroker", "setClientName", OXValue::array("follower"));
  client->call("OXMemory", "subscribeToEvent", OXValue::array("Tick", "follower", "onTick"));
  OXMemoryProxy(broker).raiseEvent("Tick", 5);
  EXPECT_TRUE(eventually([&] {
    const std::lock_guard hold(guard);
    return heard == "follower.onTick(Tick 5 follower)";
  })) << heard;
}

TEST_F(Client, SaysWhyItCannotConnect) {
  for (const std::string wanted : {"127.0.0.1:1", "unix:/nowhere", "nowhere.invalid:80"}) {
    const std::string failure = failureOf([&] { OXRemoteBroker::connect(wanted); });
    EXPECT_TRUE(failure.starts_with("OXRemoteBroker: No broker answers at " + wanted)) << failure;
  }
}

TEST_F(Client, DoesNotWaitForAResolverThatDoesNotAnswer) {
  const auto connecting = [] {
    OXRemoteBroker::connect("slow.invalid:80", std::chrono::milliseconds(10));
  };
  const std::string failure = failureOf(connecting);
  EXPECT_FALSE(resolverHasAnswered.try_wait()) << "it was not waited for";
  EXPECT_TRUE(failure.ends_with("Connection timed out")) << failure;
  resolverMayAnswer.count_down();
  resolverHasAnswered.wait();
}

TEST_F(Client, DoesNotWaitForAServerThatDoesNotAccept) {
  const std::string path = socketPath("full");
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  std::strncpy(name.sun_path, path.c_str(), sizeof name.sun_path - 1);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  ::listen(listener, 0);
  const auto wait = std::chrono::milliseconds(10);
  const auto first = OXRemoteBroker::connect("unix:" + path, wait);
  const std::string failure = failureOf([&] { OXRemoteBroker::connect("unix:" + path, wait); });
  EXPECT_TRUE(failure.ends_with("Connection timed out")) << failure;
  start();
  EXPECT_NE(failureOf([&] { server->listen("unix:" + path); }), "none") << "it is in use";
  ::close(listener);
  ::unlink(path.c_str());
}

TEST_F(Client, SendsAsMuchAsTheServerReads) {
  start({}, 1);
  const auto client = connect();
  const std::size_t sent = 40000;  // more than may wait to be sent
  for (std::size_t i = 0; i < sent; ++i) client->notify("Probe", "note", OXValue::array(1));
  EXPECT_TRUE(probe->awaitNotes(sent));
}

TEST_F(Client, EndsWhenTheServerSendsGarbage) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in name{};
  socklen_t size = sizeof name;
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  ::listen(listener, 1);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&name), &size);
  const auto client = OXRemoteBroker::connect("127.0.0.1:" + std::to_string(ntohs(name.sin_port)));
  const int peer = ::accept(listener, nullptr, nullptr);
  ASSERT_EQ(::send(peer, "HTTP/1.1", 8, MSG_NOSIGNAL), 8);
  const std::string failure = failureOf([&] { client->call("A", "b", OXValue::Array()); });
  EXPECT_NE(failure.find("malformed message"), std::string::npos) << failure;
  ::close(peer);
  ::close(listener);
}

}  // namespace
}  // namespace OX::test
