#pragma once
/// @file
/// How settings keys lie on the disk: one file for each key, in set_paths::kSettingsDir or, for "memory/" keys,
/// set_paths::kVolatileSettingsDir. The file's name is the key with every byte but letters, digits, '.', '_' and '-'
/// written as %XX. Its content is the type ("int", "bool", "double", "string"), a line feed, and the value up to the
/// end of the file. Files appear and change by rename only, so a reader or a watcher sees whole values.
///
/// Thread rule: callable from any thread.

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace settings {

/// In the order of the type names above.
using Value = std::variant<int, bool, double, std::string>;

/// Why `key` cannot be one, or null when it can.
const char* KeyProblem(std::string_view key);

/// "int", "bool", "double" or "string".
const char* TypeName(const Value& value);

/// The value as text: decimal, "true" or "false", shortest exact double, the text itself.
std::string ToText(const Value& value);

/// The value of the type's name that `text` says, or nothing when it says none.
std::optional<Value> FromText(std::string_view type, std::string_view text);

enum class ReadResult { kOk, kNotSet, kFailed };

/// kFailed sets `error` to a message that names the key and the reason. `value` and `error` are untouched otherwise.
/// A symbolic link in the place of a key's file is not followed but a failure.
ReadResult Read(std::string_view key, Value& value, std::string& error);
/// Stores the value; false sets `error` to a message that names the key and the reason. What already lies there is not
/// written again; a damaged file or a symbolic link is replaced. The value is on the disk when it returns.
bool Write(std::string_view key, const Value& value, std::string& error);
/// As Write(); but while the process writes in the background (background_writing.h) it takes the value and stores it
/// there, other processes see it a little later, and what only the disk can tell is told in the log. Read() of this
/// process gives the value that was taken last.
bool WriteSoon(std::string_view key, const Value& value, std::string& error);

/// The folder, a path of the set, of a key's file, and the file's name in it.
const char* FolderOfKey(std::string_view key);
std::string FileNameOfKey(std::string_view key);

/// The keys that begin with `prefix` ("db/menu/") and have a file, in the order of their files' names.
std::vector<std::string> KeysBelow(std::string_view prefix);

/// The key that a file name stands for; empty when it stands for none (a file that is being written, say).
std::string KeyOfFileName(std::string_view fileName);

}  // namespace settings
