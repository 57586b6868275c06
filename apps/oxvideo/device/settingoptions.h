/// The options that get and set share, and the setting that they select.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "device/session.h"
#include "device/setting.h"
#include "terminal/arguments.h"

namespace OX::cli {

struct SettingOptions {
  std::vector<std::string> words;  ///< get: [WHAT]; set: [WHAT, VALUE], or [VALUE] of a parameter
  std::string parameter;
  std::string subscriber;
  std::optional<int> camera;
  bool asJson = false;
};

/// Adds the options to a verb.
void addSettingOptions(OXVerb& pVerb, SettingOptions& pOptions);

/// Removes the name of the setting from the words and looks it up; null if --parameter was given
/// instead. Throws OXUsageError unless pRest words are left.
const SettingName* takeSetting(SettingOptions& pOptions, std::size_t pRest);

/// A value of the setting on one line, as text or JSON. pName as takeSetting() returned it.
std::string valueLine(const SettingOptions& pOptions, const SettingName* pName, int pValue);

}  // namespace OX::cli
