/// The grammar of the command line: verbs, their options and positionals, help and usage errors.
/// A facade: the parser's own headers cost five seconds in each file that includes them, so that
/// only arguments.cpp does.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace OX::cli {

/// An option or positional that was declared, for its conditions. A handle: valid as long as the
/// OXCommandLine.
class OXOption {
 public:
  OXOption& required();
  /// What the help writes for the value, as in "--frames N".
  OXOption& valueName(const char* pName);
  OXOption& group(const char* pHeading);

  /// Both ends are allowed.
  OXOption& range(int pFirst, int pLast);
  OXOption& range(std::int64_t pFirst, std::int64_t pLast);
  OXOption& range(double pFirst, double pLast);
  OXOption& positive();
  OXOption& notNegative();
  OXOption& oneOf(std::initializer_list<std::string> pWords);
  OXOption& excludes(const OXOption& pOther);

 private:
  friend class OXVerb;
  explicit OXOption(CLI::Option* pOption) : fOption(pOption) {}
  CLI::Option* fOption;
};

/// A verb, or the program itself before the verb. A handle, as OXOption is.
class OXVerb {
 public:
  /// "-o,--output" is an option, "FILE" a positional. The target is written when a command line is
  /// run, before the verb is, and must live until then; it keeps its value when the option is
  /// absent. A vector takes any number of values.
  template <typename Target>
  OXOption option(const char* pNames, Target& pTarget, const char* pHelp) {
    return OXOption(xOption(pNames, pTarget, pHelp));
  }
  OXOption flag(const char* pNames, bool& pTarget, const char* pHelp);

  /// Words that no option or positional takes are left to unknownWords() instead of refused.
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

  /// What may come before the verb.
  OXVerb program();
  OXVerb addVerb(const char* pName, const char* pDescription, const std::string& pFooter);

  /// Runs the verb that the words (without the program's name) ask for. Returns the text when help
  /// or the version was asked for instead, else nothing.
  /// Throws OXUsageError that says which --help to read, and whatever the verb throws.
  std::string run(const std::vector<std::string>& pWords);

 private:
  std::unique_ptr<CLI::App> fApp;
};

/// A word as the value of an int option would be read: decimal, 0x hexadecimal, 0 octal.
std::optional<int> parseInt(const std::string& pWord);

}  // namespace OX::cli
