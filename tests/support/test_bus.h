#pragma once
/// @file
/// A message bus of the test's own, and services on it that the test plays.

#include <gio/gio.h>

#include "base/glib_handle.h"
#include "support/test.h"

/// Runs for as long as it lives.
class TestBus {
 public:
  TestBus() : m_bus(g_test_dbus_new(G_TEST_DBUS_NONE)) { g_test_dbus_up(m_bus.get()); }
  ~TestBus() { g_test_dbus_stop(m_bus.get()); }
  TestBus(const TestBus&) = delete;
  TestBus& operator=(const TestBus&) = delete;

  const char* Address() const { return g_test_dbus_get_bus_address(m_bus.get()); }

 private:
  GObjectHandle<GTestDBus> m_bus;
};

/// Has `name` on the bus. Each call is answered on GDBus's thread with what `answer` makes of it; null is silence.
class PlayedService {
 public:
  using Answer = std::function<GDBusMessage*(GDBusMessage* call)>;

  PlayedService(const TestBus& bus, const char* name, Answer answer)
      : m_answer(std::move(answer)),
        m_bus(g_dbus_connection_new_for_address_sync(
            bus.Address(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr)) {
    g_dbus_connection_add_filter(m_bus.get(), OnMessage, this, nullptr);
    const GVariantHandle owned(g_dbus_connection_call_sync(
        m_bus.get(), "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", name, 0),
        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    EXPECT_TRUE(owned) << name;
  }
  ~PlayedService() { g_dbus_connection_close_sync(m_bus.get(), nullptr, nullptr); }
  /// Takes `values`, a floating tuple.
  void Emit(const char* path, const char* interface, const char* signal, GVariant* values) const {
    g_dbus_connection_emit_signal(m_bus.get(), nullptr, path, interface, signal, values, nullptr);
  }
  PlayedService(const PlayedService&) = delete;
  PlayedService& operator=(const PlayedService&) = delete;

 private:
  static GDBusMessage* OnMessage(GDBusConnection* bus, GDBusMessage* message, gboolean incoming, void* self) {
    if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) return message;
    const GObjectHandle<GDBusMessage> call(message), reply(static_cast<PlayedService*>(self)->m_answer(message));
    if (reply) g_dbus_connection_send_message(bus, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    return nullptr;
  }

  const Answer m_answer;
  GObjectHandle<GDBusConnection> m_bus;
};
