// The way to every method that has no verb of its own.
#include <memory>
#include <optional>

#include "commands/commands.h"
#include "device/jsonvalues.h"
#include "device/session.h"
#include "terminal/exitstatus.h"
#include "terminal/outputfile.h"

namespace OX::cli {

namespace {

struct Options {
  std::string module;
  std::string method;
  std::string output;
  bool keep = false;
  bool overwrite = false;
  bool asJson = false;
};

void run(Context& pContext, const Options& pOptions, const std::vector<std::string>& pWords) {
  OXValue::Array arguments;
  // Parsed before connecting, so that a malformed argument is a usage error without a broker.
  for (const std::string& word : pWords) arguments.push_back(parseArgument(word));
  if (pOptions.asJson && pOptions.output == "-")
    throw OXUsageError("--json and -o - cannot both use standard output");
  // Before the call, which may change something: a file that can't be written is known by then.
  std::optional<OXOutputFile> file;
  if (!pOptions.output.empty()) file.emplace(pOptions.output, pOptions.overwrite, pContext.out);
  OXSession session(pContext.broker, "call");
  // Otherwise what the call subscribes would end with this process, before anybody used it.
  if (pOptions.keep) session.call("OXBroker", "keepSubscriptions", OXValue::array(true));
  const OXValue result =
      session.call(pOptions.module, pOptions.method, OXValue(std::move(arguments)));
  if (!file) {
    pContext.out.line(toJson(result));
    return;
  }
  const std::vector<OXValue> binaries = binariesIn(result);
  // No file is written then: an empty one would look like a success.
  if (binaries.empty()) throw OXFailure("the result contains no binary: " + toJson(result));
  for (const OXValue& binary : binaries)
    file->write(
        {static_cast<const char*>(binary.GetBinary()), static_cast<std::size_t>(binary.getSize())});
  file->commit();
  if (pOptions.output != "-") pContext.out.line(toJson(result));
}

}  // namespace

void addCall(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(
      pLine, pContext,
      {"call", "calls a method and prints its result as JSON",
       "oxvideo call OXVideoDevice getResolution 0\n"
       "  oxvideo call --keep OXVideoDevice subscribeCamera mine 0 2 11 15\n"
       "  oxvideo call OXVideoDevice getImageRemote mine --output pixels.rgb\n"
       "  oxvideo call OXVideoDevice unsubscribe mine\n"
       "The arguments after METHOD are JSON: true, 3, 0.5, [1, 2], null. A word that is not valid\n"
       "JSON is a string; '\"3\"' is the string 3, and '\"-v\"' what would be an option as -v. A\n"
       "binary in the result is printed as {\"binary\": SIZE}."});
  const auto options = std::make_shared<Options>();
  verb.option("MODULE", options->module, "module name").required();
  verb.option("METHOD", options->method, "method name").required();
  verb.option("-o,--output", options->output,
              "write the binaries of the result to this file (- for standard output)")
      .valueName("FILE");
  verb.flag("--keep", options->keep,
            "what the call subscribes stays after it, until somebody unsubscribes it");
  addOverwriteOption(verb, options->overwrite);
  verb.flag("--json", options->asJson, "print JSON, as without it: every result is JSON");
  // Arguments are the words left over: as a positional, the parser would split "[1, 2]" itself.
  verb.allowUnknownWords();
  verb.onRun([&pContext, options, verb] { run(pContext, *options, verb.unknownWords()); });
}

}  // namespace OX::cli
