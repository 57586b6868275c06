// The table of methods that a module publishes, and the hooks that a host may call.
#include <oxframework/oxmodule.h>

#include <algorithm>
#include <utility>

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include <oxframework/version.h>
#include "connections.h"

namespace OX {

OXModuleCore::OXModuleCore(boost::shared_ptr<OXBroker> pBroker, const std::string& pName)
    : fBroker(pBroker), fName(pName) {}

OXModuleCore::~OXModuleCore() = default;

void OXModuleCore::execute(const std::string& pMethod, const OXValue& pArguments,
                           OXValue& pResult) {
  selectMethod(fName, fMethods, pMethod, pArguments).functor->call(pArguments, pResult);
}

std::string OXModuleCore::version() { return OX_VERSION; }

// Not in the constructor, where shared_from_this() has no owner to share with yet.
void OXModuleCore::initModule() {
  const boost::shared_ptr<OXBroker> broker = getParentBroker();
  if (!broker) raiseError(fName, "initModule", "There is no broker to register with: it has ended");
  broker->registerModule(shared_from_this());
}

void OXModuleCore::addModuleExample(const std::string& pLanguage, const std::string& pText) {
  fExamples.push_back({pLanguage, pText});
}

void OXModuleCore::publish(std::vector<OXMethodInfo> pMethods) {
  fMethods.reserve(fMethods.size() + pMethods.size());
  for (OXMethodInfo& method : pMethods) {
    fCurrent = std::move(method);
    // The same way as a single binding, so that both are checked alike.
    bindMethod(std::move(fCurrent.functor));
  }
}

void OXModuleCore::declareOwnership(OXOwnership pOwnership) {
  if (!pOwnership.findId || !pOwnership.end)
    raiseError(fName, "declareOwnership", "Ids can't be owned without findId and end");
  // A slip in a name would leave what it acquires to nobody, which no test of the module shows.
  for (const auto* const names : {&pOwnership.acquiring, &pOwnership.returning})
    for (const std::string& name : *names)
      if (std::none_of(fMethods.begin(), fMethods.end(),
                       [&](const OXMethodInfo& pMethod) { return pMethod.name == name; }))
        raiseError(fName, "declareOwnership", "There is no method \"" + name + "\"");
  fOwnership = std::move(pOwnership);
}

std::uint64_t OXModuleCore::getAcquisition() { return OXConnections::getAcquisition(); }

void OXModuleCore::functionName(const std::string& pName, const std::string& pClass,
                                const std::string& pDescription, int pFlags) {
  fCurrent = OXMethodInfo();
  fCurrent.name = pName;
  fCurrent.className = pClass;
  fCurrent.description = pDescription;
  fCurrent.flags = pFlags;
}

void OXModuleCore::addParam(const std::string& pName, const std::string& pDescription) {
  fCurrent.parameters.push_back({pName, pDescription, "", 0});
}

void OXModuleCore::setReturn(const std::string& pName, const std::string& pDescription) {
  fCurrent.returnName = pName;
  fCurrent.returnDescription = pDescription;
}

void OXModuleCore::addMethodExample(const std::string& pLanguage, const std::string& pText) {
  fCurrent.examples.push_back({pLanguage, pText});
}

void OXModuleCore::bindMethod(boost::shared_ptr<OXFunctorBase> pFunctor) {
  if (fCurrent.name.empty() || fCurrent.arity < 0 || !pFunctor)
    raiseError(fName, "bindMethod",
               "\"" + fCurrent.name +
                   "\" needs functionName(), completeAndCheck() and a functor, in this order, "
                   "before it is bound");
  fCurrent.functor = std::move(pFunctor);
  fMethods.push_back(std::move(fCurrent));
  // Empty again, so that a forgotten functionName() is an error and not a second binding.
  fCurrent = OXMethodInfo();
}

void OXModuleCore::bindMethodOverload(boost::shared_ptr<OXFunctorBase> pFunctor) {
  bindMethod(std::move(pFunctor));
}

OXModule::OXModule(boost::shared_ptr<OXBroker> pBroker, const std::string& pName)
    : OXModuleCore(std::move(pBroker), pName) {}

OXModule::~OXModule() = default;

// A host may call each of these on any module; few modules have anything to do then.
void OXModule::exit() {}

void OXModule::stop(int) {}

std::string OXModule::httpGet() { return {}; }

void OXModule::init() {}

}  // namespace OX
