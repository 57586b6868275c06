/// The other side of a measurement: this program once more, in a process of its own. Both talk in
/// lines, which are not part of what is measured.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace OX::benchmarks {

/// Starts a process in a role and ends it. It ends with this one too, however that ends. One thread
/// only; operations throw what the child throws, NotAvailable or std::runtime_error, and the latter
/// when it says nothing in time.
class Child {
 public:
  /// On a core; -1: where the system likes. Returns when the child has said its first line.
  Child(const std::string& pRole, const std::vector<std::string>& pArguments, int pCore = -1);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// The child's first line.
  const std::string& greeting() const { return fGreeting; }
  /// Sends a line and returns the answer.
  std::string ask(const std::string& pLine,
                  std::chrono::milliseconds pLimit = std::chrono::seconds(10));
  /// The two halves of ask(), for work that takes as long as the measurement.
  void tell(const std::string& pLine);
  std::string answer(std::chrono::milliseconds pLimit = std::chrono::seconds(10));

 private:
  void xEnd() noexcept;

  pid_t fProcess = -1;
  int fIn = -1;
  int fOut = -1;
  std::string fRead;  ///< of lines that have not been answered yet
  std::string fGreeting;
};

/// The child's side: lines on its standard input and output.
class Conversation {
 public:
  /// False when the other side has ended it.
  bool hear(std::string& pLine);
  void say(const std::string& pLine);
};

/// What a process does in a role until its conversation ends. What it throws is its last line.
using Role = void (*)(Conversation& pConversation, const std::vector<std::string>& pArguments);

/// Runs this process as a child if its command line says so, and returns its exit status; -1 if it
/// was started by a person.
int runAsChild(int pArgumentCount, char** pArguments);

/// The roles, by name; null for another name (roles.cpp).
Role roleOf(const std::string& pName);

}  // namespace OX::benchmarks
