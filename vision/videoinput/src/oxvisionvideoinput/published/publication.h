/// A publication as data: the tables of publish.cpp and publish_deprecated.cpp are made of these.
#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <string>
#include <vector>

#include <oxframework/oxmethod.h>
#include <oxvalue/detail/oxfunctor.h>
#include "oxvisionvideoinput.h"

namespace OX {

/// Completes a description from the signature of an operation and gives the bound functor.
using Binder = std::function<boost::shared_ptr<OXFunctorBase>(OXVisionVideoInput*, OXMethodInfo&)>;

/// operation(&OXVisionVideoInput::unsubscribe), and for one of several of a name with its result
/// and arguments: operation<int, const int&>(&OXVisionVideoInput::getResolution).
template <typename Result, typename... Arguments>
Binder operation(Result (OXVisionVideoInput::*pOperation)(Arguments...)) {
  return [pOperation](OXVisionVideoInput* pDevice, OXMethodInfo& pInfo) {
    completeAndCheck(pOperation, pInfo);
    return createFunctor(pDevice, pOperation);
  };
}

enum class Bind { Only, Overload };

struct Publication {
  struct Text {
    const char* name = nullptr;
    const char* text = nullptr;
  };

  const char* name;
  Bind bind;
  Binder binder;
  std::vector<Text> parameters = {};
  Text result = {};
  const char* example = nullptr;  ///< in C++
  const char* description = "";
  int flags = 0;
};

/// Flags of the methods that give pointers valid in the same process, or take them back.
constexpr int kSameProcess = 4;

}  // namespace OX
