// The real program: what it prints, how it ends, and what it survives.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <oxframework/oxerror.h>
#include <oxframework/oxremotebroker.h>
#include "support/raw_client.h"

extern char** environ;

namespace OX::test {
namespace {

std::string drain(int pFile) {
  std::string text;
  char block[4096];
  for (ssize_t got; (got = ::read(pFile, block, sizeof block)) > 0;)
    text.append(block, static_cast<std::size_t>(got));
  return text;
}

/// A child process and its two outputs.
class Program {
 public:
  /// pIgnored: a signal that it ignores from the start, as after nohup.
  explicit Program(std::vector<std::string> pArguments, int pIgnored = 0) {
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    ::posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    pArguments.insert(pArguments.begin(), OX_BROKER_PROGRAM);
    std::vector<char*> words;
    for (std::string& argument : pArguments) words.push_back(argument.data());
    words.push_back(nullptr);
    // What this process ignores, its child does.
    if (pIgnored != 0) ::signal(pIgnored, SIG_IGN);
    if (::posix_spawn(&fProcess, OX_BROKER_PROGRAM, &actions, nullptr, words.data(), environ) != 0)
      fProcess = -1;
    if (pIgnored != 0) ::signal(pIgnored, SIG_DFL);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    fOut = out[0];
    fErr = err[0];
  }

