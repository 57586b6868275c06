// Connecting to what is no broker: how soon it is told, and whether the way out that is shown
// works.
#include "device/connecting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "terminal/exitstatus.h"

namespace OX::test {
namespace {

using namespace cli;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// A port of this machine at which no broker listens.
class OtherServer {
 public:
  OtherServer() {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof name;
    ::bind(fListener, reinterpret_cast<sockaddr*>(&name), sizeof name);
    ::getsockname(fListener, reinterpret_cast<sockaddr*>(&name), &size);
    address = "127.0.0.1:" + std::to_string(ntohs(name.sin_port));
  }
  ~OtherServer() {
    close();
    if (fThread.joinable()) fThread.join();
  }
  OtherServer(const OtherServer&) = delete;
  OtherServer& operator=(const OtherServer&) = delete;

  /// The system accepts, and nobody answers.
  void listen() { ::listen(fListener, 1); }
  /// Sends the text to the first client and hangs up.
  void answer(const std::string& pText) {
    listen();
    fThread = std::thread([listener = fListener, pText] {
      const int peer = ::accept(listener, nullptr, nullptr);
      char byte = 0;
      // Once the request is there: closing with unread data would reset the connection.
      [[maybe_unused]] const auto got = ::recv(peer, &byte, 1, MSG_PEEK);
      ::send(peer, pText.data(), pText.size(), MSG_NOSIGNAL);
      ::shutdown(peer, SHUT_WR);
      while (::recv(peer, &byte, 1, 0) > 0) continue;
      ::close(peer);
    });
  }
  /// From now on the port is dead.
  void close() {
    ::shutdown(fListener, SHUT_RDWR);
    if (fListener >= 0) ::close(fListener);
    fListener = -1;
  }

  std::string address;

 private:
  int fListener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::thread fThread;
};

std::string failureAt(const std::string& pAddress) {
  try {
    connectToBroker(pAddress, "test");
    return "connected";
  } catch (const OXFailure& failure) {
    return failure.what();
  }
}

TEST(Connecting, SaysWhatIsThereAndWhatToDo) {
  const std::string start = "oxbroker --load libvideoinput.so --listen ";
  OtherServer dead;
  dead.close();
  EXPECT_THAT(failureAt(dead.address), HasSubstr(start + dead.address));
  EXPECT_THAT(failureAt("unix:/no where"), HasSubstr(start + "'unix:/no where'"));
  EXPECT_THAT(failureAt("nowhere.invalid:9740"), HasSubstr("start one there: "));
  EXPECT_THAT(failureAt("nowhere"),
              AllOf(HasSubstr("\"nowhere\" is not a valid address"), Not(HasSubstr(start))));

  for (const char* text : {"HTTP/1.1 400 Bad Request\r\n\r\n", ""}) {
    OtherServer server;
    server.answer(text);
    EXPECT_THAT(failureAt(server.address),
                AllOf(HasSubstr("does not answer as a broker does"),
                      HasSubstr(*text ? "malformed message" : "End of file")));
  }
}

TEST(Connecting, TellsASilentPortWithinTwoSeconds) {
  OtherServer server;
  server.listen();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(failureAt(server.address),
              AllOf(StartsWith("no broker at " + server.address), HasSubstr("no answer from")));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

}  // namespace
}  // namespace OX::test
