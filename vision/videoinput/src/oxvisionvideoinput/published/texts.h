/// The texts that more than one publication uses, as introspection shows them. The documentation of
/// clients quotes them: slips stay.
#pragma once

namespace OX::texts {

inline constexpr const char* kModuleDescription =
    "OXVideoDevice, formerly called Video Input systemis architectured in order to provide every "
    "module related to vision, called vision module, a direct access to raw images from video "
    "source, or an access to images transformed in the requested format.\n"
    "  Extension name of the methods providing images depends on wether modules are local (dynamic "
    "library) or remote (executable).";

inline constexpr const char* kModuleExampleCpp =
    "  #Create a proxy on the video input system\n"
    "  boost::shared_ptr<OXProxy> fCamera = getParentBroker()->getProxy( \"OXVideoDevice\" );\n"
    "  fCameraProxy = boost::shared_ptr<OX::OXVideoDeviceProxy>(new "
    "OX::OXVideoDeviceProxy(getParentBroker()));\n"
    "  #Register a vision module to the system\n"
    "  std::string pNameId = \"myModule\";\n"
    "  pNameId = fCamProxy->subscribe(pNameId , pCameraIndex, pResolution, pColorSpace, pFps);\n"
    "  #Get a pointer to the video source image and release the image when process is finished\n"
    "  OXImage *pointer = (OXImage*)fCameraProxy->getImageLocal(pNameId);\n"
    "  ...process...\n"
    "  fCameraProxy->releaseImage(pNameId);\n"
    "  #Unregister the vision module\n"
    "  fCameraProxy->unsubscribe(pNameId);";

inline constexpr const char* kModuleExamplePython =
    "  #Create a proxy on the video input module (V.I.M.)\n"
    "  cameraProxy = OXProxy(\"OXVideoDevice\", \"127.0.0.1\", 9740)\n"
    "  #Register a vision module to the system\n"
    "  nameId = cameraProxy.subscribe(\"pythonModule\", cameraIndex, resolution, colorSpace, fps)\n"
    "  #Get a pointer to the video source image and release the image when process is finished\n"
    "  cameraProxy.getImageLocal(nameId)\n"
    "  ...process...\n"
    "  cameraProxy.releaseImage(nameId)\n"
    "  #Unregister the vision module\n"
    "  cameraProxy.unsubscribe(nameId)";

inline constexpr const char* kName = "Name of the subscribing vision module";
inline constexpr const char* kNameId =
    "Name under which the vision module is known from OXVideoDevice.";
inline constexpr const char* kReturnedNameId =
    "Name under which the vision module is known from OXVideoDevice";
inline constexpr const char* kCamera = "Camera requested.";
inline constexpr const char* kCameras = "Cameras requested.";
inline constexpr const char* kParameter = "Camera parameter requested.";
inline constexpr const char* kValue = "value requested.";
inline constexpr const char* kValues = "values requested.";
inline constexpr const char* kImageBuffer = "Image buffer in bitmap form";
inline constexpr const char* kImageWidth =
    "int width of image among 1280*960, 640*480, 320*240, 240*160";

inline constexpr const char* kSuccess = "true if success";
inline constexpr const char* kPutSuccess = "true if the put succeeded";
inline constexpr const char* kExpectedParameters =
    "OXValue of expected parameters, [int resolution, int framerate]";
inline constexpr const char* kImageArray =
    "Array containing image informations : \n"
    "    [0] : width;\n"
    "    [1] : height;\n"
    "    [2] : number of layers;\n"
    "    [3] : ColorSpace;\n"
    "    [4] : time stamp (highest 32 bits);\n"
    "    [5] : time stamp (lowest 32 bits);\n"
    "    [6] : array of size height * width * nblayers containing image data;\n"
    "    [7] : cameraID;\n"
    "    [8] : left angle;\n"
    "    [9] : top angle;\n"
    "    [10] : right angle;\n"
    "    [11] : bottom angle;\n";

inline constexpr const char* kRawLocalDescription =
    "Retrieves the latest image from the video source and returns a pointer to the locked OXImage, "
    "with data array pointing directly to raw data. There is no format conversion and no copy of "
    "the raw buffer.\n"
    "Warning: When image is not necessary anymore, a call to releaseDirectRawImage() is "
    "requested.\n"
    "Warning: When using this mode for several vision module, if they need raw data for more than "
    "25ms check that you have strictly less modules in this mode than the amount of kernel "
    "buffers!!\n"
    "Warning: Release all kernel buffers before any action requesting a modification in camera "
    "running mode (e.g. resolution, switch between cameras).";
inline constexpr const char* kRawRemoteDescription =
    "Fills an OXValue with data coming directly from raw buffer (no format conversion).\n";
inline constexpr const char* kLocalDescription =
    "Applies transformations to the last image from video source and returns a pointer to a locked "
    "OXImage.\n"
    "When image is not necessary anymore, a call to releaseImage() is requested.\n";
inline constexpr const char* kRemoteDescription =
    "Applies transformations to the last image from video source and fills pFrameOut.\n";
inline constexpr const char* kReleaseDescription =
    "Release image buffer locked by getImageLocal().\n"
    "If G.V.M. had no locked image buffer, does nothing.";
inline constexpr const char* kPutDescription = "Allow image buffer pushing";
inline constexpr const char* kExpectedDescription =
    "called by the simulator to know expected image parameters";
inline constexpr const char* kSetParamDescription =
    "Sets the value of a specific parameter for the video source.";

}  // namespace OX::texts
