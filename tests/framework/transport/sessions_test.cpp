// What connections own and leave: that it goes with them, in order, and nothing else does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <oxframework/oxproxies.h>
#include <oxvalue/detail/publication.h>
#include "served_broker.h"
#include "support/raw_client.h"

namespace OX::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Keeps ids for its callers, as a device keeps subscribers: the lowest free suffix of a name.
class Lockers : public OXModule {
 public:
  explicit Lockers(boost::shared_ptr<OXBroker> pBroker) : OXModule(std::move(pBroker), "Lockers") {
    publish(
        bindPublications(this, "Lockers",
                         std::vector<OXPublication<Lockers>>{
                             {.name = "open", .method = operation(&Lockers::open)},
                             {.name = "openAndFail", .method = operation(&Lockers::openAndFail)},
                             {.name = "close", .method = operation(&Lockers::close)},
                             {.name = "note", .method = operation(&Lockers::note)},
                             {.name = "fail", .method = operation(&Lockers::fail)},
                             {.name = "wait", .method = operation(&Lockers::wait)},
                             {.name = "onEvent", .method = operation(&Lockers::onEvent)},
                         }));
    declareOwnership({.acquiring = {"open", "openAndFail"},
                      .returning = {"close"},
                      .findId = [this](std::uint64_t pNumber) { return xIdOf(pNumber); },
                      .end = [this](std::uint64_t pNumber) { return xEnd(pNumber); }});
    EXPECT_THAT(failureOf([&] {
                  declareOwnership({.acquiring = {"opne"},
                                    .returning = {},
                                    .findId = getOwnership().findId,
                                    .end = getOwnership().end});
                }),
                HasSubstr("There is no method \"opne\""));
  }

  std::string open(const std::string& pName) {
    // Before the id is made: the client may be gone when it is.
    if (pName.starts_with("late")) wait();
    const std::lock_guard guard(fGuard);
    std::string id = pName;
    for (int n = 2; fNumbers.count(id); ++n) id = pName + "_" + std::to_string(n);
    fNumbers[id] = getAcquisition();
    return id;
  }
  std::string openAndFail(const std::string& pName) {
    open(pName);
    throw OXError("Lockers", "openAndFail", "open, but broken");
  }
  bool close(const std::string& pId) {
    const std::lock_guard guard(fGuard);
    return fNumbers.erase(pId) > 0;
  }
  void note(const std::string& pText) { xNote(pText); }
  void fail() { throw OXError("Lockers", "fail", "as asked for"); }
  void wait() {
    std::unique_lock guard(fGuard);
    ++fWaiting;
    fChanged.notify_all();
    fChanged.wait(guard, [&] { return fReleased; });
  }
  void onEvent(const std::string& pEvent, const OXValue& pValue, const std::string&) {
    xNote(pEvent + " " + pValue.toString());
  }

  void release() {
    const std::lock_guard guard(fGuard);
    fReleased = true;
    fChanged.notify_all();
  }
  bool awaitWaiting() {
    return eventually([&] {
      const std::lock_guard guard(fGuard);
      return fWaiting > 0;
    });
  }
  /// The next ends fail, as if a call kept the id.
  void setBusy(int pTimes) { fBusy = pTimes; }

  std::vector<std::string> getNotes() {
    const std::lock_guard guard(fGuard);
    return fNotes;
  }
  std::set<std::string> getIds() {
    const std::lock_guard guard(fGuard);
    std::set<std::string> ids;
    for (const auto& [id, number] : fNumbers) ids.insert(id);
    return ids;
  }

 private:
  void xNote(const std::string& pText) {
    const std::lock_guard guard(fGuard);
    fNotes.push_back(pText);
  }
  std::string xIdOf(std::uint64_t pNumber) {
    const std::lock_guard guard(fGuard);
    for (const auto& [id, number] : fNumbers)
      if (number == pNumber) return id;
    return {};
  }
  bool xEnd(std::uint64_t pNumber) {
    if (fBusy > 0 && fBusy-- > 0) return false;
    const std::string id = xIdOf(pNumber);
    if (id.empty()) return true;
    xNote("end " + id);
    return close(id);
  }

  std::mutex fGuard;
  std::condition_variable fChanged;
  std::map<std::string, std::uint64_t> fNumbers;
  std::vector<std::string> fNotes;
  std::atomic<int> fBusy{0};
  int fWaiting = 0;
  bool fReleased = false;
};

