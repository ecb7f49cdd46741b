#pragma once
/// @file
/// Compiled catalogues of texts (.mo), as the C library reads them. It believes what stands in one, so a damaged one is
/// found out before: it would be read beyond its end, or searched for ever.
///
/// Thread rule: callable from any thread.

#include <string>
#include <string_view>

/// Why the C library must not read these bytes as a catalogue; empty when it may. The format is that of revision 0 in
/// "The Format of GNU MO Files" of the gettext manual; `bytes` may be anything.
std::string CatalogueProblem(std::string_view bytes);

/// The same of the set's catalogue for a language ("pt_BR"), or of one that the C library takes in its stead ("pt"),
/// with the path of the file that is meant; empty as well when there is none.
std::string CatalogueProblemOf(const std::string& language);
