/// The one exception of the framework and of every module.
#pragma once

#include <exception>
#include <string>

#include "oxapi.h"

namespace OX {

/// Says which module and operation failed, why, and where. Thrown by value.
/// Crosses the wire as a map of its fields and is rebuilt on the caller's side.
class OX_API OXError : public std::exception {
 public:
  OXError(const std::string& pModuleName, const std::string& pFunctionName,
          const std::string& pDescription, const std::string& pFileName, unsigned int pLine);
  OXError(const OXError&) = default;
  OXError& operator=(const OXError&) = default;
  ~OXError() override;

  /// The description alone. Valid as long as this error.
  const char* what() const noexcept override { return fDescription.c_str(); }

  /// All of it: "module::function" line end, a tab and the description, and "file:line"
  /// on a third line when a file is given.
  std::string toString() const;

  const std::string& getModuleName() const { return fModuleName; }
  const std::string& getFunctionName() const { return fFunctionName; }
  const std::string& getDescription() const { return fDescription; }
  const std::string& getFileName() const { return fFileName; }
  unsigned int getLine() const { return fLine; }

 private:
  std::string fModuleName;
  std::string fFunctionName;
  std::string fDescription;
  std::string fFileName;
  unsigned int fLine;
};

}  // namespace OX
