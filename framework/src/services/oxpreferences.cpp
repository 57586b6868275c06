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

constexpr std::uintmax_t kMaxFileBytes = std::uintmax_t{1024} * 1024;
constexpr char kModule[] = "OXPreferences";
constexpr char kFunction[] = "readPrefFile";

/// A file's text with the places in it that messages name.
class PreferenceFile {
 public:
  explicit PreferenceFile(const std::string& pPath) : fPath(pPath), fText(xRead(pPath)) {}

  OXValue entries() const {
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = document.load_buffer(fText.data(), fText.size());
    if (!parsed)
      xFail(parsed.offset, std::string("this is no XML: ") + parsed.description() +
                               "; it should be <preferences> with <entry> elements in it");
    const pugi::xml_node root = document.document_element();
    if (std::string_view(root.name()) != "preferences")
      xFail(root.offset_debug(),
            std::string("the root element is <") + root.name() + ">; it should be <preferences>");
    OXValue::Array entries;
    for (const pugi::xml_node& node : root.children())
      if (node.type() == pugi::node_element) entries.push_back(xEntry(node));
    return entries;
  }

 private:
  static std::string xRead(const std::string& pPath) {
    std::error_code error;
    const auto status = std::filesystem::status(pPath, error);
    if (status.type() == std::filesystem::file_type::not_found)
      raiseError(kModule, kFunction, pPath + ": there is no such file");
    if (status.type() == std::filesystem::file_type::directory)
      raiseError(kModule, kFunction, pPath + ": this is a directory; it should be an XML file");
    // Anything else, a pipe say, might never end.
    if (!std::filesystem::is_regular_file(status))
      raiseError(kModule, kFunction,
                 pPath + ": this can't be read as a file" + (error ? ": " + error.message() : ""));
    const std::uintmax_t size = std::filesystem::file_size(pPath, error);
    if (error)
      raiseError(kModule, kFunction,
                 pPath + ": the size of the file can't be had: " + error.message());
    if (size > kMaxFileBytes)
      raiseError(kModule, kFunction,
                 pPath + ": the file has " + std::to_string(size) + " bytes; " +
                     std::to_string(kMaxFileBytes) + " are the most");
    errno = 0;
    std::ifstream file(pPath, std::ios::binary);
    if (!file)
      raiseError(kModule, kFunction,
                 pPath + ": the file can't be opened: " + std::generic_category().message(errno) +
                     "; it should be readable for the user that runs the broker");
    std::string text(size, ' ');
    file.read(text.data(), std::ssize(text));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.empty())
      raiseError(
          kModule, kFunction,
          pPath + ": the file is empty; it should be <preferences> with <entry> elements in it");
    return text;
  }

  OXValue xEntry(const pugi::xml_node& pNode) const {
    if (std::string_view(pNode.name()) != "entry")
      xFail(pNode.offset_debug(),
            std::string("<") + pNode.name() + "> is not known here; it should be <entry>");
    const std::string name = xAttribute(pNode, "name");
    const std::string value = xAttribute(pNode, "value");
    return OXValue::array(name, pNode.attribute("description").value(), xTyped(pNode, name, value));
  }

  std::string xAttribute(const pugi::xml_node& pNode, const char* pAttribute) const {
    const pugi::xml_attribute attribute = pNode.attribute(pAttribute);
    if (!attribute)
      xFail(pNode.offset_debug(), std::string("an <entry> has no ") + pAttribute +
                                      "; it should be <entry name=\"...\" value=\"...\"/>");
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
                                    "\"; it should be int, float, bool or string");
  }

  template <typename Number>
  Number xNumber(const pugi::xml_node& pNode, const std::string& pName, const std::string& pValue,
                 const char* pWanted) const {
    Number number{};
    const char* const end = pValue.data() + pValue.size();
    const auto [stop, error] = std::from_chars(pValue.data(), end, number);
    if (error != std::errc() || stop != end || !std::isfinite(static_cast<double>(number)))
      xWrongValue(pNode, pName, pValue, pWanted);
    return number;
  }

  [[noreturn]] void xWrongValue(
      const pugi::xml_node& pNode, const std::string& pName, const std::string& pValue,
      const char* pWanted, const OXSourceLocation& pWhere = OXSourceLocation::current()) const {
    xFail(pNode.offset_debug(),
          "entry \"" + pName + "\" has the value \"" + pValue + "\"; it should be " + pWanted,
          pWhere);
  }

  [[noreturn]] void xFail(std::ptrdiff_t pOffset, const std::string& pText,
                          const OXSourceLocation& pWhere = OXSourceLocation::current()) const {
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
  const bool plain = !pFileName.empty() && pFileName.front() != '.' &&
                     pFileName.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
  if (!plain)
    raiseError(
        kModule, kFunction,
        "\"" + pFileName +
            "\" is no name of a preference file; it should have no slash and not start with a dot");
  return PreferenceFile(fDirectory + "/" + pFileName + ".xml").entries();
}

}  // namespace OX
