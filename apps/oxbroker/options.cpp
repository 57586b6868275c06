// The only source of the daemon that includes CLI11, whose headers take seconds to compile.
#include "options.h"

#include <CLI/CLI.hpp>
#include <limits>

#include <oxframework/version.h>
#include "sourcepreferences.h"

namespace OX::daemon {
namespace {

/// Named as this program was called, so that they run where the user is.
std::string examples(const std::string& pProgram) {
  return "Examples:\n  " + pProgram +
         " --load libvideoinput.so\n"
         "serves two simulated cameras to programs on this machine.\n  " +
         pProgram +
         " --load libvideoinput.so --source file --listen 127.0.0.1:9741\n"
         "serves a camera that replays recordings, at an address of its own.\n"
         "Both serve until Ctrl-C, SIGTERM or SIGHUP (unless it is ignored, as under nohup), and "
         "close\nrecordings as they end.\n"
         "Exit status: 0 done, 1 failed, 2 usage error.";
}

// Deeper nesting could exhaust the stack of a thread.
constexpr int kMostNesting = 1000;
constexpr int kMostMiB = 1 << 20;

void addLimits(CLI::App& pApp, Options& pOptions) {
  const CLI::Range anyCount(1, std::numeric_limits<int>::max());
  OXWireLimits& limits = pOptions.limits;
  const auto add = [&](const char* pName, int& pValue, const char* pText) {
    return pApp.add_option(pName, pValue, pText)->group("Limits")->capture_default_str();
  };
  add("--max-threads", pOptions.maxThreads, "Concurrent calls")->check(CLI::Range(1, 10000));
  add("--max-connections", limits.maxConnections, "Concurrent connections")->check(anyCount);
  add("--max-requests", limits.maxRequestsUnderWay, "Concurrent requests per connection")
      ->check(anyCount);
  add("--max-waiting", limits.maxRequestsWaiting,
      "Requests per connection that wait for something to happen, such as a new frame")
      ->check(anyCount);
  add("--max-streams", pOptions.maxStreams, "Streams of frames per connection")->check(anyCount);
  add("--max-shared", pOptions.maxSharedMiB,
      "Memory that streams share with one client; a single stream always fits")
      ->type_name("MIB")
      ->check(CLI::Range(1, kMostMiB));
  add("--max-shared-total", pOptions.maxSharedMiBInAll,
      "Memory that streams share with all clients")
      ->type_name("MIB")
      ->check(CLI::Range(1, kMostMiB));
  add("--max-message-bytes", limits.maxMessageBytes, "Size of a message")->check(anyCount);
  // The least with which a request passes: an array of four that contains the array of arguments.
  add("--max-array-elements", limits.maxArrayElements, "Elements of an array")
      ->check(CLI::Range(4, std::numeric_limits<int>::max()));
  add("--max-nesting", limits.maxNesting, "Depth of nested arrays, including the message itself")
      ->check(CLI::Range(2, kMostNesting));
  add("--keep-alive", limits.keepAliveSeconds,
      "Seconds after which a client on TCP that is not heard, such as one whose cable was pulled, "
      "is given up with what it subscribed, within twice that; 0 leaves it to the system")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 3600));
}

}  // namespace

std::optional<Options> parseOptions(int pCount, const char* const* pArguments, std::ostream& pOut,
                                    std::ostream& pErr, int& pStatus) {
  Options options;
  CLI::App app("Serves modules to other processes: loads libraries and answers calls.", "oxbroker");
  app.footer(examples(pCount > 0 ? pArguments[0] : "oxbroker"));
  app.set_version_flag("--version", std::string("oxbroker ") + OX_VERSION);
  app.add_option("--load", options.libraries,
                 "Library with a module; a name without a slash is first searched for in ../lib of "
                 "this program. Can be repeated")
      ->type_name("LIBRARY")
      ->allow_extra_args(false);
  app.add_flag("!--no-stream", options.withStreams,
               "Without the service of streams, whose library is otherwise loaded when it lies "
               "beside that of the cameras");
  app.add_option("--preferences", options.preferences,
                 "Directory of the preference files; VideoInput.xml names the source of images")
      ->type_name("DIR")
      ->check(CLI::ExistingDirectory)
      ->capture_default_str();
  app.add_option("--source", options.source,
                 "Source of images, whatever VideoInput.xml says (default: what it says, or the "
                 "simulator if there is no such file)")
      ->type_name("SOURCE")
      ->check(CLI::IsMember(sourceWords()));
  app.add_option("--listen", options.addresses,
                 "HOST:PORT (port 0 picks one) or unix:PATH. Can be repeated")
      ->type_name("ADDRESS")
      ->allow_extra_args(false)
      ->capture_default_str();
  app.add_option("--log-level", options.logLevel,
                 "Records on standard error: 0 none, 1 fatal, 2 error, 3 warning, 4 information, "
                 "5 all")
      ->check(CLI::Range(0, 5))
      ->capture_default_str();
  addLimits(app, options);
  try {
    app.parse(pCount, pArguments);
  } catch (const CLI::ParseError& error) {
    pStatus = app.exit(error, pOut, pErr) == 0 ? kDone : kUsageError;
    return std::nullopt;
  }
  return options;
}

}  // namespace OX::daemon
