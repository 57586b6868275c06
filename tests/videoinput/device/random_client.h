/// A client that makes random calls to a device.
#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include "support/outcome.h"

namespace OX::test {

/// Makes calls as clients do, with mostly plausible arguments. One thread only, but for stuckFor().
class RandomClient {
 public:
  /// Records to pPath. pFiles is what a file camera may replay; empty for a simulator.
  RandomClient(OXBroker& pBroker, unsigned int pSeed, std::string pPath,
               std::vector<std::string> pFiles = {})
      : fBroker(pBroker), fRandom(pSeed), fPath(std::move(pPath)), fFiles(std::move(pFiles)) {}

  /// Makes one call and returns it as text; it may well be refused.
  std::string step() {
    const auto [method, arguments] = xChoose();
    {
      const std::lock_guard guard(fGuard);
      fCall = method + show(arguments);
      fBegin = std::chrono::steady_clock::now();
    }
    OXValue value;
    const std::string result = outcome(
        [&, &m = method, &a = arguments] { return value = fBroker.call("OXVideoDevice", m, a); });
    if (method.rfind("subscribe", 0) == 0 && value.isString()) fIds.push_back(value.toString());
    if (result.find("unkno") != std::string::npos) std::erase(fIds, arguments[0].toString());
    if (value.isArray() && value.getSize() == 12) xCheck(value);
    ++fCalls;
    const std::lock_guard guard(fGuard);
    return std::exchange(fCall, "") + " -> " + result;
  }

  /// The call that is under way for longer than pBound, if any. Thread-safe.
  std::string stuckFor(std::chrono::seconds pBound) const {
    const std::lock_guard guard(fGuard);
    return std::chrono::steady_clock::now() - fBegin > pBound ? fCall : "";
  }

  /// Checks from now on that each image is of one shade, as all frames must be. The device's active
  /// camera and the cameras' resolution are then only changed by way of subscribers: set directly,
  /// they leave raw images in another format than their pixels have.
  void checkShades() { fChecksShades = true; }

  int calls() const { return fCalls; }
  int replies() const { return fReplies; }
  /// What is wrong with a reply; empty while nothing is.
  const std::string& complaint() const { return fComplaint; }

 private:
  int xPick(int pFrom, int pTo) { return std::uniform_int_distribution<int>(pFrom, pTo)(fRandom); }
  // One of its own, or one that others may have.
  std::string xId() {
    if (fIds.empty() || xPick(0, 9) == 0) return xName() + (xPick(0, 1) ? "" : "_2");
    return fIds[static_cast<std::size_t>(xPick(0, static_cast<int>(fIds.size()) - 1))];
  }
  std::string xName() { return {static_cast<char>('a' + xPick(0, 2))}; }
  static constexpr char kSeveral = 'c';  ///< the name of subscribers of several streams
  // Of a luma image, a mixture of two frames has more than one shade. Frames of other cameras than
  // the active one may be filled in part.
  void xCheck(const OXValue& pReply) {
    ++fReplies;
    const int bytes = pReply[6].getSize();
    const auto* const pixels = static_cast<const unsigned char*>(pReply[6].GetBinary());
    if (bytes != pReply[0].toInt() * pReply[1].toInt() * pReply[2].toInt()) fComplaint = "size";
    if (fChecksShades && pReply[3].toInt() == kYuv && pReply[7].toInt() == 0 && bytes > 0 &&
        std::count(pixels, pixels + bytes, pixels[0]) != bytes)
      fComplaint = "torn " + show(pReply);
  }
  OXValue xList(int pFrom, int pTo) {
    std::vector<int> numbers(static_cast<std::size_t>(xPick(1, 2)));
    for (int& number : numbers) number = xPick(pFrom, pTo);
    return OXValue(numbers);
  }
  OXValue xFrame(int pResolution) {
    int width = 0;
    int height = 0;
    setSizeFromResolution(pResolution, width, height);
    OXValue pixels;
    pixels.SetBinary(std::vector<char>(static_cast<std::size_t>(width * height * 3)).data(),
                     width * height * 3);
    return OXValue::array(xPick(-1, 2), width, height, pixels);
  }

