// Overload selection by arity and by the kinds of the arguments, and the message when nothing fits.
#include <oxframework/oxmethod.h>

#include <tuple>

#include <oxframework/oxerror.h>
#include <oxframework/oxtools.h>

namespace OX {
namespace {

/// How well the kind of an argument fits a parameter, best first.
enum class Fit { Exact, Conversion, AnyValue, None };

// Must agree with what detail::converter<T> accepts.
Fit fitOf(int pTypeCode, OXValue::Type pKind) {
  const auto exactOrInt = [pKind](OXValue::Type pExact) {
    if (pKind == pExact) return Fit::Exact;
    return pKind == OXValue::TypeInt ? Fit::Conversion : Fit::None;
  };
  const auto exact = [pKind](OXValue::Type pExact) {
    return pKind == pExact ? Fit::Exact : Fit::None;
  };
  switch (pTypeCode) {
    case kTypeBool:
      return exactOrInt(OXValue::TypeBool);
    case kTypeFloat:
      return exactOrInt(OXValue::TypeFloat);
    case kTypeInt:
      return exact(OXValue::TypeInt);
    case kTypeString:
      return exact(OXValue::TypeString);
    case kTypeFloatList:
      return exact(OXValue::TypeArray);
    case kTypeValue:
      return Fit::AnyValue;
    default:
      return Fit::None;
  }
}

/// How far a call is from a publication; less is better.
struct Distance {
  bool fits = false;
  int anyValues = 0;
  int conversions = 0;

  // One OXValue parameter outweighs any number of conversions.
  bool operator<=(const Distance& pOther) const {
    return std::tie(anyValues, conversions) <= std::tie(pOther.anyValues, pOther.conversions);
  }
};

Distance distanceOf(const OXMethodInfo& pMethod, const OXValue::Array& pArguments) {
  Distance distance;
  if (pMethod.arity != static_cast<int>(pArguments.size())) return distance;
  for (std::size_t i = 0; i < pArguments.size(); ++i) {
    const Fit fit = fitOf(pMethod.parameters.at(i).typeCode, pArguments[i].getType());
    if (fit == Fit::None) return distance;
    distance.anyValues += fit == Fit::AnyValue ? 1 : 0;
    distance.conversions += fit == Fit::Conversion ? 1 : 0;
  }
  distance.fits = true;
  return distance;
}

std::string kindsOf(const OXValue::Array& pArguments) {
  std::string text = "(";
  for (const OXValue& argument : pArguments) {
    if (text.size() > 1) text += ", ";
    text += OXValue::TypeToString(argument.getType());
  }
  return text + ")";
}

[[noreturn]] void noFit(const std::string& pModule, const std::vector<OXMethodInfo>& pMethods,
                        const std::string& pName, const OXValue::Array& pArguments) {
  std::string signatures;
  for (const OXMethodInfo& method : pMethods)
    if (method.name == pName) signatures += "\n\t" + method.signature();
  // Two different mistakes: a misspelt name, and arguments that fit none of its publications.
  if (signatures.empty()) raiseError(pModule, pName, pModule + " has no method \"" + pName + "\"");
  raiseError(pModule, pName,
             "\"" + pName + "\" doesn't take " + kindsOf(pArguments) + ". There is:" + signatures);
}

}  // namespace

OXFunctorBase::~OXFunctorBase() = default;

std::string OXMethodInfo::signature() const {
  std::string text = returnType + " " + name + "(";
  for (int i = 0; i < arity; ++i) {
    if (i > 0) text += ", ";
    text += parameters.at(static_cast<std::size_t>(i)).type;
  }
  return text + ")";
}

const OXMethodInfo& selectMethod(const std::string& pModuleName,
                                 const std::vector<OXMethodInfo>& pMethods,
                                 const std::string& pName, const OXValue& pArguments) {
  if (!pArguments.isArray())
    raiseError(
        pModuleName, pName,
        "The arguments of a call are an array, not " + OXValue::TypeToString(pArguments.getType()));
  const OXMethodInfo* best = nullptr;
  Distance nearest;
  for (const OXMethodInfo& method : pMethods) {
    if (method.name != pName) continue;
    const Distance distance = distanceOf(method, pArguments.toArray());
    // Also when equally near: among equals the one bound last wins.
    if (!distance.fits || (best && !(distance <= nearest))) continue;
    best = &method;
    nearest = distance;
  }
  if (!best) noFit(pModuleName, pMethods, pName, pArguments.toArray());
  return *best;
}

}  // namespace OX
