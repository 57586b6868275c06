// The broker as a module of its own, so that remote callers inspect it by ordinary calls.
#include "brokermodule.h"

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include <oxvalue/detail/publication.h>
#include "broker/connections.h"

namespace OX {
namespace {

OXValue toValue(const std::vector<OXMethodInfo::Example>& pExamples) {
  OXValue::Array examples;
  for (const auto& example : pExamples)
    examples.push_back(OXValue::array(example.language, example.text));
  return examples;
}

OXValue toValue(const OXMethodInfo& pMethod) {
  OXValue::Array parameters;
  for (const auto& parameter : pMethod.parameters)
    parameters.push_back(OXValue::array(parameter.name, parameter.description, parameter.type));
  return OXValue::array(
      pMethod.name, pMethod.className, pMethod.description, pMethod.flags, std::move(parameters),
      OXValue::array(pMethod.returnName, pMethod.returnDescription, pMethod.returnType),
      toValue(pMethod.examples));
}

/// About what a value takes in memory.
std::size_t sizeOf(const OXValue& pValue) {
  std::size_t size = sizeof(OXValue);
  if (pValue.isArray())
    for (int i = 0; i < pValue.getSize(); ++i) size += sizeOf(pValue[i]);
  else if (pValue.isString() || pValue.isBinary())
    size += static_cast<std::size_t>(pValue.getSize());
  return size;
}

/// In the order in which introspection shows them.
std::vector<OXPublication<OXBrokerModule>> publications() {
  return {
      {.name = "getModuleList",
       .description = "Names all modules that can be called",
       .method = operation(&OXBrokerModule::getModuleList),
       .result = {"modules", "array of names in the order of registration"},
       .examples = {{"C++",
                     "OXValue modules = broker->getProxy(\"OXBroker\")->call(\"getModuleList\");"},
                    {"shell", "oxvideo call OXBroker getModuleList"}}},
      {.name = "getMethodList",
       .description = "Describes every method of a module",
       .method = operation(&OXBrokerModule::getMethodList),
       .parameters = {{"module", "name of a module, as getModuleList returns it"}},
       .result = {"methods",
                  "array with one array a method: name, class, description, flags, parameters as "
                  "[name, description, type], return as [name, description, type], examples as "
                  "[language, text]"},
       .examples = {{"C++",
                     "OXValue methods = broker->getProxy(\"OXBroker\")->call("
                     "\"getMethodList\", \"VideoInput\");"},
                    {"shell", "oxvideo methods VideoInput"}}},
      {.name = "getModuleDescription",
       .description = "Says what a module is for",
       .method = operation(&OXBrokerModule::getModuleDescription),
       .parameters = {{"module", "name of a module, as getModuleList returns it"}},
       .result = {"description",
                  "array of the description and an array of examples as [language, text]"},
       .examples = {{"shell", "oxvideo call OXBroker getModuleDescription VideoInput"}}},
      {.name = "setClientName",
       .description =
           "Names the connection that this call came through. From now on events for a module of "
           "that name are sent to it, and the event \"ClientDisconnected\" carries the name when "
           "the connection ends",
       .method = operation(&OXBrokerModule::setClientName),
       .parameters = {{"name", "name of the client; replaces an earlier one"}},
       .examples = {{"C++",
                     "remote->getProxy(\"OXBroker\")->call(\"setClientName\", \"follower\");"}}},
      {.name = "ping",
       .description = "Does nothing. An answer shows that the broker is alive, and how long a "
                      "call takes",
       .method = operation(&OXBrokerModule::ping),
       .result = {"answer", "always true"},
       .examples = {{"shell", "oxvideo call OXBroker ping"}}},
      {.name = "version",
       .description = "Returns the version of the framework that the broker runs",
       .method = operation(&OXModuleCore::version),
       .result = {"version", "MAJOR.MINOR.PATCH"},
       .examples = {{"shell", "oxvideo call OXBroker version"}}},
      {.name = "keepSubscriptions",
       .description =
           "Whether what this connection subscribes from now on stays when the connection ends. At "
           "first it does not: a connection owns its subscriptions, and they end with it",
       .method = operation(&OXBrokerModule::keepSubscriptions),
       .parameters = {{"keep",
                       "true: they are nobody's and stay until somebody unsubscribes them"}},
       .examples = {{"shell", "oxvideo call --keep OXVideoDevice subscribeCamera mine 0 2 11 15"}}},
      {.name = "onDisconnect",
       .description =
           "Leaves a last will: a call that the broker makes when this connection has ended, in "
           "whatever way, before it ends the connection's subscriptions. A connection has 64 at "
           "most, with at most 64 KiB of arguments each, and 5 s for all of them together; one "
           "that "
           "fails does not keep the others from running. None runs when the broker itself ends",
       .method = operation(&OXBrokerModule::onDisconnect),
       .parameters = {{"module", "name of a module, as getModuleList returns it"},
                      {"method", "name of one of its methods"},
                      {"arguments", "array of the method's arguments"}},
       .result = {"id", "unique in the broker, for cancelOnDisconnect"},
       .examples = {{"C++",
                     "int will = remote->getProxy(\"OXBroker\")->call(\"onDisconnect\", "
                     "\"OXVideoDevice\", \"stopFrameGrabber\", OXValue::array(0)).toInt();"}}},
      {.name = "cancelOnDisconnect",
       .description = "Takes back a last will of this connection",
       .method = operation(&OXBrokerModule::cancelOnDisconnect),
       .parameters = {{"id", "as onDisconnect returned it"}},
       .result = {"cancelled", "false when this connection has no last will of that id"},
       .examples = {{"C++",
                     "remote->getProxy(\"OXBroker\")->call(\"cancelOnDisconnect\", will);"}}},
      {.name = "getConnections",
       .description = "Lists the connections of clients in other processes, the oldest first",
       .method = operation(&OXBrokerModule::getConnections),
       .result = {"connections",
                  "array with one array a connection: number, address (\"HOST:PORT\", or "
                  "\"unix:PATH (process ID, user ID)\"), client name or \"\", seconds since it "
                  "began, calls, MiB received, MiB sent, array of the ids that it owns"},
       .examples = {{"shell", "oxvideo call OXBroker getConnections"}}},
  };
}

}  // namespace

OXBrokerModule::OXBrokerModule(boost::shared_ptr<OXBroker> pBroker)
    : OXModule(std::move(pBroker), "OXBroker") {
  setModuleDescription(
      "The broker itself: its modules, their methods, and the names of its clients");
  addModuleExample("shell", "oxvideo methods OXBroker");
  publish(bindPublications(this, "OXBroker", publications()));
}

// The broker is held for one call only: it owns this module, which must not own it in turn.
boost::shared_ptr<OXBroker> OXBrokerModule::xBroker(const char* pFunction) {
  boost::shared_ptr<OXBroker> broker = getParentBroker();
  if (!broker) raiseError("OXBroker", pFunction, "The broker has ended");
  return broker;
}

boost::shared_ptr<OXModuleCore> OXBrokerModule::xFind(const std::string& pModule,
                                                      const char* pFunction) {
  boost::shared_ptr<OXModuleCore> module = xBroker(pFunction)->getModule(pModule);
  if (!module) raiseError("OXBroker", pFunction, "There is no module \"" + pModule + "\"");
  return module;
}

OXValue OXBrokerModule::getModuleList() { return xBroker("getModuleList")->getModuleList(); }

OXValue OXBrokerModule::getMethodList(const std::string& pModule) {
  OXValue::Array methods;
  for (const OXMethodInfo& method : xFind(pModule, "getMethodList")->getMethods())
    methods.push_back(toValue(method));
  return methods;
}

OXValue OXBrokerModule::getModuleDescription(const std::string& pModule) {
  const boost::shared_ptr<OXModuleCore> module = xFind(pModule, "getModuleDescription");
  return OXValue::array(module->getModuleDescription(), toValue(module->getModuleExamples()));
}

void OXBrokerModule::setClientName(const std::string& pName) {
  if (pName.empty()) raiseError("OXBroker", "setClientName", "A client's name can't be empty");
  // The connection is not among the arguments: it is known by the thread that serves the call.
  OXCallerContext* const caller = OXCallerContext::current();
  if (!caller)
    raiseError("OXBroker", "setClientName",
               "Only a connection can be named; this call is a local one");
  caller->setClientName(pName);
}

// Goes through dispatch like any call, so that its time is that of the whole way.
bool OXBrokerModule::ping() { return true; }

int OXBrokerModule::xConnection(const char* pFunction) {
  const OXCallerContext* const caller = OXCallerContext::current();
  if (!caller)
    raiseError("OXBroker", pFunction,
               "Only a connection can ask for this; this call is a local one");
  return caller->getCaller().connection;
}

void OXBrokerModule::keepSubscriptions(bool pKeep) {
  xBroker("keepSubscriptions")->xConnections()->setOwning(xConnection("keepSubscriptions"), !pKeep);
}

int OXBrokerModule::onDisconnect(const std::string& pModule, const std::string& pMethod,
                                 const OXValue& pArguments) {
  const int connection = xConnection("onDisconnect");
  const boost::shared_ptr<OXBroker> broker = xBroker("onDisconnect");
  if (!pArguments.isArray())
    raiseError("OXBroker", "onDisconnect", "The arguments of a last will are an array");
  if (const std::size_t bytes = sizeOf(pArguments); bytes > OXConnections::kMaxWillBytes)
    raiseError("OXBroker", "onDisconnect",
               "The arguments of a last will may have " +
                   std::to_string(OXConnections::kMaxWillBytes) + " bytes at most, not " +
                   std::to_string(bytes));
  // A mistake fails here, where there is still somebody to be told.
  selectMethod(pModule, xFind(pModule, "onDisconnect")->getMethods(), pMethod, pArguments);
  return broker->xConnections()->addWill(connection, {0, pModule, pMethod, pArguments});
}

bool OXBrokerModule::cancelOnDisconnect(int pId) {
  return xBroker("cancelOnDisconnect")
      ->xConnections()
      ->cancelWill(xConnection("cancelOnDisconnect"), pId);
}

OXValue OXBrokerModule::getConnections() {
  constexpr float kMiB = 1024 * 1024;
  OXValue::Array connections;
  for (const auto& one : xBroker("getConnections")->xConnections()->list()) {
    const OXConnectionState& state = one.state;
    OXValue::Array ids(one.ids.begin(), one.ids.end());
    connections.push_back(OXValue::array(
        state.caller.connection, describeAddress(state.caller), state.caller.name,
        static_cast<int>(one.age.count()), state.calls, static_cast<float>(state.bytesIn) / kMiB,
        static_cast<float>(state.bytesOut) / kMiB, OXValue(std::move(ids))));
  }
  return connections;
}

}  // namespace OX
