// posix_spawn rather than fork: the test has threads.
#include "child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

extern char** environ;

namespace OX::test {

Child::Child(const std::vector<std::string>& pArguments, const std::string& pErrorFile) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  fOutput = ends[0];
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, pErrorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0600);
  std::vector<char*> arguments;
  for (const std::string& argument : pArguments)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  const int failed =
      ::posix_spawn(&fId, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  if (failed) throw std::runtime_error("can't run " + pArguments[0]);
}

Child::~Child() {
  closeOutput();
  if (fId < 0) return;
  signal(SIGTERM);
  wait();
}

std::string Child::readLine() {
  std::string line;
  char c = 0;
  while (::read(fOutput, &c, 1) == 1 && c != '\n') line += c;
  return line;
}

std::string Child::readAll() {
  std::string all;
  char buffer[4096];
  for (ssize_t got = 0; (got = ::read(fOutput, buffer, sizeof buffer)) > 0;)
    all.append(buffer, static_cast<std::size_t>(got));
  return all;
}

void Child::closeOutput() {
  if (fOutput >= 0) ::close(fOutput);
  fOutput = -1;
}

void Child::signal(int pSignal) { ::kill(fId, pSignal); }

int Child::wait() {
  int status = 0;
  if (::waitpid(fId, &status, 0) != fId) return -1;
  fId = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace OX::test