  std::pair<std::string, OXValue> xChoose() {
    switch (xPick(fFiles.empty() ? 0 : -5, 60)) {
      case 0:
        return {"subscribe", OXValue::array(xName(), xPick(0, 3), xPick(0, 16), xPick(1, 40))};
      case 1:
        return {"subscribeCamera",
                OXValue::array(xName(), xPick(-2, 2), xPick(0, 3), xPick(0, 16), xPick(1, 40))};
      case 2:
        return {"subscribeCameras", OXValue::array(std::string(1, kSeveral), xList(0, 1),
                                                   xList(0, 2), xList(9, 11), xPick(1, 40))};
      case 3:
        return {"unsubscribe", OXValue::array(xId())};
      case 4:
        return {"unsubscribeAllInstances", OXValue::array(xName())};
      case 5:
        return {"setActiveCamera", OXValue::array(xId(), xPick(-1, 2))};
      case 6:
        return {"setActiveCamera", OXValue::array(fChecksShades ? 0 : xPick(0, 1))};
      case 7:
        return {"setActiveCameras", OXValue::array(xId(), xList(0, 1))};
      case 8:
        return {"setResolution", OXValue::array(xId(), xPick(0, 3))};
      case 9:
        return {"setColorSpace", OXValue::array(xId(), xPick(0, 16))};
      case 10:
        return {"setFrameRate", OXValue::array(xId(), xPick(1, 30))};
      case 11:
        return {"setResolutions", OXValue::array(xId(), xList(0, 3))};
      case 12:
        return {"setColorSpaces", OXValue::array(xId(), xList(9, 12))};
      case 13:
        return {"setParam", OXValue::array(fChecksShades ? kCameraFrameRateID : xPick(14, 20),
                                           xPick(0, 3), xPick(-1, 2))};
      case 14:
        return {"recordVideo", OXValue::array(xId(), fPath, xPick(0, 5), xPick(0, 2))};
      case 15:
        return {"stopVideo", OXValue::array(xId())};
      case 16:
        return {"stopFrameGrabber", OXValue::array(xPick(0, 1))};
      case 17:
        return {"startFrameGrabber", OXValue::array(xPick(0, 1))};
      case 18:
        return {"putImage", xFrame(xPick(0, 2))};
      case 19:
        return {"getResolution", OXValue::array(xId())};
      case -5:
      case -4:
        return {"nextImage", OXValue(OXValue::Array())};
      case -3:
        return {"previousImage", OXValue(OXValue::Array())};
      case -2:
        return {"replaySpeed", OXValue::array(static_cast<float>(xPick(0, 50)))};
      case -1:
        return {"setVideo",
                OXValue::array(
                    fFiles[static_cast<std::size_t>(xPick(0, static_cast<int>(fFiles.size()) - 1))],
                    OXValue(), xPick(0, 1) == 1, xPick(0, 1), 0)};
      default:
        return xRequest();
    }
  }
  // What clients call most; now and then in the form of the other family.
  std::pair<std::string, OXValue> xRequest() {
    static const std::vector<std::pair<const char*, const char*>> kRequests{
        {"getImageRemote", "getImagesRemote"},
        {"getImageRemote", "getImagesRemote"},
        {"getDirectRawImageRemote", "getDirectRawImagesRemote"},
        {"getImageLocal", "getImagesLocal"},
        {"releaseImage", "releaseImages"},
        {"getDirectRawImageLocal", "getDirectRawImagesLocal"},
        {"releaseDirectRawImage", "releaseDirectRawImages"}};
    const std::string id = xId();
    const auto& [one, several] =
        kRequests[static_cast<std::size_t>(xPick(0, static_cast<int>(kRequests.size()) - 1))];
    const bool ofSeveral = (id[0] == kSeveral) != (xPick(0, 19) == 0);
    return {ofSeveral ? several : one, OXValue::array(id)};
  }

  OXBroker& fBroker;
  std::mt19937 fRandom;
  std::string fPath;
  std::vector<std::string> fFiles;
  std::vector<std::string> fIds;
  bool fChecksShades = false;
  int fCalls = 0;
  int fReplies = 0;
  std::string fComplaint;
  mutable std::mutex fGuard;
  std::string fCall;  ///< the one under way; empty when there is none
  std::chrono::steady_clock::time_point fBegin;
};

}  // namespace OX::test
