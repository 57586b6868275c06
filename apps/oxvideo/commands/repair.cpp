// Never touches the file that it reads: a repair that goes wrong loses nothing.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "recordings/recordingfile.h"
#include "recordings/repairer.h"
#include "terminal/exitstatus.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

int runRepair(Context& pContext, const std::string& pInput, const std::string& pOutput) {
  requireDifferentFiles(pInput, pOutput);
  OXRecordingFile recording(pInput);
  OXProgress progress(pContext.err, "repair", recording.allImages());
  const RepairResult result = repair(recording, pOutput, progressCallback(progress));
  const auto& damage = recording.video().getDamage();
  pContext.out.line(fmt::format("{}: {} images kept, lost: {}, damaged places: {}",
                                printable(pOutput), result.kept, result.lost, damage.size()));
  return result.lost == 0 ? kDone : kDoneWithLosses;
}

}  // namespace

void addRepair(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb =
      addVerb(pLine, pContext,
              {"repair", "writes a new .oxv file of every image that can still be read",
               "oxvideo repair cut.oxv whole.oxv\nThe file that is read stays as it is. Status 3 "
               "when images were lost."});
  const auto files = std::make_shared<std::pair<std::string, std::string>>();
  verb.option("IN", files->first, "the damaged recording").required();
  verb.option("OUT", files->second, "the new one").required();
  verb.onRun(
      [&pContext, files] { pContext.status = runRepair(pContext, files->first, files->second); });
}

}  // namespace OX::cli
