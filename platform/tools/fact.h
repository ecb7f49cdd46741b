#pragma once

#include <string>

namespace tools {

/// A row of a page: what it is, and what is the case. Both in the menu language.
struct Fact {
  std::string name;
  std::string value;
  bool isDetail = false;  ///< of the last row before it that is none
  bool operator==(const Fact&) const = default;
};

}  // namespace tools
