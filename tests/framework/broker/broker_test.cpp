// The registry, the dispatch of calls, the module "OXBroker", endpoints, and the end of a broker.
#include <oxframework/oxbroker.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <memory>
#include <thread>
#include <vector>

#include <oxframework/oxmodule.h>
#include <oxframework/oxproxies.h>
#include <oxvalue/detail/oxfunctor.h>
#include "support/capture_log.h"
#include "support/outcome.h"

namespace OX::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// Overloads of one name; each answers with its own signature.
class Chooser : public OXModule {
 public:
  explicit Chooser(boost::shared_ptr<OXBroker> pBroker) : OXModule(std::move(pBroker), "Chooser") {
    setModuleDescription("Knows which one was meant");
    addModuleExample("C++", "chooser.call(\"pick\")");
    publish("pick", &Chooser::none);
    publish("pick", &Chooser::ofInt);
    publish("pick", &Chooser::ofBool);
    publish("pick", &Chooser::ofFloat);
    publish("pick", &Chooser::ofValue);
    publish("pick", &Chooser::ofFloats);
    publish("pick", &Chooser::ofIntAndValue);
    publish("number", &Chooser::ofBool);
    publish("number", &Chooser::ofFloat);
    publish("strict", &Chooser::ofBool);
    publish("strict", &Chooser::ofFloatAndString);
  }

  std::string none() { return "none"; }
  std::string ofInt(int) { return "int"; }
  std::string ofBool(bool) { return "bool"; }
  std::string ofFloat(float) { return "float"; }
  std::string ofValue(const OXValue&) { return "value"; }
  std::string ofFloats(float, float) { return "floats"; }
  std::string ofIntAndValue(int, const OXValue&) { return "int and value"; }
  std::string ofFloatAndString(float, const std::string&) { return "float and string"; }

 private:
  template <typename Method>
  void publish(const char* pName, Method pMethod) {
    functionName(pName, "Chooser", "Says which one was meant", 3);
    setReturn("which", "a name");
    addMethodExample("C++", "pick()");
    completeAndCheck(pMethod, getCurrentMethodDescription());
    bindMethodOverload(createFunctor(this, pMethod));
  }
};

/// A module whose call waits until it is released.
class Waiter : public OXModule {
 public:
  Waiter(boost::shared_ptr<OXBroker> pBroker, const std::string& pName,
         std::vector<std::string>* pEnded)
      : OXModule(std::move(pBroker), pName), fEnded(pEnded) {
    functionName("wait", pName, "Waits until it is let go");
    completeAndCheck(&Waiter::wait, getCurrentMethodDescription());
    bindMethod(createFunctor(this, &Waiter::wait));
  }
  ~Waiter() override { fEnded->push_back(getName()); }

  std::string wait() {
    fInside.count_down();
    fRelease.wait();
    return getName();
  }

  std::latch fInside{1};
  std::latch fRelease{1};

 private:
  std::vector<std::string>* fEnded;
};

class Broker : public ::testing::Test {
 protected:
  std::string call(const std::string& pModule, const std::string& pMethod,
                   const OXValue& pArguments) {
    return outcome([&] { return fBroker->call(pModule, pMethod, pArguments); });
  }

  boost::shared_ptr<Waiter> addWaiter(const std::string& pName) {
    const boost::shared_ptr<Waiter> waiter(new Waiter(fBroker, pName, &fEnded));
    waiter->initModule();
    return waiter;
  }

  std::vector<std::string> fEnded;  ///< modules in the order in which they ended
  boost::shared_ptr<OXBroker> fBroker = OXBroker::create();
};

TEST_F(Broker, SelectsThePublicationThatFitsBest) {
  OXModule::createModule<Chooser>(fBroker);
  OXValue binary;
  binary.SetBinary("x", 1);
  struct Row {
    const char* method;
    OXValue arguments;
    const char* expected;
    const char* why;
  };
  const std::vector<Row> rows{
      {"pick", OXValue::array(), "none", "arity"},
      {"pick", OXValue::array(1), "int", "exact"},
      {"pick", OXValue::array(true), "bool", "exact"},
      {"pick", OXValue::array(1.5f), "float", "exact"},
      {"pick", OXValue::array("x"), "value", "nothing else takes a string"},
      {"pick", OXValue::array(OXValue()), "value", "an invalid value is a value"},
      {"pick", OXValue::array(binary), "value", "so is a binary"},
      {"pick", OXValue::array(1, 2.5f), "floats", "a conversion comes before a value"},
      {"pick", OXValue::array(1, 2), "floats", "so do two"},
      {"pick", OXValue::array(1, "x"), "int and value", "the only one that fits"},
      {"number", OXValue::array(1), "float", "equals: the last bound"},
      {"number", OXValue::array(false), "bool", "exact comes before last"},
  };
  for (const Row& row : rows)
    EXPECT_EQ(call("Chooser", row.method, row.arguments), '"' + std::string(row.expected) + '"')
        << row.method << show(row.arguments) << ": " << row.why;
}

