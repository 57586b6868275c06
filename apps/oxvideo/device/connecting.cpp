// An open port says nothing about who listens: the first call, with a short limit of its own, tells
// a broker from any other server, which would leave a user waiting as long as for a slow answer.
#include "device/connecting.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <oxframework/oxerror.h>
#include <oxframework/oxremotebroker.h>
#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

using std::chrono::milliseconds;

// For all steps, so that the program itself has ended within two seconds.
constexpr milliseconds kLimit{1500};

bool isOnPath(const std::filesystem::path& pFolder) {
  const char* const list = std::getenv("PATH");
  std::string_view rest = list ? list : "";
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    std::error_code error;
    if (std::filesystem::equivalent(std::string(rest.substr(0, end)), pFolder, error)) return true;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return false;
}

/// The daemon beside this program, unless the shell finds it by its name.
std::string brokerProgram() {
  std::error_code error;
  const auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  const auto program = folder / "oxbroker";
  if (error || ::access(program.c_str(), X_OK) != 0 || isOnPath(folder)) return "oxbroker";
  return shellWord(program.string());
}

bool isThisMachine(const std::string& pAddress) {
  return std::ranges::any_of(
      std::initializer_list<std::string_view>{"unix:", "127.", "localhost:", "[::1]:"},
      [&](std::string_view pBegin) { return pAddress.starts_with(pBegin); });
}

std::string addressHint() {
  return "\n  give another address:   oxvideo --broker ADDRESS ...   (or OXVIDEO_BROKER=ADDRESS)"
         "\n  where ADDRESS is        HOST:PORT or unix:PATH";
}

[[noreturn]] void failToConnect(const std::string& pAddress, const std::string& pReason) {
  std::string hint;
  // Nobody can listen at what is no address.
  if (pReason.find("is not a valid address") == std::string::npos)
    hint = fmt::format("\n  start one{}{}",
                       isThisMachine(pAddress) ? ":              " : " there:        ",
                       printable(brokerCommand(pAddress)));
  throw OXFailure(fmt::format("no broker at {}: {}{}{}", printable(pAddress), printable(pReason),
                              hint, addressHint()));
}

[[noreturn]] void failToTalk(const std::string& pAddress, const std::string& pReason) {
  throw OXFailure(
      fmt::format("no broker at {}: something listens there, but does not answer as a broker does\n"
                  "  what came:              {}\n"
                  "  a full broker           closes new connections; raise its --max-connections{}",
                  printable(pAddress), printable(pReason), addressHint()));
}

}  // namespace

std::string brokerCommand(const std::string& pAddress, const std::string& pOptions) {
  // Where the program lies on another machine is not known here.
  const std::string program = isThisMachine(pAddress) ? brokerProgram() : "oxbroker";
  return program + " --load libvideoinput.so " + pOptions + "--listen " + shellWord(pAddress);
}

boost::shared_ptr<OXRemoteBroker> connectToBroker(const std::string& pAddress,
                                                  const std::string& pName) {
  using std::chrono::steady_clock;
  const auto deadline = steady_clock::now() + kLimit;
  boost::shared_ptr<OXRemoteBroker> broker;
  try {
    broker = OXRemoteBroker::connect(pAddress, kLimit);
  } catch (const OXError& error) {
    failToConnect(pAddress, error.what());
  }
  const auto left = std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now());
  broker->setTimeout(std::max(left, milliseconds(1)));
  try {
    // Shown in the broker's records, and in the event that it raises when this connection ends.
    broker->call("OXBroker", "setClientName", OXValue::array(pName));
  } catch (const OXError& error) {
    if (error.getModuleName() == "OXRemoteBroker") failToTalk(pAddress, error.what());
    throw;
  }
  return broker;
}

}  // namespace OX::cli
