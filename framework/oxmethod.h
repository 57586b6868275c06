/// A published method: its description for callers, and the function that it is bound to.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "oxapi.h"
#include "oxvalue.h"

namespace OX {

/// A method bound to its object, with its types erased. Made by createFunctor()
/// (oxvalue/detail/oxfunctor.h). As thread-safe as the method.
class OX_API OXFunctorBase {
 public:
  virtual ~OXFunctorBase();
  /// Calls with the elements of the array pParams and assigns the result to pResult, which a void
  /// method leaves unchanged. Throws OXError and nothing else.
  virtual void call(const OXValue& pParams, OXValue& pResult) = 0;
};

/// The description of one published method.
struct OX_API OXMethodInfo {
  struct Parameter {
    std::string name;
    std::string description;
    std::string type;  ///< as getTypeString() returns it
    int typeCode = 0;  ///< the TypeCode of type
  };
  struct Example {
    std::string language;
    std::string text;
  };

  std::string name;
  std::string className;
  std::string description;
  int flags = 0;
  std::vector<Parameter> parameters;
  std::string returnName;
  std::string returnDescription;
  std::string returnType;
  std::vector<Example> examples;
  int arity = -1;  ///< number of arguments of the bound function; -1 before completeAndCheck()
  boost::shared_ptr<OXFunctorBase> functor;

  /// "int setResolution(string, int)".
  std::string signature() const;
};

/// Selects the method that a call reaches: among those of the name and the arity, the one whose
/// parameters fit the kinds of the arguments best. An exact kind is better than a conversion (int
/// to bool or float), which is better than a parameter of type OXValue; among equals the one bound
/// last wins. The result refers into pMethods. Throws OXError that lists the signatures when none
/// fits.
OX_API const OXMethodInfo& selectMethod(const std::string& pModuleName,
                                        const std::vector<OXMethodInfo>& pMethods,
                                        const std::string& pName, const OXValue& pArguments);

}  // namespace OX
