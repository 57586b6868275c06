#include "brokermodule.h"

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include <oxvalue/detail/oxfunctor.h>

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

}  // namespace

OXBrokerModule::OXBrokerModule(boost::shared_ptr<OXBroker> pBroker)
    : OXModule(std::move(pBroker), "OXBroker") {
  setModuleDescription(
      "The broker itself: which modules there are, what can be called on them, and who is calling");
  addModuleExample("shell", "oxvideo methods OXBroker");
  xPublishLists();
  xPublishConnection();
}

void OXBrokerModule::xPublishLists() {
  functionName("getModuleList", getName(), "Names all modules that can be called");
  setReturn("modules", "array of names, the first registered first");
  addMethodExample("C++",
                   "OXValue modules = broker->getProxy(\"OXBroker\")->call("
                   "\"getModuleList\");");
  addMethodExample("shell", "oxvideo call OXBroker getModuleList");
  completeAndCheck(&OXBrokerModule::getModuleList, getCurrentMethodDescription());
  bindMethod(createFunctor(this, &OXBrokerModule::getModuleList));

  functionName("getMethodList", getName(), "Describes every method of a module");
  addParam("module", "name of a module, as getModuleList gives it");
  setReturn("methods",
            "array with one array a method: name, class, description, flags, parameters as "
            "[name, description, type], return as [name, description, type], examples as "
            "[language, text]");
  addMethodExample("C++",
                   "OXValue methods = broker->getProxy(\"OXBroker\")->call("
                   "\"getMethodList\", \"VideoInput\");");
  addMethodExample("shell", "oxvideo methods VideoInput");
  completeAndCheck(&OXBrokerModule::getMethodList, getCurrentMethodDescription());
  bindMethod(createFunctor(this, &OXBrokerModule::getMethodList));

  functionName("getModuleDescription", getName(), "Says what a module is for");
  addParam("module", "name of a module, as getModuleList gives it");
  setReturn("description", "array of the description and an array of examples as [language, text]");
  addMethodExample("shell", "oxvideo call OXBroker getModuleDescription VideoInput");
  completeAndCheck(&OXBrokerModule::getModuleDescription, getCurrentMethodDescription());
  bindMethod(createFunctor(this, &OXBrokerModule::getModuleDescription));
}

void OXBrokerModule::xPublishConnection() {
  functionName("setClientName", getName(),
               "Gives the connection that the call comes by a name. Events for a module of that "
               "name are sent there from then on, and the event \"ClientDisconnected\" carries it "
               "when the connection ends");
  addParam("name", "name of the client; a later one replaces it");
  addMethodExample("C++", "remote->getProxy(\"OXBroker\")->call(\"setClientName\", \"follower\");");
  completeAndCheck(&OXBrokerModule::setClientName, getCurrentMethodDescription());
  bindMethod(createFunctor(this, &OXBrokerModule::setClientName));

  functionName("ping", getName(),
               "Does nothing: whoever gets an answer knows that the broker is "
               "there, and how long a call takes");
  setReturn("answer", "always true");
  addMethodExample("shell", "oxvideo call OXBroker ping");
  completeAndCheck(&OXBrokerModule::ping, getCurrentMethodDescription());
  bindMethod(createFunctor(this, &OXBrokerModule::ping));

  functionName("version", getName(), "Tells the version of the framework that the broker runs");
  setReturn("version", "three numbers with dots between");
  addMethodExample("shell", "oxvideo call OXBroker version");
  completeAndCheck(&OXModuleCore::version, getCurrentMethodDescription());
  bindMethod(createFunctor(this, &OXModuleCore::version));
}

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
  OXCallerContext* const caller = OXCallerContext::current();
  if (!caller)
    raiseError("OXBroker", "setClientName",
               "Only a connection can be named; this call is a local one");
  caller->setClientName(pName);
}

bool OXBrokerModule::ping() { return true; }

}  // namespace OX