class Sessions : public ServedBroker {
 protected:
  using Ids = std::set<std::string>;

  void SetUp() override {
    start();
    lockers = OXModule::createModule<Lockers>(broker);
    OXMemoryProxy(broker).subscribeToEvent("ClientDisconnected", "Lockers", "onEvent");
  }
  void TearDown() override {
    lockers->release();
    ServedBroker::TearDown();
  }

  static std::string open(OXRemoteBroker& pClient, const std::string& pName) {
    return pClient.call("Lockers", "open", OXValue::array(pName)).toString();
  }
  static OXValue ask(OXRemoteBroker& pClient, const std::string& pMethod,
                     const OXValue& pArguments = OXValue::Array()) {
    return pClient.call("OXBroker", pMethod, pArguments);
  }
  static int leave(OXRemoteBroker& pClient, const std::string& pMethod,
                   const OXValue& pArguments = OXValue::Array()) {
    return ask(pClient, "onDisconnect", OXValue::array("Lockers", pMethod, pArguments)).toInt();
  }
  bool awaitIds(const Ids& pIds) {
    return eventually([&] { return lockers->getIds() == pIds; });
  }
  bool awaitNotes(std::size_t pCount) {
    return eventually([&] { return lockers->getNotes().size() >= pCount; });
  }

  boost::shared_ptr<Lockers> lockers;
};

TEST_F(Sessions, EndWithWhatTheyOwnAndNothingElse) {
  const auto bystander = connect();
  open(*bystander, "bystander");
  const auto keeper = connect();
  ask(*keeper, "keepSubscriptions", OXValue::array(true));
  open(*keeper, "kept");
  ask(*keeper, "keepSubscriptions", OXValue::array(false));
  lockers->open("local");
  broker->call("Lockers", "open", OXValue::array("by proxy"));
  const Ids staying{"by proxy", "bystander", "kept", "local"};
  const struct {
    const char* why;
    std::function<void(RawClient&)> end;
  } kCases[] = {
      {"closed", [](RawClient& pOne) { pOne.close(); }},
      {"reset", [](RawClient& pOne) { pOne.reset(); }},
      {"broke the protocol", [](RawClient& pOne) { pOne.send("\xc1"); }},
      {"with a call under way",
       [](RawClient& pOne) {
         pOne.send(request(9, "Probe.hold"));
         pOne.reset();
       }},
  };
  // As often as no name could be had again if one stayed.
  for (int round = 0; round < 3; ++round) {
    for (const auto& test : kCases) {
      RawClient client(address);
      client.send(request(1, "Lockers.open", "\x91\xa1m") +
                  request(2, "Lockers.openAndFail", "\x91\xa1n") +
                  request(3, "Lockers.open", "\x91\xa1o"));
      Ids all = staying;
      all.insert({"m", "n", "o"});
      ASSERT_TRUE(awaitIds(all)) << test.why << ": the names are free each time";
      test.end(client);
      EXPECT_TRUE(awaitIds(staying)) << test.why;
    }
  }
  EXPECT_EQ(log.count(ki::log::kError), 3) << "one a violation\n" << log.records(ki::log::kError);
}

TEST_F(Sessions, EndInOrderWillsThenIdsThenTheEvent) {
  auto client = connect();
  const auto other = connect();
  ask(*client, "setClientName", OXValue::array("viewer"));
  open(*client, "a");
  leave(*client, "note", OXValue::array("first will"));
  leave(*client, "fail");
  const int cancelled = leave(*client, "note", OXValue::array("cancelled"));
  leave(*client, "note", OXValue::array("last will"));
  leave(*client, "open", OXValue::array("by a will"));
  EXPECT_FALSE(ask(*other, "cancelOnDisconnect", OXValue::array(cancelled)).toBool());
  EXPECT_TRUE(ask(*client, "cancelOnDisconnect", OXValue::array(cancelled)).toBool());
  EXPECT_FALSE(ask(*client, "cancelOnDisconnect", OXValue::array(cancelled)).toBool());
  EXPECT_NE(leave(*other, "note", OXValue::array("of another")), cancelled);
  lockers->setBusy(2);
  client.reset();
  ASSERT_TRUE(awaitNotes(5));
  EXPECT_THAT(lockers->getNotes(),
              ElementsAre("first will", "last will", testing::StartsWith("end "),
                          testing::StartsWith("end "), "ClientDisconnected viewer"));
  EXPECT_EQ(lockers->getIds(), Ids());
  EXPECT_THAT(log.records(ki::log::kWarning), HasSubstr("Lockers.fail"));
}

