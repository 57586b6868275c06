/// A client that calls whatever a module publishes, with mostly plausible arguments.
#pragma once

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/device_fixture.h"

namespace OX::test {

/// Calls are made up from introspection, so that no publication is left out. One thread only.
class RandomCalls {
 public:
  RandomCalls(OXBroker& pBroker, unsigned int pSeed, std::string pVideoPath)
      : fBroker(pBroker),
        fDevice(pBroker.getModule("OXVideoDevice")),
        fVideoPath(std::move(pVideoPath)),
        fRandom(pSeed) {}

  /// Makes one call, which may well be refused, and returns the method's name.
  std::string step() {
    // A local image is mostly released by the next call: others wait for it.
    if (!fRelease.first.empty() && xNumber(0, 15) > 0) {
      const auto [method, id] = std::exchange(fRelease, {});
      xCall(method, OXValue::array(id));
      return method;
    }
    // Frames are pushed often, since every start of a grabber forgets the last one.
    if (xNumber(0, 3) == 0) {
      xCall("putImage", OXValue::array(xNumber(0, 1), 320, 240, xFrame()));
      return "putImage";
    }
    return xStepAnywhere();
  }

  /// The number of calls that were answered with pixels.
  int replies() const { return fReplies; }

 private:
  using Ids = std::vector<std::string>;

  std::string xStepAnywhere() {
    const OXMethodInfo& method = xPick(fDevice->getMethods());
    OXValue::Array arguments;
    for (const auto& parameter : method.parameters)
      arguments.push_back(xArgument(method.name, parameter));
    const OXValue result = xCall(method.name, arguments);
    if (method.name.rfind("subscribe", 0) == 0 && result.isString())
      xIdsFor(method.name).push_back(result.toString());
    if (method.name.find("Local") != std::string::npos)
      fRelease = {isPlural(method.name) ? "releaseImages" : "releaseImage",
                  arguments[0].toString()};
    if (method.name.find("Remote") != std::string::npos && result.isArray()) ++fReplies;
    return method.name;
  }

  OXValue xCall(const std::string& pMethod, const OXValue& pArguments) {
    try {
      return fBroker.call("OXVideoDevice", pMethod, pArguments);
    } catch (const OXError& error) {
      // Another client has unsubscribed the id, which is then forgotten, or holds what this one
      // wants.
      if (std::string(error.what()).find("unkno") != std::string::npos)
        for (Ids* ids : {&fSingle, &fSeveral})
          ids->erase(std::remove(ids->begin(), ids->end(), pArguments[0].toString()), ids->end());
      return {};
    }
  }

  static bool isPlural(const std::string& pMethod) {
    return pMethod.find("Images") != std::string::npos ||
           pMethod.find("Cameras") != std::string::npos ||
           pMethod.find("Resolutions") != std::string::npos ||
           pMethod.find("ColorSpaces") != std::string::npos;
  }
  Ids& xIdsFor(const std::string& pMethod) { return isPlural(pMethod) ? fSeveral : fSingle; }

  int xNumber(int pFrom, int pTo) {
    return std::uniform_int_distribution<int>(pFrom, pTo)(fRandom);
  }
  template <typename Range>
  const typename Range::value_type& xPick(const Range& pRange) {
    return pRange[static_cast<std::size_t>(xNumber(0, static_cast<int>(pRange.size()) - 1))];
  }

  OXValue xArgument(const std::string& pMethod, const OXMethodInfo::Parameter& pParameter) {
    if (pParameter.name == "imageBuffer") return xFrame();
    if (pParameter.type == "int") return xInt(pParameter.name);
    if (pParameter.type == "string") return xString(pMethod, pParameter.name);
    if (pParameter.type == "OXValue") return xList(pParameter.name);
    std::vector<float> floats(xNumber(0, 1) ? 2 : 4);
    for (float& value : floats) value = static_cast<float>(xNumber(-1, 5)) * 0.25f;
    return floats;
  }

  // The range of each parameter and one step beyond it.
  OXValue xInt(const std::string& pName) {
    static const std::map<std::string, std::pair<int, int>> kRanges{
        {"resolution", {-1, 4}}, {"colorSpace", {-1, 17}},  {"fps", {1, 40}},
        {"frameRate", {0, 31}},  {"parameterId", {13, 21}}, {"pParam", {13, 21}},
        {"value", {0, 30}},      {"pNewValue", {0, 3}},     {"totalNumber", {-1, 5}},
        {"period", {0, 3}}};
    static const std::vector<int> kWidths{320, 320, 320, 160, 640};
    static const std::vector<int> kHeights{240, 240, 240, 120, 480};
    if (pName == "width") return xPick(kWidths);
    if (pName == "height") return xPick(kHeights);
    const auto range = kRanges.find(pName);
    if (range == kRanges.end()) return xNumber(-1, 2);  // a camera, or an argument without a name
    return xNumber(range->second.first, range->second.second);
  }

  OXValue xString(const std::string& pMethod, const std::string& pName) {
    static const std::vector<std::string> kBases{"a", "b", "c"};
    if (pName == "path") return fVideoPath;
    if (pName == "eventName") return "ClientDisconnected";
    if (pMethod.rfind("subscribe", 0) == 0 || pMethod == "unsubscribeAllInstances")
      return xPick(kBases);
    const Ids& known = xIdsFor(pMethod);
    return known.empty() || xNumber(0, 9) == 0 ? xPick(kBases) : xPick(known);
  }

  OXValue xList(const std::string& pName) {
    if (pName == "eventContents") return "Gestura";
    static const std::map<std::string, std::pair<int, int>> kRanges{
        {"cameraIndexes", {0, 1}}, {"resolutions", {0, 2}}, {"colorSpaces", {9, 12}}};
    const auto range = kRanges.find(pName);
    std::vector<int> numbers(static_cast<std::size_t>(xNumber(1, 2)));
    for (int& number : numbers)
      number = range == kRanges.end() ? xNumber(0, 30)
                                      : xNumber(range->second.first, range->second.second);
    return numbers;
  }

  OXValue xFrame() {
    static const std::vector<char> kPixels(320 * 240 * 3, 100);
    OXValue frame;
    frame.SetBinary(kPixels.data(), static_cast<int>(kPixels.size()));
    return frame;
  }

  OXBroker& fBroker;
  boost::shared_ptr<OXModuleCore> fDevice;
  std::string fVideoPath;
  std::mt19937 fRandom;
  Ids fSingle;                                   ///< subscribers with one stream
  Ids fSeveral;                                  ///< and with several
  std::pair<std::string, std::string> fRelease;  ///< method and id of the release that is due
  int fReplies = 0;
};

}  // namespace OX::test
