/// The glue between a published method and an ordinary member function.
///
///   functionName("setResolution", getName(), "Changes the resolution of a subscriber");
///   addParam("name", "who subscribed");
///   completeAndCheck(&Camera::setResolution, getCurrentMethodDescription());
///   bindMethod(createFunctor(this, &Camera::setResolution));
///
/// Arguments are taken by value or by const reference. Types: bool, int, float, std::string,
/// OXValue, std::vector<float>; as result also void and OXImage*, whose pointer is dropped: the
/// caller gets an invalid value, and only who holds the object itself gets at the image.
/// Virtual functions reach the override of the object's own class.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <oxframework/oxapi.h>
#include <oxframework/oxmethod.h>
#include <oxframework/oxtools.h>
#include <oxframework/oxvalue.h>
#include "oxvalue/detail/oxfunctorconvert.h"

namespace OX {

class OXImage;

namespace detail {

/// What getTypeString() takes for a C++ type; a type without one can't be published.
template <typename T>
inline constexpr int kTypeCode = 0;
template <>
inline constexpr int kTypeCode<void> = kTypeVoid;
template <>
inline constexpr int kTypeCode<bool> = kTypeBool;
template <>
inline constexpr int kTypeCode<int> = kTypeInt;
template <>
inline constexpr int kTypeCode<float> = kTypeFloat;
template <>
inline constexpr int kTypeCode<std::string> = kTypeString;
template <>
inline constexpr int kTypeCode<OXValue> = kTypeValue;
template <>
inline constexpr int kTypeCode<std::vector<float>> = kTypeFloatList;
template <>
inline constexpr int kTypeCode<OXImage*> = kTypeImagePointer;

/// Lets nothing but OXError out of a call. Not a template: one copy serves all signatures.
class OX_API OXGuardedFunctor : public OXFunctorBase {
 public:
  void call(const OXValue& pParams, OXValue& pResult) final;

 private:
  virtual void xCall(const OXValue& pParams, OXValue& pResult) = 0;
};

/// Class may be a const one. The object is borrowed: the module that owns the functor is the
/// object or holds it.
template <class Class, typename Method, typename Result, typename... Arguments>
class OXFunctor final : public OXGuardedFunctor {
 public:
  OXFunctor(Class* pObject, Method pMethod) : fObject(pObject), fMethod(pMethod) {}

 private:
  template <typename T>
  static T xArgument(const OXValue& pParams, std::size_t pIndex) {
    static_assert(kTypeCode<T> != 0, "a published method can't take this type");
    const OXValue& value = pParams[static_cast<int>(pIndex)];
    if constexpr (std::is_same_v<T, OXValue>)
      return value;
    else
      return converter<T>::convertFromOXValue(value);
  }

  void xCall(const OXValue& pParams, OXValue& pResult) override {
    xCallWith(pParams, pResult, std::index_sequence_for<Arguments...>());
  }

  // The braces make the conversions happen in the order of the arguments.
  template <std::size_t... Index>
  void xCallWith([[maybe_unused]] const OXValue& pParams, OXValue& pResult,
                 std::index_sequence<Index...>) {
    std::tuple<Arguments...> arguments{xArgument<Arguments>(pParams, Index)...};
    if constexpr (std::is_void_v<Result>) {
      (fObject->*fMethod)(std::get<Index>(std::move(arguments))...);
    } else if constexpr (std::is_same_v<Result, OXImage*>) {
      (fObject->*fMethod)(std::get<Index>(std::move(arguments))...);
      pResult = OXValue();
    } else {
      pResult = OXValue((fObject->*fMethod)(std::get<Index>(std::move(arguments))...));
    }
  }

  Class* fObject;
  Method fMethod;
};

/// One kind of reference count for all signatures, which keeps what a binding costs small.
inline boost::shared_ptr<OXFunctorBase> share(OXFunctorBase* pFunctor) {
  return boost::shared_ptr<OXFunctorBase>(pFunctor);
}

OX_API void completeDescription(OXMethodInfo& pInfo, int pResultCode,
                                std::initializer_list<int> pArgumentCodes);

template <typename Result, typename... Arguments>
void complete(OXMethodInfo& pInfo) {
  static_assert(kTypeCode<Result> != 0, "a published method can't give this type");
  completeDescription(pInfo, kTypeCode<Result>, {kTypeCode<Arguments>...});
}

}  // namespace detail

/// Binds a member function to its object.
template <class Object, class Class, typename Result, typename... Arguments>
boost::shared_ptr<OXFunctorBase> createFunctor(Object* pObject,
                                               Result (Class::*pMethod)(Arguments...)) {
  using Functor = detail::OXFunctor<Class, Result (Class::*)(Arguments...),
                                    std::remove_cvref_t<Result>, std::remove_cvref_t<Arguments>...>;
  return detail::share(new Functor(pObject, pMethod));
}

template <class Object, class Class, typename Result, typename... Arguments>
boost::shared_ptr<OXFunctorBase> createFunctor(Object* pObject,
                                               Result (Class::*pMethod)(Arguments...) const) {
  using Functor = detail::OXFunctor<const Class, Result (Class::*)(Arguments...) const,
                                    std::remove_cvref_t<Result>, std::remove_cvref_t<Arguments>...>;
  return detail::share(new Functor(pObject, pMethod));
}

/// Completes a method's description from its signature, to be called right before the binding:
/// types of result and parameters, and a parameter "argN" for each that has no description.
template <class Class, typename Result, typename... Arguments>
void completeAndCheck(Result (Class::*)(Arguments...), OXMethodInfo& pInfo) {
  detail::complete<std::remove_cvref_t<Result>, std::remove_cvref_t<Arguments>...>(pInfo);
}

template <class Class, typename Result, typename... Arguments>
void completeAndCheck(Result (Class::*)(Arguments...) const, OXMethodInfo& pInfo) {
  detail::complete<std::remove_cvref_t<Result>, std::remove_cvref_t<Arguments>...>(pInfo);
}

}  // namespace OX
