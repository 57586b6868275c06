// The only source that includes CLI11: its headers take longer to compile than any verb.
#include "terminal/arguments.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

#include "terminal/exitstatus.h"
#include "terminal/suggestion.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

// The name under which an option keeps its check, so that a narrower one replaces it.
constexpr const char* kCheckName = "value";

/// A value that an option refuses. The library's own class for this would be caught on the way and
/// prefixed with the option's name once more.
class RefusedValue : public CLI::ParseError {
 public:
  RefusedValue(const CLI::Option& pOption, const std::string& pWord, const std::string& pExpected)
      : CLI::ParseError("RefusedValue",
                        fmt::format("{} {}: expected {}", pOption.get_name(),
                                    pWord.empty() ? "\"\"" : printable(pWord), pExpected),
                        CLI::ExitCodes::ValidationError) {}
};

/// What a number may be. A double holds every limit: none exceeds 2^53.
struct Limits {
  bool isWhole;
  double low, high;
  bool isLowOut = false;  ///< low itself is refused

  bool allows(double pNumber) const {
    return (isLowOut ? pNumber > low : pNumber >= low) && pNumber <= high;
  }
  /// "0 to 255", "1 or more", "above 0"; empty when any number will do.
  std::string text() const;
};

std::string Limits::text() const {
  // As good as no limit to somebody who counts frames.
  const bool isOpen =
      high >= (isWhole ? std::numeric_limits<int>::max() : std::numeric_limits<double>::max());
  if (!isOpen) return fmt::format("{} to {}", low, high);
  if (isLowOut) return fmt::format("above {}", low);
  if (low <= (isWhole ? std::numeric_limits<int>::min() : std::numeric_limits<double>::lowest()))
    return "";
  return fmt::format("{} or more", low);
}

std::optional<double> parseNumber(const std::string& pWord, bool pIsWhole) {
  // As the library converts the word afterwards.
  if (pIsWhole) {
    std::int64_t number = 0;
    if (!CLI::detail::lexical_cast(pWord, number)) return std::nullopt;
    return static_cast<double>(number);
  }
  double number = 0;
  // Neither nan nor infinity is the value of any option.
  if (!CLI::detail::lexical_cast(pWord, number) || !std::isfinite(number)) return std::nullopt;
  return number;
}

void limit(CLI::Option* pOption, const Limits& pLimits) {
  const std::string range = pLimits.text();
  *pOption->get_validator(kCheckName) = CLI::Validator(
      [pOption, pLimits, range](const std::string& pWord) -> std::string {
        const auto number = parseNumber(pWord, pLimits.isWhole);
        if (number && pLimits.allows(*number)) return {};
        std::string expected = pLimits.isWhole ? "a whole number" : "a number";
        // A number beyond an int shows that there is an upper limit too.
        if (number && *number > pLimits.high)
          expected = fmt::format("{} to {}", pLimits.low, pLimits.high);
        else if (number && !range.empty())
          expected = range;
        else if (!range.empty())
          expected += ", " + range;
        throw RefusedValue(*pOption, pWord, expected);
      },
      range, kCheckName);
}

template <typename Target>
CLI::Option* addNumber(CLI::App* pApp, const char* pNames, Target& pTarget, const char* pHelp,
                       const Limits& pLimits) {
  CLI::Option* option = pApp->add_option(pNames, pTarget, pHelp);
  option->check(CLI::Validator(std::string()), kCheckName);
  limit(option, pLimits);
  return option;
}

constexpr Limits kAnyInt{true, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()};
constexpr Limits kAnyInt64{true, -0x1p53, 0x1p53};
constexpr Limits kAnyDouble{false, std::numeric_limits<double>::lowest(),
                            std::numeric_limits<double>::max()};

std::vector<std::string> optionNames(const CLI::App& pApp) {
  std::vector<std::string> names;
  for (const CLI::Option* option : pApp.get_options())
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  return names;
}

