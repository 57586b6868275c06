// The only source that includes CLI11: its headers take longer to compile than any verb.
#include "terminal/arguments.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "terminal/exitstatus.h"

namespace OX::cli {

namespace {

/// The library's own checks write doubles with six decimals: "not in range 0.000000 to 1797693...".
template <typename Condition>
CLI::Validator numberCheck(Condition pIsAllowed, const std::string& pHelp,
                           const std::string& pComplaint) {
  return {[=](const std::string& pWord) {
            double number = 0;
            const bool isNumber = CLI::detail::lexical_cast(pWord, number);
            if (isNumber && pIsAllowed(number)) return std::string();
            return fmt::format("Value {} {}", pWord, isNumber ? pComplaint : "is not a number");
          },
          pHelp};
}

std::string usageErrorText(const CLI::App& pRoot, const CLI::ParseError& pError) {
  const auto verbs = pRoot.get_subcommands();
  const std::string help = "\n  see: " + pRoot.get_name() + " " +
                           (verbs.empty() ? "" : verbs[0]->get_name() + " ") + "--help";
  // For a misspelt verb too, the library only says "A subcommand is required".
  const auto unknown = pRoot.remaining();
  if (verbs.empty() && !unknown.empty())
    return "unknown command or option \"" + unknown.front() + "\"" + help;
  return (verbs.empty() ? "no command given" : std::string(pError.what())) + help;
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

// The library's own check reads well for integers.
OXOption& OXOption::range(int pFirst, int pLast) {
  fOption->check(CLI::Range(pFirst, pLast));
  return *this;
}

OXOption& OXOption::range(std::int64_t pFirst, std::int64_t pLast) {
  fOption->check(CLI::Range(pFirst, pLast));
  return *this;
}

OXOption& OXOption::range(double pFirst, double pLast) {
  fOption->check(numberCheck([=](double p) { return p >= pFirst && p <= pLast; },
                             fmt::format("FLOAT in [{} - {}]", pFirst, pLast),
                             fmt::format("not in range {} to {}", pFirst, pLast)));
  return *this;
}

OXOption& OXOption::positive() {
  fOption->check(numberCheck([](double p) { return p > 0; }, "POSITIVE", "not above 0"));
  return *this;
}

OXOption& OXOption::notNegative() {
  fOption->check(numberCheck([](double p) { return p >= 0; }, "NONNEGATIVE", "below 0"));
  return *this;
}

OXOption& OXOption::oneOf(std::initializer_list<std::string> pWords) {
  fOption->check(CLI::IsMember(std::vector<std::string>(pWords)));
  return *this;
}

OXOption& OXOption::excludes(const OXOption& pOther) {
  fOption->excludes(pOther.fOption);
  return *this;
}

// One overload per type of target, since a template in the header would bring the library's headers
// along.
CLI::Option* OXVerb::xOption(const char* pNames, int& pTarget, const char* pHelp) {
  return fApp->add_option(pNames, pTarget, pHelp);
}

CLI::Option* OXVerb::xOption(const char* pNames, std::int64_t& pTarget, const char* pHelp) {
  return fApp->add_option(pNames, pTarget, pHelp);
}

CLI::Option* OXVerb::xOption(const char* pNames, double& pTarget, const char* pHelp) {
  return fApp->add_option(pNames, pTarget, pHelp);
}

CLI::Option* OXVerb::xOption(const char* pNames, std::string& pTarget, const char* pHelp) {
  return fApp->add_option(pNames, pTarget, pHelp);
}

CLI::Option* OXVerb::xOption(const char* pNames, std::optional<int>& pTarget, const char* pHelp) {
  return fApp->add_option(pNames, pTarget, pHelp);
}

CLI::Option* OXVerb::xOption(const char* pNames, std::vector<int>& pTarget, const char* pHelp) {
  return fApp->add_option(pNames, pTarget, pHelp);
}

CLI::Option* OXVerb::xOption(const char* pNames, std::vector<std::string>& pTarget,
                             const char* pHelp) {
  return fApp->add_option(pNames, pTarget, pHelp);
}

OXOption OXVerb::flag(const char* pNames, bool& pTarget, const char* pHelp) {
  return OXOption(fApp->add_flag(pNames, pTarget, pHelp));
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