TEST_F(Broker, ACallThatFitsNothingListsTheSignatures) {
  OXModule::createModule<Chooser>(fBroker);
  EXPECT_EQ(call("Chooser", "strict", OXValue::array(2.5f)),
            "OXError: \"strict\" doesn't take (float). There is:\n"
            "\tstring strict(bool)\n"
            "\tstring strict(float, string)");
  EXPECT_EQ(call("Chooser", "gone", OXValue::array()), "OXError: Chooser has no method \"gone\"");
  EXPECT_EQ(call("Nobody", "gone", OXValue::array()), "OXError: There is no module \"Nobody\"");
  EXPECT_EQ(call("Chooser", "pick", 3), "OXError: The arguments of a call are an array, not int");
}

TEST_F(Broker, ListsModulesAndMethods) {
  OXModule::createModule<Chooser>(fBroker);
  const auto broker = fBroker->getProxy("OXBroker");
  EXPECT_EQ(show(broker->call("getModuleList")), "[\"OXBroker\", \"Chooser\"]");
  EXPECT_EQ(show(broker->call("getModuleDescription", "Chooser")),
            "[\"Knows which one was meant\", [[\"C++\", \"chooser.call(\"pick\")\"]]]");
  const OXValue methods = broker->call("getMethodList", "Chooser");
  ASSERT_EQ(methods.getSize(), 11);
  EXPECT_EQ(show(methods[6]),
            "[\"pick\", \"Chooser\", \"Says which one was meant\", 3, "
            "[[\"arg1\", \"\", \"int\"], [\"arg2\", \"\", \"OXValue\"]], "
            "[\"which\", \"a name\", \"string\"], [[\"C++\", \"pick()\"]]]");
  EXPECT_EQ(call("OXBroker", "getMethodList", OXValue::array("Nobody")),
            "OXError: There is no module \"Nobody\"");
  EXPECT_EQ(show(broker->call("ping")), "true");
  EXPECT_THAT(show(broker->call("version")), ::testing::MatchesRegex("\"[0-9]+.[0-9]+.[0-9]+\""));
}

TEST_F(Broker, DescribesEveryMethodOfItsOwn) {
  const OXValue methods = fBroker->call("OXBroker", "getMethodList", OXValue::array("OXBroker"));
  for (const OXValue& method : methods.toArray()) {
    EXPECT_FALSE(method[2].toString().empty()) << show(method);
    EXPECT_GT(method[6].getSize(), 0) << show(method);
    for (const OXValue& parameter : method[4].toArray())
      EXPECT_FALSE(parameter[1].toString().empty()) << show(method);
    if (method[5][2].toString() != "void") {
      EXPECT_NE(method[5][1].toString(), "") << show(method);
    }
  }
}

TEST_F(Broker, NamesTheConnectionOfACall) {
  struct Connection : OXCallerContext {
    OXCaller getCaller() const override { return {}; }
    void setClientName(const std::string& pName) override { name = pName; }
    std::string name;
  } connection;
  const auto setName = [&](const char* pName) {
    return call("OXBroker", "setClientName", OXValue::array(pName));
  };
  EXPECT_THAT(setName("early"), StartsWith("OXError: Only a connection can be named"));
  {
    const OXCallerContext::Scope scope(&connection);
    EXPECT_EQ(setName("me"), "invalid");
    EXPECT_THAT(setName(""), StartsWith("OXError: "));
    std::thread([&] { EXPECT_EQ(OXCallerContext::current(), nullptr); }).join();
  }
  EXPECT_THAT(setName("late"), StartsWith("OXError: "));
  EXPECT_EQ(connection.name, "me");
}

TEST_F(Broker, AModuleLivesUntilItsCallsEnd) {
  boost::shared_ptr<Waiter> waiter = addWaiter("Waiter");
  std::string answer;
  std::thread caller([&] { answer = call("Waiter", "wait", OXValue::array()); });
  waiter->fInside.wait();
  std::latch& release = waiter->fRelease;
  waiter.reset();
  fBroker->unregisterModule("Waiter");
  EXPECT_EQ(call("Waiter", "wait", OXValue::array()), "OXError: There is no module \"Waiter\"");
  EXPECT_THAT(fEnded, ElementsAre()) << "the call holds it";
  release.count_down();
  caller.join();
  EXPECT_EQ(answer, "\"Waiter\"");
  EXPECT_THAT(fEnded, ElementsAre("Waiter"));
}

TEST_F(Broker, RefusesEmptyAndUsedNames) {
  addWaiter("One");
  EXPECT_EQ(outcome([&] { return addWaiter("One")->getName(); }),
            "OXError: There is a module \"One\" already");
  EXPECT_EQ(outcome([&] { return addWaiter("")->getName(); }), "OXError: A module needs a name");
  fBroker->unregisterModule("One");
  fBroker->unregisterModule("One");
  EXPECT_EQ(outcome([&] { return addWaiter("One")->getName(); }), "\"One\"");
}

