/// Standard output and standard error as byte sinks that report failures.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace OX::cli {

/// The reader of the output is gone: no more output is wanted.
class OXOutputClosed : public std::runtime_error {
 public:
  OXOutputClosed() : std::runtime_error("the reader of the output is gone") {}
};

/// Opens standard input, output and error where the caller closed them, so that no socket or file
/// gets their numbers and with them the text. Writing to one still fails. Call it first of all.
void reserveStandardDescriptors();

/// Writes to a borrowed descriptor. One thread only: standard output and standard error share the
/// terminal and what is shown there in passing.
class OXOutput {
 public:
  /// The name is for messages.
  explicit OXOutput(int pDescriptor, std::string pName = "the output")
      : fDescriptor(pDescriptor), fName(std::move(pName)) {}

  /// Writes all bytes. Throws OXOutputClosed when the reader is gone, OXFailure for other errors.
  void write(std::string_view pBytes);
  /// Writes the text and a line end.
  void line(std::string_view pText);
  /// Best effort: write failures are ignored.
  void tryWrite(std::string_view pBytes) noexcept;
  /// The same, followed by a line end.
  void tryLine(std::string_view pText) { tryWrite(std::string(pText) + '\n'); }

  /// Shows a line that the next text on the terminal replaces, whichever output it goes to: so a
  /// result never follows a progress bar on its line. Best effort, and only for a terminal.
  void showPassing(std::string_view pText);
  /// Erases it, if there is one.
  static void erasePassing();

  bool isTerminal() const;
  /// The width of the terminal; 80 without one.
  int columns() const;

 private:
  int fDescriptor;
  std::string fName;
};

}  // namespace OX::cli
