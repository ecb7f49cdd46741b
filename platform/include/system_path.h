#pragma once
/// @file
/// Where a path of the set lies in the file system of this machine.
///
/// Every absolute path in this system is a path of the set ("/opt/usr/home/owner/share"). Code that opens, creates,
/// lists or hands a path to the system passes it through SystemPath() first; texts for people, logs and file contents
/// carry the path of the set itself.
///
/// Thread rule: callable from any thread, at any time, also before main().

#include <string>
#include <string_view>

#if defined(VEXILO_DEVICE_BUILD)

/// On a set the two are the same.
constexpr std::string_view SystemRoot() {
  return {};
}
inline std::string SystemPath(std::string_view path) {
  return std::string(path);
}

#else

/// The set root: the value of the environment variable VEXILO_ROOT, read once, empty when unset.
/// It must be an absolute path without links, made of letters, digits, '/', '.', '_' and '-', because paths reach a
/// shell in two places. Any other value ends the process when it is loaded, with a message on standard error and exit
/// code 1.
std::string_view SystemRoot();

/// `path` (absolute, of the set) below the set root.
std::string SystemPath(std::string_view path);

#endif

/// What a path of SystemPath()'s is called on the set, for logs and messages. It refers to `path`.
inline std::string_view NameOnSet(std::string_view path) {
  const std::string_view root = SystemRoot();
  return path.substr(path.starts_with(root) ? root.size() : 0);
}
