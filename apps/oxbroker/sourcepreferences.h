/// The preference service of the daemon: the files of a directory, and a choice of the camera for
/// who has not written one. The library of the cameras refuses to choose by itself, since a wrong
/// camera is worse than none; here a user sees what was chosen, and how to choose otherwise.
#pragma once

#include <string>
#include <vector>

#include <oxframework/oxservices.h>
#include <oxframework/oxthreadsafety.h>

namespace OX::daemon {

/// The words that --source takes.
std::vector<std::string> sourceWords();

/// Thread-safe.
class SourcePreferences : public OXPreferences {
 public:
  /// pSource is one of sourceWords(), which counts more than VideoInput.xml, or empty.
  SourcePreferences(boost::shared_ptr<OXBroker> pBroker, const std::string& pDirectory,
                    const std::string& pSource);
  ~SourcePreferences() override;

  OXValue readPrefFile(const std::string& pFileName, bool pFlag) override;

  /// One line for the user if the simulator was supplied for want of a file; else empty.
  std::string getNotice() const;
  /// One line for the user if the file names a source that this program does not have; else empty.
  /// Worth saying only when a module could not be made.
  std::string getAdvice() const;

 private:
  const std::string fFile;    ///< path of VideoInput.xml
  const std::string fSource;  ///< as the preference names it; empty without a choice
  mutable detail::Mutex fGuard;
  bool fSupplied OX_GUARDED_BY(fGuard) = false;
  std::string fUnknown OX_GUARDED_BY(fGuard);
};

}  // namespace OX::daemon
