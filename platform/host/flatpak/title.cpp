#include "flatpak/title.h"

#include <expat.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "base/beneath.h"
#include "base/glib_handle.h"
#include "packages/manifest.h"

namespace flatpak {

namespace {

constexpr size_t kMaxDescriptionBytes = 8u << 20;
constexpr size_t kMaxEntryBytes = 1u << 20;

/// "de_DE.utf8" as the languages that fit, best first: "de_DE", "de".
std::vector<std::string> LanguagesOf(const std::string& locale) {
  const GTextArray variants(g_get_locale_variants(locale.c_str()));
  std::vector<std::string> languages;
  for (char** each = variants.get(); *each; ++each)
    if (!std::strchr(*each, '.')) languages.emplace_back(*each);
  return languages;
}

/// The names that stand directly in a <component>: the one whose language fits best, and the one without a language.
class NameReader {
 public:
  explicit NameReader(const std::vector<std::string>& languages) : m_languages(languages) {}

  /// Takes what stands before a mistake.
  void Read(const std::string& xml) {
    using Parser = std::unique_ptr<XML_ParserStruct, CRelease<&XML_ParserFree>>;
    const Parser parser(XML_ParserCreate(nullptr));
    m_parser = parser.get();
    XML_SetUserData(m_parser, this);
    XML_SetElementHandler(m_parser, OnStart, OnEnd);
    XML_SetCharacterDataHandler(m_parser, OnText);
    XML_Parse(m_parser, xml.data(), static_cast<int>(xml.size()), XML_TRUE);
  }
  const std::string& Translated() const { return m_translated; }
  const std::string& Plain() const { return m_plain; }

 private:
  static void OnStart(void* self, const XML_Char* name, const XML_Char** attributes) {
    static_cast<NameReader*>(self)->Start(name, attributes);
  }
  static void OnEnd(void* self, const XML_Char*) { static_cast<NameReader*>(self)->End(); }
  static void OnText(void* self, const XML_Char* text, int length) {
    auto& reader = *static_cast<NameReader*>(self);
    if (reader.m_inName && reader.m_depth == 2) reader.m_text.append(text, static_cast<size_t>(length));
  }

  void Start(const std::string& element, const XML_Char** attributes) {
    if (++m_depth != 2) return;
    m_inName = element == "name";
    // The long texts come after the names.
    if (!m_inName && !m_plain.empty() && element == "description") XML_StopParser(m_parser, XML_FALSE);
    m_text.clear();
    m_language.clear();
    for (; *attributes; attributes += 2)
      if (std::string_view(attributes[0]) == "xml:lang") m_language = attributes[1];
    std::replace(m_language.begin(), m_language.end(), '-', '_');
  }

  void End() {
    if (m_depth-- != 2 || !m_inName) return;
    m_inName = false;
    if (m_language.empty()) {
      m_plain = m_text;
      return;
    }
    const auto rank = std::find(m_languages.begin(), m_languages.end(), m_language) - m_languages.begin();
    if (rank >= m_rank || rank == static_cast<ptrdiff_t>(m_languages.size())) return;
    m_rank = rank;
    m_translated = m_text;
  }

  const std::vector<std::string>& m_languages;
  XML_Parser m_parser = nullptr;
  int m_depth = 0;
  bool m_inName = false;
  std::string m_language;
  std::string m_text;
  std::string m_plain;
  std::string m_translated;
  ptrdiff_t m_rank = PTRDIFF_MAX;
};

std::string DesktopName(int deployment, const std::string& id, const std::string& locale) {
  std::string text;
  if (!ReadBeneath(deployment, "export/share/applications/" + id + ".desktop", kMaxEntryBytes, text)) return {};
  const GKeyFileHandle entry(g_key_file_new());
  if (!g_key_file_load_from_data(entry.get(), text.data(), text.size(), G_KEY_FILE_KEEP_TRANSLATIONS, nullptr))
    return {};
  const GText name(g_key_file_get_locale_string(entry.get(), G_KEY_FILE_DESKTOP_GROUP, G_KEY_FILE_DESKTOP_KEY_NAME,
                                                locale.c_str(), nullptr));
  return name ? name.get() : "";
}

/// As people would write it in one line.
std::string Trimmed(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
  const size_t first = text.find_first_not_of(' ');
  return first == text.npos ? "" : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

}  // namespace

std::string ReadTitle(int deployment, const std::string& id, const std::string& locale) {
  const std::vector<std::string> languages = LanguagesOf(locale);
  NameReader description(languages);
  for (const char* kind : {"metainfo", "appdata"}) {
    std::string xml;
    const std::string file = "files/share/" + std::string(kind) + "/" + id + "." + kind + ".xml";
    if (!ReadBeneath(deployment, file, kMaxDescriptionBytes, xml)) continue;
    description.Read(xml);
    break;
  }
  // Without a language, names are English.
  const bool english = std::find(languages.begin(), languages.end(), "en") != languages.end();
  for (const std::string& each :
       {description.Translated(), english ? description.Plain() : "",
        DesktopName(deployment, id, languages.empty() ? "en" : languages.front()), description.Plain()})
    if (const std::string title = Trimmed(each); packages::IsTitle(title)) return title;
  return id;
}

}  // namespace flatpak
