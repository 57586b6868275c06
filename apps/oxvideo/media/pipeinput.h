/// Reads a pipe for FFmpeg so that neither a signal nor a writer that stalls is waited for.
#pragma once

#include <functional>
#include <memory>
#include <string>

struct AVIOContext;

namespace OX::cli {

/// Standard input ("-") or a named pipe. Must live as long as the format context that uses it.
class OXPipeInput {
 public:
  /// pIsCancelled is asked several times a second while data is waited for. Throws OXFailure when
  /// the pipe can't be opened or standard input is a terminal.
  OXPipeInput(const std::string& pSource, std::function<bool()> pIsCancelled);
  ~OXPipeInput();
  OXPipeInput(const OXPipeInput&) = delete;
  OXPipeInput& operator=(const OXPipeInput&) = delete;

  /// To be set as AVFormatContext::pb.
  AVIOContext* context() { return fContext; }
  /// Whether nothing has come so far.
  bool isEmpty() const { return fIsEmpty; }

 private:
  static int xRead(void* pThis, unsigned char* pTarget, int pSize);

  const std::function<bool()> fIsCancelled;
  const bool fIsOwned;
  int fDescriptor;
  bool fIsEmpty = true;  ///< nothing has come so far
  AVIOContext* fContext = nullptr;
};

}  // namespace OX::cli
