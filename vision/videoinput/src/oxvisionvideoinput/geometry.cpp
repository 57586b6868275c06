// Converts positions and sizes in an image to angles seen from the camera, and back. Takes no lock:
// a camera's model is set at construction, and the resolution that a file camera compares with is
// atomic.
//
// Positions and sizes are fractions of the image's width and height, angles are radians; the signs
// are in lens.h. Lists are in the order x, y, or x, y, width, height. The camera's index is checked
// before the list: clients know which of two mistakes the error names.
#include <oxframework/oxdefinitions.h>
#include "camerarecord.h"
#include "lens.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

/// The failures of one operation: "NAME(CAMERA", then what is wrong. Clients match on the texts,
/// whose endings and parentheses differ without a rule.
struct Operation {
  const OXVisionVideoInput& device;
  const char* name;
  int camera;

  [[noreturn]] void fail(const char* pEnd, bool pParentheses,
                         OXSourceLocation pWhere = OXSourceLocation::current()) const {
    const std::string method = std::string(name) + (pParentheses ? "()" : "");
    report::fail(device.getName(), name, method.c_str(), report::text(name, "(", camera, pEnd),
                 pWhere);
  }
  void checkCamera(bool pKnown, const char* pEnd,
                   OXSourceLocation pWhere = OXSourceLocation::current()) const {
    if (!pKnown) fail(pEnd, false, pWhere);
  }
  void checkSize(bool pRight, bool pParentheses,
                 OXSourceLocation pWhere = OXSourceLocation::current()) const {
    if (!pRight) fail(",...) : invalid parameter size", pParentheses, pWhere);
  }
};

constexpr const char* kListAfterCamera = ",...) : invalid Camera index";
constexpr const char* kCameraAlone = ") : invalid Camera index";

// Only image sizes must be fractions; positions and angles are extrapolated: clients know it so.
// Written so that NaN is rejected.
bool isFraction(float pValue) { return pValue >= 0.f && pValue <= 1.f; }

}  // namespace

// An unknown camera has the HD lens like any other model: callers check the index where it matters.
float OXVisionVideoInput::xHorizontalApertureRad(int pCamera) {
  const RealCameraProperties* const camera = xCamera(pCamera);
  const bool isVga = camera && camera->fCameraModel == kOV7670;
  return isVga ? lens::kVgaLens.horizontal : lens::kHdLens.horizontal;
}

float OXVisionVideoInput::xVerticalApertureRad(int pCamera) {
  const RealCameraProperties* const camera = xCamera(pCamera);
  const bool isVga = camera && camera->fCameraModel == kOV7670;
  return isVga ? lens::kVgaLens.vertical : lens::kHdLens.vertical;
}

std::vector<float> OXVisionVideoInput::getAngularPositionFromImagePosition(
    const int& pCameraIndex, const std::vector<float>& pImagePosition) {
  const Operation operation{*this, "getAngularPositionFromImagePosition", pCameraIndex};
  operation.checkCamera(xCamera(pCameraIndex), kListAfterCamera);
  operation.checkSize(pImagePosition.size() == 2, false);
  return {lens::horizontalAngle(pImagePosition[0], xHorizontalApertureRad(pCameraIndex)),
          lens::verticalAngle(pImagePosition[1], xVerticalApertureRad(pCameraIndex))};
}

std::vector<float> OXVisionVideoInput::getImagePositionFromAngularPosition(
    const int& pCameraIndex, const std::vector<float>& pAngularPosition) {
  const Operation operation{*this, "getImagePositionFromAngularPosition", pCameraIndex};
  operation.checkCamera(xCamera(pCameraIndex), kListAfterCamera);
  operation.checkSize(pAngularPosition.size() == 2, true);
  return {lens::horizontalPosition(pAngularPosition[0], xHorizontalApertureRad(pCameraIndex)),
          lens::verticalPosition(pAngularPosition[1], xVerticalApertureRad(pCameraIndex))};
}

std::vector<float> OXVisionVideoInput::getAngularSizeFromImageSize(
    const int& pCameraIndex, const std::vector<float>& pImageSize) {
  const Operation operation{*this, "getAngularSizeFromImageSize", pCameraIndex};
  operation.checkCamera(xCamera(pCameraIndex), kCameraAlone);
  operation.checkSize(pImageSize.size() == 2, true);
  operation.checkSize(isFraction(pImageSize[0]) && isFraction(pImageSize[1]), true);
  return {pImageSize[0] * xHorizontalApertureRad(pCameraIndex),
          pImageSize[1] * xVerticalApertureRad(pCameraIndex)};
}