/// For the words that neither the program nor the verb knows. The first one is the cause; what
/// follows an unknown option may have been meant as its value.
std::string aboutUnknown(const CLI::App& pApp, bool pIsVerbMissing) {
  const std::vector<std::string> words = pApp.remaining();
  if (words.empty()) return "no command given";
  const bool isOption = words.front().starts_with("-");
  const std::string word =
      words.front().substr(0, isOption ? words.front().find('=') : words.front().npos);
  std::vector<std::string> known;
  if (isOption)
    known = optionNames(pApp);
  else if (pIsVerbMissing)
    for (const CLI::App* verb : pApp.get_subcommands({})) known.push_back(verb->get_name());
  const char* what = isOption         ? "unknown option"
                     : pIsVerbMissing ? "unknown command"
                                      : "unexpected word";
  return fmt::format("{} \"{}\"{}", what, printable(word), didYouMean(word, known));
}

/// For an option without a value, or with more than one.
std::string aboutCount(const CLI::App& pVerb, const std::string& pText) {
  const std::string name = pText.substr(0, pText.find(':'));
  const CLI::Option* option = pVerb.get_option_no_throw(name);
  if (!option) return pText;
  return option->count() > 1
             ? fmt::format("{} was given {} times: expected once", name, option->count())
             : name + " needs a value";
}

std::string usageErrorText(const CLI::App& pRoot, const CLI::ParseError& pError) {
  const auto verbs = pRoot.get_subcommands();
  const CLI::App& app = verbs.empty() ? pRoot : *verbs[0];
  std::string text = pError.what();
  // For a misspelt verb too, the library only says "A subcommand is required".
  if (verbs.empty() && !dynamic_cast<const RefusedValue*>(&pError))
    text = aboutUnknown(pRoot, true);
  else if (dynamic_cast<const CLI::ExtrasError*>(&pError))
    text = aboutUnknown(pRoot.remaining().empty() ? app : pRoot, false);
  else if (dynamic_cast<const CLI::ArgumentMismatch*>(&pError))
    text = aboutCount(app, text);
  return fmt::format("{}\n  see: {} {}--help", text, pRoot.get_name(),
                     verbs.empty() ? "" : app.get_name() + " ");
}

}  // namespace

OXOption& OXOption::required() {
  fOption->required();
  return *this;
}

OXOption& OXOption::valueName(const char* pName) {
  fOption->type_name(pName);
  return *this;
}

OXOption& OXOption::group(const char* pHeading) {
  fOption->group(pHeading);
  return *this;
}

OXOption& OXOption::range(int pFirst, int pLast) {
  return range(std::int64_t{pFirst}, std::int64_t{pLast});
}

OXOption& OXOption::range(std::int64_t pFirst, std::int64_t pLast) {
  limit(fOption, {true, static_cast<double>(pFirst), static_cast<double>(pLast)});
  return *this;
}

OXOption& OXOption::range(double pFirst, double pLast) {
  limit(fOption, {false, pFirst, pLast});
  return *this;
}

OXOption& OXOption::positive() {
  if (fIsWhole) return range(1, std::numeric_limits<int>::max());
  limit(fOption, {false, 0, std::numeric_limits<double>::max(), true});
  return *this;
}

OXOption& OXOption::notNegative() {
  if (fIsWhole) return range(0, std::numeric_limits<int>::max());
  return range(0.0, std::numeric_limits<double>::max());
}

OXOption& OXOption::oneOf(std::initializer_list<std::string> pWords) {
  const std::vector<std::string> words(pWords);
  fOption->check(CLI::Validator(
      [option = fOption, words](const std::string& pWord) -> std::string {
        if (std::find(words.begin(), words.end(), pWord) != words.end()) return {};
        throw RefusedValue(*option, pWord, alternatives(words) + didYouMean(pWord, words));
      },
      alternatives(words), kCheckName));
  return *this;
}

