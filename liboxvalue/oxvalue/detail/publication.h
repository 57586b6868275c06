/// Publishing a module's methods as a table: one row a method, its texts beside its operation.
///
///   publish(bindPublications(this, "Counter", std::vector<OXPublication<Counter>>{
///       {.name = "add",
///        .description = "Adds to the count",
///        .method = operation(&Counter::add),
///        .parameters = {{"number", "what to add; may be negative"}},
///        .result = {"count", "the new count"},
///        .examples = {{"shell", "oxvideo call Counter add 3"}}},
///   }));
///
/// In the module's constructor, since a table of methods does not change after registration. The
/// rows are read once: a table is built, published and dropped.
#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <string>
#include <vector>

#include <oxframework/oxmethod.h>
#include "oxvalue/detail/oxfunctor.h"

namespace OX {

/// One row. Texts are borrowed until bindPublications() has returned.
template <class Module>
struct OXPublication {
  struct Text {
    const char* name = "";
    const char* text = "";
  };
  struct Example {
    const char* language = "";
    const char* text = "";
  };
  /// Completes the description from the signature and returns the functor.
  using Binder = std::function<boost::shared_ptr<OXFunctorBase>(Module*, OXMethodInfo&)>;

  const char* name;
  const char* description = "";
  Binder method;
  std::vector<Text> parameters;  ///< further ones are called "argN", without a text
  Text result;
  std::vector<Example> examples;
  int flags = 0;
};

/// What a row calls: operation(&Camera::open), for one of several methods of a name with its class,
/// result and arguments, operation<Camera, bool, const int&>(&Camera::open). The class may be a
/// base of the module.
template <class Class, typename Result, typename... Arguments>
auto operation(Result (Class::*pMethod)(Arguments...)) {
  return [pMethod](Class* pObject, OXMethodInfo& pInfo) {
    completeAndCheck(pMethod, pInfo);
    return createFunctor(pObject, pMethod);
  };
}

template <class Class, typename Result, typename... Arguments>
auto operation(Result (Class::*pMethod)(Arguments...) const) {
  return [pMethod](Class* pObject, OXMethodInfo& pInfo) {
    completeAndCheck(pMethod, pInfo);
    return createFunctor(pObject, pMethod);
  };
}

/// The rows as OXModuleCore::publish() takes them, bound to pModule, which is borrowed as
/// createFunctor() borrows it. pClassName is what introspection shows as their class.
template <class Module>
std::vector<OXMethodInfo> bindPublications(Module* pModule, const std::string& pClassName,
                                           const std::vector<OXPublication<Module>>& pRows) {
  std::vector<OXMethodInfo> methods;
  methods.reserve(pRows.size());
  for (const OXPublication<Module>& row : pRows) {
    OXMethodInfo& method = methods.emplace_back();
    method.name = row.name;
    method.className = pClassName;
    method.description = row.description;
    method.flags = row.flags;
    for (const auto& parameter : row.parameters)
      method.parameters.push_back({parameter.name, parameter.text, "", 0});
    method.returnName = row.result.name;
    method.returnDescription = row.result.text;
    for (const auto& example : row.examples)
      method.examples.push_back({example.language, example.text});
    method.functor = row.method(pModule, method);
  }
  return methods;
}

}  // namespace OX
