#pragma once

#include <string>
#include <string_view>

namespace QUVA {

/// Whether no symbolic link stands anywhere on the way to `path` (absolute, of the set). The file need not be there;
/// its folder must. False otherwise, with the reason in errno (ELOOP for a link). Any thread.
bool HasNoLinks(const std::string& path);

/// Creates or empties the file at `path` (of the set) and writes `content`, unless a symbolic link stands anywhere on
/// the way to it. The folder must be there. False on refusal or failure, with the reason in errno (ELOOP for a link).
/// Any thread.
bool CreateFileWithoutLinks(const std::string& path, std::string_view content);

}  // namespace QUVA
