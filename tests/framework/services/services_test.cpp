// Events and preference files, through their proxies as modules use them.
#include <oxframework/oxservices.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxproxies.h>
#include <oxvalue/detail/oxfunctor.h>
#include "support/capture_log.h"
#include "support/outcome.h"

namespace OX::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// Records the events that it receives, and can react to each.
class Listener : public OXModule {
 public:
  Listener(boost::shared_ptr<OXBroker> pBroker, const std::string& pName)
      : OXModule(std::move(pBroker), pName) {
    functionName("onEvent", pName, "Takes an event");
    completeAndCheck(&Listener::onEvent, getCurrentMethodDescription());
    bindMethod(createFunctor(this, &Listener::onEvent));
  }

  void onEvent(const std::string& pEvent, const OXValue& pValue, const std::string& pSubscriber) {
    fGot.push_back(pEvent + " " + show(pValue) + " " + pSubscriber);
    if (fReaction) fReaction();
  }

  std::vector<std::string> fGot;
  std::function<void()> fReaction;
};

class Memory : public ::testing::Test {
 protected:
  boost::shared_ptr<Listener> addListener(const std::string& pName) {
    const boost::shared_ptr<Listener> listener(new Listener(fBroker, pName));
    listener->initModule();
    fMemory->subscribeToEvent("E", pName, "onEvent");
    return listener;
  }
  std::string subscribers(const std::string& pEvent) {
    return show(fBroker->call("OXMemory", "getSubscribers", OXValue::array(pEvent)));
  }

  boost::shared_ptr<OXBroker> fBroker = OXBroker::create();
  boost::shared_ptr<OXMemory> fService = OXModule::createModule<OXMemory>(fBroker);
  boost::shared_ptr<OXMemoryProxy> fMemory =
      fBroker->getSpecialisedProxy<OXMemoryProxy>("OXMemory");
};

TEST_F(Memory, CallsEachSubscriberOnceInOrder) {
  const auto one = addListener("One");
  const auto two = addListener("Two");
  fMemory->subscribeToEvent("E", "One", "onEvent");
  EXPECT_EQ(subscribers("E"), "[\"One\", \"Two\"]");
  fMemory->raiseEvent("E", 7);
  fMemory->raiseEvent("Other", 8);
  EXPECT_THAT(one->fGot, ElementsAre("E 7 One"));
  EXPECT_THAT(two->fGot, ElementsAre("E 7 Two"));

  fMemory->unsubscribeToEvent("E", "One");
  fMemory->unsubscribeToEvent("E", "One");
  fMemory->raiseEvent("E", OXValue::array(1, "x"));
  EXPECT_EQ(one->fGot.size(), 1u);
  EXPECT_EQ(two->fGot.back(), "E [1, \"x\"] Two");
  EXPECT_EQ(show(fBroker->call("OXMemory", "getEventList", OXValue::array())), "[\"E\"]");
  fMemory->unsubscribeToEvent("E", "Two");
  EXPECT_EQ(show(fBroker->call("OXMemory", "getEventList", OXValue::array())), "[]");
}

TEST_F(Memory, AFailingOrMissingSubscriberKeepsNoOtherFromBeingCalled) {
  CaptureLog log;
  const auto broken = addListener("Broken");
  addListener("Gone");
  const auto last = addListener("Last");
  broken->fReaction = [] { throw std::runtime_error("broken"); };
  fBroker->unregisterModule("Gone");
  fMemory->raiseEvent("E", 1);
  fMemory->raiseEvent("E", 2);
  EXPECT_THAT(last->fGot, ElementsAre("E 1 Last", "E 2 Last"));
  EXPECT_EQ(subscribers("E"), "[\"Broken\", \"Last\"]");
  EXPECT_EQ(log.count(2), 2);
  EXPECT_THAT(log.records(2), HasSubstr("\"Broken\" failed to handle event \"E\""));
  EXPECT_EQ(log.records(4),
            "raiseEvent: \"Gone\" no longer exists; its subscription to event \"E\" was removed\n");
}

TEST_F(Memory, ACallbackMayUseTheServiceAndBeCalledAgain) {
  const auto listener = addListener("L");
  listener->fReaction = [&] {
    if (listener->fGot.size() == 1) fMemory->raiseEvent("E", "nested");
    fMemory->unsubscribeToEvent("E", "L");
    fMemory->subscribeToEvent("F", "L", "onEvent");
  };
  fMemory->raiseEvent("E", "outer");
  EXPECT_THAT(listener->fGot, ElementsAre("E \"outer\" L", "E \"nested\" L"));
  EXPECT_EQ(subscribers("E") + subscribers("F"), "[][\"L\"]");
}

