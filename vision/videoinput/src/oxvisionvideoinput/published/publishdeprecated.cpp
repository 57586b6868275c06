// What older clients call: one active camera for the whole device, V.I.M. for the device, G.V.M.
// for a subscriber. Published after the current methods; order and texts are an interface, slips
// included. Many share a name with a current method and have one argument less, the camera's index:
// the number of arguments tells them apart.
#include <oxvalue/detail/publication.h>
#include "oxvisionvideoinput.h"
#include "texts.h"

namespace OX {
namespace {

using Device = OXVisionVideoInput;
using Name = const std::string&;
using Int = const int&;
using Value = const OXValue&;
using Row = OXPublication<Device>;
using Publications = std::vector<Row>;

// onClientDisconnected is not for clients: the memory service calls it, by the published name, for
// the clean-up after a lost client.
Publications subscription() {
  return {
      {.name = "onClientDisconnected",
       .description = "Callback when client is disconnected",
       .method = operation(&Device::onClientDisconnected),
       .parameters = {{"eventName", "The echoed event name"},
                      {"eventContents", "The name of the client that has disconnected"},
                      {"message", "The message give when subscribing."}}},
      // The result is never 0, whatever the text says: a subscription that fails throws.
      {.name = "subscribe",
       .description =
           "Register to OXVideoDevice (formerly Video Input Module/V.I.M.). When a General Video "
           "Module(G.V.M.) registers to OXVideoDevice, a buffer of the requested image format is "
           "added "
           "to the buffers list.\n"
           "Returns the name under which the G.V.M. is registered to OXVideoDevice (useful when "
           "two "
           "G.V.M. try to register using the same name",
       .method = operation(&Device::subscribe),
       .parameters =
           {{"gvmName", "Name of the subscribing G.V.M."},
            {"resolution", "Resolution requested. { 0 = kQQVGA, 1 = kQVGA, 2 = kVGA } "},
            {"colorSpace",
             "Colorspace requested. { 0 = kYuv, 9 = kYUV422, 10 = kYUV, 11 = kRGB, 12 = kHSY, 13 = "
             "kBGR } "},
            {"fps", "Fps (frames per second) requested. { 5, 10, 15, 30 } "}},
       .result = {"gvmNameId",
                  "Name under which the G.V.M. is known from OXVideoDevice, 0 if failed."},
       .examples =
           {{"C++",
             "  #Register a G.V.M. to OXVideoDevice, starting the frame grabber if it was not "
             "started "
             "before.\n"
             "  std::string pId, pGVMName = \"my_GVM\";\n"
             "  pId = fCamProxy->subscribe( pGVMName , pResolution, pColorSpace, pFps );"}}},
      {.name = "unsubscribeAllInstances",
       .description = "Used to unsubscribe all instances for a given G.V.M. (e.g. VisionModule and "
                      "VisionModule_5) "
                      "from OXVideoDevice.",
       .method = operation(&Device::unsubscribeAllInstances),
       .parameters =
           {{"id",
             "Root name of the G.V.M. (e.g. with the example above this will be VisionModule)."}},
       .examples = {{"C++", "  fCamProxy->unsubscribeAllInstances( pId );"}}},
      // Published with an underscore that the operation's name lacks. Its id is not described, so
      // introspection calls it "arg0".
      {.name = "_getDirectRawImageInterprocess",
       .description = "Retrieves a raw image into shared memory and returns the name of the shared "
                      "memory region "
                      "where it is stored.This method no longer works !",
       .method = operation(&Device::getDirectRawImageInterprocess),
       .result = {"uname", "Shared memory unique name identifier."}},
  };
}

// The active camera of the device, and getters of both kinds: the V.I.M. ones read that camera, the
// G.V.M. ones are second names of a subscriber's getters, bound to the same operations.
Publications deviceAndSubscribers() {
  constexpr const char* kActive = " 0: top camera - 1: bottom camera";
  return {
      {.name = "getActiveCamera",
       .description = "Tells if top camera is active",
       .method = operation<Device, int>(&Device::getActiveCamera),
       .result = {"activeCamera", kActive}},
      {.name = "setActiveCamera",
       .description = "Set the active camera",
       .method = operation<Device, bool, Int>(&Device::setActiveCamera),
       .parameters = {{"activeCamera", kActive}},
       .examples = {{"C++", "  fCamera->setActiveCamera(activeCamera);"}}},
      // Names of their own, unlike the forms of the grabber below: getResolution() without
      // arguments was never published.
      {.name = "getVIMResolution", .method = operation<Device, int>(&Device::getResolution)},
      {.name = "getVIMColorSpace", .method = operation<Device, int>(&Device::getColorSpace)},
      {.name = "getVIMFrameRate", .method = operation<Device, int>(&Device::getFrameRate)},
      {.name = "getGVMResolution", .method = operation<Device, int, Name>(&Device::getResolution)},
      {.name = "getGVMColorSpace", .method = operation<Device, int, Name>(&Device::getColorSpace)},
      {.name = "getGVMFrameRate", .method = operation<Device, int, Name>(&Device::getFrameRate)},
      {.name = "getCameraModelID", .method = operation(&Device::getCameraModelID)},
  };
}

// setParam returns nothing: a client learns of a refused value only if the camera throws. The
// camera's index is the last argument here, and the first one of the driver's operations.
Publications parameters() {
  const Row::Text parameter{"pParam", texts::kParameter};
  const Row::Text value{"pNewValue", texts::kValue};
  const Row::Text camera{"pCameraIndex", texts::kCamera};
  return {
      {.name = "setParam",
       .description = texts::kSetParamDescription,
       .method = operation<Device, void, Int, Int, Int>(&Device::setParam),
       .parameters = {parameter, value, camera},
       .examples = {{"C++", "  cameraProxy->setParam(pParam, pNewValue, pCameraIndex);"}}},
      {.name = "setParam",
       .description = texts::kSetParamDescription,
       .method = operation<Device, void, Int, Int>(&Device::setParam),
       .parameters = {parameter, value},
       .examples = {{"C++", "  cameraProxy->setParam(pParam, pNewValue);"}}},
      {.name = "getParam",
       .method = operation<Device, int, Int, Int>(&Device::getParam),
       .parameters = {parameter, camera},
       .examples = {{"C++", "  cameraProxy->getParam(pParam, pCameraIndex);"}}},
      {.name = "getParam",
       .method = operation<Device, int, Int>(&Device::getParam),
       .parameters = {parameter},
       .examples = {{"C++", "  cameraProxy->getParam(pParam);"}}},
      {.name = "setParamDefault", .method = operation(&Device::setParamDefault)},
  };
}

// Positions and sizes on the active camera, without texts. The last two need no camera: they
// translate between the number of a resolution and its size in pixels.
Publications geometryAndSizes() {
  return {
      {.name = "getAngPosFromImgPos", .method = operation(&Device::getAngPosFromImgPos)},
      {.name = "getImgPosFromAngPos", .method = operation(&Device::getImgPosFromAngPos)},
      {.name = "getAngSizeFromImgSize", .method = operation(&Device::getAngSizeFromImgSize)},
      {.name = "getImgSizeFromAngSize", .method = operation(&Device::getImgSizeFromAngSize)},
      {.name = "getImgInfoFromAngInfo", .method = operation(&Device::getImgInfoFromAngInfo)},
      {.name = "getImgInfoFromAngInfoWithRes",
       .method = operation(&Device::getImgInfoFromAngInfoWithRes)},
      {.name = "resolutionToSizes", .method = operation(&Device::resolutionToSizes)},
      {.name = "sizesToResolution", .method = operation(&Device::sizesToResolution)},
  };
}

// Pushing to the active camera. The size is declared beforehand and stays for all later pushes; the
// current putImage declares it with each frame.
Publications simulator() {
  return {
      {.name = "getExpectedImageParameters",
       .description = texts::kExpectedDescription,
       .method = operation<Device, OXValue>(&Device::getExpectedImageParameters),
       .result = {"param", texts::kExpectedParameters}},
      // The text of the method above: clients know it so.
      {.name = "setSimCamInputSize",
       .description = texts::kExpectedDescription,
       .method = operation(&Device::setSimCamInputSize),
       .parameters = {{"width", texts::kImageWidth},
                      {"height", "int height of image among 1280*960, 640*480, 320*240, 240*160"}},
       .result = {"success", "true if setSize worked"}},
      {.name = "putImage",
       .description = texts::kPutDescription,
       .method = operation<Device, bool, Value>(&Device::putImage),
       .parameters = {{"imageBuffer", texts::kImageBuffer}},
       .result = {"success", texts::kPutSuccess}},
  };
}

// Without a camera these work on all cameras of the device, except isFrameGrabberOff, which asks
// the active one.
Publications grabber() {
  return {
      {.name = "startFrameGrabber",
       .description =
           "Advanced method that opens and initialize video source device if it was not before.\n"
           "Note that the first module subscribing to OXVideoDevice will launch it automatically.",
       .method = operation<Device, bool>(&Device::startFrameGrabber),
       .result = {"success", texts::kSuccess},
       .examples = {{"C++",
                     "  #Create a proxy on the video input module (V.I.M.)\n"
                     "  boost::shared_ptr<OXProxy> fCamera = getParentBroker()->getProxy( "
                     "\"OXVideoDevice\" );\n"
                     "  fCamProxy = boost::shared_ptr<OX::OXVideoDeviceProxy>( new "
                     "OX::OXVideoDeviceProxy(getParentBroker()));\n"
                     "  #Start the frame grabber in the default mode.\n"
                     "  fCamProxy->startFrameGrabber();"}}},
      // No unsubscription calls it, whatever the text says: the grabber runs on.
      {.name = "stopFrameGrabber",
       .description =
           "Advanced method that close video source device.\n"
           "Note that the last module unsubscribing to OXVideoDevice will launch it automatically.",
       .method = operation<Device, bool>(&Device::stopFrameGrabber),
       .result = {"success", texts::kSuccess},
       .examples = {{"C++", "  fCamProxy->stopFrameGrabber();"}}},
      {.name = "isFrameGrabberOff",
       .description = "Advanced method that asks if the framegrabber is off.",
       .method = operation<Device, bool>(&Device::isFrameGrabberOff),
       .result = {"success", "true if off"}},
  };
}

}  // namespace

// After xBindMethods: introspection lists methods in the order in which they were bound.
void OXVisionVideoInput::xBindDeprecatedMethods() {
  for (const auto group :
       {subscription, deviceAndSubscribers, parameters, geometryAndSizes, simulator, grabber})
    publish(bindPublications(this, "OXVisionVideoInput", group()));
}

}  // namespace OX
