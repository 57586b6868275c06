/// A setting or parameter of the device, read and changed for a subscriber or a camera.
#pragma once

#include <optional>
#include <string>

#include <oxframework/oxdefinitions.h>
#include "device/session.h"

namespace OX::cli {

/// The name of a setting on the command line, and the operations of the device for it.
struct SettingName {
  const char* word;
  int parameter;  ///< the identifier to use for a camera's own value
  const char* getter;
  const char* setter;
};

/// Throws OXUsageError for a word that names no setting.
const SettingName& settingNamed(const std::string& pWord);

/// Parses a name or number as a value of the parameter. Throws OXUsageError.
int parseValue(int pParameter, const std::string& pText);
/// The name of a value, or its digits where it has none.
std::string valueText(int pParameter, int pValue);

/// One setting or parameter of one subscriber or camera. Borrows the session.
class OXSetting {
 public:
  /// pName is null for a parameter that is no setting. An empty pId means a camera: pCamera, or the
  /// device's active one when that is unset.
  OXSetting(OXSession& pSession, int pParameter, const SettingName* pName, const std::string& pId,
            std::optional<int> pCamera);

  int get();
  /// Throws OXFailure when the value is refused.
  void set(int pValue);
  /// Throws OXUsageError for a camera given by index: the device has no such operation.
  void setDefault();

 private:
  bool xIsActiveCamera() const { return fName && fParameter == kCameraSelectID; }

  OXSession& fSession;
  const int fParameter;
  const SettingName* fName;
  const std::string fId;
  const bool fIsCameraNamed;
  int fCamera = 0;
};

}  // namespace OX::cli