TEST_F(Broker, AProxyLooksItsModuleUpForEachCall) {
  OXModule::createModule<Chooser>(fBroker);
  const auto proxy = fBroker->getProxy("Chooser");
  EXPECT_EQ(outcome([&] { return proxy->call("pick", 1); }), "\"int\"");
  fBroker->unregisterModule("Chooser");
  EXPECT_EQ(outcome([&] { return proxy->call("pick", 1); }),
            "OXError: There is no module \"Chooser\"");
  EXPECT_THROW(fBroker->getProxy("Chooser"), OXError);
  fBroker.reset();
  EXPECT_EQ(outcome([&] { return proxy->call("pick", 1); }),
            "OXError: The broker of module \"Chooser\" has ended");
}

TEST_F(Broker, ShutdownWaitsForCallsAndReleasesTheLastModuleFirst) {
  boost::shared_ptr<Waiter> waiter = addWaiter("First");
  addWaiter("Second");
  std::string answer;
  fBroker->post([&] { answer = call("First", "wait", OXValue::array()); });
  waiter->fInside.wait();
  std::thread ender([&] { fBroker->shutdown(); });
  while (fBroker->post([] {})) std::this_thread::yield();
  EXPECT_EQ(fBroker->getModuleList().size(), 3u) << "modules stay while a call runs";
  waiter->fRelease.count_down();
  waiter.reset();
  ender.join();
  EXPECT_EQ(answer, "\"First\"");
  EXPECT_THAT(fEnded, ElementsAre("Second", "First"));
  EXPECT_EQ(outcome([&] { return addWaiter("Late")->getName(); }),
            "OXError: Module \"Late\" was not registered: the broker is shutting down");
  fBroker->shutdown();
}

TEST_F(Broker, TheLastOwnerMayBeItsOwnTask) {
  std::latch given(1);
  std::latch ended(1);
  addWaiter("Module");
  // The broker ends on one of its own threads, together with the task that owned it.
  const auto endBroker = [&ended](boost::shared_ptr<OXBroker>* pBroker) {
    delete pBroker;
    ended.count_down();
  };
  fBroker->post(
      [&given, held = std::shared_ptr<boost::shared_ptr<OXBroker>>(
                   new boost::shared_ptr<OXBroker>(fBroker), endBroker)] { given.wait(); });
  fBroker.reset();
  given.count_down();
  ended.wait();
  EXPECT_THAT(fEnded, ElementsAre("Module"));
}

TEST_F(Broker, NotifiesAModuleOrEveryClientOfAName) {
  CaptureLog log;
  std::vector<std::string> got;
  const auto endpoint = [&](const std::string& pWho) {
    return [&got, pWho](const std::string& pMethod, const OXValue& pArguments) {
      got.push_back(pWho + " " + pMethod + show(pArguments));
      if (pWho == "broken") throw std::runtime_error("broken pipe");
    };
  };
  const int owners[2] = {};
  fBroker->addEndpoint(&owners[0], "client", endpoint("broken"));
  fBroker->addEndpoint(&owners[1], "client", endpoint("two"));
  fBroker->addEndpoint(&owners[1], "other", endpoint("three"));
  const auto notify = [&](const char* pTarget) {
    return outcome([&] {
      fBroker->notify(pTarget, "onEvent", OXValue::array(1));
      return fBroker->canNotify(pTarget);
    });
  };
  EXPECT_EQ(notify("client"), "true");
  EXPECT_THAT(got, ElementsAre("broken onEvent[1]", "two onEvent[1]"));
  EXPECT_EQ(log.records(2), "notify: A client \"client\" could not be notified: broken pipe\n");
  fBroker->removeEndpoint(&owners[1]);
  EXPECT_EQ(notify("other"), "OXError: There is no module and no client \"other\"");
  fBroker->removeEndpoint(&owners[0]);
  EXPECT_EQ(notify("client"), "OXError: There is no module and no client \"client\"");
  EXPECT_FALSE(fBroker->canNotify("client"));
  EXPECT_EQ(notify("OXBroker"), "OXError: OXBroker has no method \"onEvent\"");
}

TEST_F(Broker, TheManagerListsLivingBrokers) {
  const auto manager = OXBrokerManager::getInstance();
  EXPECT_EQ(fBroker->getBrokerManager().lock(), manager);
  OXBrokerManager::setInstance({});
  EXPECT_EQ(OXBrokerManager::getInstance(), manager) << "null leaves the present one in force";
  manager->addBroker(fBroker);
  EXPECT_THAT(manager->getBrokers(), ElementsAre(fBroker)) << "twice counts once";
  fBroker.reset();
  EXPECT_THAT(manager->getBrokers(), ElementsAre());
}

TEST_F(Broker, CallsRunInParallel) {
  OXModule::createModule<Chooser>(fBroker);
  std::atomic<int> right{0};
  std::latch done(400);
  for (int i = 0; i < 400; ++i)
    ASSERT_TRUE(fBroker->post([&, i] {
      const OXValue argument = i % 2 ? OXValue(i) : OXValue(i % 3 == 0);
      right +=
          call("Chooser", "pick", OXValue::array(argument)) == (i % 2 ? "\"int\"" : "\"bool\"");
      done.count_down();
    }));
  done.wait();
  EXPECT_EQ(right, 400);
}

}  // namespace
}  // namespace OX::test
