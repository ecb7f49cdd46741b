#pragma once
/// @file
/// What issues are called, in the menu language.

#include <string>
#include <unordered_map>

namespace vexiloctl {

class Titles {
 public:
  /// Reads the solution map. Where that fails a message says so and the titles are missing.
  Titles();

  /// Whether the map has a solution of the issue.
  bool HasIssue(int code) const;

  /// The title of the issue of this code, a decimal number; empty when the map has none.
  std::string OfIssue(const std::string& code) const;
  std::string OfIssue(int code) const;

  /// The text of a message id; the id itself when the catalogue has none.
  std::string OfMessage(const std::string& id) const;

 private:
  std::unordered_map<int, std::string> m_messageIds;
};

}  // namespace vexiloctl
