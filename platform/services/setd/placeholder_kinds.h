#pragma once
/// @file
/// The kinds of placeholders that stand for private data in error reports: "<mac-1>". docs/setd.md lists them.

#include <string_view>

namespace setd {

inline constexpr struct PlaceholderKind {
  std::string_view name;
  const char* one;  ///< what it stands for
  const char* more;
} kPlaceholderKinds[] = {
    {"serial", "serial number", "serial numbers"},
    {"mac", "hardware address", "hardware addresses"},
    {"ip", "network address", "network addresses"},
    {"ssid", "wireless name", "wireless names"},
    {"user", "user name", "user names"},
    {"host", "name of the machine", "names of the machine"},
    {"secret", "password, key or token", "passwords, keys or tokens"},
    {"path", "path of a personal file", "paths of personal files"},
    {"mail", "mail address", "mail addresses"},
    {"phone", "telephone number", "telephone numbers"},
    {"id", "unique id", "unique ids"},
};

}  // namespace setd
