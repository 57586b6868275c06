/// The base classes of modules, whose methods a broker publishes.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "oxapi.h"
#include "oxmethod.h"
#include "oxvalue.h"

namespace OX {

class OXBroker;

/// What a module keeps for its callers under ids, and how it ends that when they are gone.
///
/// A remote connection owns the ids that it acquires, and when it ends, in whatever way, the broker
/// ends them. Each call of an acquiring method has a number, getAcquisition(), that is never used
/// again; the module stores it beside the id that the call makes. A local call has number 0: what
/// it acquires is nobody's and stays, as does what a connection with
/// OXBroker.keepSubscriptions(true) acquires.
///
///   declareOwnership({.acquiring = {"open"},
///                     .returning = {"close", "closeAll"},
///                     .findId = [this](std::uint64_t pNumber) { return idOf(pNumber); },
///                     .end = [this](std::uint64_t pNumber) { return endNow(pNumber); }});
struct OXOwnership {
  std::vector<std::string> acquiring;  ///< methods that make an id for their caller
  std::vector<std::string> returning;  ///< methods after which an id may be gone, by any caller
  /// The id that the call of this number made; empty when it made none, or when that is gone.
  std::function<std::string(std::uint64_t)> findId;
  /// Ends that id at once, whatever its client still has under it; true also when it is gone. False
  /// when a call that is under way keeps it: the broker asks again soon. Waits for no client.
  std::function<bool(std::uint64_t)> end;
};

/// A named table of published methods. The constructor of the derived class fills the table, which
/// does not change after initModule() has registered the module. From then on calls may arrive on
/// any number of threads at once, and the broker's registry shares ownership of the module. A call
/// under way also shares it, so a module is never destroyed within one of its calls.
class OX_API OXModuleCore : public boost::enable_shared_from_this<OXModuleCore> {
 public:
  OXModuleCore(boost::shared_ptr<OXBroker> pBroker, const std::string& pName);
  virtual ~OXModuleCore();
  OXModuleCore(const OXModuleCore&) = delete;
  OXModuleCore& operator=(const OXModuleCore&) = delete;

  /// Calls the method that selectMethod() selects; a void method leaves pResult unchanged.
  /// Throws OXError and nothing else.
  virtual void execute(const std::string& pMethod, const OXValue& pArguments, OXValue& pResult);
  /// The version of the framework, unless overridden.
  virtual std::string version();

  /// Registers with the broker, which shares ownership from then on. Throws OXError when the broker
  /// has ended or has a module of this name.
  void initModule();

  /// The broker; null when it has ended.
  boost::shared_ptr<OXBroker> getParentBroker() const { return fBroker.lock(); }
  const std::string& getName() const { return fName; }

  const std::string& getModuleDescription() const { return fDescription; }
  const std::vector<OXMethodInfo::Example>& getModuleExamples() const { return fExamples; }
  /// All published methods in the order of binding.
  const std::vector<OXMethodInfo>& getMethods() const { return fMethods; }
  /// Empty unless the module declared one.
  const OXOwnership& getOwnership() const { return fOwnership; }

 protected:
  void setModuleDescription(const std::string& pText) { fDescription = pText; }
  void addModuleExample(const std::string& pLanguage, const std::string& pText);

  /// Publishes the rows of a table, in their order: what bindPublications() returned
  /// (oxvalue/detail/publication.h has an example). Throws OXError as bindMethod() does.
  void publish(std::vector<OXMethodInfo> pMethods);

  /// In the constructor, after the methods were published. Both functions are thread-safe. Throws
  /// OXError when a function is missing, or a method of that name is not published.
  void declareOwnership(OXOwnership pOwnership);
  /// The number of the acquiring call that runs on this thread, see OXOwnership; 0 when nobody will
  /// own what is acquired.
  static std::uint64_t getAcquisition();

  // What publish() does step by step, one method at a time.

  /// Starts the description of a method; completeAndCheck() then adds the types of its signature,
  /// and bindMethod() or bindMethodOverload() publishes it (oxvalue/detail/oxfunctor.h has an
  /// example).
  void functionName(const std::string& pName, const std::string& pClass,
                    const std::string& pDescription, int pFlags = 0);
  void addParam(const std::string& pName, const std::string& pDescription);
  void setReturn(const std::string& pName, const std::string& pDescription);
  void addMethodExample(const std::string& pLanguage, const std::string& pText);
  OXMethodInfo& getCurrentMethodDescription() { return fCurrent; }
  /// Publish the method described. The first documents that it is the only one of its name, the
  /// second that there are others; both do the same. They throw OXError for a method without a name
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
  OXOwnership fOwnership;
};

/// The base of modules that are loaded from libraries.
class OX_API OXModule : public OXModuleCore {
 public:
  OXModule(boost::shared_ptr<OXBroker> pBroker, const std::string& pName);
  ~OXModule() override;

  /// Hooks for a host: the module's end, a pause, and a web page about the module. The broker calls
  /// none of them, and the defaults do nothing.
  virtual void exit();
  virtual void stop(int pReason);
  virtual std::string httpGet();
  /// Called once by createModule, after registration.
  virtual void init();

  /// Constructs a T, registers it and calls its init(). Exceptions of T's constructor and of the
  /// registration propagate, and then nothing remains registered.
  template <class T>
  static boost::shared_ptr<T> createModule(boost::shared_ptr<OXBroker> pBroker) {
    boost::shared_ptr<T> module(new T(pBroker));
    module->initModule();
    module->init();
    return module;
  }
};

/// Marks a class that has at most one instance in a process. Has no members.
template <class T>
class OXSingleton {
 protected:
  OXSingleton() = default;
  ~OXSingleton() = default;
};

}  // namespace OX
