// The vocabulary of older clients: one active camera for the whole device, V.I.M. for the device,
// G.V.M. for a subscriber.
#include "publication.h"
#include "texts.h"

namespace OX {
namespace {

using Device = OXVisionVideoInput;
using Name = const std::string&;
using Int = const int&;
using Value = const OXValue&;
using Publications = std::vector<Publication>;

Publications subscription() {
  return {
      {"onClientDisconnected",
       Bind::Only,
       operation(&Device::onClientDisconnected),
       {{"eventName", "The echoed event name"},
        {"eventContents", "The name of the client that has disconnected"},
        {"message", "The message give when subscribing."}},
       {},
       nullptr,
       "Callback when client is disconnected"},
      {"subscribe",
       Bind::Overload,
       operation(&Device::subscribe),
       {{"gvmName", "Name of the subscribing G.V.M."},
        {"resolution", "Resolution requested. { 0 = kQQVGA, 1 = kQVGA, 2 = kVGA } "},
        {"colorSpace",
         "Colorspace requested. { 0 = kYuv, 9 = kYUV422, 10 = kYUV, 11 = kRGB, 12 = kHSY, 13 = "
         "kBGR } "},
        {"fps", "Fps (frames per second) requested. { 5, 10, 15, 30 } "}},
       {"gvmNameId", "Name under which the G.V.M. is known from OXVideoDevice, 0 if failed."},
       "  #Register a G.V.M. to OXVideoDevice, starting the frame grabber if it was not started "
       "before.\n"
       "  std::string pId, pGVMName = \"my_GVM\";\n"
       "  pId = fCamProxy->subscribe( pGVMName , pResolution, pColorSpace, pFps );",
       "Register to OXVideoDevice (formerly Video Input Module/V.I.M.). When a General Video "
       "Module(G.V.M.) registers to OXVideoDevice, a buffer of the requested image format is added "
       "to the buffers list.\n"
       "Returns the name under which the G.V.M. is registered to OXVideoDevice (useful when two "
       "G.V.M. try to register using the same name"},
      {"unsubscribeAllInstances",
       Bind::Only,
       operation(&Device::unsubscribeAllInstances),
       {{"id", "Root name of the G.V.M. (e.g. with the example above this will be VisionModule)."}},
       {},
       "  fCamProxy->unsubscribeAllInstances( pId );",
       "Used to unsubscribe all instances for a given G.V.M. (e.g. VisionModule and "
       "VisionModule_5) "
       "from OXVideoDevice."},
      {"_getDirectRawImageInterprocess",
       Bind::Only,
       operation(&Device::getDirectRawImageInterprocess),
       {},
       {"uname", "Shared memory unique name identifier."},
       nullptr,
       "Retrieves a raw image into shared memory and returns the name of the shared memory region "
       "where it is stored.This method no longer works !"},
  };
}

Publications deviceAndSubscribers() {
  constexpr const char* kActive = " 0: top camera - 1: bottom camera";
  return {
      {"getActiveCamera",
       Bind::Overload,
       operation<int>(&Device::getActiveCamera),
       {},
       {"activeCamera", kActive},
       nullptr,
       "Tells if top camera is active"},
      {"setActiveCamera",
       Bind::Overload,
       operation<bool, Int>(&Device::setActiveCamera),
       {{"activeCamera", kActive}},
       {},
       "  fCamera->setActiveCamera(activeCamera);",
       "Set the active camera"},
      {"getVIMResolution", Bind::Overload, operation<int>(&Device::getResolution)},
      {"getVIMColorSpace", Bind::Overload, operation<int>(&Device::getColorSpace)},
      {"getVIMFrameRate", Bind::Overload, operation<int>(&Device::getFrameRate)},
      {"getGVMResolution", Bind::Overload, operation<int, Name>(&Device::getResolution)},
      {"getGVMColorSpace", Bind::Overload, operation<int, Name>(&Device::getColorSpace)},
      {"getGVMFrameRate", Bind::Overload, operation<int, Name>(&Device::getFrameRate)},
      {"getCameraModelID", Bind::Overload, operation(&Device::getCameraModelID)},
  };
}

Publications parameters() {
  const Publication::Text parameter{"pParam", texts::kParameter};
  const Publication::Text value{"pNewValue", texts::kValue};
  const Publication::Text camera{"pCameraIndex", texts::kCamera};
  return {
      {"setParam",
       Bind::Overload,
       operation<void, Int, Int, Int>(&Device::setParam),
       {parameter, value, camera},
       {},
       "  cameraProxy->setParam(pParam, pNewValue, pCameraIndex);",
       texts::kSetParamDescription},
      {"setParam",
       Bind::Overload,
       operation<void, Int, Int>(&Device::setParam),
       {parameter, value},
       {},
       "  cameraProxy->setParam(pParam, pNewValue);",
       texts::kSetParamDescription},
      {"getParam",
       Bind::Overload,
       operation<int, Int, Int>(&Device::getParam),
       {parameter, camera},
       {},
       "  cameraProxy->getParam(pParam, pCameraIndex);"},
      {"getParam",
       Bind::Overload,
       operation<int, Int>(&Device::getParam),
       {parameter},
       {},
       "  cameraProxy->getParam(pParam);"},
      {"setParamDefault", Bind::Only, operation(&Device::setParamDefault)},
  };
}

Publications geometryAndSizes() {
  return {
      {"getAngPosFromImgPos", Bind::Only, operation(&Device::getAngPosFromImgPos)},
      {"getImgPosFromAngPos", Bind::Only, operation(&Device::getImgPosFromAngPos)},
      {"getAngSizeFromImgSize", Bind::Only, operation(&Device::getAngSizeFromImgSize)},
      {"getImgSizeFromAngSize", Bind::Only, operation(&Device::getImgSizeFromAngSize)},
      {"getImgInfoFromAngInfo", Bind::Only, operation(&Device::getImgInfoFromAngInfo)},
      {"getImgInfoFromAngInfoWithRes", Bind::Only,
       operation(&Device::getImgInfoFromAngInfoWithRes)},
      {"resolutionToSizes", Bind::Only, operation(&Device::resolutionToSizes)},
      {"sizesToResolution", Bind::Only, operation(&Device::sizesToResolution)},
  };
}

Publications simulator() {
  return {
      {"getExpectedImageParameters",
       Bind::Overload,
       operation<OXValue>(&Device::getExpectedImageParameters),
       {},
       {"param", texts::kExpectedParameters},
       nullptr,
       texts::kExpectedDescription},
      // The words of the method above: clients know them so.
      {"setSimCamInputSize",
       Bind::Overload,
       operation(&Device::setSimCamInputSize),
       {{"width", texts::kImageWidth},
        {"height", "int height of image among 1280*960, 640*480, 320*240, 240*160"}},
       {"success", "true if setSize worked"},
       nullptr,
       texts::kExpectedDescription},
      {"putImage",
       Bind::Overload,
       operation<bool, Value>(&Device::putImage),
       {{"imageBuffer", texts::kImageBuffer}},
       {"success", texts::kPutSuccess},
       nullptr,
       texts::kPutDescription},
  };
}

Publications grabber() {
  return {
      {"startFrameGrabber",
       Bind::Overload,
       operation<bool>(&Device::startFrameGrabber),
       {},
       {"success", texts::kSuccess},
       "  #Create a proxy on the video input module (V.I.M.)\n"
       "  boost::shared_ptr<OXProxy> fCamera = getParentBroker()->getProxy( \"OXVideoDevice\" );\n"
       "  fCamProxy = boost::shared_ptr<OX::OXVideoDeviceProxy>( new "
       "OX::OXVideoDeviceProxy(getParentBroker()));\n"
       "  #Start the frame grabber in the default mode.\n"
       "  fCamProxy->startFrameGrabber();",
       "Advanced method that opens and initialize video source device if it was not before.\n"
       "Note that the first module subscribing to OXVideoDevice will launch it automatically."},
      {"stopFrameGrabber",
       Bind::Overload,
       operation<bool>(&Device::stopFrameGrabber),
       {},
       {"success", texts::kSuccess},
       "  fCamProxy->stopFrameGrabber();",
       "Advanced method that close video source device.\n"
       "Note that the last module unsubscribing to OXVideoDevice will launch it automatically."},
      {"isFrameGrabberOff",
       Bind::Overload,
       operation<bool>(&Device::isFrameGrabberOff),
       {},
       {"success", "true if off"},
       nullptr,
       "Advanced method that asks if the framegrabber is off."},
  };
}

}  // namespace

void OXVisionVideoInput::xBindDeprecatedMethods() {
  for (const auto group :
       {subscription, deviceAndSubscribers, parameters, geometryAndSizes, simulator, grabber})
    xPublish(group());
}

}  // namespace OX
