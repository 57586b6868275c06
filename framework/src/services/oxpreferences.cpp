// Reads preference files. A user edits them by hand, so every message names file, line and column,
// and says what was expected.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <pugixml.hpp>
#include <string_view>
#include <system_error>

#include <oxframework/oxerror.h>
#include <oxframework/oxservices.h>
#include <oxvalue/detail/publication.h>

namespace OX {
namespace {

// Files written by hand have a few kilobytes: a larger one is a mistake, and is not read at all.
constexpr std::uintmax_t kMaxFileBytes = std::uintmax_t{1024} * 1024;
constexpr char kModule[] = "OXPreferences";
constexpr char kFunction[] = "readPrefFile";

/// The text of a file, kept so that messages can name line and column.
class PreferenceFile {
 public:
  explicit PreferenceFile(const std::string& pPath) : fPath(pPath), fText(xRead(pPath)) {}

  OXValue entries() const {
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = document.load_buffer(fText.data(), fText.size());
    if (!parsed)
      xFail(parsed.offset, std::string("not valid XML: ") + parsed.description() +
                               "; expected <preferences> with <entry> elements");
    const pugi::xml_node root = document.document_element();
    if (std::string_view(root.name()) != "preferences")
      xFail(root.offset_debug(),
            std::string("the root element is <") + root.name() + ">; expected <preferences>");
    OXValue::Array entries;
    for (const pugi::xml_node& node : root.children())
      // Comments are skipped, and so is text between the entries.
      if (node.type() == pugi::node_element) entries.push_back(xEntry(node));
    return entries;
  }

 private:
  static std::string xRead(const std::string& pPath) {
    std::error_code error;
    const auto status = std::filesystem::status(pPath, error);
    if (status.type() == std::filesystem::file_type::not_found)
      raiseError(kModule, kFunction, pPath + ": no such file");
    if (status.type() == std::filesystem::file_type::directory)
      raiseError(kModule, kFunction, pPath + ": is a directory; expected an XML file");
    // Reading anything else, a pipe say, might never end.
    if (!std::filesystem::is_regular_file(status))
      raiseError(kModule, kFunction,
                 pPath + ": cannot be read as a file" + (error ? ": " + error.message() : ""));
    const std::uintmax_t size = std::filesystem::file_size(pPath, error);
    if (error)
      raiseError(kModule, kFunction,
                 pPath + ": cannot determine the size of the file: " + error.message());
    if (size > kMaxFileBytes)
      raiseError(kModule, kFunction,
                 pPath + ": the file has " + std::to_string(size) + " bytes; " + "the limit is " +
                     std::to_string(kMaxFileBytes));
    // A stream does not say why it could not open: the system does.
    errno = 0;
    std::ifstream file(pPath, std::ios::binary);
    if (!file)
      raiseError(kModule, kFunction,
                 pPath + ": cannot open the file: " + std::generic_category().message(errno) +
                     "; it must be readable by the user that runs the broker");
    std::string text(size, ' ');
    file.read(text.data(), std::ssize(text));
    // The file may have become shorter since its size was taken.
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.empty())
      raiseError(kModule, kFunction,
                 pPath + ": the file is empty; expected <preferences> with <entry> elements");
    return text;
  }

  OXValue xEntry(const pugi::xml_node& pNode) const {
    if (std::string_view(pNode.name()) != "entry")
      xFail(pNode.offset_debug(),
            std::string("<") + pNode.name() + "> is not supported here; expected <entry>");
    const std::string name = xAttribute(pNode, "name");
    const std::string value = xAttribute(pNode, "value");
    return OXValue::array(name, pNode.attribute("description").value(), xTyped(pNode, name, value));
  }

  std::string xAttribute(const pugi::xml_node& pNode, const char* pAttribute) const {
    const pugi::xml_attribute attribute = pNode.attribute(pAttribute);
    if (!attribute)
      xFail(pNode.offset_debug(), std::string("an <entry> has no ") + pAttribute +
                                      "; expected <entry name=\"...\" value=\"...\"/>");
    return attribute.value();
  }

  OXValue xTyped(const pugi::xml_node& pNode, const std::string& pName,
                 const std::string& pValue) const {
    const std::string type = pNode.attribute("type").as_string("string");
    if (type == "string") return pValue;
    if (type == "int") return xNumber<int>(pNode, pName, pValue, "an int: a whole 32-bit number");
    if (type == "float") return xNumber<float>(pNode, pName, pValue, "a float: a number like 2.5");
    if (type == "bool") {
      if (pValue == "true" || pValue == "1") return true;
      if (pValue == "false" || pValue == "0") return false;
      xWrongValue(pNode, pName, pValue, "a bool: true or false");
    }
    xFail(pNode.offset_debug(), "entry \"" + pName + "\" has the type \"" + type +
                                    "\"; expected int, float, bool or string");
  }