TEST_F(Memory, AnEventThatRaisesItselfEnds) {
  CaptureLog log;
  const auto listener = addListener("L");
  listener->fReaction = [&] { fMemory->raiseEvent("E", 1); };
  fMemory->raiseEvent("E", 1);
  EXPECT_EQ(listener->fGot.size(), 16u);
  EXPECT_THAT(log.records(2), HasSubstr("16 deep"));
  listener->fReaction = nullptr;
  fMemory->raiseEvent("E", 2);
  EXPECT_EQ(listener->fGot.size(), 17u) << "the next one is raised as ever";
}

TEST_F(Memory, ReachesRemoteClientsAndUnsubscribesThemWhenTheyLeave) {
  CaptureLog log;
  std::vector<std::string> got;
  fBroker->addEndpoint(&got, "client", [&](const std::string& pMethod, const OXValue& pArguments) {
    got.push_back(pMethod + show(pArguments));
  });
  fMemory->subscribeToEvent("E", "client", "anything");
  fMemory->raiseEvent("E", 3);
  EXPECT_THAT(got, ElementsAre("anything[\"E\", 3, \"client\"]"));
  fBroker->removeEndpoint(&got);
  fMemory->raiseEvent("E", 4);
  EXPECT_EQ(got.size(), 1u);
  EXPECT_EQ(subscribers("E"), "[]");
}

TEST_F(Memory, LimitsTheNumberOfSubscriptions) {
  EXPECT_THROW(fMemory->subscribeToEvent("E", "", "onEvent"), OXError);
  for (int i = 0; i < 4096; ++i) fService->subscribeToEvent("E" + std::to_string(i), "M", "m");
  EXPECT_EQ(outcome([&] {
              fService->subscribeToEvent("more", "M", "m");
              return true;
            }),
            "OXError: There are 4096 subscriptions already, which is the limit");
  fService->subscribeToEvent("E7", "M", "other");
  fService->unsubscribeToEvent("E7", "M");
  fService->subscribeToEvent("more", "M", "m");
}

TEST_F(Memory, ManyThreadsMaySubscribeAndRaise) {
  CaptureLog log;
  std::atomic<int> got{0};
  const auto count = [&](const std::string&, const OXValue&) { ++got; };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&, name = "client" + std::to_string(i)] {
      for (int round = 0; round < 100; ++round) {
        fBroker->addEndpoint(&name, name, count);
        fMemory->subscribeToEvent("E", name, "m");
        fMemory->raiseEvent("E", round);
        fBroker->removeEndpoint(&name);
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_GE(got, 400) << "each raise reaches its own thread's client at least";
  fMemory->raiseEvent("E", 0);
  EXPECT_EQ(subscribers("E"), "[]");
}

class Preferences : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string path = ::testing::TempDir() + "/preferencesXXXXXX";
    ASSERT_NE(::mkdtemp(path.data()), nullptr);
    fDirectory = path;
    OXPreferences::create(fBroker, fDirectory);
  }
  void TearDown() override { std::filesystem::remove_all(fDirectory); }

  void write(const std::string& pName, const std::string& pText) {
    std::ofstream(fDirectory + "/" + pName) << pText;
  }
  /// What reading returns; the directory's name is left out of messages.
  std::string read(const std::string& pName) {
    std::string text =
        outcome([&] { return OXPreferencesProxy(fBroker).readPrefFile(pName, true); });
    if (const auto at = text.find(fDirectory + "/"); at != std::string::npos)
      text.erase(at, fDirectory.size() + 1);
    return text;
  }

  std::string fDirectory;
  boost::shared_ptr<OXBroker> fBroker = OXBroker::create();
};

TEST_F(Preferences, ReadsEntriesInOrderWithTheirKinds) {
  write("VideoInput.xml",
        "<?xml version=\"1.0\"?>\n<!-- a comment -->\n"
        "<preferences module=\"VideoInput\">\n"
        "  <entry name=\"source\" description=\"where images &lt;come&gt; from\" "
        "value=\"SimulatorCam\"/>\n"
        "  <entry name=\"rate\" type=\"int\" value=\"-30\"/>\n"
        "  <!-- another -->\n"
        "  <entry name=\"gain\" type=\"float\" value=\"2.5\"/>\n"
        "  <entry name=\"on\" type=\"bool\" value=\"true\"/>\n"
        "  <entry name=\"off\" type=\"bool\" value=\"0\"/>\n"
        "  <entry name=\"text\" type=\"string\" value=\"30\"/>\n"
        "</preferences>\n");
  EXPECT_EQ(read("VideoInput"),
            "[[\"source\", \"where images <come> from\", \"SimulatorCam\"], [\"rate\", \"\", -30], "
            "[\"gain\", \"\", 2.5f], [\"on\", \"\", true], [\"off\", \"\", false], "
            "[\"text\", \"\", \"30\"]]");
  write("Empty.xml", "<preferences/>");
  EXPECT_EQ(read("Empty"), "[]");
}

