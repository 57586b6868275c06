/// Brokers with the simulator's cameras in a process of their own.
#pragma once

#include <string>
#include <vector>

#include "child.h"

namespace OX::benchmarks {

/// The role "broker". Arguments: "unix" or "tcp", and "still" for a clock that moves only with each
/// push, so that an image that was converted once stays fresh, or "live" for the system's. It says
/// its address, then answers these lines:
///
///   push RESOLUTION                a frame of camera 0, the first is number 1; answers its number
///   pushes RESOLUTION RATE COUNT   so many a second; answers, at the end, the processor time that
///                                  pushing took in microseconds
///   usage                          processor time in microseconds, resident KiB, threads
///   streams COUNT WAY RESOLUTION   opens streams in this process (localstreams.h)
///   frames                         how many frames those streams have had
void runBroker(Conversation& pConversation, const std::vector<std::string>& pArguments);

/// The role "rawpushes": a device without a server. Says the address of a raw channel, then for a
/// line "pushes RESOLUTION RATE COUNT" writes each frame there as soon as it is pushed: its stamp
/// in microseconds, eight bytes, and the pixels, kRGB. For "stages" it answers with what the device
/// counted: name, how often, median and 99th percentile in microseconds, of each stage.
void runRawPushes(Conversation& pConversation, const std::vector<std::string>& pArguments);

struct Usage {
  double processorUs = 0;
  double residentKib = 0;
  int threads = 0;
};

/// Asks a broker for "usage".
Usage usageOf(Child& pBroker);

}  // namespace OX::benchmarks
