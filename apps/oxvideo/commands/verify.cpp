// Reads every pixel: nothing less can tell that a recording is intact.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "recordings/inputrecording.h"
#include "recordings/verifier.h"
#include "terminal/exitstatus.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

int runVerify(Context& pContext, const std::string& pFile) {
  OXInputRecording recording(pFile);
  OXProgress progress(pContext.err, "verify", recording.allImages());
  const VerifyResult result = verify(recording, progressCallback(progress));
  for (const std::string& fault : result.faults) pContext.out.line(printable(fault));
  // A missing index is no fault: every image is there, and reading the file only takes a scan
  // longer.
  const bool whole = result.faults.empty();
  pContext.out.line(
      fmt::format("{}: {} images, {}", printable(pFile), result.frames,
                  whole ? "all intact" : fmt::format("faults: {}", result.faults.size())));
  if (whole && !recording.video().hasIndex())
    pContext.out.line("  the recorder did not close this file: oxvideo repair adds the index");
  return whole ? kDone : kFailed;
}

}  // namespace

void addVerify(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"verify", "checks every image of an .oxv file",
                         "oxvideo verify drive.oxv\n"
                         "Exits with 1 if anything is damaged."});
  const auto file = std::make_shared<std::string>();
  verb.option("FILE", *file, "recording to check").required();
  verb.onRun([&pContext, file] { pContext.status = runVerify(pContext, *file); });
}

}  // namespace OX::cli
