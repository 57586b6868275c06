/// Standard output and standard error as byte sinks whose failures are seen.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace OX::cli {

/// The reader of our output has gone: no more output is wanted.
class OXOutputClosed : public std::runtime_error {
 public:
  OXOutputClosed() : std::runtime_error("the reader of the output is gone") {}
};

/// Writes to a descriptor that it borrows. One thread only.
class OXOutput {
 public:
  explicit OXOutput(int pDescriptor) : fDescriptor(pDescriptor) {}

  /// All of it or an exception: OXOutputClosed when the reader has gone, OXFailure otherwise.
  void write(std::string_view pBytes);
  /// The text and a line end.
  void line(std::string_view pText);
  /// For what nobody must see: a failure is nobody's concern.
  void tryWrite(std::string_view pBytes) noexcept;
  /// The same with a line end.
  void tryLine(std::string_view pText) { tryWrite(std::string(pText) + '\n'); }

  bool isTerminal() const;
  /// Columns of the terminal; 80 where there is none.
  int columns() const;

 private:
  int fDescriptor;
};

}  // namespace OX::cli
