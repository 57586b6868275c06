// What OXVideoDevice publishes, in the order of publication: one table a group.
#include "publication.h"
#include "texts.h"

namespace OX {
namespace {

using Device = OXVisionVideoInput;
using Name = const std::string&;
using Int = const int&;
using Value = const OXValue&;
using Floats = std::vector<float>;
using Publications = std::vector<Publication>;

Publications camerasAndSubscription() {
  const Publication::Text camera{"cameraIndex", texts::kCamera};
  return {
      {"unsubscribe",
       Bind::Only,
       operation(&Device::unsubscribe),
       {{"nameId", texts::kNameId}},
       {},
       "  cameraProxy->unsubscribe(nameId);"},
      {"getCameraModel",
       Bind::Overload,
       operation(&Device::getCameraModel),
       {camera},
       {"cameraModel", " 1(kOV7670): VGA camera - 2(kMT9M114): HD camera"},
       "  int cameraModel = cameraProxy->getCameraModel(cameraIndex);"},
      {"startFrameGrabber",
       Bind::Overload,
       operation<bool, Int>(&Device::startFrameGrabber),
       {camera},
       {},
       "  cameraProxy->startFrameGrabber(cameraIndex);"},
      {"stopFrameGrabber",
       Bind::Overload,
       operation<bool, Int>(&Device::stopFrameGrabber),
       {camera},
       {},
       "  cameraProxy->stopFrameGrabber(cameraIndex);"},
      {"isFrameGrabberOff",
       Bind::Overload,
       operation<bool, Int>(&Device::isFrameGrabberOff),
       {camera},
       {},
       "  bool isOff = cameraProxy->isFrameGrabberOff(cameraIndex);"},
      {"getFrameRate",
       Bind::Overload,
       operation<int, Int>(&Device::getFrameRate),
       {camera},
       {},
       "  int frameRate = cameraProxy->getFrameRate(cameraIndex);"},
      {"getResolution",
       Bind::Overload,
       operation<int, Int>(&Device::getResolution),
       {camera},
       {},
       "  int resolution = cameraProxy->getResolution(cameraIndex);"},
      {"getColorSpace",
       Bind::Overload,
       operation<int, Int>(&Device::getColorSpace),
       {camera},
       {},
       "  int colorSpace = cameraProxy->getColorSpace(cameraIndex);"},
      {"subscribeCamera",
       Bind::Overload,
       operation(&Device::subscribeCamera),
       {{"name", texts::kName},
        camera,
        {"resolution", "Resolution requested.{0=kQQVGA, 1=kQVGA, 2=kVGA, 3=k4VGA}"},
        {"colorSpace",
         "Colorspace requested.{0=kYuv, 9=kYUV422, 10=kYUV, 11=kRGB, 12=kHSY, 13=kBGR}"},
        {"fps", "Fps (frames per second) requested.{5, 10, 15, 30}"}},
       {"nameId", texts::kReturnedNameId},
       "  std::string nameId, name = \"myModule\";\n"
       "  nameId = cameraProxy->subscribe(name , cameraIndex, resolution, colorSpace, fps);"},
  };
}

Publications monoSettings() {
  const Publication::Text name{"name", texts::kName};
  const Publication::Text parameter{"parameterId", texts::kParameter};
  return {
      {"getFrameRate",
       Bind::Overload,
       operation<int, Name>(&Device::getFrameRate),
       {name},
       {},
       "  int frameRate = cameraProxy->getFrameRate(name);"},
      {"setFrameRate",
       Bind::Overload,
       operation(&Device::setFrameRate),
       {name, {"frameRate", "Frame Rate requested."}},
       {},
       "  cameraProxy->setFrameRate(name, frameRate);"},
      {"getActiveCamera",
       Bind::Overload,
       operation<int, Name>(&Device::getActiveCamera),
       {name},
       {},
       "  int cameraIndex = cameraProxy->getActiveCamera(name);"},
      {"setActiveCamera",
       Bind::Overload,
       operation<bool, Name, Int>(&Device::setActiveCamera),
       {name, {"cameraIndex", texts::kCamera}},
       {},
       "  cameraProxy->setActiveCamera(name, cameraIndex);"},
      {"getResolution",
       Bind::Overload,
       operation<int, Name>(&Device::getResolution),
       {name},
       {},
       "  int resolution = cameraProxy->getResolution(name);"},
      {"setResolution",
       Bind::Overload,
       operation(&Device::setResolution),
       {name, {"resolution", "Resolution requested."}},
       {},
       "  cameraProxy->setResolution(name, resolution);"},
      {"getColorSpace",
       Bind::Overload,
       operation<int, Name>(&Device::getColorSpace),
       {name},
       {},
       "  int colorSpace = cameraProxy->getColorSpace(name);"},
      {"setColorSpace",
       Bind::Overload,
       operation(&Device::setColorSpace),
       {name, {"colorSpace", "Color Space requested."}},
       {},
       "  cameraProxy->setColorSpace(name, colorSpace);"},
      {"getCameraParameter",
       Bind::Overload,
       operation(&Device::getCameraParameter),
       {name, parameter},
       {},
       "  int cameraParameter = cameraProxy->getCameraParameter(name, parameterId);"},
      {"setCameraParameter",
       Bind::Overload,
       operation(&Device::setCameraParameter),
       {name, parameter, {"value", texts::kValue}},
       {},
       "  cameraProxy->setCameraParameter(name, parameterId, value);"},
      {"setCameraParameterToDefault",
       Bind::Overload,
       operation(&Device::setCameraParameterToDefault),
       {name, parameter},
       {},
       "  cameraProxy->setCameraParameterToDefault(name, parameterId);"},
  };
}

Publications monoImages() {
  const Publication::Text name{"name", texts::kName};
  return {
      {"getDirectRawImageLocal",
       Bind::Only,
       operation(&Device::getDirectRawImageLocal),
       {name},
       {"image",
        "Pointer to the locked image buffer, NULL if error.\n"
        "Warning, image pointer is valid only for C++ dynamic library."},
       "  OXImage *image = cameraProxy->getDirectRawImageLocal(name);",
       texts::kRawLocalDescription,
       kSameProcess},
      {"getDirectRawImageRemote",
       Bind::Only,
       operation(&Device::getDirectRawImageRemote),
       {name},
       {"result", texts::kImageArray},
       "  OXValue result = cameraProxy->getDirectRawImageRemote(name);\n"
       "  const unsigned char* imageData =  static_cast<const unsigned "
       "char*>(results[6].GetBinary());",
       texts::kRawRemoteDescription},
      {"releaseDirectRawImage",
       Bind::Only,
       operation(&Device::releaseDirectRawImage),
       {name},
       {"success", texts::kSuccess},
       " cameraProxy->releaseDirectRawImage(name);",
       "Release image buffer locked by getDirectRawImageLocal().\n",
       kSameProcess},
      {"getImageLocal",
       Bind::Only,
       operation(&Device::getImageLocal),
       {name},
       {"image",
        "Pointer of the locked image buffer, NULL if error.Warning, image pointer is valid only "
        "for C++ dynamic library."},
       "  OXImage *image = cameraProxy->getImageLocal(name);",
       texts::kLocalDescription,
       kSameProcess},
      {"getImageRemote",
       Bind::Only,
       operation(&Device::getImageRemote),
       {name},
       {"result", texts::kImageArray},
       "  OXValue result = cameraProxy->getImageRemote(name);\n"
       "  const unsigned char* imageData =  static_cast<const unsigned "
       "char*>(results[6].GetBinary());",
       texts::kRemoteDescription},
      {"releaseImage",
       Bind::Only,
       operation(&Device::releaseImage),
       {name},
       {"success", texts::kSuccess},
       "  cameraProxy->releaseImage(name);",
       texts::kReleaseDescription},
  };
}

Publications multiSettings() {
  const Publication::Text name{"name", texts::kName};
  const Publication::Text cameras{"cameraIndexes", texts::kCameras};
  const Publication::Text parameter{"parameterId", texts::kParameter};
  return {
      {"subscribeCameras",
       Bind::Overload,
       operation(&Device::subscribeCameras),
       {name,
        cameras,
        {"resolutions", "Resolutions requested.{0=kQQVGA, 1=kQVGA, 2=kVGA, 3=k4VGA}"},
        {"colorSpaces",
         "Colorspaces requested.{0=kYuv, 9=kYUV422, 10=kYUV, 11=kRGB, 12=kHSY, 13=kBGR}"},
        {"fps", "Fps (frames per second) requested.{5, 10, 15, 30}"}},
       {"nameId", texts::kReturnedNameId},
       "  std::string nameId, name = \"myModule\";\n"
       "  nameId = cameraProxy->subscribe(name , cameraIndexes, resolutions, colorSpaces, fps);"},
      {"getActiveCameras",
       Bind::Overload,
       operation(&Device::getActiveCameras),
       {name},
       {},
       "  std::vector<int> cameraIndexes = cameraProxy->getActiveCameras(name);"},
      {"setActiveCameras",
       Bind::Overload,
       operation(&Device::setActiveCameras),
       {name, cameras},
       {},
       "  cameraProxy->setActiveCameras(name, cameraIndexes);"},
      {"getResolutions",
       Bind::Overload,
       operation(&Device::getResolutions),
       {name},
       {},
       "  std::vector<int> resolutions = cameraProxy->getResolutions(name);"},
      {"setResolutions",
       Bind::Overload,
       operation(&Device::setResolutions),
       {name, {"resolutions", "Resolutions requested."}},
       {},
       "  cameraProxy->setResolutions(name, resolutions);"},
      {"getColorSpaces",
       Bind::Overload,
       operation(&Device::getColorSpaces),
       {name},
       {},
       "  std::vector<int> colorSpaces = cameraProxy->getColorSpaces(name);"},
      {"setColorSpaces",
       Bind::Overload,
       operation(&Device::setColorSpaces),
       {name, {"colorSpaces", "Color Spaces requested."}},
       {},
       "  cameraProxy->setColorSpaces(name, colorSpaces);"},
      {"getCamerasParameter",
       Bind::Overload,
       operation(&Device::getCamerasParameter),
       {name, parameter},
       {},
       "  std::vector<int> camerasParameter = cameraProxy->getCamerasParameter(name, "
       "parameterId);"},
      {"setCamerasParameter",
       Bind::Overload,
       operation(&Device::setCamerasParameter),
       {name, parameter, {"values", texts::kValues}},
       {},
       "  cameraProxy->setCamerasParameter(name, parameterId, values);"},
      {"setCamerasParameterToDefault",
       Bind::Overload,
       operation(&Device::setCamerasParameterToDefault),
       {name, parameter},
       {},
       "  cameraProxy->setCamerasParameterToDefault(name, parameterId);"},
  };
}

// The texts are those of the singular methods, also where they speak of one image.
Publications multiImages() {
  const Publication::Text name{"name", texts::kName};
  return {
      {"getDirectRawImagesLocal",
       Bind::Only,
       operation(&Device::getDirectRawImagesLocal),
       {name},
       {"images",
        "Array of pointer to the locked image buffer, NULL if error.\n"
        "Warning, image pointer is valid only for C++ dynamic library."},
       "  std::vector<OXImage *> images = cameraProxy->getDirectRawImagesLocal(name);",
       texts::kRawLocalDescription,
       kSameProcess},
      {"getDirectRawImagesRemote",
       Bind::Only,
       operation(&Device::getDirectRawImagesRemote),
       {name},
       {"result", texts::kImageArray},
       "  OXValue result = cameraProxy->getDirectRawImagesRemote(name);\n"
       "  const unsigned char* imageData =  static_cast<const unsigned "
       "char*>(results[6].GetBinary());",
       texts::kRawRemoteDescription},
      {"releaseDirectRawImages",
       Bind::Only,
       operation(&Device::releaseDirectRawImages),
       {name},
       {"success", texts::kSuccess},
       " cameraProxy->releaseDirectRawImages(name);",
       "Release image buffer locked by getDirectRawImagesLocal().\n",
       kSameProcess},
      {"getImagesLocal",
       Bind::Only,
       operation(&Device::getImagesLocal),
       {name},
       {"images",
        "Array of pointer of the locked image buffer, NULL if error.Warning, image pointer is "
        "valid only for C++ dynamic library."},
       "  std::vector<OXImage *> images = cameraProxy->getImagesLocal(name);",
       texts::kLocalDescription,
       kSameProcess},
      {"getImagesRemote",
       Bind::Only,
       operation(&Device::getImagesRemote),
       {name},
       {"result", texts::kImageArray},
       "  OXValue result = cameraProxy->getImagesRemote(name);\n"
       "  const unsigned char* imageData =  static_cast<const unsigned "
       "char*>(results[6].GetBinary());",
       texts::kRemoteDescription},
      {"releaseImages",
       Bind::Only,
       operation(&Device::releaseImages),
       {name},
       {"success", texts::kSuccess},
       "  cameraProxy->releaseImages(name);",
       texts::kReleaseDescription},
  };
}

Publications recording() {
  return {
      {"recordVideo",
       Bind::Only,
       operation(&Device::recordVideo),
       {{"id", "Name under which the G.V.M. is known from the V.I.M."},
        {"path", "path/name of the video to be recorded"},
        {"totalNumber", "number of images to be recorded. 0xFFFFFFFF for \"unlimited\""},
        {"period", "one image recorded every pPeriod images"}},
       {"success", texts::kSuccess},
       nullptr,
       "Background record of an .oxv raw format video from the images processed by a vision "
       "module\n"
       "Actualy it take picture each time the vision module call getDirectRawImageRemote()."},
      {"stopVideo",
       Bind::Only,
       operation(&Device::stopVideo),
       {{"id", "Name under which the G.V.M. is known from OXVideoDevice."}},
       {"success", texts::kSuccess},
       nullptr,
       "Stop writing the video sequence"},
  };
}

// No texts at all: the signature says what introspection shows.
Publications geometry() {
  return {
      {"getAngularPositionFromImagePosition", Bind::Only,
       operation(&Device::getAngularPositionFromImagePosition)},
      {"getImagePositionFromAngularPosition", Bind::Only,
       operation(&Device::getImagePositionFromAngularPosition)},
      {"getAngularSizeFromImageSize", Bind::Only, operation(&Device::getAngularSizeFromImageSize)},
      {"getImageSizeFromAngularSize", Bind::Only, operation(&Device::getImageSizeFromAngularSize)},
      {"getImageInfoFromAngularInfo", Bind::Only, operation(&Device::getImageInfoFromAngularInfo)},
      {"getImageInfoFromAngularInfoWithResolution", Bind::Only,
       operation(&Device::getImageInfoFromAngularInfoWithResolution)},
  };
}

Publications simulator() {
  const Publication::Text camera{"cameraIndex", texts::kCamera};
  return {
      {"putImage",
       Bind::Overload,
       operation<bool, Int, Int, Int, Value>(&Device::putImage),
       {camera,
        {"width", texts::kImageWidth},
        {"height", "int height of image"},
        {"imageBuffer", texts::kImageBuffer}},
       {"success", texts::kPutSuccess},
       nullptr,
       texts::kPutDescription},
      {"getExpectedImageParameters",
       Bind::Overload,
       operation<OXValue, Int>(&Device::getExpectedImageParameters),
       {camera},
       {"param", texts::kExpectedParameters},
       nullptr,
       texts::kExpectedDescription},
  };
}

}  // namespace

void OXVisionVideoInput::xPublish(const std::vector<Publication>& pPublications) {
  for (const Publication& publication : pPublications) {
    functionName(publication.name, "OXVisionVideoInput", publication.description,
                 publication.flags);
    if (publication.example) addMethodExample("C++", publication.example);
    for (const Publication::Text& parameter : publication.parameters)
      addParam(parameter.name, parameter.text);
    if (publication.result.name) setReturn(publication.result.name, publication.result.text);
    const auto functor = publication.binder(this, getCurrentMethodDescription());
    if (publication.bind == Bind::Only)
      bindMethod(functor);
    else
      bindMethodOverload(functor);
  }
}

void OXVisionVideoInput::xBindMethods() {
  for (const auto group : {camerasAndSubscription, monoSettings, monoImages, multiSettings,
                           multiImages, recording, geometry, simulator})
    xPublish(group());
}

}  // namespace OX
