#pragma once
/// @file
/// Takes private data out of texts.
///
/// Thread rule: an object belongs to one thread at a time.

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace setd {

struct Readable;

/// Replaces what would tell who or where the viewer is by placeholders like "<mac-1>"; the same value is the same
/// placeholder in all texts of one object. docs/setd.md lists what is replaced.
class Scrubber {
 public:
  /// A text that is private wherever it stands as a word, whatever its case, also where a URL or a log has it with
  /// escaped bytes.
  struct Secret {
    std::string kind;  ///< "user"
    std::string text;
  };
  explicit Scrubber(const std::vector<Secret>& secrets);

  /// Takes the names of wireless networks and the serial numbers that the text calls so, to replace them also where a
  /// text does not say what they are.
  void Learn(const std::string& text);

  /// The text, of any bytes, without private data, also where escapes hide it; those of JSON (\u003d) are characters in
  /// it. None, and the reason in the log, when it could not be searched to its end.
  std::optional<std::string> Clean(const std::string& text);

 private:
  /// The same for the same value in another spelling.
  std::string Placeholder(const std::string& kind, const std::string& value);
  void AddSecret(const Secret& secret);
  void LearnIn(Readable text);
  bool CleanIn(Readable& text, std::string& problem);

  std::vector<Secret> m_secrets;
  std::map<std::string, int> m_counts;
  std::map<std::string, std::string> m_placeholders;  // by kind and value
};

/// The private texts that this set knows of itself: its serial number, its name in the network, its users, and the
/// wireless networks that it knows with their keys. Any thread.
std::vector<Scrubber::Secret> KnownSecrets();

}  // namespace setd
