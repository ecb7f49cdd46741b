#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QUVA_Records.h"

struct XML_ParserStruct;

namespace QUVA {

/// A growable array of bytes.
class TCParserDataBuffer {
 public:
  /// Appends `len` bytes; nothing for a `len` below 1. The capacity doubles from 1.
  void InsertData(const char* data, int len);
  const char* GetData() const { return m_data.get(); }
  int GetDataSize() const { return static_cast<int>(m_size); }
  void Clear();

 private:
  std::unique_ptr<char[]> m_data;
  size_t m_size = 0;
  size_t m_capacity = 0;
};

/// Reads the text of a solution map (docs/solution-map.md) into a record.
/// Thread rule: a parser holds no state of a parse, so one object serves any number of threads.
class TCXMLParser {
 public:
  /// The attributes of one start tag, by lower-case name.
  class TCAttributes {
   public:
    /// Lower-cases the name and sets the entry, also when it is there already.
    void Insert(std::string_view name, std::string_view value);
    void Clear() { m_count = 0; }

    /// All return false and leave `out` untouched when the attribute is missing. Otherwise:
    bool GetValue(std::string_view name, std::string& out) const;   ///< copies
    bool GetValue(std::string_view name, int& out) const;           ///< "%d"; untouched when that reads nothing
    bool GetValue(std::string_view name, unsigned int& out) const;  ///< "%u"; untouched when that reads nothing
    /// Decimal, converted in 32 bits: what is larger gives 4294967295.
    bool GetValue(std::string_view name, unsigned long long& out) const;
    bool GetValue(std::string_view name, double& out) const;  ///< false as well unless the whole text is a number
    bool GetValue(std::string_view name, bool& out) const;    ///< false for "false" and "0" in any case, else true

    /// Whether the attribute is there and equals `value` in any case.
    bool HasAttrOfValue(std::string_view name, std::string_view value) const;

   private:
    std::string* Find(std::string_view name);
    const std::string* Find(std::string_view name) const;

    // An element has few attributes: looking through a flat list is faster than a tree, and its texts are used again.
    std::vector<std::pair<std::string, std::string>> m_attributes;
    size_t m_count = 0;
  };

  /// Character data by element.
  class TCElements {
   public:
    void InsertElementData(const std::string& tag, const std::string& value);
    bool GetElementData(const std::string& tag, std::string& out) const;
    void SetCurrentElement(const std::string& tag);
    void GetCurrentElement(std::string& out) const { out = m_current_element; }

   private:
    std::map<std::string, std::string> m_elements;
    std::string m_current_element;
  };

  using StartTagHandler = std::function<void(QUVA_SolutionMap&, const TCAttributes&)>;
  using CharacterDataHandler = std::function<void(QUVA_SolutionMap&, const TCElements&)>;

  /// What a parse hands to its callbacks.
  struct TCParseContext {
    const TCXMLParser* parser = nullptr;
    QUVA_SolutionMap* map = nullptr;
    std::string currentElement;
    TCAttributes attributes;  ///< of the element that is read
    XML_ParserStruct* expat = nullptr;
    std::exception_ptr failure;  ///< what a handler threw; it must not unwind through the C library
  };

  TCXMLParser();

  /// Replaces the map's solutions by those of the document; version and count change only where the document gives
  /// them. False, after a log line, for a document that is not well-formed: what came before the error stays in the
  /// map. A document that merely ends early is accepted. Throws std::out_of_range for a sol_val tag before any
  /// solution.
  bool Parse(const std::string& xmlText, QUVA_SolutionMap& map) const;

  // Element callbacks, of the signatures that the XML library has; `context` is a TCParseContext. The last two are not
  // registered by Parse().
  static void m_StartXmlElement(void* context, const char* name, const char** attributes);
  static void m_EndXmlElement(void* context, const char* name);
  static void m_SetCharacterData(void* context, const char* data, int len);

 private:
  static void m_HandleSMInfoTag(QUVA_SolutionMap& map, const TCAttributes& attributes);
  static void m_HandleSolutionMapTag(QUVA_SolutionMap& map, const TCAttributes& attributes);
  static void m_HandleSolutionTag(QUVA_SolutionMap& map, const TCAttributes& attributes);
  static void m_HandleSolutionValTag(QUVA_SolutionMap& map, const TCAttributes& attributes);

  std::map<std::string, StartTagHandler, std::less<>> m_startTagHandlers;
  std::map<std::string, CharacterDataHandler, std::less<>> m_characterDataHandlers;
  TCParserDataBuffer m_buffer;
};

}  // namespace QUVA
