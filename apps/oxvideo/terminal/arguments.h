/// Declares and parses the command line: verbs, options, positionals, help and usage errors.
/// Hides the parsing library, whose headers cost five seconds in each file that includes them.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace OX::cli {

/// A declared option or positional, to add conditions to. A handle, valid as long as the
/// OXCommandLine.
class OXOption {
 public:
  OXOption& required();
  /// The placeholder for the value in the help, as in "--frames N".
  OXOption& valueName(const char* pName);
  OXOption& group(const char* pHeading);

  /// Limits of a number; a value outside is refused with the limits: "--camera 300: expected 0 to
  /// 255". Both ends are included. A later limit replaces an earlier one. Without any, a number
  /// must be finite and fit its target.
  OXOption& range(int pFirst, int pLast);
  OXOption& range(std::int64_t pFirst, std::int64_t pLast);
  OXOption& range(double pFirst, double pLast);
  OXOption& positive();
  OXOption& notNegative();
  /// Refuses other words, with a suggestion for a misspelt one.
  OXOption& oneOf(std::initializer_list<std::string> pWords);
  OXOption& excludes(const OXOption& pOther);

 private:
  friend class OXVerb;
  OXOption(CLI::Option* pOption, bool pIsWhole) : fOption(pOption), fIsWhole(pIsWhole) {}
  CLI::Option* fOption;
  bool fIsWhole;  ///< its value is a whole number
};

/// A verb, or the program itself before the verb. A handle, as OXOption is.
class OXVerb {
 public:
  /// "-o,--output" declares an option, "FILE" a positional. The target is written before the verb
  /// runs and must live until then; it keeps its value if the option is absent. A vector accepts
  /// any number of values. An empty text is refused.
  template <typename Target>
  OXOption option(const char* pNames, Target& pTarget, const char* pHelp) {
    constexpr bool kIsReal = std::is_same_v<Target, double>;
    return OXOption(xOption(pNames, pTarget, pHelp), !kIsReal);
  }
  OXOption flag(const char* pNames, bool& pTarget, const char* pHelp);

  /// Makes words that match no option or positional available instead of refusing them.
  void allowUnknownWords();
  std::vector<std::string> unknownWords() const;

  /// What the verb does. Exceptions pass through OXCommandLine::run().
  void onRun(std::function<void()> pRun);

 private:
  friend class OXCommandLine;
  explicit OXVerb(CLI::App* pApp) : fApp(pApp) {}
  CLI::Option* xOption(const char* pNames, int& pTarget, const char* pHelp);
  CLI::Option* xOption(const char* pNames, std::int64_t& pTarget, const char* pHelp);
  CLI::Option* xOption(const char* pNames, double& pTarget, const char* pHelp);
  CLI::Option* xOption(const char* pNames, std::string& pTarget, const char* pHelp);
  CLI::Option* xOption(const char* pNames, std::optional<int>& pTarget, const char* pHelp);
  CLI::Option* xOption(const char* pNames, std::vector<int>& pTarget, const char* pHelp);
  CLI::Option* xOption(const char* pNames, std::vector<std::string>& pTarget, const char* pHelp);
  CLI::App* fApp;
};

/// The whole command line; owns what its handles refer to. One thread only.
class OXCommandLine {
 public:
  OXCommandLine(const char* pProgram, const char* pDescription, const char* pVersion,
                const char* pFooter);
  ~OXCommandLine();
  OXCommandLine(const OXCommandLine&) = delete;
  OXCommandLine& operator=(const OXCommandLine&) = delete;

  /// For options that may come before the verb.
  OXVerb program();
  OXVerb addVerb(const char* pName, const char* pDescription, const std::string& pFooter);

  /// Runs the verb named by the words (without the program's name). Returns the help or version
  /// text if that was requested instead, otherwise an empty text. Throws OXUsageError that points
  /// to --help, and whatever the verb throws.
  std::string run(const std::vector<std::string>& pWords);

 private:
  std::unique_ptr<CLI::App> fApp;
};

/// Parses a word as the value of an int option: decimal, hexadecimal after 0x, octal after 0.
std::optional<int> parseInt(const std::string& pWord);

}  // namespace OX::cli
