#include "settings/text_catalogue.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <set>

#include "base/atomic_file.h"
#include "set_names.h"
#include "set_paths.h"
#include "system_path.h"

namespace {

constexpr uint32_t kMagic = 0x950412de;
constexpr size_t kLargest = 4 << 20;  // bytes

class Catalogue {
 public:
  explicit Catalogue(std::string_view bytes) : m_bytes(bytes) {}
  std::string Problem();

 private:
  enum Field : size_t { kMagicAt = 0, kRevision = 4, kCount = 8, kIds = 12, kTexts = 16, kHashSize = 20, kHash = 24 };
  static constexpr size_t kHead = 28;

  uint32_t Word(size_t at) const {
    uint32_t word;
    std::memcpy(&word, m_bytes.data() + at, sizeof word);
    return m_isSwapped ? __builtin_bswap32(word) : word;
  }
  bool HasTable(size_t at, size_t words) const {
    return at % 4 == 0 && at <= m_bytes.size() && words <= (m_bytes.size() - at) / 4;
  }
  /// The text number `i` of the table; nothing when it does not end within the file.
  std::optional<std::string_view> Text(size_t table, size_t i) const {
    const size_t length = Word(table + 8 * i), at = Word(table + 8 * i + 4);
    if (at >= m_bytes.size() || length >= m_bytes.size() - at || m_bytes[at + length] != '\0') return std::nullopt;
    return m_bytes.substr(at, length);
  }
  std::string TextProblem() const;
  std::string HashProblem() const;

  const std::string_view m_bytes;
  bool m_isSwapped = false;
};

std::string Catalogue::Problem() {
  if (m_bytes.size() < kHead) return "it is shorter than its head";
  m_isSwapped = Word(kMagicAt) != kMagic;
  if (Word(kMagicAt) != kMagic) return "it is no catalogue of texts";
  if (Word(kRevision) != 0) return "it is of revision " + std::to_string(Word(kRevision)) + ", not 0";
  const size_t count = Word(kCount);
  if (!HasTable(Word(kIds), 2 * count) || !HasTable(Word(kTexts), 2 * count))
    return "a table of its texts does not end within it";
  const std::string problem = TextProblem();
  return problem.empty() ? HashProblem() : problem;
}

std::string Catalogue::TextProblem() const {
  std::optional<std::string> before;
  for (size_t i = 0; i < Word(kCount); ++i) {
    const auto id = Text(Word(kIds), i);
    if (!id || !Text(Word(kTexts), i)) return "its text " + std::to_string(i + 1) + " does not end within it";
    // As it is compared: up to its first zero, behind which the plural stands.
    const std::string name(id->substr(0, id->find('\0')));
    if (before && *before >= name) return "its text " + std::to_string(i + 1) + " is not in order";
    before = name;
  }
  return {};
}

bool IsPrime(uint32_t number) {
  for (uint32_t divisor = 2; divisor <= number / divisor; ++divisor)
    if (number % divisor == 0) return false;
  return number >= 2;
}

// A search goes on in steps until it comes to an empty place: it ends where one can be come to by steps of any width.
std::string Catalogue::HashProblem() const {
  const uint32_t size = Word(kHashSize);
  if (size <= 2) return {};  // not used
  if (!HasTable(Word(kHash), size)) return "its hash table does not end within it";
  if (!IsPrime(size)) return "the size of its hash table is no prime number";
  bool hasEmpty = false;
  for (size_t i = 0; i < size; ++i) {
    const uint32_t place = Word(Word(kHash) + 4 * i);
    if (place > Word(kCount)) return "its hash table leads to a text that it has not";
    hasEmpty = hasEmpty || place == 0;
  }
  return hasEmpty ? "" : "its hash table has no empty place";
}

/// The names of the folders in which the C library looks for a language's texts.
std::set<std::string> FoldersOf(const std::string& language) {
  const size_t modifierAt = std::min(language.find('@'), language.size());
  const std::string modifier = language.substr(modifierAt), name = language.substr(0, modifierAt);
  const std::string plain = name.substr(0, name.find('_'));
  return {name + modifier, name, plain + modifier, plain};
}

}  // namespace

std::string CatalogueProblem(std::string_view bytes) {
  return Catalogue(bytes).Problem();
}

std::string CatalogueProblemOf(const std::string& language) {
  for (const std::string& folder : FoldersOf(language)) {
    const std::string path =
        std::string(set_paths::kLocaleDir) + "/" + folder + "/LC_MESSAGES/" + set_names::kCareApplication + ".mo";
    std::string bytes, problem;
    if (ReadWholeFile(SystemPath(path), bytes, Links::kFollow, kLargest))
      problem = CatalogueProblem(bytes);
    else if (errno != ENOENT && errno != ENOTDIR)
      problem = WhyUnread(errno, kLargest);
    if (!problem.empty()) return path + ": " + problem;
  }
  return {};
}
