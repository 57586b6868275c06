// A child is started with fork() and exec(), never fork() alone: libraries of the peers have
// threads, whose locks a copy of this process would inherit.
#include "child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "placement.h"

namespace OX::benchmarks {
namespace {

using Steady = std::chrono::steady_clock;

constexpr char kAsChild[] = "--child";
// How a child's last line begins that can't go on.
constexpr char kFailed[] = "failed: ";
constexpr char kLacking[] = "lacking: ";
constexpr std::chrono::seconds kToStart(20);
constexpr std::chrono::seconds kToEnd(5);

[[noreturn]] void raise(const char* pCall) {
  throw std::system_error(errno, std::generic_category(), pCall);
}

}  // namespace

Child::Child(const std::string& pRole, const std::vector<std::string>& pArguments, int pCore) {
  std::vector<std::string> words{"/proc/self/exe", kAsChild, std::to_string(::getpid()),
                                 std::to_string(pCore), pRole};
  words.insert(words.end(), pArguments.begin(), pArguments.end());
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  int in[2];
  int out[2];
  if (::pipe2(in, O_CLOEXEC) != 0) raise("pipe2");
  if (::pipe2(out, O_CLOEXEC) != 0) {
    ::close(in[0]);
    ::close(in[1]);
    raise("pipe2");
  }
  fIn = in[1];
  fOut = out[0];
  fProcess = ::fork();
  if (fProcess == 0) {
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  try {
    if (fProcess < 0) raise("fork");
    fGreeting = answer(kToStart);
  } catch (...) {
    xEnd();
    throw;
  }
}

Child::~Child() { xEnd(); }

void Child::xEnd() noexcept {
  ::close(fIn);
  ::close(fOut);
  if (fProcess <= 0) return;
  const auto deadline = Steady::now() + kToEnd;
  while (::waitpid(fProcess, nullptr, WNOHANG) == 0) {
    if (Steady::now() > deadline) ::kill(fProcess, SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

std::string Child::ask(const std::string& pLine, std::chrono::milliseconds pLimit) {
  tell(pLine);
  return answer(pLimit);
}

void Child::tell(const std::string& pLine) {
  const std::string line = pLine + "\n";
  // Far shorter than a pipe has room for, so all of it or an error.
  if (::write(fIn, line.data(), line.size()) != static_cast<ssize_t>(line.size())) raise("write");
}

std::string Child::answer(std::chrono::milliseconds pLimit) {
  const auto deadline = Steady::now() + pLimit;
  std::size_t end = 0;
  while ((end = fRead.find('\n')) == std::string::npos) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Steady::now());
    pollfd ready{fOut, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) == 0)
      throw std::runtime_error("the other side says nothing");
    char bytes[512];
    const ssize_t got = ::read(fOut, bytes, sizeof bytes);
    if (got <= 0) throw std::runtime_error("the other side has ended");
    fRead.append(bytes, static_cast<std::size_t>(got));
  }
  std::string line = fRead.substr(0, end);
  fRead.erase(0, end + 1);
  if (line.starts_with(kLacking)) throw NotAvailable(line.substr(std::strlen(kLacking)));
  if (line.starts_with(kFailed)) throw std::runtime_error(line);
  return line;
}

bool Conversation::hear(std::string& pLine) {
  return static_cast<bool>(std::getline(std::cin, pLine));
}

void Conversation::say(const std::string& pLine) { std::cout << pLine << std::endl; }

int runAsChild(int pArgumentCount, char** pArguments) {
  if (pArgumentCount < 5 || std::strcmp(pArguments[1], kAsChild) != 0) return -1;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != std::atoi(pArguments[2])) return 1;  // it ended before the line above
  Conversation conversation;
  const auto giveUp = [&](const char* pHow, std::string pReason) {
    std::replace(pReason.begin(), pReason.end(), '\n', ' ');
    conversation.say(pHow + pReason);
    return 1;
  };
  try {
    pinProcess(0, std::atoi(pArguments[3]));
    const Role role = roleOf(pArguments[4]);
    if (!role) throw std::runtime_error(std::string("no role ") + pArguments[4]);
    role(conversation, {pArguments + 5, pArguments + pArgumentCount});
    return 0;
  } catch (const NotAvailable& reason) {
    return giveUp(kLacking, reason.what());
  } catch (const std::exception& error) {
    return giveUp(kFailed, error.what());
  }
}

}  // namespace OX::benchmarks
