// Writes a new file and never touches the damaged one: a repair that fails loses nothing.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "recordings/inputrecording.h"
#include "recordings/repairer.h"
#include "terminal/exitstatus.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

int runRepair(Context& pContext, const std::string& pInput, const std::string& pOutput) {
  requireDifferentFiles(pInput, pOutput);
  OXInputRecording recording(pInput);
  OXProgress progress(pContext.err, "repair", recording.allImages());
  const RepairResult result = repair(recording, pOutput, progressCallback(progress));
  // Two different numbers: one damaged place may cost many images, or none if it is in the index.
  const auto& damage = recording.video().getDamage();
  pContext.out.line(fmt::format("{}: {} images kept, lost: {}, damaged places: {}",
                                printable(pOutput), result.kept, result.lost, damage.size()));
  return result.lost == 0 ? kDone : kDoneWithLosses;
}

}  // namespace

void addRepair(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"repair", "writes the readable images of an .oxv file to a new one",
                         "oxvideo repair cut.oxv whole.oxv\n"
                         "The input file is not changed. Exits with 3 if images were lost."});
  const auto files = std::make_shared<std::pair<std::string, std::string>>();
  verb.option("IN", files->first, "damaged recording to read").required();
  verb.option("OUT", files->second, "new recording to write").required();
  verb.onRun(
      [&pContext, files] { pContext.status = runRepair(pContext, files->first, files->second); });
}

}  // namespace OX::cli
