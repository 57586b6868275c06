// Reads the headers of a recording, never its pixels: fast for recordings of any length.
#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "recordings/inputrecording.h"
#include "recordings/recordingreport.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

void addInfo(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"info", "summarises an .oxv file: streams, images, rates, gaps, damage",
               "oxvideo info drive.oxv\n"
               "Does not read pixels; oxvideo verify does. Exits with 3 if the file is damaged or\n"
               "holds images of several sizes."});
  struct Options {
    std::string file;
    bool asJson = false;
  };
  const auto options = std::make_shared<Options>();
  verb.option("FILE", options->file, "recording to read").required();
  verb.flag("--json", options->asJson, "print JSON on one line");
  verb.onRun([&pContext, options] {
    const RecordingReport report = makeReport(OXInputRecording(options->file));
    if (options->asJson)
      pContext.out.line(reportJson(report));
    else
      pContext.out.write(reportText(report, pContext.style()));
    const bool isMixed =
        std::any_of(report.streams.begin(), report.streams.end(),
                    [](const StreamReport& pStream) { return !pStream.otherSizes.empty(); });
    if (!report.damage.empty() || isMixed) pContext.status = kDoneWithLosses;
  });
}

}  // namespace OX::cli
