/// The one exception of the framework and of every module.
#pragma once

#include <exception>
#include <string>

#include "oxapi.h"

namespace OX {

/// A place in the source code, as std::source_location, which clang 14 lacks. As a default
/// argument, current() is the place of the call.
struct OXSourceLocation {
  const char* fFile;  ///< relative to the source tree for sources of this project; a constant
  unsigned int fLine;

  static constexpr OXSourceLocation current(const char* pFile = __builtin_FILE(),
                                            unsigned int pLine = __builtin_LINE()) {
    // A compiler cache may have made the path relative to the build folder.
    while (pFile[0] == '.' && pFile[1] == '.' && pFile[2] == '/') pFile += 3;
    return {pFile, pLine};
  }
};

/// Says which module and operation failed, why, and where. Thrown by value, usually by
/// raiseError(). Crosses the wire as a map of its fields and is rebuilt on the caller's side.
/// A plain value type: as thread-safe as a string.
class OX_API OXError : public std::exception {
 public:
  /// An error that arose where this is called.
  OXError(const std::string& pModuleName, const std::string& pFunctionName,
          const std::string& pDescription,
          const OXSourceLocation& pWhere = OXSourceLocation::current());
  /// An error that arose elsewhere: received over the wire, or with a fixed text as its file.
  /// pFileName is empty when the place is unknown.
  OXError(const std::string& pModuleName, const std::string& pFunctionName,
          const std::string& pDescription, const std::string& pFileName, unsigned int pLine);
  OXError(const OXError&) = default;
  OXError& operator=(const OXError&) = default;
  ~OXError() override;

  /// The description alone. Valid as long as this error.
  const char* what() const noexcept override { return fDescription.c_str(); }

  /// The whole error: "module::function", a line end, a tab and the description; then a line end, a
  /// tab and "file:line" unless the file is empty.
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

/// Throws an OXError that names the caller's file and line. A function that raises for its own
/// callers takes an OXSourceLocation in the same way and passes it on.
[[noreturn]] OX_API void raiseError(const std::string& pModuleName,
                                    const std::string& pFunctionName,
                                    const std::string& pDescription,
                                    const OXSourceLocation& pWhere = OXSourceLocation::current());

}  // namespace OX
