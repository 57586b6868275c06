// Reads every pixel: nothing less can tell that a recording is intact.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "recordings/inputrecording.h"
#include "recordings/verifier.h"
#include "terminal/exitstatus.h"
#include "terminal/filelock.h"
#include "terminal/json.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

struct Options {
  std::string file;
  bool asJson = false;
};

void printJson(Context& pContext, const Options& pOptions, const VerifyResult& pResult,
               bool pIsIndexed) {
  OXJson texts = OXJson::array();
  for (const std::string& text : pResult.texts) texts.append(text);
  pContext.out.line(OXJson({{"file", pOptions.file},
                            {"images", pResult.frames},
                            {"faults", pResult.faults},
                            {"texts", texts},
                            {"indexed", pIsIndexed}})
                        .text());
}

void printText(Context& pContext, const Options& pOptions, const VerifyResult& pResult,
               bool pIsIndexed) {
  for (const std::string& text : pResult.texts) pContext.out.line(printable(text));
  const bool whole = pResult.faults == 0;
  pContext.out.line(fmt::format("{}: {} images, {}", printable(pOptions.file), pResult.frames,
                                whole ? "all intact" : fmt::format("faults: {}", pResult.faults)));
  const std::string recorder = pIsIndexed ? "" : lockOwner(pOptions.file);
  if (!recorder.empty())
    pContext.out.line("  still being recorded by " + printable(recorder));
  else if (whole && !pIsIndexed)
    pContext.out.line("  the recorder did not close this file: oxvideo repair adds the index");
  if (!whole)
    pContext.out.line("  oxvideo repair keeps what is intact, in a file for each size of images");
}

int runVerify(Context& pContext, const Options& pOptions) {
  OXInputRecording recording(pOptions.file);
  VerifyResult result;
  {
    // In a block of its own: the bar must be cleared before the lines below are printed.
    OXProgress progress(pContext.err, "verify", recording.allImages());
    result = verify(recording, progressCallback(progress));
  }
  // A missing index is no fault: every image is there, and reading the file only takes a scan
  // longer.
  const auto print = pOptions.asJson ? printJson : printText;
  print(pContext, pOptions, result, recording.video().hasIndex());
  return result.faults == 0 ? kDone : kFailed;
}

}  // namespace

void addVerify(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"verify", "checks every image of an .oxv file",
                         "oxvideo verify drive.oxv\n"
                         "Exits with 1 if anything is damaged, or if a stream holds images of\n"
                         "several sizes."});
  const auto options = std::make_shared<Options>();
  verb.option("FILE", options->file, "recording to check").required();
  verb.flag("--json", options->asJson, "print JSON on one line");
  verb.onRun([&pContext, options] { pContext.status = runVerify(pContext, *options); });
}

}  // namespace OX::cli
