/// Standard output and standard error as byte sinks that report failures.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace OX::cli {

/// The reader of the output is gone: no more output is wanted.
class OXOutputClosed : public std::runtime_error {
 public:
  OXOutputClosed() : std::runtime_error("the reader of the output is gone") {}
};

/// Writes to a borrowed descriptor. One thread only.
class OXOutput {
 public:
  explicit OXOutput(int pDescriptor) : fDescriptor(pDescriptor) {}

  /// Writes all bytes. Throws OXOutputClosed when the reader is gone, OXFailure for other errors.
  void write(std::string_view pBytes);
  /// Writes the text and a line end.
  void line(std::string_view pText);
  /// Best effort: write failures are ignored.
  void tryWrite(std::string_view pBytes) noexcept;
  /// The same, followed by a line end.
  void tryLine(std::string_view pText) { tryWrite(std::string(pText) + '\n'); }

  bool isTerminal() const;
  /// The width of the terminal; 80 without one.
  int columns() const;

 private:
  int fDescriptor;
};

}  // namespace OX::cli
