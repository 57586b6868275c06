// What OXVideoDevice publishes, in the order of publication, which introspection shows: one table a
// group. Names, order, texts and examples are an interface and stay as they are, slips included.
// What users should read is in methods.toml instead, from which the reference is made: a change of
// a signature here needs its counterpart there, and script/docs compares the two.
//
// A method with a C++ overload is named with its class, result and arguments, so that the compiler
// knows which one is meant. Calls go through the virtual function: a concrete camera that overrides
// an operation needs no row of its own. Types come from the signature, also where a row has no text
// for the result; a parameter without a text is "argN" to introspection.
#include <oxvalue/detail/publication.h>
#include "oxvisionvideoinput.h"
#include "texts.h"

namespace OX {
namespace {

using Device = OXVisionVideoInput;
using Name = const std::string&;
using Int = const int&;
using Value = const OXValue&;
// The flags of methods that return a pointer, valid in the same process only, or release it.
// Nothing refuses a remote call of one: it lends the image, and the caller gets an invalid value.
constexpr int kSameProcess = 4;

using Row = OXPublication<Device>;
using Publications = std::vector<Row>;

// Operations on a camera by its index, and the way to a subscription. The getters share their names
// with those of a subscriber below: the kind of the one argument, number or string, decides.
Publications camerasAndSubscription() {
  const Row::Text camera{"cameraIndex", texts::kCamera};
  return {
      // First although it ends what subscribeCamera begins: clients see this order.
      {.name = "unsubscribe",
       .method = operation(&Device::unsubscribe),
       .parameters = {{"nameId", texts::kNameId}},
       .examples = {{"C++", "  cameraProxy->unsubscribe(nameId);"}}},
      {.name = "getCameraModel",
       .method = operation(&Device::getCameraModel),
       .parameters = {camera},
       .result = {"cameraModel", " 1(kOV7670): VGA camera - 2(kMT9M114): HD camera"},
       .examples = {{"C++", "  int cameraModel = cameraProxy->getCameraModel(cameraIndex);"}}},
      {.name = "startFrameGrabber",
       .method = operation<Device, bool, Int>(&Device::startFrameGrabber),
       .parameters = {camera},
       .examples = {{"C++", "  cameraProxy->startFrameGrabber(cameraIndex);"}}},
      {.name = "stopFrameGrabber",
       .method = operation<Device, bool, Int>(&Device::stopFrameGrabber),
       .parameters = {camera},
       .examples = {{"C++", "  cameraProxy->stopFrameGrabber(cameraIndex);"}}},
      {.name = "isFrameGrabberOff",
       .method = operation<Device, bool, Int>(&Device::isFrameGrabberOff),
       .parameters = {camera},
       .examples = {{"C++", "  bool isOff = cameraProxy->isFrameGrabberOff(cameraIndex);"}}},
      {.name = "getFrameRate",
       .method = operation<Device, int, Int>(&Device::getFrameRate),
       .parameters = {camera},
       .examples = {{"C++", "  int frameRate = cameraProxy->getFrameRate(cameraIndex);"}}},
      {.name = "getResolution",
       .method = operation<Device, int, Int>(&Device::getResolution),
       .parameters = {camera},
       .examples = {{"C++", "  int resolution = cameraProxy->getResolution(cameraIndex);"}}},
      {.name = "getColorSpace",
       .method = operation<Device, int, Int>(&Device::getColorSpace),
       .parameters = {camera},
       .examples = {{"C++", "  int colorSpace = cameraProxy->getColorSpace(cameraIndex);"}}},
      // The texts are incomplete: other colour spaces and any rate are accepted too. The example
      // calls subscribe, which has no camera index: a slip.
      {.name = "subscribeCamera",
       .method = operation(&Device::subscribeCamera),
       .parameters =
           {{"name", texts::kName},
            camera,
            {"resolution", "Resolution requested.{0=kQQVGA, 1=kQVGA, 2=kVGA, 3=k4VGA}"},
            {"colorSpace",
             "Colorspace requested.{0=kYuv, 9=kYUV422, 10=kYUV, 11=kRGB, 12=kHSY, 13=kBGR}"},
            {"fps", "Fps (frames per second) requested.{5, 10, 15, 30}"}},
       .result = {"nameId", texts::kReturnedNameId},
       .examples = {{"C++",
                     "  std::string nameId, name = \"myModule\";\n"
                     "  nameId = cameraProxy->subscribe(name , cameraIndex, resolution, "
                     "colorSpace, fps);"}}},
  };
}

// Settings of a subscriber with one camera. "name" is the id that subscribeCamera returned and not
// the name that was passed to it: the text is reused, and the two differ for a second instance.
Publications monoSettings() {
  const Row::Text name{"name", texts::kName};
  const Row::Text parameter{"parameterId", texts::kParameter};
  return {
      {.name = "getFrameRate",
       .method = operation<Device, int, Name>(&Device::getFrameRate),
       .parameters = {name},
       .examples = {{"C++", "  int frameRate = cameraProxy->getFrameRate(name);"}}},
      {.name = "setFrameRate",
       .method = operation(&Device::setFrameRate),
       .parameters = {name, {"frameRate", "Frame Rate requested."}},
       .examples = {{"C++", "  cameraProxy->setFrameRate(name, frameRate);"}}},
      {.name = "getActiveCamera",
       .method = operation<Device, int, Name>(&Device::getActiveCamera),
       .parameters = {name},
       .examples = {{"C++", "  int cameraIndex = cameraProxy->getActiveCamera(name);"}}},
      {.name = "setActiveCamera",
       .method = operation<Device, bool, Name, Int>(&Device::setActiveCamera),
       .parameters = {name, {"cameraIndex", texts::kCamera}},
       .examples = {{"C++", "  cameraProxy->setActiveCamera(name, cameraIndex);"}}},
      {.name = "getResolution",
       .method = operation<Device, int, Name>(&Device::getResolution),
       .parameters = {name},
       .examples = {{"C++", "  int resolution = cameraProxy->getResolution(name);"}}},
      {.name = "setResolution",
       .method = operation(&Device::setResolution),
       .parameters = {name, {"resolution", "Resolution requested."}},
       .examples = {{"C++", "  cameraProxy->setResolution(name, resolution);"}}},
      {.name = "getColorSpace",
       .method = operation<Device, int, Name>(&Device::getColorSpace),
       .parameters = {name},
       .examples = {{"C++", "  int colorSpace = cameraProxy->getColorSpace(name);"}}},
      {.name = "setColorSpace",
       .method = operation(&Device::setColorSpace),
       .parameters = {name, {"colorSpace", "Color Space requested."}},
       .examples = {{"C++", "  cameraProxy->setColorSpace(name, colorSpace);"}}},
      {.name = "getCameraParameter",
       .method = operation(&Device::getCameraParameter),
       .parameters = {name, parameter},
       .examples =
           {{"C++",
             "  int cameraParameter = cameraProxy->getCameraParameter(name, parameterId);"}}},
      {.name = "setCameraParameter",
       .method = operation(&Device::setCameraParameter),
       .parameters = {name, parameter, {"value", texts::kValue}},
       .examples = {{"C++", "  cameraProxy->setCameraParameter(name, parameterId, value);"}}},
      {.name = "setCameraParameterToDefault",
       .method = operation(&Device::setCameraParameterToDefault),
       .parameters = {name, parameter},
       .examples = {{"C++", "  cameraProxy->setCameraParameterToDefault(name, parameterId);"}}},
  };
}

// Each operation has a local form, which returns a pointer and needs a release, and a remote one,
// which copies the image into the reply and releases it by itself.
Publications monoImages() {
  const Row::Text name{"name", texts::kName};
  return {
      {.name = "getDirectRawImageLocal",
       .description = texts::kRawLocalDescription,
       .method = operation(&Device::getDirectRawImageLocal),
       .parameters = {name},
       .result = {"image",
                  "Pointer to the locked image buffer, NULL if error.\n"
                  "Warning, image pointer is valid only for C++ dynamic library."},
       .examples = {{"C++", "  OXImage *image = cameraProxy->getDirectRawImageLocal(name);"}},
       .flags = kSameProcess},
      // The examples of the four remote forms do not compile: "results" is a slip for "result".
      {.name = "getDirectRawImageRemote",
       .description = texts::kRawRemoteDescription,
       .method = operation(&Device::getDirectRawImageRemote),
       .parameters = {name},
       .result = {"result", texts::kImageArray},
       .examples = {{"C++",
                     "  OXValue result = cameraProxy->getDirectRawImageRemote(name);\n"
                     "  const unsigned char* imageData =  static_cast<const unsigned "
                     "char*>(results[6].GetBinary());"}}},
      {.name = "releaseDirectRawImage",
       .description = "Release image buffer locked by getDirectRawImageLocal().\n",
       .method = operation(&Device::releaseDirectRawImage),
       .parameters = {name},
       .result = {"success", texts::kSuccess},
       .examples = {{"C++", " cameraProxy->releaseDirectRawImage(name);"}},
       .flags = kSameProcess},
      {.name = "getImageLocal",
       .description = texts::kLocalDescription,
       .method = operation(&Device::getImageLocal),
       .parameters = {name},
       .result = {"image",
                  "Pointer of the locked image buffer, NULL if error.Warning, image pointer is "
                  "valid only "
                  "for C++ dynamic library."},
       .examples = {{"C++", "  OXImage *image = cameraProxy->getImageLocal(name);"}},
       .flags = kSameProcess},
      {.name = "getImageRemote",
       .description = texts::kRemoteDescription,
       .method = operation(&Device::getImageRemote),
       .parameters = {name},
       .result = {"result", texts::kImageArray},
       .examples = {{"C++",
                     "  OXValue result = cameraProxy->getImageRemote(name);\n"
                     "  const unsigned char* imageData =  static_cast<const unsigned "
                     "char*>(results[6].GetBinary());"}}},
      // Without the flag, unlike the release of a raw image, and releaseImages likewise: clients
      // know them so.
      {.name = "releaseImage",
       .description = texts::kReleaseDescription,
       .method = operation(&Device::releaseImage),
       .parameters = {name},
       .result = {"success", texts::kSuccess},
       .examples = {{"C++", "  cameraProxy->releaseImage(name);"}}},
  };
}

// Settings of a subscriber with several cameras. Lists are published as OXValue, since a vector of
// integers is no type that a published method may have.
Publications multiSettings() {
  const Row::Text name{"name", texts::kName};
  const Row::Text cameras{"cameraIndexes", texts::kCameras};
  const Row::Text parameter{"parameterId", texts::kParameter};
  return {
      // As above: incomplete lists, and an example that calls subscribe.
      {.name = "subscribeCameras",
       .method = operation(&Device::subscribeCameras),
       .parameters =
           {name,
            cameras,
            {"resolutions", "Resolutions requested.{0=kQQVGA, 1=kQVGA, 2=kVGA, 3=k4VGA}"},
            {"colorSpaces",
             "Colorspaces requested.{0=kYuv, 9=kYUV422, 10=kYUV, 11=kRGB, 12=kHSY, 13=kBGR}"},
            {"fps", "Fps (frames per second) requested.{5, 10, 15, 30}"}},
       .result = {"nameId", texts::kReturnedNameId},
       .examples = {{"C++",
                     "  std::string nameId, name = \"myModule\";\n"
                     "  nameId = cameraProxy->subscribe(name , cameraIndexes, resolutions, "
                     "colorSpaces, fps);"}}},
      {.name = "getActiveCameras",
       .method = operation(&Device::getActiveCameras),
       .parameters = {name},
       .examples = {{"C++",
                     "  std::vector<int> cameraIndexes = cameraProxy->getActiveCameras(name);"}}},
      {.name = "setActiveCameras",
       .method = operation(&Device::setActiveCameras),
       .parameters = {name, cameras},
       .examples = {{"C++", "  cameraProxy->setActiveCameras(name, cameraIndexes);"}}},
      {.name = "getResolutions",
       .method = operation(&Device::getResolutions),
       .parameters = {name},
       .examples = {{"C++",
                     "  std::vector<int> resolutions = cameraProxy->getResolutions(name);"}}},
      {.name = "setResolutions",
       .method = operation(&Device::setResolutions),
       .parameters = {name, {"resolutions", "Resolutions requested."}},
       .examples = {{"C++", "  cameraProxy->setResolutions(name, resolutions);"}}},
      {.name = "getColorSpaces",
       .method = operation(&Device::getColorSpaces),
       .parameters = {name},
       .examples = {{"C++",
                     "  std::vector<int> colorSpaces = cameraProxy->getColorSpaces(name);"}}},
      {.name = "setColorSpaces",
       .method = operation(&Device::setColorSpaces),
       .parameters = {name, {"colorSpaces", "Color Spaces requested."}},
       .examples = {{"C++", "  cameraProxy->setColorSpaces(name, colorSpaces);"}}},
      {.name = "getCamerasParameter",
       .method = operation(&Device::getCamerasParameter),
       .parameters = {name, parameter},
       .examples = {{"C++",
                     "  std::vector<int> camerasParameter = cameraProxy->getCamerasParameter(name, "
                     "parameterId);"}}},
      {.name = "setCamerasParameter",
       .method = operation(&Device::setCamerasParameter),
       .parameters = {name, parameter, {"values", texts::kValues}},
       .examples = {{"C++", "  cameraProxy->setCamerasParameter(name, parameterId, values);"}}},
      {.name = "setCamerasParameterToDefault",
       .method = operation(&Device::setCamerasParameterToDefault),
       .parameters = {name, parameter},
       .examples = {{"C++", "  cameraProxy->setCamerasParameterToDefault(name, parameterId);"}}},
  };
}

// The texts are those of the singular methods, also where they mention one image or a pointer: the
// local forms return an array of bools, which say for which streams there is an image, and the
// remote forms an array of arrays, followed by the pixels of all.
Publications multiImages() {
  const Row::Text name{"name", texts::kName};
  return {
      {.name = "getDirectRawImagesLocal",
       .description = texts::kRawLocalDescription,
       .method = operation(&Device::getDirectRawImagesLocal),
       .parameters = {name},
       .result = {"images",
                  "Array of pointer to the locked image buffer, NULL if error.\n"
                  "Warning, image pointer is valid only for C++ dynamic library."},
       .examples =
           {{"C++",
             "  std::vector<OXImage *> images = cameraProxy->getDirectRawImagesLocal(name);"}},
       .flags = kSameProcess},
      {.name = "getDirectRawImagesRemote",
       .description = texts::kRawRemoteDescription,
       .method = operation(&Device::getDirectRawImagesRemote),
       .parameters = {name},
       .result = {"result", texts::kImageArray},
       .examples = {{"C++",
                     "  OXValue result = cameraProxy->getDirectRawImagesRemote(name);\n"
                     "  const unsigned char* imageData =  static_cast<const unsigned "
                     "char*>(results[6].GetBinary());"}}},
      {.name = "releaseDirectRawImages",
       .description = "Release image buffer locked by getDirectRawImagesLocal().\n",
       .method = operation(&Device::releaseDirectRawImages),
       .parameters = {name},
       .result = {"success", texts::kSuccess},
       .examples = {{"C++", " cameraProxy->releaseDirectRawImages(name);"}},
       .flags = kSameProcess},
      {.name = "getImagesLocal",
       .description = texts::kLocalDescription,
       .method = operation(&Device::getImagesLocal),
       .parameters = {name},
       .result =
           {"images",
            "Array of pointer of the locked image buffer, NULL if error.Warning, image pointer is "
            "valid only for C++ dynamic library."},
       .examples = {{"C++",
                     "  std::vector<OXImage *> images = cameraProxy->getImagesLocal(name);"}},
       .flags = kSameProcess},
      {.name = "getImagesRemote",
       .description = texts::kRemoteDescription,
       .method = operation(&Device::getImagesRemote),
       .parameters = {name},
       .result = {"result", texts::kImageArray},
       .examples = {{"C++",
                     "  OXValue result = cameraProxy->getImagesRemote(name);\n"
                     "  const unsigned char* imageData =  static_cast<const unsigned "
                     "char*>(results[6].GetBinary());"}}},
      {.name = "releaseImages",
       .description = texts::kReleaseDescription,
       .method = operation(&Device::releaseImages),
       .parameters = {name},
       .result = {"success", texts::kSuccess},
       .examples = {{"C++", "  cameraProxy->releaseImages(name);"}}},
  };
}

// Requests that take a raw or a converted image count, and not only the one that the text names.
// There is no "unlimited": 0xFFFFFFFF does not fit into an int, and -1 records one image.
// V.I.M. and G.V.M. are older words for the device and a subscriber.
Publications recording() {
  return {
      {.name = "recordVideo",
       .description =
           "Background record of an .oxv raw format video from the images processed by a vision "
           "module\n"
           "Actualy it take picture each time the vision module call getDirectRawImageRemote().",
       .method = operation(&Device::recordVideo),
       .parameters = {{"id", "Name under which the G.V.M. is known from the V.I.M."},
                      {"path", "path/name of the video to be recorded"},
                      {"totalNumber",
                       "number of images to be recorded. 0xFFFFFFFF for \"unlimited\""},
                      {"period", "one image recorded every pPeriod images"}},
       .result = {"success", texts::kSuccess}},
      {.name = "stopVideo",
       .description = "Stop writing the video sequence",
       .method = operation(&Device::stopVideo),
       .parameters = {{"id", "Name under which the G.V.M. is known from OXVideoDevice."}},
       .result = {"success", texts::kSuccess}},
  };
}

// No texts at all: the signature says what introspection shows.
Publications geometry() {
  return {
      {.name = "getAngularPositionFromImagePosition",
       .method = operation(&Device::getAngularPositionFromImagePosition)},
      {.name = "getImagePositionFromAngularPosition",
       .method = operation(&Device::getImagePositionFromAngularPosition)},
      {.name = "getAngularSizeFromImageSize",
       .method = operation(&Device::getAngularSizeFromImageSize)},
      {.name = "getImageSizeFromAngularSize",
       .method = operation(&Device::getImageSizeFromAngularSize)},
      {.name = "getImageInfoFromAngularInfo",
       .method = operation(&Device::getImageInfoFromAngularInfo)},
      {.name = "getImageInfoFromAngularInfoWithResolution",
       .method = operation(&Device::getImageInfoFromAngularInfoWithResolution)},
  };
}

// Published by every device, so that introspection shows the same list whatever the camera is. Only
// the simulator implements them: elsewhere they throw.
Publications simulator() {
  const Row::Text camera{"cameraIndex", texts::kCamera};
  return {
      {.name = "putImage",
       .description = texts::kPutDescription,
       .method = operation<Device, bool, Int, Int, Int, Value>(&Device::putImage),
       .parameters = {camera,
                      {"width", texts::kImageWidth},
                      {"height", "int height of image"},
                      {"imageBuffer", texts::kImageBuffer}},
       .result = {"success", texts::kPutSuccess}},
      {.name = "getExpectedImageParameters",
       .description = texts::kExpectedDescription,
       .method = operation<Device, OXValue, Int>(&Device::getExpectedImageParameters),
       .parameters = {camera},
       .result = {"param", texts::kExpectedParameters}},
  };
}

}  // namespace

// The class name is that of the core also for a concrete camera: introspection shows it so.
void OXVisionVideoInput::xBindMethods() {
  for (const auto group : {camerasAndSubscription, monoSettings, monoImages, multiSettings,
                           multiImages, recording, geometry, simulator})
    publish(bindPublications(this, "OXVisionVideoInput", group()));
}

}  // namespace OX
