/// What the broker knows of its remote clients: what each connection owns, and its last wills.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxthreadsafety.h>
#include <oxframework/oxvalue.h>

namespace OX {

class OXModuleCore;

/// A connection as OXBroker.getConnections shows it.
struct OXConnectionState {
  OXCaller caller;
  int calls = 0;
  std::uint64_t bytesIn = 0;
  std::uint64_t bytesOut = 0;
};

/// A call that is made when a connection has ended.
struct OXLastWill {
  int id = 0;
  std::string module;
  std::string method;
  OXValue arguments;
};

/// The connections of one broker, by number. A transport adds them and says when they have ended;
/// it decides when wills run and ids are given back, on threads of the broker.
///
/// What a connection owns are the acquisitions that it made (OXOwnership in oxmodule.h). Whether
/// one still has its id is the module's to know and is asked for each time, so nothing here can be
/// out of date: it does not matter by which way an id went, or whether somebody else has it since.
///
/// Thread-safe. No lock is held while a module is asked or called.
class OXConnections {
 public:
  using StateReader = std::function<OXConnectionState()>;
  static constexpr std::size_t kMaxWills = 64;  ///< of one connection
  /// Of the arguments of one will. They are kept for as long as the connection lasts.
  static constexpr std::size_t kMaxWillBytes = 65536;

  /// The number of a new connection. pState is thread-safe and may still be called shortly after
  /// forget(), so it must hold the connection weakly.
  int add(StateReader pState);
  /// The connection has ended: it is no longer listed and makes no more wills. What its calls under
  /// way acquire is still its own, to be given back.
  void end(int pConnection);
  /// Drops what remains of it.
  void forget(int pConnection);

  /// Calls for a connection, which owns what the call acquires. Throws OXError and nothing else.
  OXValue call(OXBroker& pBroker, int pConnection, const std::string& pModule,
               const std::string& pMethod, const OXValue& pArguments);
  /// Whether the connection owns what it acquires from now on; it does at first.
  void setOwning(int pConnection, bool pOwns);

  /// Returns the will's id, unique among all. Throws OXError beyond kMaxWills and after the end.
  int addWill(int pConnection, OXLastWill pWill);
  /// False when the connection has no such will.
  bool cancelWill(int pConnection, int pWill);
  bool hasWills(int pConnection) const;
  /// The wills in their order; none remains.
  std::vector<OXLastWill> takeWills(int pConnection);

  /// Ends every id that the connection owns; waits for no more than a fraction of a second for
  /// each. False when some are kept by calls under way: try again soon.
  bool giveBack(int pConnection);
  /// Drops the acquisitions of a module whose ids are gone.
  void dropEnded(const OXModuleCore& pModule);

  /// The ids of a module that connections own, and the owner of each.
  std::map<std::string, OXCaller> findOwners(const std::string& pModule) const;

  struct Listed {
    OXConnectionState state;
    std::chrono::seconds age;
    std::vector<std::string> ids;
  };
  /// Those that have not ended, the oldest first.
  std::vector<Listed> list() const;

  /// The number of the acquiring call that runs on this thread; 0 when there is none.
  static std::uint64_t getAcquisition();

 private:
  struct Acquisition {
    boost::weak_ptr<OXModuleCore> module;
    std::uint64_t number;
    bool hasFailed = false;  ///< to end, which was logged
  };
  struct Connection {
    StateReader state;
    std::chrono::steady_clock::time_point begin;
    bool owns = true;
    bool ended = false;
    std::vector<Acquisition> acquisitions;
    std::vector<OXLastWill> wills;
  };

  /// What is looked at without the lock.
  struct Present {
    StateReader state;
    std::chrono::steady_clock::time_point begin;
    bool ended;
    std::vector<Acquisition> acquisitions;
  };

  std::vector<Present> xPresent() const;
  static std::string xFindId(const Acquisition& pAcquisition);
  std::uint64_t xNextAcquisition(int pConnection);
  void xKeep(int pConnection, const boost::shared_ptr<OXModuleCore>& pModule,
             std::uint64_t pNumber);
  bool xIsFirstFailure(int pConnection, std::uint64_t pNumber);
  /// Drops acquisitions of a connection by their numbers.
  void xDrop(int pConnection, const std::vector<std::uint64_t>& pNumbers);

  mutable detail::Mutex fGuard;
  std::map<int, Connection> fConnections OX_GUARDED_BY(fGuard);
  int fLastConnection OX_GUARDED_BY(fGuard) = 0;
  int fLastWill OX_GUARDED_BY(fGuard) = 0;
  std::uint64_t fLastAcquisition OX_GUARDED_BY(fGuard) = 0;
};

/// The address of a client for people: with process and user where they are known.
std::string describeAddress(const OXCaller& pCaller);

}  // namespace OX