TEST_F(Preferences, SaysWhatIsWrongWithAFileAndWhere) {
  struct Row {
    const char* text;
    const char* expected;
  };
  const Row rows[] = {
      {"", "F.xml: the file is empty; expected <preferences> with <entry> elements"},
      {"<preferences>\n  <entry name=\"a\" value=\"b\">\n</preferences>",
       "F.xml:3:3: not valid XML: Start-end tags mismatch; expected <preferences> with "
       "<entry> elements"},
      {"just text",
       "F.xml:1:10: not valid XML: No document element found; expected <preferences> with "
       "<entry> elements"},
      {"\n<config/>", "F.xml:2:2: the root element is <config>; expected <preferences>"},
      {"<preferences>\n  <entri/></preferences>",
       "F.xml:2:4: <entri> is not supported here; expected <entry>"},
      {"<preferences><entry value=\"1\"/></preferences>",
       "F.xml:1:15: an <entry> has no name; expected <entry name=\"...\" value=\"...\"/>"},
      {"<preferences><entry name=\"a\"/></preferences>",
       "F.xml:1:15: an <entry> has no value; expected <entry name=\"...\" value=\"...\"/>"},
      {"<preferences><entry name=\"a\" type=\"int\" value=\"2.5\"/></preferences>",
       "F.xml:1:15: entry \"a\" has the value \"2.5\"; expected an int: a whole 32-bit number"},
      {"<preferences><entry name=\"a\" type=\"int\" value=\"2147483648\"/></preferences>",
       "F.xml:1:15: entry \"a\" has the value \"2147483648\"; expected an int: a whole 32-bit "
       "number"},
      {"<preferences><entry name=\"a\" type=\"float\" value=\"inf\"/></preferences>",
       "F.xml:1:15: entry \"a\" has the value \"inf\"; expected a float: a number like 2.5"},
      {"<preferences><entry name=\"a\" type=\"bool\" value=\"yes\"/></preferences>",
       "F.xml:1:15: entry \"a\" has the value \"yes\"; expected a bool: true or false"},
      {"<preferences><entry name=\"a\" type=\"colour\" value=\"red\"/></preferences>",
       "F.xml:1:15: entry \"a\" has the type \"colour\"; expected int, float, bool or string"},
  };
  for (const Row& row : rows) {
    write("F.xml", row.text);
    EXPECT_EQ(read("F"), std::string("OXError: ") + row.expected) << row.text;
  }
}

TEST_F(Preferences, SaysWhyAFileCannotBeRead) {
  EXPECT_EQ(read("Missing"), "OXError: Missing.xml: no such file");
  std::filesystem::create_directory(fDirectory + "/Directory.xml");
  EXPECT_EQ(read("Directory"), "OXError: Directory.xml: is a directory; expected an XML file");
  ASSERT_EQ(::mkfifo((fDirectory + "/Pipe.xml").c_str(), 0600), 0);
  EXPECT_EQ(read("Pipe"), "OXError: Pipe.xml: cannot be read as a file") << "and doesn't hang";
  write("Big.xml", std::string(1024 * 1024 + 1, ' '));
  EXPECT_EQ(read("Big"), "OXError: Big.xml: the file has 1048577 bytes; the limit is 1048576");
  for (const char* name : {"", "../etc/passwd", "a/b", ".hidden"})
    EXPECT_THAT(read(name), HasSubstr("it must not contain a slash"));
}

TEST_F(Preferences, SaysThatAFileIsNotReadable) {
  if (::geteuid() == 0) GTEST_SKIP() << "the superuser may read everything";
  write("Secret.xml", "<preferences/>");
  ASSERT_EQ(::chmod((fDirectory + "/Secret.xml").c_str(), 0), 0);
  EXPECT_EQ(read("Secret"),
            "OXError: Secret.xml: cannot open the file: Permission denied; it must be "
            "readable by the user that runs the broker");
}

TEST(Proxies, WithoutAServiceAreAnError) {
  const boost::shared_ptr<OXBroker> broker = OXBroker::create();
  EXPECT_THROW(OXMemoryProxy{broker}, OXError);
  EXPECT_THROW(OXPreferencesProxy{broker}, OXError);
  EXPECT_EQ(outcome([] {
              return OXPreferencesProxy(boost::shared_ptr<OXProxy>()).readPrefFile("F", true);
            }),
            "OXError: This proxy has no service \"OXPreferences\" to call");
}

}  // namespace
}  // namespace OX::test
