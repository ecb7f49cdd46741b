#pragma once
/// @file
/// By which a text is searched for private data. docs/setd.md lists what is private.
///
/// Thread rule: callable from any thread.

#include <glib.h>

#include <memory>
#include <string>
#include <vector>

#include "c_handle.h"

namespace setd {

using RegexHandle = std::unique_ptr<GRegex, CRelease<&g_regex_unref>>;

/// A pattern for texts of any bytes, in which groups may share a name. Null, and in the log, when it is none.
RegexHandle CompilePattern(const std::string& pattern);

struct ScrubRule {
  const char* kind;   ///< of the placeholder, out of kPlaceholderKinds
  RegexHandle regex;  ///< what it captures as "v", or else all of a match, is replaced
  bool (*isPrivate)(const std::string& value);
  bool isName;  ///< can stand anywhere else without what tells that it is one
};

/// In their order: an earlier rule takes what a later one would take a part of. Each takes a time that grows with the
/// length of the text alone, whatever is in it.
const std::vector<ScrubRule>& ScrubRules();

/// Users of every set and machine, whose names tell nothing.
bool IsCommonUser(const std::string& name);

/// Whether the value is a placeholder, "<mac-1>".
bool IsPlaceholder(const std::string& value);

/// The kinds of placeholders, as a pattern.
const std::string& PlaceholderKindsPattern();

}  // namespace setd
