/// What a published method looks like to a caller, and the bound function behind it.
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "oxapi.h"
#include "oxvalue.h"

namespace OX {

/// A method bound to its object, with its types erased. Made by createFunctor()
/// (liboxvalue/oxvalue/detail/oxfunctor.h).
class OX_API OXFunctorBase {
 public:
  virtual ~OXFunctorBase();
  /// Calls with the elements of an array; what the method gives is assigned to pResult, which a
  /// void method leaves alone. Throws OXError and nothing else.
  virtual void call(const OXValue& pParams, OXValue& pResult) = 0;
};

/// One publication.
struct OX_API OXMethodInfo {
  struct Parameter {
    std::string name;
    std::string description;
    std::string type;  ///< as getTypeString() gives it
    int typeCode = 0;  ///< the TypeCode behind it
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
  int arity = -1;  ///< arguments that the bound function takes; -1 before completeAndCheck()
  boost::shared_ptr<OXFunctorBase> functor;

  /// "int setResolution(string, int)".
  std::string signature() const;
};

/// The publication that a call reaches: among those of the name whose arity fits, the one whose
/// argument kinds fit best. An exact kind comes before a conversion (int for bool or float), that
/// before an OXValue parameter; among equals the one bound last.
/// Throws OXError, which lists the signatures that there are, when none fits.
OX_API const OXMethodInfo& selectMethod(const std::string& pModuleName,
                                        const std::vector<OXMethodInfo>& pMethods,
                                        const std::string& pName, const OXValue& pArguments);

}  // namespace OX
