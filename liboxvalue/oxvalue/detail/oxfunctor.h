/// The glue between a published method and an ordinary member function.
///
///   functionName("setResolution", getName(), "Changes the resolution of a subscriber");
///   addParam("name", "id of the subscriber");
///   completeAndCheck(&Camera::setResolution, getCurrentMethodDescription());
///   bindMethod(createFunctor(this, &Camera::setResolution));
///
/// Parameters are by value or by const reference, of type bool, int, float, std::string, OXValue or
/// std::vector<float>. Results may also be void or OXImage*; that pointer is dropped, and the
/// caller gets an invalid value, because only code with the object itself can use the image. A void
/// method whose last parameter is an OXCompletion answers later (oxcompletion.h).
/// Virtual functions call the override of the object's class. publication.h has the form for many
/// methods.
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
#include <oxframework/oxcompletion.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxmethod.h>
#include <oxframework/oxtools.h>
#include <oxframework/oxvalue.h>
#include "oxvalue/detail/oxfunctorconvert.h"

namespace OX {

class OXImage;

namespace detail {

/// The TypeCode of a C++ type, 0 for a type that cannot be published.
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

/// Whether a method's last parameter is an OXCompletion.
template <typename... Arguments>
inline constexpr bool kIsDeferred = false;
template <typename First, typename... Others>
inline constexpr bool kIsDeferred<First, Others...> = kIsDeferred<Others...>;
template <>
inline constexpr bool kIsDeferred<OXCompletion> = true;

/// The arguments that callers pass: all but a completion.
template <typename... Arguments>
using PassedArguments =
    std::make_index_sequence<sizeof...(Arguments) - (kIsDeferred<Arguments...> ? 1 : 0)>;

/// The exception that is being handled, as an OXError.
OX_API OXError currentError();

/// Turns every exception of a call into OXError. Not a template: one copy serves all signatures.
class OX_API OXGuardedFunctor : public OXFunctorBase {
 public:
  void call(const OXValue& pParams, OXValue& pResult) final;

 private:
  virtual void xCall(const OXValue& pParams, OXValue& pResult) = 0;
};

/// Class may be const. The object is borrowed: the module that owns the functor is that object or
/// owns it.
template <class Class, typename Method, typename Result, typename... Arguments>
class OXFunctor final : public OXGuardedFunctor {
 public:
  OXFunctor(Class* pObject, Method pMethod) : fObject(pObject), fMethod(pMethod) {}

 private:
  template <typename T>
  static T xArgument(const OXValue& pParams, std::size_t pIndex) {
    static_assert(kTypeCode<T> != 0, "a published method cannot take this type");
    const OXValue& value = pParams[static_cast<int>(pIndex)];
    if constexpr (std::is_same_v<T, OXValue>)
      return value;
    else
      return converter<T>::convertFromOXValue(value);
  }

  void xCall(const OXValue& pParams, OXValue& pResult) override {
    xCallWith(pParams, pResult, PassedArguments<Arguments...>());
  }

  // Braces order the conversions as the arguments, so the first wrong one is reported.
  template <std::size_t... Index>
  void xCallWith([[maybe_unused]] const OXValue& pParams, OXValue& pResult,
                 std::index_sequence<Index...>) {
    using All = std::tuple<Arguments...>;
    std::tuple<std::tuple_element_t<Index, All>...> arguments{
        xArgument<std::tuple_element_t<Index, All>>(pParams, Index)...};
    if constexpr (kIsDeferred<Arguments...>) {
      static_assert(std::is_void_v<Result>, "a method that answers later returns nothing itself");
      // Named here: GCC's sanitizer looks for "this" in the wrong place within this lambda.
      auto* const object = fObject;
      const auto method = fMethod;
      pResult = callDeferred([&](OXCompletion pCompletion) {
        (object->*method)(std::move(std::get<Index>(arguments))..., std::move(pCompletion));
      });
    } else if constexpr (std::is_void_v<Result>) {
      (fObject->*fMethod)(std::move(std::get<Index>(arguments))...);
    } else if constexpr (std::is_same_v<Result, OXImage*>) {
      (fObject->*fMethod)(std::move(std::get<Index>(arguments))...);
      pResult = OXValue();
    } else {
      pResult = OXValue((fObject->*fMethod)(std::move(std::get<Index>(arguments))...));
    }
  }

  Class* fObject;
  Method fMethod;
};

/// One type of reference count for all signatures, which keeps the code of a binding small.
inline boost::shared_ptr<OXFunctorBase> share(OXFunctorBase* pFunctor) {
  return boost::shared_ptr<OXFunctorBase>(pFunctor);
}

OX_API void completeDescription(OXMethodInfo& pInfo, int pResultCode,
                                std::initializer_list<int> pArgumentCodes);

template <typename All, std::size_t... Index>
void completePassed(OXMethodInfo& pInfo, int pResultCode, std::index_sequence<Index...>) {
  completeDescription(pInfo, pResultCode, {kTypeCode<std::tuple_element_t<Index, All>>...});
}

template <typename Result, typename... Arguments>
void complete(OXMethodInfo& pInfo) {
  static_assert(kTypeCode<Result> != 0, "a published method cannot return this type");
  // What a completion is answered with may be of any kind.
  constexpr int kResult = kIsDeferred<Arguments...> ? kTypeValue : kTypeCode<Result>;
  completePassed<std::tuple<Arguments...>>(pInfo, kResult, PassedArguments<Arguments...>());
}

}  // namespace detail

/// Binds a member function to its object, which is borrowed for as long as the functor exists.
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

/// Completes a method's description from its signature, right before the binding: the types of the
/// result and the parameters, and a parameter "argN" for each one without a description.
template <class Class, typename Result, typename... Arguments>
void completeAndCheck(Result (Class::*)(Arguments...), OXMethodInfo& pInfo) {
  detail::complete<std::remove_cvref_t<Result>, std::remove_cvref_t<Arguments>...>(pInfo);
}

template <class Class, typename Result, typename... Arguments>
void completeAndCheck(Result (Class::*)(Arguments...) const, OXMethodInfo& pInfo) {
  detail::complete<std::remove_cvref_t<Result>, std::remove_cvref_t<Arguments>...>(pInfo);
}

}  // namespace OX
