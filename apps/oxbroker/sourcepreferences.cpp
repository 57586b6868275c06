// Supplies the preference "VideoInput", of which the library of the cameras reads the third field
// of the first entry. Only a file that is not there is replaced: one that is damaged was meant to
// say something, and its errors reach the user.
#include "sourcepreferences.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include <oxframework/oxerror.h>

namespace OX::daemon {
namespace {

constexpr char kName[] = "VideoInput";

struct Source {
  const char* word;   ///< of the command line
  const char* value;  ///< of the preference
};
constexpr Source kSources[] = {{"simulator", "SimulatorCam"}, {"file", "FileCam"}};

std::string valueOf(const std::string& pWord) {
  for (const Source& source : kSources)
    if (pWord == source.word) return source.value;
  return {};
}

OXValue entries(const std::string& pValue) {
  return OXValue::array(OXValue::array("source", "where images come from", pValue));
}

bool isMissing(const std::string& pPath) {
  std::error_code error;
  // Not followed: a link into nowhere is a file that someone wanted to be read.
  return std::filesystem::symlink_status(pPath, error).type() ==
         std::filesystem::file_type::not_found;
}

/// The source that a file names, if it is none of ours; else empty.
std::string unknownSource(const OXValue& pEntries) {
  try {
    const std::string value = pEntries[0][2].toString();
    const bool known = std::any_of(std::begin(kSources), std::end(kSources),
                                   [&](const Source& pSource) { return value == pSource.value; });
    return known ? std::string() : value;
  } catch (const OXError&) {
    return {};  // no such field: the library says what it misses
  }
}

}  // namespace

std::vector<std::string> sourceWords() {
  std::vector<std::string> words;
  for (const Source& source : kSources) words.emplace_back(source.word);
  return words;
}

SourcePreferences::SourcePreferences(boost::shared_ptr<OXBroker> pBroker,
                                     const std::string& pDirectory, const std::string& pSource)
    : OXPreferences(std::move(pBroker), pDirectory),
      fFile((std::filesystem::path(pDirectory) / kName).string() + ".xml"),
      fSource(valueOf(pSource)) {}

SourcePreferences::~SourcePreferences() = default;

OXValue SourcePreferences::readPrefFile(const std::string& pFileName, bool pFlag) {
  if (pFileName != kName) return OXPreferences::readPrefFile(pFileName, pFlag);
  if (!fSource.empty()) return entries(fSource);
  if (isMissing(fFile)) {
    const detail::MutexLock guard(fGuard);
    fSupplied = true;
    return entries(kSources[0].value);
  }
  OXValue result = OXPreferences::readPrefFile(pFileName, pFlag);
  const detail::MutexLock guard(fGuard);
  fUnknown = unknownSource(result);
  return result;
}

std::string SourcePreferences::getNotice() const {
  const detail::MutexLock guard(fGuard);
  if (!fSupplied) return {};
  return "there is no " + fFile +
         ": the cameras are simulated (--source simulator|file, or --preferences DIR, to choose)";
}

std::string SourcePreferences::getAdvice() const {
  const detail::MutexLock guard(fGuard);
  if (fUnknown.empty()) return {};
  return fFile + " names the source \"" + fUnknown +
         "\"; this build has SimulatorCam and FileCam. --source simulator|file takes one of them "
         "whatever the file says";
}

}  // namespace OX::daemon
