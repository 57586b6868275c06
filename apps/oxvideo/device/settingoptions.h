/// The options that get and set share, and the setting that they mean.
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

/// Adds them to a verb.
void addSettingOptions(OXVerb& pVerb, SettingOptions& pOptions);

/// Takes WHAT off the words, unless a parameter is named: then null. pRest words must be left.
/// Throws OXUsageError.
const SettingName* takeSetting(SettingOptions& pOptions, std::size_t pRest);

/// The setting's present value on one line, as text or JSON. pName as takeSetting() returned it.
std::string valueLine(const SettingOptions& pOptions, const SettingName* pName,
                      OXSetting& pSetting);

}  // namespace OX::cli
