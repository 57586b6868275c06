// A client that subscribes, holds, records and asks for images at random until it is killed:
// lost_client ADDRESS SEED FOLDER. Started by lost_clients_test.
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <oxframework/oxerror.h>
#include <oxframework/oxremotebroker.h>

namespace {

using OX::OXValue;

class Client {
 public:
  Client(const std::string& pAddress, unsigned int pSeed, std::string pFolder)
      : fRandom(pSeed),
        fFolder(std::move(pFolder)),
        fBroker(OX::OXRemoteBroker::connect(pAddress)) {}

  void run() {
    if (xOneOf(2) == 0) xCall("OXBroker", "setClientName", OXValue::array("robot"));
    for (;;) {
      try {
        xStep();
      } catch (const OX::OXError&) {
        // Refused, as one of many that ask for anything must expect; but not without a connection.
        if (!fBroker->isConnected()) return;
      }
    }
  }

 private:
  int xOneOf(int pCount) { return std::uniform_int_distribution<int>(0, pCount - 1)(fRandom); }
  OXValue xCall(const char* pModule, const char* pMethod, const OXValue& pArguments) {
    return fBroker->call(pModule, pMethod, pArguments);
  }
  template <typename... Arguments>
  OXValue xDevice(const char* pMethod, Arguments&&... pArguments) {
    const OXValue arguments = OXValue::array(std::forward<Arguments>(pArguments)...);
    // Nobody waits for the answer of some: the client dies with calls under way.
    if (xOneOf(8) != 0) return xCall("OXVideoDevice", pMethod, arguments);
    fBroker->notify("OXVideoDevice", pMethod, arguments);
    return {};
  }

  void xStep() {
    if (fIds.empty() || xOneOf(12) == 0) return xSubscribe();
    const std::string id = fIds[static_cast<std::size_t>(xOneOf(static_cast<int>(fIds.size())))];
    switch (xOneOf(12)) {
      case 0:
        xDevice("getImageLocal", id);
        break;
      case 1:
        xDevice("getDirectRawImageLocal", id);
        break;
      case 2:
        xDevice("getImagesLocal", id);
        break;
      case 3:
        xDevice("getDirectRawImagesLocal", id);
        break;
      case 4:
        xDevice("getImageRemote", id);
        break;
      case 5:
        xDevice("getImagesRemote", id);
        break;
      case 6:
        xDevice("setActiveCamera", id, xOneOf(2));
        break;
      case 7:
        xDevice("setActiveCameras", id, OXValue::array(xOneOf(2)));
        break;
      case 8:
        xDevice("recordVideo", id, fFolder + "/" + id + ".oxv", 1000, 1);
        break;
      case 9:
        xDevice("setActiveCamera", xOneOf(2));
        break;
      case 10:
        xDevice("releaseImage", id);
        break;
      default:
        xDevice("unsubscribe", id);
        std::erase(fIds, id);
    }
  }

  void xSubscribe() {
    const OXValue id = xOneOf(2) == 0
                           ? xDevice("subscribeCamera", "robot", xOneOf(3) - 1, xOneOf(4), 11, 30)
                           : xDevice("subscribeCameras", "robot", OXValue::array(1, 0),
                                     OXValue::array(1, 2), OXValue::array(9, 13), 15);
    if (id.isString()) fIds.push_back(id.toString());
  }

  std::mt19937 fRandom;
  const std::string fFolder;
  const boost::shared_ptr<OX::OXRemoteBroker> fBroker;
  std::vector<std::string> fIds;
};

}  // namespace

int main(int pCount, char** pArguments) {
  if (pCount != 4) return 2;
  try {
    Client(pArguments[1], static_cast<unsigned int>(std::atoi(pArguments[2])), pArguments[3]).run();
  } catch (const OX::OXError&) {
    return 1;
  }
  return 0;
}
