/// What the daemon's command line says.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include <oxframework/oxserver.h>

namespace OX::daemon {

/// Ways the program ends.
enum DaemonStatus : int { kDone = 0, kFailed = 1, kUsageError = 2 };

struct Options {
  std::vector<std::string> libraries;  ///< loaded in this order
  std::vector<std::string> addresses{"127.0.0.1:9740"};
  std::string preferences = ".";  ///< directory
  std::string source;             ///< of images, one of sourceWords(); empty: as the files say
  int logLevel = 4;
  int maxThreads = 128;
  bool withStreams = true;  ///< the library of streams is loaded when it lies beside the cameras'
  int maxStreams = 64;      ///< of a connection
  int maxSharedMiB = 64;    ///< memory that streams share with one client
  int maxSharedMiBInAll = 512;
  OXWireLimits limits;
};

/// Empty when the program has to end at once, with pStatus: help was asked for and is on pOut, or
/// the use was wrong, which pErr says.
std::optional<Options> parseOptions(int pCount, const char* const* pArguments, std::ostream& pOut,
                                    std::ostream& pErr, int& pStatus);

}  // namespace OX::daemon
