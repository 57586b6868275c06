/// The base of everything that a broker publishes.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <string>
#include <vector>

#include "oxapi.h"
#include "oxmethod.h"
#include "oxvalue.h"

namespace OX {

class OXBroker;

/// A named table of published methods. The table is filled in the constructor of the derived
/// class and does not change once initModule() has registered the module; from then on calls may
/// arrive on any number of threads at once, and the broker's registry keeps the module alive.
/// A call holds the module, so it never outlives it.
class OX_API OXModuleCore : public boost::enable_shared_from_this<OXModuleCore> {
 public:
  OXModuleCore(boost::shared_ptr<OXBroker> pBroker, const std::string& pName);
  virtual ~OXModuleCore();
  OXModuleCore(const OXModuleCore&) = delete;
  OXModuleCore& operator=(const OXModuleCore&) = delete;

  /// Finds the publication (see selectMethod) and calls it; a void method leaves pResult alone.
  /// Throws OXError and nothing else.
  virtual void execute(const std::string& pMethod, const OXValue& pArguments, OXValue& pResult);
  virtual std::string version();

  /// Registers with the broker, which keeps the module from then on.
  /// Throws OXError when the broker has a module of this name.
  void initModule();

  /// The broker; null when it has ended.
  boost::shared_ptr<OXBroker> getParentBroker() const { return fBroker.lock(); }
  const std::string& getName() const { return fName; }

  const std::string& getModuleDescription() const { return fDescription; }
  const std::vector<OXMethodInfo::Example>& getModuleExamples() const { return fExamples; }
  /// All publications in the order of binding.
  const std::vector<OXMethodInfo>& getMethods() const { return fMethods; }

 protected:
  void setModuleDescription(const std::string& pText) { fDescription = pText; }
  void addModuleExample(const std::string& pLanguage, const std::string& pText);

  /// Publishes the rows of a table, in their order: what bindPublications() returned
  /// (oxvalue/detail/publication.h has an example). Throws OXError as bindMethod() does.
  void publish(std::vector<OXMethodInfo> pMethods);

  // The same step by step, one method at a time.

  /// Describes the next method; completeAndCheck() then adds the types of its signature, and
  /// bindMethod or bindMethodOverload publishes it (oxvalue/detail/oxfunctor.h has an example).
  void functionName(const std::string& pName, const std::string& pClass,
                    const std::string& pDescription, int pFlags = 0);
  void addParam(const std::string& pName, const std::string& pDescription);
  void setReturn(const std::string& pName, const std::string& pDescription);
  void addMethodExample(const std::string& pLanguage, const std::string& pText);
  OXMethodInfo& getCurrentMethodDescription() { return fCurrent; }
  /// The first says that the name is meant to be the only one of its kind, the second that others
  /// of that name may stand beside it. Both append. They throw OXError for a method without a name
  /// or without completeAndCheck().
  void bindMethod(boost::shared_ptr<OXFunctorBase> pFunctor);
  void bindMethodOverload(boost::shared_ptr<OXFunctorBase> pFunctor);

 private:
  boost::weak_ptr<OXBroker> fBroker;
  std::string fName;
  std::string fDescription;
  std::vector<OXMethodInfo::Example> fExamples;
  OXMethodInfo fCurrent;
  std::vector<OXMethodInfo> fMethods;
};

/// A module as a library supplies it.
class OX_API OXModule : public OXModuleCore {
 public:
  OXModule(boost::shared_ptr<OXBroker> pBroker, const std::string& pName);
  ~OXModule() override;

  /// Hooks of a host for the module's end, for a pause and for a web page about it. The broker
  /// calls none of them; they do nothing here.
  virtual void exit();
  virtual void stop(int pReason);
  virtual std::string httpGet();
  /// Called once by createModule, after registration.
  virtual void init();

  /// Makes a T, registers it and initialises it. What T's constructor or the registration throws
  /// passes out, with nothing left behind.
  template <class T>
  static boost::shared_ptr<T> createModule(boost::shared_ptr<OXBroker> pBroker) {
    boost::shared_ptr<T> module(new T(pBroker));
    module->initModule();
    module->init();
    return module;
  }
};

/// Marks a class of which a process has one at most. Holds nothing.
template <class T>
class OXSingleton {
 protected:
  OXSingleton() = default;
  ~OXSingleton() = default;
};

}  // namespace OX
