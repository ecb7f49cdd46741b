#pragma once

#include <string>
#include <string_view>

#include "c_handle.h"

namespace QUVA {

/// Whether `name` is a file name that a shell takes as one word, as it stands, and that leads nowhere else: letters,
/// digits, '.', '_' and '-', no '.' at its beginning. Any thread.
bool IsPlainName(const std::string& name);

/// Whether there is something at `path` of the set, links followed. Any thread.
bool FileExists(const std::string& path);

/// Whether a symbolic link stands at `path` of the set, wherever it leads; errno is 0 when nothing or something else
/// does, and else the reason why that cannot be told. Any thread.
bool IsLink(const std::string& path);

/// Reads a whole file of the set, of at most `limit` bytes. Regular files only; never waits for a writer. A symbolic
/// link as the last part of its path is followed where `mayBeLink` only. False with the reason in `problem` ("it is
/// larger than 4096 bytes"), `text` untouched. Any thread.
bool ReadRegularFile(const std::string& path, size_t limit, bool mayBeLink, std::string& text, std::string& problem);

/// Opens a file that is of no exchange folder, by its path on this machine (after SystemPath()) for writing and
/// reading, created or emptied. Null with the reason in errno when a symbolic link stands in its place (ELOOP), when it
/// is no regular file (EINVAL), when it has another name as well (EMLINK), or when it cannot be opened. Never waits.
/// Any thread.
FileHandle OpenFileWithoutLinks(const std::string& path);

/// The same of a file in an exchange folder (a path of the set), as exchange::OpenFile() opens it.
FileHandle OpenExchangeFile(const std::string& path);

/// Whether an exchange folder and what stands in it at `path` (of the set), if anything, are in order, as
/// exchange::OpenFile() has it. False otherwise, with the reason in errno. Any thread.
bool IsExchangeInOrder(const std::string& path);

/// Creates or empties the file at `path` (of the set) in an exchange folder and writes `content`, as OpenExchangeFile()
/// opens it. The folder must be there. False on refusal or failure, with the reason in errno; a file that could
/// not be written whole is removed. Any thread.
bool CreateFileWithoutLinks(const std::string& path, std::string_view content);

}  // namespace QUVA
