// Writes new files and never touches the damaged one: a repair that fails loses nothing.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "recordings/inputrecording.h"
#include "recordings/repairer.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"
#include "terminal/outputfile.h"
#include "terminal/progress.h"

namespace OX::cli {

namespace {

struct Options : RepairOptions {
  std::string input;
  bool asJson = false;
};

std::vector<std::string> sizeTexts(const RepairedFile& pFile) {
  std::vector<std::string> texts;
  for (const FrameSize& size : pFile.sizes)
    texts.push_back(fmt::format("{}x{}", size.width, size.height));
  return texts;
}

std::string jsonText(const RepairResult& pResult, std::size_t pDamagedPlaces) {
  OXJson files = OXJson::array();
  for (const RepairedFile& file : pResult.files) {
    OXJson sizes = OXJson::array();
    for (const std::string& size : sizeTexts(file)) sizes.append(size);
    files.append({{"file", file.path}, {"sizes", sizes}, {"images", file.frames}});
  }
  return OXJson({{"files", files},
                 {"kept", pResult.kept},
                 {"lost", pResult.lost},
                 {"damaged_places", pDamagedPlaces}})
      .text();
}

int runRepair(Context& pContext, const Options& pOptions) {
  const bool isPiped = pOptions.output == "-";
  if (isPiped && pOptions.asJson)
    throw OXUsageError("--json and the output - cannot both use standard output");
  requireExtension(pOptions.output, ".oxv");
  OXInputRecording recording(pOptions.input);
  RepairResult result;
  {
    // In a block of its own: the bar must be cleared before the lines below are printed.
    OXProgress progress(pContext.err, "repair", recording.allImages());
    result = repair(recording, pOptions, pContext.out, progressCallback(progress));
  }
  // Two different numbers: one damaged place may cost many images, or none if it is in the index.
  const std::size_t places = recording.video().getDamage().size();
  OXOutput& said = isPiped ? pContext.err : pContext.out;
  if (pOptions.asJson) {
    said.line(jsonText(result, places));
  } else {
    for (const RepairedFile& file : result.files)
      said.line(fmt::format("{}: {} of {}", printable(file.path), counted(file.frames, "image"),
                            join(sizeTexts(file))));
    said.line(fmt::format("{} kept, lost: {}, damaged places: {}", counted(result.kept, "image"),
                          result.lost, places));
  }
  return result.lost == 0 ? kDone : kDoneWithLosses;
}

}  // namespace

void addRepair(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(
      pLine, pContext,
      {"repair", "writes the readable images of an .oxv file to a new one",
       "oxvideo repair cut.oxv whole.oxv\n"
       "The input file is not changed. Images of another size than the recording's are written\n"
       "to whole-2.oxv and so on. Exits with 3 if images were lost."});
  const auto options = std::make_shared<Options>();
  verb.option("IN", options->input, "damaged recording to read").required();
  verb.option("OUT", options->output, "new recording to write; - for standard output").required();
  addOverwriteOption(verb, options->overwrite);
  verb.flag("--json", options->asJson, "print JSON on one line");
  verb.onRun([&pContext, options] { pContext.status = runRepair(pContext, *options); });
}

}  // namespace OX::cli
