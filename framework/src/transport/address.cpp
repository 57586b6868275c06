// Parses and prints addresses. Ports go through from_chars, which takes no sign, space or suffix
// that a typing mistake may leave.
#include "address.h"

#include <charconv>

#include <oxframework/oxerror.h>

namespace OX::wire {
namespace {

constexpr char kUnixPrefix[] = "unix:";
constexpr int kMaxPort = 65535;

/// -1 unless the whole text is a port number.
int parsePort(const std::string& pText) {
  int port = -1;
  const char* const end = pText.data() + pText.size();
  const auto [stop, error] = std::from_chars(pText.data(), end, port);
  return error == std::errc() && stop == end && port >= 0 && port <= kMaxPort ? port : -1;
}

/// What is wrong with the text; empty when it is valid.
std::string parseTcp(const std::string& pText, Address& pAddress) {
  const std::size_t colon = pText.rfind(':');
  if (colon == std::string::npos) return "the port is missing";
  pAddress.port = parsePort(pText.substr(colon + 1));
  if (pAddress.port < 0) return "the port must be a number from 0 to 65535";
  std::string host = pText.substr(0, colon);
  const bool bracketed = host.size() >= 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (host.empty()) return "the host is missing";
  if (!bracketed && host.find(':') != std::string::npos) return "an IPv6 host must be in brackets";
  pAddress.host = host;
  return {};
}

}  // namespace

std::string Address::toString() const {
  if (isUnix()) return kUnixPrefix + path;
  const bool brackets = host.find(':') != std::string::npos;
  return (brackets ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string Address::resolvableHost() const { return host == "localhost" ? "127.0.0.1" : host; }

Address parseAddress(const std::string& pText, const std::string& pModule,
                     const std::string& pFunction) {
  Address address;
  std::string problem;
  if (pText.starts_with(kUnixPrefix)) {
    address.path = pText.substr(sizeof(kUnixPrefix) - 1);
    if (address.path.empty()) problem = "the path is missing";
  } else {
    problem = parseTcp(pText, address);
  }
  if (problem.empty()) return address;
  raiseError(pModule, pFunction,
             "\"" + pText + "\" is not a valid address: " + problem + " (HOST:PORT or unix:PATH)");
}

}  // namespace OX::wire