  template <typename Number>
  Number xNumber(const pugi::xml_node& pNode, const std::string& pName, const std::string& pValue,
                 const char* pWanted) const {
    Number number{};
    const char* const end = pValue.data() + pValue.size();
    // Independent of the locale, and the whole text must be the number: "30 fps" is refused.
    const auto [stop, error] = std::from_chars(pValue.data(), end, number);
    if (error != std::errc() || stop != end || !std::isfinite(static_cast<double>(number)))
      xWrongValue(pNode, pName, pValue, pWanted);
    return number;
  }

  [[noreturn]] void xWrongValue(
      const pugi::xml_node& pNode, const std::string& pName, const std::string& pValue,
      const char* pWanted, const OXSourceLocation& pWhere = OXSourceLocation::current()) const {
    xFail(pNode.offset_debug(),
          "entry \"" + pName + "\" has the value \"" + pValue + "\"; expected " + pWanted, pWhere);
  }

  [[noreturn]] void xFail(std::ptrdiff_t pOffset, const std::string& pText,
                          const OXSourceLocation& pWhere = OXSourceLocation::current()) const {
    // Lines are counted only for a message; the parser knows byte offsets alone.
    const auto offset = std::clamp<std::ptrdiff_t>(pOffset, 0, std::ssize(fText));
    const std::string_view before(fText.data(), static_cast<std::size_t>(offset));
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const auto lineStart = before.rfind('\n');
    const auto column =
        before.size() - (lineStart == std::string_view::npos ? 0 : lineStart + 1) + 1;
    raiseError(kModule, kFunction,
               fPath + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + pText,
               pWhere);
  }

  std::string fPath;
  std::string fText;
};

std::vector<OXPublication<OXPreferences>> publications() {
  return {
      {.name = "readPrefFile",
       .description = "Reads a preference file, anew with each call",
       .method = operation(&OXPreferences::readPrefFile),
       .parameters = {{"name", "name of the file without directory and without \".xml\""},
                      {"flag", "for compatibility with older callers; has no effect"}},
       .result = {"entries",
                  "array with one array an entry, in the file's order: name, description, value"},
       .examples = {{"C++",
                     "OXValue entries = OXPreferencesProxy(broker).readPrefFile("
                     "\"VideoInput\", true);"},
                    {"shell", "oxvideo call OXPreferences readPrefFile VideoInput true"}}},
  };
}

}  // namespace

OXPreferences::OXPreferences(boost::shared_ptr<OXBroker> pBroker, const std::string& pDirectory)
    : OXModule(std::move(pBroker), "OXPreferences"), fDirectory(pDirectory) {
  setModuleDescription(
      "Preference files: what a module reads when it starts, in DIRECTORY/NAME.xml");
  addModuleExample("XML",
                   "<preferences module=\"VideoInput\">\n"
                   "  <entry name=\"source\" description=\"where images come from\" "
                   "value=\"SimulatorCam\"/>\n"
                   "  <entry name=\"rate\" description=\"frames a second\" type=\"int\" "
                   "value=\"30\"/>\n"
                   "</preferences>");
  publish(bindPublications(this, "OXPreferences", publications()));
}

OXPreferences::~OXPreferences() = default;

boost::shared_ptr<OXPreferences> OXPreferences::create(const boost::shared_ptr<OXBroker>& pBroker,
                                                       const std::string& pDirectory) {
  boost::shared_ptr<OXPreferences> module = boost::make_shared<OXPreferences>(pBroker, pDirectory);
  module->initModule();
  module->init();
  return module;
}

OXValue OXPreferences::readPrefFile(const std::string& pFileName, bool) {
  // The name may come from a remote caller, who must not reach files outside the directory.
  const bool plain = !pFileName.empty() && pFileName.front() != '.' &&
                     pFileName.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
  if (!plain)
    raiseError(kModule, kFunction,
               "\"" + pFileName +
                   "\" is not a valid name of a preference file: it must not contain a slash, "
                   "start with a dot or be empty");
  return PreferenceFile(fDirectory + "/" + pFileName + ".xml").entries();
}

}  // namespace OX
