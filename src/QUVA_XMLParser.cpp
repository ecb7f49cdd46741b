#include "QUVA_XMLParser.h"

#include <expat.h>
#include <glib.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "VexiloLog.h"
#include "c_handle.h"

namespace QUVA {

namespace {

using ExpatParser = std::unique_ptr<XML_ParserStruct, CRelease<&XML_ParserFree>>;

// ASCII only: tag and attribute names of the format have no other letters, and no locale may change their meaning.
void LowerCase(std::string& text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// What a 32-bit strtoul() gives: larger values saturate, a minus sign wraps around.
uint32_t ToUnsigned32(const char* text) {
  errno = 0;
  const unsigned long long value = std::strtoull(text, nullptr, 10);
  const bool negative = text[std::strspn(text, " \t\n\v\f\r")] == '-';
  const unsigned long long magnitude = negative ? 0 - value : value;
  if (errno == ERANGE || magnitude > UINT32_MAX) return UINT32_MAX;
  return static_cast<uint32_t>(value);
}

}  // namespace

// ---- data buffer

void TCParserDataBuffer::InsertData(const char* data, int len) {
  if (len < 1) return;
  const size_t needed = m_size + static_cast<size_t>(len);
  if (needed > m_capacity) {
    size_t capacity = std::max<size_t>(m_capacity, 1);
    while (capacity < needed) capacity *= 2;
    auto grown = std::make_unique<char[]>(capacity);
    std::copy_n(m_data.get(), m_size, grown.get());
    m_data = std::move(grown);
    m_capacity = capacity;
  }
  std::copy_n(data, len, m_data.get() + m_size);
  m_size = needed;
}

void TCParserDataBuffer::Clear() {
  m_data.reset();
  m_size = 0;
  m_capacity = 0;
}

// ---- attributes

void TCXMLParser::TCAttributes::Insert(std::string_view name, std::string_view value) {
  if (m_count == m_attributes.size()) m_attributes.emplace_back();
  auto& [newName, newValue] = m_attributes[m_count];
  newName = name;
  LowerCase(newName);
  if (std::string* known = Find(newName)) {
    *known = value;
  } else {
    newValue = value;
    ++m_count;
  }
}

std::string* TCXMLParser::TCAttributes::Find(std::string_view name) {
  return const_cast<std::string*>(std::as_const(*this).Find(name));
}

const std::string* TCXMLParser::TCAttributes::Find(std::string_view name) const {
  for (size_t i = 0; i < m_count; ++i)
    if (m_attributes[i].first == name) return &m_attributes[i].second;
  return nullptr;
}

bool TCXMLParser::TCAttributes::GetValue(std::string_view name, std::string& out) const {
  const std::string* value = Find(name);
  if (value) out = *value;
  return value != nullptr;
}

bool TCXMLParser::TCAttributes::GetValue(std::string_view name, int& out) const {
  const std::string* value = Find(name);
  if (value) std::sscanf(value->c_str(), "%d", &out);
  return value != nullptr;
}

bool TCXMLParser::TCAttributes::GetValue(std::string_view name, unsigned int& out) const {
  const std::string* value = Find(name);
  if (value) std::sscanf(value->c_str(), "%u", &out);
  return value != nullptr;
}

bool TCXMLParser::TCAttributes::GetValue(std::string_view name, unsigned long long& out) const {
  const std::string* value = Find(name);
  if (value) out = ToUnsigned32(value->c_str());
  return value != nullptr;
}

bool TCXMLParser::TCAttributes::GetValue(std::string_view name, double& out) const {
  const std::string* value = Find(name);
  if (!value || value->empty()) return false;
  char* end = nullptr;
  const double number = g_ascii_strtod(value->c_str(), &end);  // whatever the locale
      if (end != value->c_str() + value->size()) return false;
  out = number;
  return true;
}

bool TCXMLParser::TCAttributes::GetValue(std::string_view name, bool& out) const {
  const std::string* value = Find(name);
  if (value) out = !EqualIgnoringCase(*value, "false") && *value != "0";
  return value != nullptr;
}

bool TCXMLParser::TCAttributes::HasAttrOfValue(std::string_view name, std::string_view value) const {
  const std::string* own = Find(name);
  return own && EqualIgnoringCase(*own, value);
}

// ---- elements

void TCXMLParser::TCElements::InsertElementData(const std::string& tag, const std::string& value) {
  VEXILO_LOGD("tag [%s] value [%s]", tag.c_str(), value.c_str());
  m_elements[tag] = value;
}

bool TCXMLParser::TCElements::GetElementData(const std::string& tag, std::string& out) const {
  const auto at = m_elements.find(tag);
  if (at == m_elements.end()) return false;
  out = at->second;
  return true;
}

void TCXMLParser::TCElements::SetCurrentElement(const std::string& tag) {
  VEXILO_LOGD("tag [%s] m_current_element [%s]", tag.c_str(), m_current_element.c_str());
  m_current_element = tag;
}

// ---- parser

TCXMLParser::TCXMLParser() {
  m_startTagHandlers["sminfo"] = &TCXMLParser::m_HandleSMInfoTag;
  m_startTagHandlers["sm"] = &TCXMLParser::m_HandleSolutionMapTag;
  m_startTagHandlers["solution"] = &TCXMLParser::m_HandleSolutionTag;
  m_startTagHandlers["sol_val"] = &TCXMLParser::m_HandleSolutionValTag;
}

bool TCXMLParser::Parse(const std::string& xmlText, QUVA_SolutionMap& map) const {
  map.solutions.clear();
  ExpatParser expat(XML_ParserCreate(nullptr));
  if (!expat) {
    VEXILO_LOGE("Couldnt create parser");
    return false;
  }
  TCParseContext context;
  context.parser = this;
  context.map = &map;
  context.expat = expat.get();
  XML_SetUserData(expat.get(), &context);
  XML_SetElementHandler(expat.get(), &TCXMLParser::m_StartXmlElement, nullptr);

  VEXILO_LOGD("%s", xmlText.c_str());
  if (xmlText.size() > INT_MAX) {
    VEXILO_LOGE("Error while parsing xml: %s, line: %lu, col: %lu", "document too large", 0UL, 0UL);
    VEXILO_LOGE("Parsing failed.");
    return false;
  }
  // Not the final piece, as far as the library knows: a document that ends early is no error.
  const XML_Status status = XML_Parse(expat.get(), xmlText.data(), static_cast<int>(xmlText.size()), XML_FALSE);
  if (context.failure) std::rethrow_exception(context.failure);
  if (status == XML_STATUS_OK) return true;
  VEXILO_LOGE("Error while parsing xml: %s, line: %lu, col: %lu", XML_ErrorString(XML_GetErrorCode(expat.get())),
              static_cast<unsigned long>(XML_GetCurrentLineNumber(expat.get())),
              static_cast<unsigned long>(XML_GetCurrentColumnNumber(expat.get())));
  expat.reset();
  VEXILO_LOGE("Parsing failed.");
  return false;
}

void TCXMLParser::m_StartXmlElement(void* context, const char* name, const char** attributes) {
  if (!context || !name || !attributes) return;
  auto& parse = *static_cast<TCParseContext*>(context);
  try {
    TCAttributes& list = parse.attributes;
    list.Clear();
    for (; attributes[0]; attributes += 2) list.Insert(attributes[0], attributes[1]);
    std::string tag = name;
    LowerCase(tag);
    if (parse.parser && parse.map) {
      const auto handler = parse.parser->m_startTagHandlers.find(tag);
      if (handler != parse.parser->m_startTagHandlers.end()) handler->second(*parse.map, list);
    }
    parse.currentElement = std::move(tag);
    VEXILO_LOGD("current_element [%s]", parse.currentElement.c_str());
  } catch (...) {
    parse.failure = std::current_exception();
    if (parse.expat) XML_StopParser(parse.expat, XML_FALSE);
  }
}

void TCXMLParser::m_EndXmlElement(void* context, const char* name) {
  if (!context || !name) return;
  static_cast<TCParseContext*>(context)->currentElement.clear();
  VEXILO_LOGD("clear current element (%s)", name);
}

void TCXMLParser::m_SetCharacterData(void* context, const char* data, int len) {
  if (!context || !data || len < 0) {
    VEXILO_LOGE("invalid parameters");
    return;
  }
  auto& parse = *static_cast<TCParseContext*>(context);
  TCParserDataBuffer buffer;
  buffer.InsertData(data, len);
  buffer.InsertData("", 1);
  if (parse.currentElement.empty()) {
    VEXILO_LOGD("current element is space");
    return;
  }
  TCElements elements;
  elements.InsertElementData(parse.currentElement, buffer.GetData());
  VEXILO_LOGD("current_element [%s] data [%s] len [%d]", parse.currentElement.c_str(), buffer.GetData(), len);
  if (!parse.parser || !parse.map) return;
  const auto handler = parse.parser->m_characterDataHandlers.find(parse.currentElement);
  if (handler != parse.parser->m_characterDataHandlers.end()) handler->second(*parse.map, elements);
}

// ---- start tags

void TCXMLParser::m_HandleSMInfoTag(QUVA_SolutionMap& map, const TCAttributes& attributes) {
  int version = static_cast<int>(map.version);
  attributes.GetValue("version", version);
  map.version = static_cast<uint32_t>(version);
  VEXILO_LOGI("SM_VERSION [%d]", version);
}

void TCXMLParser::m_HandleSolutionMapTag(QUVA_SolutionMap& map, const TCAttributes& attributes) {
  attributes.GetValue("cnt", map.count);
  VEXILO_LOGI("SM_COUNT [%d]", static_cast<int>(map.count));
}

void TCXMLParser::m_HandleSolutionTag(QUVA_SolutionMap& map, const TCAttributes& attributes) {
  QUVA_Solution& solution = map.solutions.emplace_back();
  attributes.GetValue("issue_code", solution.issue_code);
  attributes.GetValue("sol_code", solution.sol_code);
  attributes.GetValue("sol_type", solution.sol_type);
  attributes.GetValue("sol_name", solution.sol_name);
  attributes.GetValue("sid_issue", solution.sid_issue);
  attributes.GetValue("sid_sol", solution.sid_sol);
  attributes.GetValue("sid_button1", solution.sid_button1);
  attributes.GetValue("sid_button2", solution.sid_button2);
  attributes.GetValue("reboot", solution.reboot);
  attributes.GetValue("is_fg_bg", solution.is_fg_bg);
  attributes.GetValue("action", solution.action);
  attributes.GetValue("toast1", solution.toast1);
  attributes.GetValue("toast2", solution.toast2);
  attributes.GetValue("source", solution.source);
  attributes.GetValue("view_authority", solution.view_authority);
}

void TCXMLParser::m_HandleSolutionValTag(QUVA_SolutionMap& map, const TCAttributes& attributes) {
  std::string value;
  std::string type;
  attributes.GetValue("param_value", value);
  attributes.GetValue("param_type", type);
  const size_t last = map.solutions.size() - 1;
  map.solutions.at(last).sol_values.emplace_back(std::move(type), std::move(value));
}

}  // namespace QUVA