TEST_F(Sessions, LimitLastWillsAndCheckThemWhenTheyAreMade) {
  const auto client = connect();
  const struct {
    OXValue arguments;
    const char* part;
  } kCases[] = {
      {OXValue::array("Nobody", "note", OXValue::Array()), "There is no module \"Nobody\""},
      {OXValue::array("Lockers", "nothing", OXValue::Array()), "nothing"},
      {OXValue::array("Lockers", "note", OXValue::array(1, 2)), "note"},
      {OXValue::array("Lockers", "note", "text"), "an array"},
  };
  for (const auto& test : kCases)
    EXPECT_THAT(failureOf([&] { ask(*client, "onDisconnect", test.arguments); }),
                HasSubstr(test.part));
  std::set<int> wills;
  for (int i = 0; i < 64; ++i) wills.insert(leave(*client, "fail"));
  EXPECT_EQ(wills.size(), 64u);
  EXPECT_THAT(failureOf([&] { leave(*client, "fail"); }), HasSubstr("64 last wills"));
  ask(*client, "cancelOnDisconnect", OXValue::array(*wills.begin()));
  EXPECT_EQ(failureOf([&] { leave(*client, "fail"); }), "none") << "there is room again";
  EXPECT_THAT(failureOf([&] {
                broker->call("OXBroker", "onDisconnect",
                             OXValue::array("Lockers", "fail", OXValue::Array()));
              }),
              HasSubstr("a local one"));
}

TEST_F(Sessions, GiveBackAfterFiveSecondsOfLastWills) {
  auto client = connect();
  open(*client, "a");
  leave(*client, "wait");
  leave(*client, "note", OXValue::array("too late"));
  client.reset();
  EXPECT_TRUE(awaitIds({})) << "though a will still runs";
  lockers->release();
  EXPECT_TRUE(awaitRecord("have 5 s for all together"));
  EXPECT_THAT(lockers->getNotes(), ElementsAre("end a"));
}

TEST_F(Sessions, EndWhatALateCallAcquires) {
  RawClient client(address);
  client.send(request(1, "Lockers.open", "\x91\xa4late"));
  ASSERT_TRUE(lockers->awaitWaiting());
  client.reset();
  ASSERT_TRUE(awaitRecord("has ended"));
  lockers->release();
  EXPECT_TRUE(eventually([&] { return !lockers->getNotes().empty(); }));
  EXPECT_THAT(lockers->getNotes(), ElementsAre("end late"));
  EXPECT_TRUE(awaitIds({}));
}

TEST_F(Sessions, DoNotTakeAnIdThatSomebodyElseHasNow) {
  auto first = connect();
  const auto second = connect();
  ask(*second, "setClientName", OXValue::array("second"));
  open(*first, "a");
  open(*first, "b");
  const OXValue mine = ask(*first, "getConnections")[0];
  EXPECT_EQ(broker->getOwners("Lockers")["a"], mine[1].toString()) << "it has no name";
  EXPECT_EQ(mine[7], OXValue::array("a", "b"));
  second->call("Lockers", "close", OXValue::array("a"));
  EXPECT_EQ(broker->getOwners("Lockers")["a"], "");
  lockers->close("b");  // by a module that has a pointer to this one
  open(*second, "a");
  lockers->open("b");
  EXPECT_EQ(broker->getOwners("Lockers")["a"], "second");
  EXPECT_EQ(broker->getOwners("Lockers")["b"], "") << "nobody's";
  EXPECT_EQ(ask(*second, "getConnections")[0][7], OXValue(OXValue::Array()));
  first.reset();
  ASSERT_TRUE(eventually([&] { return ask(*second, "getConnections").getSize() == 1; }));
  open(*second, "c");
  EXPECT_EQ(lockers->getIds(), (Ids{"a", "b", "c"}));
  EXPECT_EQ(lockers->getNotes(), std::vector<std::string>());
}

