// What a broker says of itself, as a manual page. It needs no knowledge of any module.
#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "device/session.h"
#include "terminal/exitstatus.h"
#include "terminal/json.h"

namespace OX::cli {

namespace {

struct Options {
  std::string module;
  bool asJson = false;
};

/// One publication as the broker describes it: arrays, in the order of the fields.
struct Publication {
  struct Part {
    std::string name;
    std::string description;
    std::string type;
  };
  std::string name, className, description;
  int flags;
  std::vector<Part> parameters;
  Part result;
  std::vector<std::pair<std::string, std::string>> examples;  // language and text
};

Publication::Part parsePart(const OXValue& pValue) {
  return {pValue[0].toString(), pValue[1].toString(), pValue[2].toString()};
}

/// A reply of another shape needs no checks here: OXValue throws an error that names the kind found
/// and the kind wanted.
Publication parsePublication(const OXValue& pValue) {
  Publication method{pValue[0].toString(),
                     pValue[1].toString(),
                     pValue[2].toString(),
                     pValue[3].toInt(),
                     {},
                     parsePart(pValue[5]),
                     {}};
  for (const OXValue& parameter : pValue[4].toArray())
    method.parameters.push_back(parsePart(parameter));
  for (const OXValue& example : pValue[6].toArray())
    method.examples.emplace_back(example[0].toString(), example[1].toString());
  return method;
}

OXJson asJson(const Publication::Part& pPart) {
  return {{"name", pPart.name}, {"description", pPart.description}, {"type", pPart.type}};
}

OXJson asJson(const Publication& pMethod) {
  OXJson parameters = OXJson::array(), examples = OXJson::array();
  for (const auto& parameter : pMethod.parameters) parameters.append(asJson(parameter));
  for (const auto& [language, text] : pMethod.examples)
    examples.append({{"language", language}, {"text", text}});
  return {
      {"name", pMethod.name},   {"class", pMethod.className}, {"description", pMethod.description},
      {"flags", pMethod.flags}, {"parameters", parameters},   {"return", asJson(pMethod.result)},
      {"examples", examples}};
}

std::string signature(const Publication& pMethod, const OXTextStyle& pStyle) {
  std::vector<std::string> parameters;
  for (const auto& parameter : pMethod.parameters)
    parameters.push_back(pStyle.dim(printable(parameter.type)) + " " + printable(parameter.name));
  return fmt::format("{} {}({})", pStyle.dim(printable(pMethod.result.type)),
                     pStyle.bold(printable(pMethod.name)), join(parameters));
}

/// "name  text"; further lines are aligned with the first.
std::string describeValue(const std::string& pName, const std::string& pText, std::size_t pWidth) {
  const int indent = static_cast<int>(pWidth) + 6;
  std::string text = indentLines(printable(pText), indent);
  // The first line follows the name instead of an indentation; an empty text has none to remove.
  text.erase(0, std::min<std::size_t>(text.size(), static_cast<std::size_t>(indent)));
  return fmt::format("    {:<{}}  {}\n", printable(pName), pWidth, text);
}

std::string methodText(const Publication& pMethod, const OXTextStyle& pStyle) {
  std::string text = signature(pMethod, pStyle) + "\n";
  if (!pMethod.description.empty()) text += indentLines(printable(pMethod.description), 2) + "\n";
  std::size_t width = 7;  // "returns"
  for (const auto& parameter : pMethod.parameters) width = std::max(width, parameter.name.size());
  for (const auto& parameter : pMethod.parameters)
    if (!parameter.description.empty())
      text += describeValue(parameter.name, parameter.description, width);
  if (!pMethod.result.description.empty())
    text += describeValue("returns", pMethod.result.description, width);
  for (const auto& [language, example] : pMethod.examples)
    text += fmt::format("    {} example:\n{}\n", printable(language),
                        indentLines(printable(example), 6));
  return text;
}

std::string heading(OXSession& pSession, const std::string& pModule, int pMethods,
                    const OXTextStyle& pStyle) {
  const OXValue about = pSession.call("OXBroker", "getModuleDescription", OXValue::array(pModule));
  const std::string name =
      pStyle.green(fmt::format("{}: {} methods", printable(pModule), pMethods));
  return name + "\n" + indentLines(printable(about[0].toString()), 2) + "\n";
}

std::vector<std::string> requestedModules(OXSession& pSession, const Options& pOptions) {
  if (!pOptions.module.empty()) return {pOptions.module};
  std::vector<std::string> modules;
  const OXValue all = pSession.call("OXBroker", "getModuleList", OXValue(OXValue::Array()));
  for (const OXValue& module : all.toArray()) modules.push_back(module.toString());
  return modules;
}

void run(Context& pContext, const Options& pOptions) {
  OXSession session(pContext.broker, "methods");
  // Text is printed module by module as it arrives; JSON has to be collected into one document.
  OXJson everything = OXJson::object();
  const OXTextStyle style = pContext.style();
  for (const std::string& module : requestedModules(session, pOptions)) {
    const OXValue methods = session.call("OXBroker", "getMethodList", OXValue::array(module));
    OXJson list = OXJson::array();
    if (!pOptions.asJson) pContext.out.line(heading(session, module, methods.getSize(), style));
    for (const OXValue& method : methods.toArray()) {
      const Publication publication = parsePublication(method);
      if (pOptions.asJson)
        list.append(asJson(publication));
      else
        pContext.out.line(methodText(publication, style));
    }
    if (!pOptions.module.empty())
      // One module needs no key to be found by: its array is the whole document.
      everything = std::move(list);
    else
      everything.add(module, list);
  }
  if (pOptions.asJson) pContext.out.line(everything.text());
}

}  // namespace

void addMethods(OXCommandLine& pLine, Context& pContext) {
  OXVerb verb = addVerb(pLine, pContext,
                        {"methods", "lists the methods of one module or of all modules",
                         "oxvideo methods OXVideoDevice"});
  const auto options = std::make_shared<Options>();
  verb.option("MODULE", options->module, "only this module's methods");
  verb.flag("--json", options->asJson,
            "print JSON: an array of methods, or an object of such arrays by module");
  verb.onRun([&pContext, options] { run(pContext, *options); });
}

}  // namespace OX::cli