// A size may come out larger than the image, or negative, since the angles are not checked.
std::vector<float> OXVisionVideoInput::getImageSizeFromAngularSize(
    const int& pCameraIndex, const std::vector<float>& pAngularSize) {
  const Operation operation{*this, "getImageSizeFromAngularSize", pCameraIndex};
  operation.checkCamera(xCamera(pCameraIndex), kCameraAlone);
  operation.checkSize(pAngularSize.size() == 2, true);
  return {pAngularSize[0] / xHorizontalApertureRad(pCameraIndex),
          pAngularSize[1] / xVerticalApertureRad(pCameraIndex)};
}

std::vector<float> OXVisionVideoInput::getImageInfoFromAngularInfo(
    const int& pCameraIndex, const std::vector<float>& pAngularInfo) {
  const Operation operation{*this, "getImageInfoFromAngularInfo", pCameraIndex};
  operation.checkCamera(xCamera(pCameraIndex), kCameraAlone);
  // Checked as a whole first, so that an error names this operation and not one of its parts.
  operation.checkSize(pAngularInfo.size() == 4, true);
  std::vector<float> info =
      getImagePositionFromAngularPosition(pCameraIndex, {pAngularInfo[0], pAngularInfo[1]});
  const std::vector<float> size =
      getImageSizeFromAngularSize(pCameraIndex, {pAngularInfo[2], pAngularInfo[3]});
  info.insert(info.end(), size.begin(), size.end());
  return info;
}

// The one operation whose result is in pixels, of any resolution that the camera accepts and not
// only of the one that it runs at. Not rounded: the caller decides how.
std::vector<float> OXVisionVideoInput::getImageInfoFromAngularInfoWithResolution(
    const int& pCameraIndex, const std::vector<float>& pAngularInfo, const int& pResolution) {
  const Operation operation{*this, "getImageInfoFromAngularInfoWithResolution", pCameraIndex};
  operation.checkCamera(xCamera(pCameraIndex), kCameraAlone);
  if (!xIsResolutionValid(pResolution, pCameraIndex))
    operation.fail(") : invalid resolution index", false);
  int width = 0;
  int height = 0;
  setSizeFromResolution(pResolution, width, height);
  std::vector<float> info = getImageInfoFromAngularInfo(pCameraIndex, pAngularInfo);
  // Horizontal and vertical values alternate in the list.
  for (std::size_t i = 0; i < info.size(); ++i)
    info[i] *= static_cast<float>(i % 2 == 0 ? width : height);
  return info;
}

// The older names, for the device's active camera. Errors name the operation that is called here,
// and an active camera outside the table is reported by it like any other wrong index.
std::vector<float> OXVisionVideoInput::getAngPosFromImgPos(
    const std::vector<float>& pImagePosition) {
  return getAngularPositionFromImagePosition(fActiveCamera, pImagePosition);
}

std::vector<float> OXVisionVideoInput::getImgPosFromAngPos(
    const std::vector<float>& pAngularPosition) {
  return getImagePositionFromAngularPosition(fActiveCamera, pAngularPosition);
}

std::vector<float> OXVisionVideoInput::getAngSizeFromImgSize(const std::vector<float>& pImageSize) {
  return getAngularSizeFromImageSize(fActiveCamera, pImageSize);
}

std::vector<float> OXVisionVideoInput::getImgSizeFromAngSize(
    const std::vector<float>& pAngularSize) {
  return getImageSizeFromAngularSize(fActiveCamera, pAngularSize);
}

std::vector<float> OXVisionVideoInput::getImgInfoFromAngInfo(
    const std::vector<float>& pAngularInfo) {
  return getImageInfoFromAngularInfo(fActiveCamera, pAngularInfo);
}

std::vector<float> OXVisionVideoInput::getImgInfoFromAngInfoWithRes(
    const std::vector<float>& pAngularInfo, const int& pResolution) {
  return getImageInfoFromAngularInfoWithResolution(fActiveCamera, pAngularInfo, pResolution);
}

}  // namespace OX
