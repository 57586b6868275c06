/// Files that a verb writes: nothing existing is replaced unless --overwrite was given, and nothing
/// half written ever has the name that was asked for.
///
///     OXOutputFile file(options.output, options.overwrite, context.out);  // refuses early
///     file.write(bytes);  // or let a library write to file.temporaryPath()
///     file.commit();      // only now does the file exist under its name
///
/// What is not committed is removed by the destructor, so every exception cleans up, OXInterrupted
/// included. A process that is killed leaves at most a hidden ".NAME.XXXXXX.part".
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "terminal/arguments.h"
#include "terminal/output.h"

namespace OX::cli {

/// Adds --overwrite.
void addOverwriteOption(OXVerb& pVerb, bool& pTarget);

/// For a file that another process writes, such as the broker: throws OXFailure when the path
/// exists without pOverwrite, is a folder or is locked, or its folder can't be written.
/// Creates nothing.
void requireWritable(const std::string& pPath, bool pOverwrite);

/// Throws OXUsageError when the path has an extension and it is not pExtension (".png"), since the
/// content would contradict the name. "-" and files that are not regular (/dev/null) pass.
void requireExtension(const std::string& pPath, const char* pExtension);

/// One file, or standard output for "-". One thread only.
class OXOutputFile {
 public:
  /// Creates an empty temporary file in the folder of pPath. For standard output, and for a device
  /// or pipe, the temporary file is elsewhere and commit() copies it.
  /// Throws OXFailure as requireWritable() does; OXUsageError for "-" when pOut is a terminal,
  /// since what is written here is binary. Borrows pOut.
  OXOutputFile(const std::string& pPath, bool pOverwrite, OXOutput& pOut);
  /// Removes the temporary file unless it was committed.
  ~OXOutputFile();
  OXOutputFile(const OXOutputFile&) = delete;
  OXOutputFile& operator=(const OXOutputFile&) = delete;

  /// The name that was asked for, in messages.
  const std::string& path() const { return fPath; }
  /// Where to write until commit(): an empty regular file. Its name has no useful extension.
  const std::string& temporaryPath() const { return fTemporary; }
  /// The text of a library that was told temporaryPath(), with path() in its place.
  std::string named(std::string pText) const;

  /// Appends to the temporary file. Throws OXFailure that names the file.
  void write(std::string_view pBytes);

  /// Gives the file its name, or copies it to standard output. Call it once, after everything else
  /// has closed the temporary file. Throws OXInterrupted after a signal, because what ended the
  /// work may have been the signal; OXFailure when the file has come into being meanwhile.
  void commit();

 private:
  void xCopyTo(const std::function<void(std::string_view)>& pWrite);

  const std::string fPath;
  const bool fOverwrite;
  OXOutput& fOut;
  std::string fTarget;  ///< fPath without symbolic links; empty when commit() copies
  std::string fTemporary;
};

/// Creates, writes and commits a file at once.
void writeOutputFile(const std::string& pPath, std::string_view pBytes, bool pOverwrite,
                     OXOutput& pOut);

/// A folder of files, such as pictures. One thread only.
class OXOutputFolder {
 public:
  /// Creates a temporary folder beside pPath. Throws OXFailure when pPath is a file, or a folder
  /// that isn't empty without pOverwrite, or when its parent can't be written.
  OXOutputFolder(const std::string& pPath, bool pOverwrite);
  /// Removes the temporary folder with all its files unless it was committed.
  ~OXOutputFolder();
  OXOutputFolder(const OXOutputFolder&) = delete;
  OXOutputFolder& operator=(const OXOutputFolder&) = delete;

  /// Writes a file into the temporary folder. Throws OXFailure that names it.
  void write(const std::string& pName, std::string_view pBytes);

  /// Gives the folder its name. Into a folder that has files already the new ones are moved one by
  /// one, replacing those of the same name. Returns how many other entries the folder has.
  /// Throws as OXOutputFile::commit() does.
  std::size_t commit();

 private:
  const std::string fPath;
  const bool fOverwrite;
  std::string fTarget;
  std::string fTemporary;
  bool fExists = false;
};

}  // namespace OX::cli
