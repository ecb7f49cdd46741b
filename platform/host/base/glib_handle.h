#pragma once
/// @file
/// Owners for what GLib and GIO hand out.

#include <gio/gio.h>

#include <memory>
#include <string>

#include "c_handle.h"

template <typename T>
using GObjectHandle = std::unique_ptr<T, CRelease<&g_object_unref>>;
using GVariantHandle = std::unique_ptr<GVariant, CRelease<&g_variant_unref>>;
using GKeyFileHandle = std::unique_ptr<GKeyFile, CRelease<&g_key_file_unref>>;
using GNodeInfoHandle = std::unique_ptr<GDBusNodeInfo, CRelease<&g_dbus_node_info_unref>>;
using GText = std::unique_ptr<char, CRelease<&g_free>>;
using GTextArray = std::unique_ptr<char*, CRelease<&g_strfreev>>;

/// Takes the error of one call: `Call(…, error.Out())`.
class GErrorHandle {
 public:
  GErrorHandle() = default;
  GErrorHandle(const GErrorHandle&) = delete;
  GErrorHandle& operator=(const GErrorHandle&) = delete;
  ~GErrorHandle() { g_clear_error(&m_error); }

  GError** Out() {
    g_clear_error(&m_error);
    return &m_error;
  }
  const GError* Get() const { return m_error; }
  bool Matches(GQuark domain, int code) const { return g_error_matches(m_error, domain, code); }
  /// What the other side on a bus calls it ("org.freedesktop.DBus.Error.AccessDenied"); empty where it came from here.
  std::string RemoteName() const {
    const GText name(m_error ? g_dbus_error_get_remote_error(m_error) : nullptr);
    return name ? name.get() : "";
  }
  const char* Message() const { return m_error ? m_error->message : "no error"; }

 private:
  GError* m_error = nullptr;
};