// Threads take, lose and steal a few ids at random. Whoever has an id that nobody stole finds it
// still there: no end of another connection took it.
TEST_F(Sessions, RaceForTheSameIds) {
  std::vector<std::thread> threads;
  std::atomic<int> lost{0};
  for (unsigned seed = 0; seed < 6; ++seed)
    threads.emplace_back([&, seed] {
      std::mt19937 random(seed);
      for (int round = 0; round < 60; ++round) {
        RawClient client(address);
        client.send(request(1, "Lockers.open", "\x91\xa1r"));
        if (random() % 4 == 0) {
          client.reset();  // wherever the call is
          continue;
        }
        const std::string answer = client.read(5);
        std::string id(answer.size() == 5 ? answer.substr(4) : "?");
        id = client.read(static_cast<std::size_t>(id[0] & 0x1f));
        if (lockers->getIds().count(id) == 0) ++lost;
        // The id is free then, and may be another's before this connection ends.
        if (random() % 2 == 0)
          client.send(request(2, "Lockers.close", "\x91" + answer.substr(4) + id));
        if (random() % 2 == 0)
          client.reset();
        else
          client.close();
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(lost, 0);
  EXPECT_TRUE(awaitIds({}));
  EXPECT_TRUE(eventually(
      [&] { return broker->call("OXBroker", "getConnections", OXValue::Array()).getSize() == 0; }));
}

TEST_F(Sessions, EndForClientsThatAreNotHeard) {
  OXWireLimits limits;
  limits.keepAliveSeconds = 1;
  server = std::make_unique<OXServer>(broker, limits);
  address = server->listen("127.0.0.1:0");
  const auto name = [](const char* pBytes) { return request(1, "OXBroker.setClientName", pBytes); };
  RawClient healthy(address);
  healthy.send(request(2, "Lockers.open", "\x91\xa7healthy"));
  RawClient idle(address);
  idle.send(name("\x91\xa4idle") + request(2, "Lockers.open", "\x91\xa4idle"));
  RawClient written(address);
  written.send(name("\x91\xa7written") + request(2, "Lockers.open", "\x91\xa7written"));
  RawClient full(address);
  full.send(name("\x91\xa4"
                 "full") +
            request(2, "Lockers.open",
                    "\x91\xa4"
                    "full"));
  // Reads nothing, but its system answers, as that of a client in a debugger does.
  RawClient stopped(address);
  stopped.send(name("\x91\xa7stopped") + request(2, "Lockers.open", "\x91\xa7stopped"));
  ASSERT_TRUE(awaitIds({"full", "healthy", "idle", "stopped", "written"}));
  // More than the sockets hold: most of it is never even sent.
  for (int i = 0; i < 200; ++i)
    for (const char* const reader : {"full", "stopped"})
      broker->notify(reader, "m", OXValue::array(std::string(60000, 't')));
  idle.vanish();
  written.vanish();
  full.vanish();
  const auto begin = std::chrono::steady_clock::now();
  broker->notify("written", "m", OXValue::array("not acknowledged"));
  EXPECT_TRUE(awaitIds({"healthy", "stopped"}));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5))
      << "2 s to give them up, 3 s to give back";
  EXPECT_EQ(healthy.read(12).size(), 12u) << "the answer";
}

TEST_F(Sessions, AreListed) {
  const std::string path = "unix:" + socketPath("sessions");
  server->listen(path);
  const auto local = OXRemoteBroker::connect(path);
  ask(*local, "setClientName", OXValue::array("viewer"));
  const auto remote = connect();
  for (int i = 0; i < 3; ++i) remote->call("Probe", "make", OXValue::array(1024 * 1024));
  const OXValue list = ask(*local, "getConnections");
  ASSERT_EQ(list.getSize(), 2);
  EXPECT_NE(list[0][0].toInt(), list[1][0].toInt());
  EXPECT_EQ(list[0][1].toString(), path + " (process " + std::to_string(::getpid()) + ", user " +
                                       std::to_string(::getuid()) + ")");
  EXPECT_EQ(list[0][2].toString(), "viewer");
  EXPECT_LT(list[1][3].toInt(), 20);
  EXPECT_EQ(list[1][4].toInt(), 3);
  EXPECT_LT(list[1][5].toFloat(), 0.01f);
  EXPECT_NEAR(list[1][6].toFloat(), 3.f, 0.01f);
}

TEST_F(Sessions, LeaveEverythingWhenTheServerCloses) {
  const auto client = connect();
  ask(*client, "setClientName", OXValue::array("viewer"));
  open(*client, "a");
  leave(*client, "note", OXValue::array("will"));
  server.reset();
  ASSERT_TRUE(awaitNotes(1));
  broker->shutdown();
  EXPECT_THAT(lockers->getNotes(), ElementsAre("ClientDisconnected viewer"));
  EXPECT_EQ(lockers->getIds(), Ids{"a"});
}

}  // namespace
}  // namespace OX::test