  ~Program() {
    if (fProcess > 0) {
      ::kill(fProcess, SIGKILL);
      wait();
    }
    ::close(fOut);
    ::close(fErr);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// The next line of its standard output, empty at its end.
  std::string line() {
    std::string text;
    for (char byte; ::read(fOut, &byte, 1) == 1 && byte != '\n';) text += byte;
    return text;
  }

  std::string restOfOutput() { return drain(fOut); }
  std::string errors() { return drain(fErr); }
  /// What it has written to standard error, up to and including pText or the end of all.
  std::string errorsUntil(const std::string& pText) {
    std::string text;
    for (char byte; !text.ends_with(pText) && ::read(fErr, &byte, 1) == 1;) text += byte;
    return text;
  }
  /// From now on its writes to standard output wait for restOfOutput().
  void fillOutput() {
    const std::string pipe = "/proc/self/fd/" + std::to_string(fOut);
    const int end = ::open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    for (const std::size_t size : {std::size_t{4096}, std::size_t{1}})
      while (::write(end, std::string(size, '-').data(), size) > 0) continue;
    ::close(end);
  }
  /// As if whoever reads its outputs had ended.
  void closeOutputs() {
    ::close(std::exchange(fOut, -1));
    ::close(std::exchange(fErr, -1));
  }
  void signal(int pSignal) { ::kill(fProcess, pSignal); }

  /// Its status, or -signal.
  int wait() {
    int status = 0;
    ::waitpid(fProcess, &status, 0);
    fProcess = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  pid_t fProcess = -1;
  int fOut = -1;
  int fErr = -1;
};

const std::string kReady = "listening on ";

std::string addressOf(const std::string& pLine) {
  return pLine.starts_with(kReady) ? pLine.substr(kReady.size()) : pLine;
}

TEST(Daemon, ServesLoadedModulesUntilASignal) {
  for (const int end : {SIGTERM, SIGINT, SIGHUP}) {
    const std::string path = ::testing::TempDir() + "oxbroker_" + std::to_string(::getpid());
    Program daemon({"--load", OX_PROBE_LIBRARY, "--listen", "127.0.0.1:0", "--listen",
                    "unix:" + path, "--log-level", "2"});
    const std::string tcp = addressOf(daemon.line());
    EXPECT_TRUE(tcp.starts_with("127.0.0.1:") && !tcp.ends_with(":0")) << tcp;
    EXPECT_EQ(daemon.line(), kReady + "unix:" + path);
    for (const std::string& address : {tcp, "unix:" + path}) {
      const auto client = OXRemoteBroker::connect(address);
      EXPECT_EQ(client->call("OXBroker", "getModuleList", OXValue::Array()),
                OXValue::array("OXBroker", "OXMemory", "OXPreferences", "Probe"));
      EXPECT_EQ(client->call("Probe", "echo", OXValue::array("x")), OXValue("x"));
    }
    daemon.signal(end);
    EXPECT_EQ(daemon.restOfOutput(), "closed\n") << "the library is told";
    EXPECT_EQ(daemon.errors(), "");
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

TEST(Daemon, OutlivesItsTerminalUnderNohup) {
  Program daemon({"--load", OX_PROBE_LIBRARY, "--listen", "127.0.0.1:0"}, SIGHUP);
  const std::string address = addressOf(daemon.line());
  daemon.signal(SIGHUP);
  EXPECT_EQ(OXRemoteBroker::connect(address)->call("Probe", "echo", OXValue::array(1)), OXValue(1));
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
}

TEST(Daemon, EndsInOrderWhenALostTerminalSignalsTwice) {
  Program daemon({"--load", OX_PROBE_LIBRARY, "--listen", "127.0.0.1:0"});
  RawClient client(addressOf(daemon.line()));
  daemon.fillOutput();
  daemon.signal(SIGHUP);
  EXPECT_TRUE(client.isClosedByPeer()) << "it ends, but for the library's last words";
  daemon.signal(SIGHUP);
  EXPECT_TRUE(daemon.restOfOutput().ends_with("closed\n"));
  EXPECT_EQ(daemon.wait(), 0);
}

TEST(Daemon, EndsCleanlyWithClientsAndACallUnderWay) {
  Program daemon({"--load", OX_PROBE_LIBRARY, "--listen", "127.0.0.1:0", "--log-level", "0"});
  const std::string address = addressOf(daemon.line());
  RawClient client(address);
  client.send(request(1, "Probe.hold") + request(2, "Probe.echo", "\x91\x05"));
  EXPECT_EQ(client.read(5), answer(2, 5));
  OXRemoteBroker::connect(address)->call("Probe", "release", OXValue::Array());
  EXPECT_EQ(client.read(5), answer(1, 1));
  daemon.signal(SIGTERM);
  EXPECT_TRUE(client.isClosedByPeer());
  EXPECT_EQ(daemon.wait(), 0);
}

TEST(Daemon, SurvivesClientsThatAreKilled) {
  Program daemon({"--load", OX_PROBE_LIBRARY, "--listen", "127.0.0.1:0", "--log-level", "2"});
  const std::string address = addressOf(daemon.line());
  const auto watcher = OXRemoteBroker::connect(address);
  watcher->call("OXMemory", "subscribeToEvent",
                OXValue::array("ClientDisconnected", "Probe", "onEvent"));
  const pid_t child = ::fork();
  if (child == 0) {
    RawClient client(address);
    client.send(request(1, "OXBroker.setClientName", "\x91\xa4kill") + "\x94");
    client.read(5);
    ::raise(SIGKILL);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
  EXPECT_EQ(watcher->call("Probe", "awaitEvent", OXValue::Array()),
            OXValue("ClientDisconnected kill Probe"));
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(daemon.errors(), "");
}

/// Lets the probe log "record 0", "record 1" and so on. No call may take longer than pLimit.
void logRecords(const std::string& pAddress, int pCount, std::chrono::milliseconds pLimit) {
  const auto client = OXRemoteBroker::connect(pAddress);
  client->setTimeout(pLimit);
  for (int i = 0; i < pCount; ++i)
    client->call("Probe", "log", OXValue::array("record " + std::to_string(i)));
}

/// The numbers of the records and of the dropped ones; -1 when one is out of order.
std::pair<int, int> countRecords(const std::string& pErrors) {
  std::istringstream lines(pErrors);
  int written = 0, dropped = 0, last = -1;
  for (std::string line; std::getline(lines, line);) {
    int number = 0;
    if (const auto at = line.find("probe log: record "); at != std::string::npos) {
      number = std::stoi(line.substr(at + 18));
      if (number <= last) return {-1, -1};
      last = number;
      ++written;
    } else if (std::sscanf(line.c_str(), "%*s %*s warning ox.log write: %d records dropped",
                           &number) == 1) {
      dropped += number;
    }
  }
  return {written, dropped};
}

TEST(Daemon, ServesWhileNobodyReadsItsErrors) {
  constexpr int kRecords = 12000;  // more than the pipe and the queue can hold
  Program daemon({"--load", OX_PROBE_LIBRARY, "--listen", "127.0.0.1:0", "--log-level", "2"});
  const std::string address = addressOf(daemon.line());
  ASSERT_NO_THROW(logRecords(address, kRecords, std::chrono::seconds(5)));
  std::string errors = daemon.errorsUntil(" records dropped\n");
  EXPECT_TRUE(errors.ends_with(" records dropped\n")) << "while it runs";
  daemon.signal(SIGTERM);
  errors += daemon.errors();
  const auto [written, dropped] = countRecords(errors);
  EXPECT_GT(written, 1000);
  EXPECT_EQ(written + dropped, kRecords);
  EXPECT_EQ(daemon.wait(), 0);
}

TEST(Daemon, EndsWithRecordsThatAreNotWrittenYet) {
  constexpr int kRecords = 3000;  // more than the pipe can hold, and no more than the queue
  const struct {
    int signal;
    bool reads;
    int status;
  } kCases[] = {
      {SIGTERM, true, 0},
      {SIGTERM, false, 0},
      {SIGABRT, true, -SIGABRT},
      {SIGABRT, false, -SIGABRT},
  };
  for (const auto& test : kCases) {
    Program daemon({"--load", OX_PROBE_LIBRARY, "--listen", "127.0.0.1:0", "--log-level", "2"});
    logRecords(addressOf(daemon.line()), kRecords, std::chrono::seconds(5));
    daemon.signal(test.signal);
    if (test.reads) {
      EXPECT_EQ(countRecords(daemon.errors()), std::pair(kRecords, 0)) << test.signal;
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(daemon.wait(), test.status);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20)) << test.signal;
  }
}

TEST(Daemon, SurvivesTheEndOfWhoReadsItsOutputs) {
  Program daemon({"--load", OX_PROBE_LIBRARY, "--listen", "127.0.0.1:0", "--log-level", "2"});
  const std::string address = addressOf(daemon.line());
  daemon.closeOutputs();
  EXPECT_NO_THROW(logRecords(address, 100, std::chrono::seconds(5)));
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0) << "though the library prints at its end";
}

TEST(Daemon, ReportsErrorsAndEnds) {
  const std::string taken =
      "unix:" + ::testing::TempDir() + "oxtaken_" + std::to_string(::getpid());
  Program other({"--listen", taken, "--listen", "127.0.0.1:0"});
  ASSERT_EQ(other.line(), kReady + taken);
  const std::string takenTcp = addressOf(other.line());
  const int port = std::stoi(takenTcp.substr(takenTcp.rfind(':') + 1));
  const std::string free = "127.0.0.1:" + std::to_string(port < 65535 ? port + 1 : port - 1);
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string part;
  } kCases[] = {
      {{"--load", "/no/such.so"}, 1, "Cannot load /no/such.so"},
      {{"--load", "libc.so.6"}, 1, "Cannot load libc.so.6: it has no function _createModule"},
      {{"--load", OX_REFUSING_LIBRARY}, 1, "made no module: its _createModule returned 1"},
      {{"--load", OX_THROWING_LIBRARY}, 1, "made no module: no camera is plugged in"},
      {{"--listen", "nonsense"}, 1, "\"nonsense\" is not a valid address"},
      {{"--listen", taken}, 1, "Address already in use"},
      {{"--listen", taken}, 1, "--listen " + taken + "2, and OXVIDEO_BROKER=" + taken + "2"},
      {{"--listen", takenTcp}, 1, "--listen " + free + ", and OXVIDEO_BROKER=" + free},
      {{"--source", "robot"}, 2, "robot not in {simulator,file}"},
      {{"--preferences", "/no/such"}, 2, "/no/such"},
      {{"--log-level", "6"}, 2, "--log-level"},
      {{"--load"}, 2, "--load"},
      {{"stray"}, 2, "stray"},
      {{"--nonsense"}, 2, "--nonsense"},
  };
  for (const auto& test : kCases) {
    Program daemon(test.arguments);
    EXPECT_EQ(daemon.line(), "") << test.part << ": it is not ready";
    const std::string errors = daemon.errors();
    EXPECT_NE(errors.find(test.part), std::string::npos) << errors;
    EXPECT_EQ(daemon.wait(), test.status) << test.part;
  }
}

/// "simulator", "file" or why there is none: what a daemon with the library of the cameras serves.
std::string servedSource(const std::string& pAddress) {
  try {
    const OXValue methods = OXRemoteBroker::connect(pAddress)->call(
        "OXBroker", "getMethodList", OXValue::array("OXVideoDevice"));
    for (const OXValue& method : methods.toArray())
      if (method[0] == OXValue("setVideo")) return "file";
    return "simulator";
  } catch (const OXError& error) {
    return error.what();
  }
}

TEST(Daemon, TakesTheCameraFromTheCommandLineTheFileOrTheSimulator) {
  const auto folder =
      std::filesystem::path(::testing::TempDir()) / ("oxsource_" + std::to_string(::getpid()));
  std::filesystem::create_directory(folder);
  const auto entry = [](const std::string& pValue) {
    return "<preferences><entry name=\"source\" value=\"" + pValue + "\"/></preferences>";
  };
  const struct {
    std::string file;    ///< content of VideoInput.xml; "none": there is none
    std::string option;  ///< --source
    std::string served;  ///< empty: it ends with status 1
    std::string said;    ///< on standard error; empty: nothing at all
  } kCases[] = {
      {"none", "", "simulator", "VideoInput.xml: the cameras are simulated (--source"},
      {"none", "file", "file", ""},
      {entry("SimulatorCam"), "", "simulator", ""},
      {entry("FileCam"), "", "file", ""},
      {entry("FileCam"), "simulator", "simulator", ""},
      {"<preferences>", "simulator", "simulator", ""},
      {"<preferences>", "", "", "not valid XML"},
      {"<preferences/>", "", "", "Failed to read VideoInput.xml preference file."},
      {entry("Simulator"), "", "", "\"Simulator\"; this build has SimulatorCam and FileCam"},
      {entry("USBCam"), "", "", "--source simulator|file takes one of them"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.file + " " + test.option);
    std::filesystem::remove(folder / "VideoInput.xml");
    if (test.file != "none") std::ofstream(folder / "VideoInput.xml") << test.file;
    std::vector<std::string> arguments{"--load",   OX_VIDEO_LIBRARY, "--preferences", folder,
                                       "--listen", "127.0.0.1:0",    "--log-level",   "3"};
    if (!test.option.empty()) arguments.insert(arguments.end(), {"--source", test.option});
    Program daemon(arguments);
    const std::string ready = daemon.line();
    if (!test.served.empty()) {
      EXPECT_EQ(servedSource(addressOf(ready)), test.served);
      daemon.signal(SIGTERM);
    }
    const std::string errors = daemon.errors();
    EXPECT_EQ(errors.empty(), test.said.empty()) << errors;
    EXPECT_NE(errors.find(test.said), std::string::npos) << errors;
    EXPECT_EQ(daemon.wait(), test.served.empty() ? 1 : 0);
  }
  std::filesystem::remove_all(folder);
}

TEST(Daemon, LoadsTheStreamsBesideTheCamerasOnce) {
  const std::string folder = ::testing::TempDir() + "oxbeside_" + std::to_string(::getpid());
  std::filesystem::create_directory(folder);
  std::filesystem::copy(OX_VIDEO_LIBRARY, folder + "/libvideoinput.so",
                        std::filesystem::copy_options::overwrite_existing);
  const struct {
    std::vector<std::string> arguments;
    std::string streams;  ///< what its module says to a call; empty: there is none
  } kCases[] = {
      {{"--load", OX_VIDEO_LIBRARY}, "3 streams already"},
      {{"--load", OX_VIDEO_LIBRARY, "--load", OX_STREAM_LIBRARY}, "3 streams already"},
      {{"--load", OX_VIDEO_LIBRARY, "--load", OX_NEEDY_LIBRARY}, "3 streams already"},
      {{"--load", OX_VIDEO_LIBRARY, "--no-stream"}, ""},
      {{"--load", folder + "/libvideoinput.so"}, ""},
      {{"--load", OX_PROBE_LIBRARY}, ""},
  };
  for (const auto& test : kCases) {
    std::vector<std::string> arguments = test.arguments;
    arguments.insert(arguments.end(), {"--source", "simulator", "--listen", "127.0.0.1:0",
                                       "--max-streams", "3", "--log-level", "3"});
    Program daemon(arguments);
    const auto client = OXRemoteBroker::connect(addressOf(daemon.line()));
    std::string refusal;
    try {
      for (int i = 0; i < 4; ++i)
        client->call("OXVideoStream", "open", OXValue::array("a", 0, 0, 11, 0));
    } catch (const OXError& error) {
      refusal = error.what();
    }
    const bool isThere = refusal.find("no module \"OXVideoStream\"") == std::string::npos;
    EXPECT_EQ(isThere, !test.streams.empty()) << refusal;
    EXPECT_NE(refusal.find(test.streams), std::string::npos) << refusal;
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.errors(), "");
    EXPECT_EQ(daemon.wait(), 0);
  }
  // Named without the cameras it has nothing to stream.
  Program alone({"--load", OX_STREAM_LIBRARY, "--listen", "127.0.0.1:0"});
  EXPECT_NE(alone.errors().find("There is no video device in this broker"), std::string::npos);
  EXPECT_EQ(alone.wait(), 1);
  std::filesystem::remove_all(folder);
}

TEST(Daemon, EndsSoonThoughRequestsWait) {
  Program daemon({"--load", OX_VIDEO_LIBRARY, "--source", "simulator", "--listen", "127.0.0.1:0",
                  "--log-level", "0"});
  const auto client = OXRemoteBroker::connect(addressOf(daemon.line()));
  client->call("OXVideoStream", "open", OXValue::array("a", 0, 0, 11, 0));
  auto answer = std::async(std::launch::async, [&] {
    return client->call("OXVideoStream", "next", OXValue::array("a", 20000));
  });
  client->call("OXBroker", "ping", OXValue::Array());
  daemon.signal(SIGTERM);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THROW(answer.get(), OXError);
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

// Word for word but for the addresses: another program of this machine may have those.
TEST(Daemon, TheExamplesOfItsHelpRun) {
  std::istringstream help(Program({"--help"}).restOfOutput());
  int examples = 0;
  for (std::string line; std::getline(help, line);) {
    if (!line.starts_with("  " OX_BROKER_PROGRAM " ")) continue;
    ++examples;
    std::istringstream text(line);
    std::vector<std::string> words(std::istream_iterator<std::string>(text), {});
    words.erase(words.begin());
    const auto listen = std::find(words.begin(), words.end(), "--listen");
    words.erase(listen, listen + std::min<std::ptrdiff_t>(words.end() - listen, 2));
    words.insert(words.end(), {"--listen", "127.0.0.1:0"});
    Program daemon(words);
    EXPECT_TRUE(daemon.line().starts_with(kReady)) << line;
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0) << line;
  }
  EXPECT_EQ(examples, 2);
}

}  // namespace
}  // namespace OX::test