OXOption& OXOption::excludes(const OXOption& pOther) {
  fOption->excludes(pOther.fOption);
  return *this;
}

// One overload per type of target, since a template in the header would bring the library's headers
// along.
CLI::Option* OXVerb::xOption(const char* pNames, int& pTarget, const char* pHelp) {
  return addNumber(fApp, pNames, pTarget, pHelp, kAnyInt);
}

CLI::Option* OXVerb::xOption(const char* pNames, std::int64_t& pTarget, const char* pHelp) {
  return addNumber(fApp, pNames, pTarget, pHelp, kAnyInt64);
}

CLI::Option* OXVerb::xOption(const char* pNames, double& pTarget, const char* pHelp) {
  return addNumber(fApp, pNames, pTarget, pHelp, kAnyDouble);
}

CLI::Option* OXVerb::xOption(const char* pNames, std::optional<int>& pTarget, const char* pHelp) {
  return addNumber(fApp, pNames, pTarget, pHelp, kAnyInt);
}

CLI::Option* OXVerb::xOption(const char* pNames, std::vector<int>& pTarget, const char* pHelp) {
  return addNumber(fApp, pNames, pTarget, pHelp, kAnyInt);
}

CLI::Option* OXVerb::xOption(const char* pNames, std::string& pTarget, const char* pHelp) {
  CLI::Option* option = fApp->add_option(pNames, pTarget, pHelp);
  // A script's variable that isn't set; to a verb it would look like an option that is absent.
  option->check(CLI::Validator(
      [option](const std::string& pWord) -> std::string {
        if (pWord.empty()) throw RefusedValue(*option, pWord, "a value");
        return {};
      },
      ""));
  return option;
}

CLI::Option* OXVerb::xOption(const char* pNames, std::vector<std::string>& pTarget,
                             const char* pHelp) {
  return fApp->add_option(pNames, pTarget, pHelp);
}

OXOption OXVerb::flag(const char* pNames, bool& pTarget, const char* pHelp) {
  return OXOption(fApp->add_flag(pNames, pTarget, pHelp), false);
}

void OXVerb::allowUnknownWords() { fApp->allow_extras(); }

std::vector<std::string> OXVerb::unknownWords() const { return fApp->remaining(); }

void OXVerb::onRun(std::function<void()> pRun) { fApp->callback(std::move(pRun)); }

OXCommandLine::OXCommandLine(const char* pProgram, const char* pDescription, const char* pVersion,
                             const char* pFooter)
    : fApp(std::make_unique<CLI::App>(pDescription, pProgram)) {
  fApp->require_subcommand(1);
  fApp->set_version_flag("--version", pVersion);
  fApp->footer(pFooter);
}

OXCommandLine::~OXCommandLine() = default;

OXVerb OXCommandLine::program() { return OXVerb(fApp.get()); }

OXVerb OXCommandLine::addVerb(const char* pName, const char* pDescription,
                              const std::string& pFooter) {
  CLI::App* verb = fApp->add_subcommand(pName, pDescription);
  verb->footer(pFooter);
  return OXVerb(verb);
}

std::string OXCommandLine::run(const std::vector<std::string>& pWords) {
  try {
    // The library expects the words in reverse.
    fApp->parse(std::vector<std::string>(pWords.rbegin(), pWords.rend()));
    return {};
  } catch (const CLI::ParseError& error) {
    std::ostringstream out, err;
    // The library reports help and version as errors with status 0.
    if (fApp->exit(error, out, err) != 0) throw OXUsageError(usageErrorText(*fApp, error));
    return out.str();
  }
}

std::optional<int> parseInt(const std::string& pWord) {
  int number = 0;
  // As the values of options are read, so that `set` accepts the same notations.
  if (!CLI::detail::lexical_cast(pWord, number)) return std::nullopt;
  return number;
}

}  // namespace OX::cli
