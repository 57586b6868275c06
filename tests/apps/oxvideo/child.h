/// A child process of a test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace OX::test {

/// Its standard output comes through a pipe, its standard error goes to a file.
/// The destructor ends it (SIGTERM) and waits for it.
class Child {
 public:
  Child(const std::vector<std::string>& pArguments, const std::string& pErrorFile);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t id() const { return fId; }
  /// The next line without its end; empty at the end of the output.
  std::string readLine();
  std::string readAll();
  /// From now on what it writes has no reader.
  void closeOutput();
  void signal(int pSignal);
  /// Waits for its end: its status, or 128 + the signal that killed it.
  int wait();

 private:
  pid_t fId = -1;
  int fOutput = -1;
};

}  // namespace OX::test
