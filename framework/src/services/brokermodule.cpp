// The broker as a module of its own, so that remote callers inspect it by ordinary calls.
#include "brokermodule.h"

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include <oxvalue/detail/publication.h>

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
boost::shared_ptr<OXModuleCore> OXBrokerModule::xFind(const std::string& pModule,
                                                      const char* pFunction) {
  const boost::shared_ptr<OXBroker> broker = getParentBroker();
  if (!broker) raiseError("OXBroker", pFunction, "The broker has ended");
  boost::shared_ptr<OXModuleCore> module = broker->getModule(pModule);
  if (!module) raiseError("OXBroker", pFunction, "There is no module \"" + pModule + "\"");
  return module;
}

OXValue OXBrokerModule::getModuleList() {
  const boost::shared_ptr<OXBroker> broker = getParentBroker();
  if (!broker) raiseError("OXBroker", "getModuleList", "The broker has ended");
  return broker->getModuleList();
}

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

}  // namespace OX
