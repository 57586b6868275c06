// The server on real sockets: correct clients, broken ones, hostile ones, and limits.
#include <oxframework/oxserver.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include <oxframework/oxproxies.h>
#include "served_broker.h"
#include "support/allocations.h"
#include "support/raw_client.h"

namespace OX::test {
namespace {

using Server = ServedBroker;

TEST_F(Server, AnswersOnTcpAndOnUnixSockets) {
  start();
  OXValue image;
  image.SetBinary(std::string(3686400, 'i').data(), 3686400);
  const OXValue value = OXValue::array(OXValue(), true, -5, 0.5f, "text", image, OXValue::Array());
  for (const std::string& way :
       {address, server->listen("unix:" + socketPath("a")), server->listen("localhost:0")}) {
    const auto client = OXRemoteBroker::connect(way);
    const auto proxy = client->getProxy("Probe");
    EXPECT_EQ(proxy->call("echo", value), value) << way;
    EXPECT_EQ(failureOf([&] { proxy->call("fail", "why"); }), "Probe: why") << way;
    EXPECT_NE(failureOf([&] { proxy->call("nothing"); }), "none") << way;
    EXPECT_NE(failureOf([&] { client->getProxy("Nobody")->call("echo"); }), "none") << way;
    EXPECT_EQ(proxy->call("echo", 5), OXValue(5)) << way << ": still the same connection";
  }
}

TEST_F(Server, TellsMethodsWhoCalls) {
  start();
  const OXValue none = broker->call("Probe", "caller", OXValue::Array());
  EXPECT_EQ(none, OXValue()) << "a local call";
  const std::string path = "unix:" + socketPath("caller");
  server->listen(path);
  const auto local = OXRemoteBroker::connect(path);
  const int user = static_cast<int>(::getuid());
  EXPECT_EQ(local->call("Probe", "caller", OXValue::Array()),
            OXValue::array(path, ::getpid(), user, ""));
  local->call("OXBroker", "setClientName", OXValue::array("viewer"));
  EXPECT_EQ(local->call("Probe", "caller", OXValue::Array()),
            OXValue::array(path, ::getpid(), user, "viewer"));
  const OXValue remote = connect()->call("Probe", "caller", OXValue::Array());
  EXPECT_TRUE(remote[0].toString().starts_with("127.0.0.1:")) << remote[0].toString();
  EXPECT_NE(remote[0].toString(), address) << "the client's own port";
  EXPECT_EQ(OXValue::array(remote[1], remote[2], remote[3]), OXValue::array(0, -1, ""));
}

TEST_F(Server, AnswersRequestsThatArriveByteByByte) {
  start();
  RawClient client(address);
  for (const char byte : request(3, "Probe.echo", "\x91\x2a")) ASSERT_TRUE(client.send({byte}));
  EXPECT_EQ(client.read(5), answer(3, 42));
}

TEST_F(Server, AnswersInvalidCallsAndContinues) {
  start();
  RawClient client(address);
  const struct {
    std::string bytes;
    const char* part;
  } kCases[] = {
      {request(1, "Probe.echo", std::string("\x91\xcf\0\0\0\1\0\0\0\0", 10)), "4294967296"},
      {request(1, "Probe.echo", "\x91\x80"), "a map"},
      {request(1, "Probe.echo", std::string("\x91\xd4\0\0", 4)), "an extension"},
      {request(1, "Probe"), "Module.method"},
      {request(1, "Nobody.echo"), "Nobody"},
      {request(1, "Probe.nothing"), "nothing"},
      {request(1, "Probe.echo"), "echo"},
  };
  for (const auto& test : kCases) {
    // A request with a known answer follows: what precedes that answer is the error.
    ASSERT_TRUE(client.send(test.bytes));
    std::string got = client.read(5);
    EXPECT_EQ(got, std::string("\x94\x01\x01\x86\xa6")) << test.part;
    while (!got.ends_with("\xc0") && got.size() < 2000) got += client.read(1);
    EXPECT_NE(got.find(test.part), std::string::npos) << got;
  }
  ASSERT_TRUE(client.send(request(9, "Probe.echo", "\x91\x07")));
  EXPECT_EQ(client.read(5), answer(9, 7));
  EXPECT_EQ(log.count(ki::log::kError), 0);
}

TEST_F(Server, ClosesConnectionsThatBreakTheProtocolAndNothingElse) {
  start();
  const struct {
    std::string bytes;
    const char* record;
  } kCases[] = {
      {"GET / HTTP/1.1\r\n\r\n", "malformed message: it is not an array"},
      {"\xc1", "malformed message: the byte 0xc1 starts no value"},
      {std::string("\x94\0\1\xa1\x41\xc6\x80\0\0\0", 10),
       "message of at least 2147483658 bytes (limit 16777216)"},
      {std::string(10000, '\x91'), "nesting of at least 33 arrays (limit 32)"},
      {std::string("\xdd\0\1\0\0", 5), "array of 65536 elements (limit 4096)"},
      {std::string("\x94\0\1\xa1\x41\xc0", 6), "malformed message: its arguments are not an array"},
      {std::string("\x94\1\1\xc0\xc0", 5), "malformed message: an answer without a request"},
  };
  const auto bystander = connect();
  for (const auto& test : kCases) {
    log.clear();
    RawClient client(address);
    client.send(test.bytes);  // may be cut short: the server does not wait for the rest
    EXPECT_TRUE(client.isClosedByPeer()) << test.record;
    EXPECT_EQ(log.count(ki::log::kError), 1) << log.records(ki::log::kError);
    EXPECT_NE(log.records(ki::log::kError).find(test.record), std::string::npos)
        << log.records(ki::log::kError);
    EXPECT_EQ(bystander->call("Probe", "echo", OXValue::array(4)), OXValue(4)) << test.record;
  }
}

TEST_F(Server, ClosesAConnectionThatFindsNoMemory) {
  start();
  const std::string pixels(3686400, 'p');
  RawClient client(address);
  const std::string bytes =
      request(1, "Probe.echo", std::string("\x91\xc6\x00\x38\x40\x00", 6)) + pixels;
  {
    const FailingAllocation failure(1, pixels.size());
    client.send(bytes);  // may be cut short
    EXPECT_TRUE(client.isClosedByPeer());
    EXPECT_TRUE(failure.hasHappened());
  }
  EXPECT_TRUE(awaitRecord("closed: memory ran out")) << log.records(ki::log::kError);
  EXPECT_EQ(service(), "serves");
}

TEST_F(Server, AnswersOrClosesWhicheverAllocationFails) {
  start();
  const std::string bytes = request(1, "Probe.echo", "\x91\x05");
  bool happened = true;
  int closed = 0;
  for (int i = 1; happened; ++i) {
    RawClient client(address);
    client.send(bytes);
    ASSERT_EQ(client.read(5), answer(1, 5)) << "before the failure of allocation " << i;
    std::string got;
    {
      const FailingAllocation failure(i);
      client.send(bytes);
      got = client.read(5);
      happened = failure.hasHappened();
    }
    const bool answered = got == answer(1, 5) || got == "\x94\x01\x01\x86\xa6";
    closed += answered ? 0 : 1;
    EXPECT_TRUE(answered || client.isClosedByPeer()) << "allocation " << i << " failed";
  }
  EXPECT_GT(closed, 0);
  EXPECT_EQ(service(), "serves");
}

TEST_F(Server, AcceptsAnEndWithinAMessage) {
  start();
  RawClient client(address);
  client.send(request(1, "Probe.echo", "\x92\x01"));
  client.close();
  EXPECT_TRUE(awaitRecord("has ended"));
  EXPECT_EQ(log.count(ki::log::kError), 0);
  EXPECT_EQ(service(), "serves");
}

TEST_F(Server, StartsRequestsInOrder) {
  start({}, 1);
  RawClient client(address);
  std::vector<int> sent;
  std::string bytes;
  for (int i = 0; i < 100; ++i) {
    sent.push_back(i);
    bytes +=
        request(static_cast<char>(i), "Probe.note", std::string("\x91") + static_cast<char>(i));
  }
  ASSERT_TRUE(client.send(bytes));
  ASSERT_TRUE(probe->awaitNotes(100));
  EXPECT_EQ(probe->getNotes(), sent);
}

TEST_F(Server, AWaitingCallKeepsNoOtherFromStarting) {
  start();
  RawClient client(address);
  ASSERT_TRUE(client.send(request(1, "Probe.hold") + request(2, "Probe.hold") +
                          request(3, "Probe.echo", "\x91\x05")));
  EXPECT_EQ(client.read(5), answer(3, 5)) << "though two wait before it";
  EXPECT_EQ(service(), "serves");
  probe->release(2);
  EXPECT_EQ(client.read(10).size(), 10u);
}

TEST_F(Server, RunsAsManyCallsAsTheBrokerHasThreads) {
  start({}, 2);
  RawClient first(address);
  RawClient second(address);
  RawClient third(address);
  ASSERT_TRUE(first.send(request(1, "Probe.hold")));
  ASSERT_TRUE(second.send(request(2, "Probe.hold")));
  ASSERT_TRUE(probe->awaitHolds(2));
  ASSERT_TRUE(third.send(request(3, "Probe.note", "\x91\x07") + request(4, "Probe.hold")));
  EXPECT_FALSE(broker->xTryRun([] {})) << "no thread that calls from elsewhere either";
  EXPECT_TRUE(probe->getNotes().empty());
  probe->release(1);
  EXPECT_TRUE(probe->awaitNotes(1));
  ASSERT_TRUE(probe->awaitHolds(3));
  EXPECT_EQ(probe->getMostHeld(), 2);
  probe->release(2);
  EXPECT_EQ(third.read(10).size(), 10u);
}

TEST_F(Server, CostsNothingWhileNobodyCalls) {
  start();
  std::vector<boost::shared_ptr<OXRemoteBroker>> clients;
  for (int i = 0; i < 8; ++i) {
    clients.push_back(connect());
    clients.back()->call("Probe", "echo", OXValue::array(i));
  }
  std::thread waiting([&] { clients.front()->call("Probe", "hold", OXValue::Array()); });
  ASSERT_TRUE(probe->awaitHolds(1));
  rusage before{};
  rusage after{};
  ::getrusage(RUSAGE_SELF, &before);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // what is measured, no wait
  ::getrusage(RUSAGE_SELF, &after);
  // This thread's own, that of the log, which looks from time to time, and a few to settle.
  EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 30);
  probe->release();
  waiting.join();
}

TEST_F(Server, LimitsTheRequestsUnderWay) {
  OXWireLimits limits;
  limits.maxRequestsUnderWay = 4;
  start(limits);
  RawClient client(address);
  std::string bytes;
  for (char id = 0; id < 20; ++id) bytes += request(id, "Probe.hold");
  ASSERT_TRUE(client.send(bytes));
  ASSERT_TRUE(probe->awaitHolds(4));
  EXPECT_EQ(service(), "serves") << "others are not held back";
  for (int i = 0; i < 20; ++i) {
    probe->release();
    ASSERT_EQ(client.read(5).size(), 5u) << i;
  }
  EXPECT_EQ(probe->getMostHeld(), 4);
}

TEST_F(Server, QueuesNoMoreAnswersThanAClientReads) {
  OXWireLimits limits;
  limits.maxRequestsUnderWay = 4;
  start(limits);
  RawClient client(address);
  constexpr int kRequests = 64;
  constexpr int kAnswer = 4 * 1024 * 1024;
  std::string bytes;
  for (char id = 0; id < kRequests; ++id)
    bytes += request(id, "Probe.make", std::string("\x91\xce\x00\x40\x00\x00", 6));
  ASSERT_TRUE(client.send(bytes));
  ASSERT_TRUE(probe->awaitNotes(4));
  for (int i = 0; i < 20; ++i) EXPECT_EQ(service(), "serves");
  // Four, and as many as fit into the socket: far from all.
  EXPECT_LT(probe->getNotes().size(), 20u);
  for (int i = 0; i < kRequests; ++i)
    ASSERT_EQ(client.read(kAnswer + 9).size(), static_cast<std::size_t>(kAnswer + 9)) << i;
}

TEST_F(Server, DropsEventsForAClientThatDoesNotRead) {
  OXWireLimits limits;
  limits.maxMessageBytes = 1024 * 1024;
  start(limits);
  RawClient client(address);
  ASSERT_TRUE(client.send(request(1, "OXBroker.setClientName", "\x91\xa4lazy") +
                          request(2, "OXMemory.subscribeToEvent", "\x93\xa4Tick\xa4lazy\xa1m")));
  client.read(10);
  const std::string text(60000, 't');
  for (int i = 0; i < 500; ++i) broker->notify("lazy", "m", OXValue::array(text));
  EXPECT_TRUE(awaitRecord("loses events")) << "30 MB don't fit";
  EXPECT_EQ(service(), "serves");
  ASSERT_TRUE(client.send(request(3, "Probe.echo", "\x91\x09")));
  std::string last;
  do last = client.read(1);  // the stream is in order and whole: events, then the answer
  while (last == "\x93" && client.read(60012).size() == 60012u);
  EXPECT_EQ(last + client.read(4), answer(3, 9));
}

TEST_F(Server, AnnouncesTheEndOfANamedClientOnce) {
  start();
  watchDisconnects();
  const std::string name = request(1, "OXBroker.setClientName", "\x91\xa3one");
  const std::string other = request(2, "OXBroker.setClientName", "\x91\xa3two");
  const struct {
    const char* why;
    std::string bytes;
    std::size_t answers;
    std::function<void(RawClient&)> end;
    const char* event;
  } kCases[] = {
      {"end", name, 5, [](RawClient& pOne) { pOne.close(); }, "one"},
      {"reset", name, 5, [](RawClient& pOne) { pOne.reset(); }, "one"},
      {"garbage", name, 5, [](RawClient& pOne) { pOne.send("\xc1"); }, "one"},
      // One after the other: requests on their way at once may end in any order.
      {"renamed", name, 5,
       [&](RawClient& pOne) {
         pOne.send(other);
         pOne.read(5);
         pOne.close();
       },
       "two"},
      {"at once", name, 0, [](RawClient& pOne) { pOne.close(); }, "one"},
      {"half a message", name + "\x94", 5, [](RawClient& pOne) { pOne.close(); }, "one"},
  };
  std::vector<std::string> expected;
  for (const auto& test : kCases) {
    log.clear();
    RawClient nameless(address);
    nameless.close();
    ASSERT_TRUE(awaitRecord("has ended"));
    RawClient client(address);
    client.send(test.bytes);
    ASSERT_EQ(client.read(test.answers).size(), test.answers);
    test.end(client);
    expected.push_back(std::string("ClientDisconnected ") + test.event + " Probe");
    ASSERT_TRUE(probe->awaitEvents(expected.size())) << test.why;
    ASSERT_EQ(probe->getEvents(), expected) << test.why;
  }
}

TEST_F(Server, AnnouncesTheEndOfAClientWithACallUnderWay) {
  start();
  watchDisconnects();
  RawClient client(address);
  client.send(request(1, "OXBroker.setClientName", "\x91\xa3one"));
  client.read(5);
  client.send(request(2, "Probe.hold"));
  ASSERT_TRUE(probe->awaitHolds(1));
  client.close();
  EXPECT_TRUE(probe->awaitEvents(1)) << "the call is not waited for for ever";
}

TEST_F(Server, DoesNotAnswerNotifications) {
  start();
  const auto client = connect();
  client->notify("Nobody", "note", OXValue::array(1));
  client->notify("Probe", "nothing", OXValue::array(1));
  client->notify("Probe", "fail", OXValue::array("told nobody"));
  client->notify("Probe", "note", OXValue::array(8));
  ASSERT_TRUE(probe->awaitNotes(1));
  ASSERT_TRUE(awaitRecord("told nobody"));
  EXPECT_EQ(log.count(ki::log::kWarning), 1) << log.records(ki::log::kWarning);
}

TEST_F(Server, RefusesConnectionsBeyondTheLimit) {
  OXWireLimits limits;
  limits.maxConnections = 2;
  start(limits);
  auto first = connect();
  const auto second = connect();
  first->call("Probe", "echo", OXValue::array(1));
  second->call("Probe", "echo", OXValue::array(1));
  EXPECT_TRUE(RawClient(address).isClosedByPeer());
  EXPECT_TRUE(awaitRecord("3 connections (limit 2)"));
  first.reset();
  EXPECT_TRUE(eventually([&] { return service() == "serves"; }));
}

TEST_F(Server, RefusesAnswersBeyondTheLimits) {
  OXWireLimits limits;
  limits.maxMessageBytes = 1000;
  start(limits);
  EXPECT_EQ(failureOf([&] { connect()->call("Probe", "make", OXValue::array(1000)); }),
            "OXWire: Cannot be sent: message of at least 1007 bytes (limit 1000)");
}

// The undefined-behaviour sanitizer looks at memory through a pipe, and reports what it can't look
// at.
#ifndef __SANITIZE_ADDRESS__
TEST_F(Server, ContinuesAfterRunningOutOfDescriptors) {
  start();
  rlimit former{};
  ::getrlimit(RLIMIT_NOFILE, &former);
  const rlimit few{64, former.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  std::vector<int> fillers;
  {
    RawClient client(address);  // the client gets a socket, the server does not
    client.send(request(1, "Probe.echo", "\x91\x05"));
    EXPECT_EQ(client.read(5), answer(1, 5));
    for (int file; (file = ::open("/dev/null", O_RDONLY)) >= 0;) fillers.push_back(file);
    ::close(fillers.back());
    fillers.pop_back();
    RawClient late(address);
    late.send(request(2, "Probe.echo", "\x91\x06"));
    EXPECT_TRUE(awaitRecord("Cannot accept clients on"));
    for (const int file : fillers) ::close(file);
    EXPECT_EQ(late.read(5), answer(2, 6));
  }
  ::setrlimit(RLIMIT_NOFILE, &former);
  EXPECT_EQ(log.count(ki::log::kError), 1) << log.records(ki::log::kError);
}
#endif

TEST_F(Server, SaysWhyItCannotListenOnAnAddress) {
  start();
  const std::string file = socketPath("file");
  std::ofstream(file) << "not a socket";
  const std::string used = server->listen("unix:" + socketPath("used"));
  const std::string kCases[] = {address,
                                used,
                                "unix:" + file,
                                "unix:/nowhere/at/all",
                                "unix:/tmp/" + std::string(200, 'x'),
                                "nowhere.invalid:80",
                                "192.0.2.1:80",
                                "junk"};
  for (const std::string& wanted : kCases) {
    const std::string failure = failureOf([&] { server->listen(wanted); });
    EXPECT_TRUE(failure.starts_with("OXServer: ")) << wanted << " -> " << failure;
    EXPECT_NE(failure.find(wanted), std::string::npos) << failure;
  }
  EXPECT_TRUE(std::filesystem::is_regular_file(file)) << "it is not ours to take away";
  EXPECT_EQ(OXRemoteBroker::connect(used)->call("Probe", "echo", OXValue::array(1)), OXValue(1));
  std::filesystem::remove(file);
}

TEST_F(Server, ReplacesTheSocketFileOfABrokerThatDied) {
  start();
  const std::string path = socketPath("dead");
  const int dead = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  std::strncpy(name.sun_path, path.c_str(), sizeof name.sun_path - 1);
  ASSERT_EQ(::bind(dead, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  ::close(dead);
  address = server->listen("unix:" + path);
  EXPECT_EQ(service(), "serves");
  server->close();
  EXPECT_FALSE(std::filesystem::exists(path)) << "and leaves none behind";
}

}  // namespace
}  // namespace OX::test
