// Restarting services, against a service manager that the test plays on a bus of its own.

#include "service_control.h"

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;

struct Service {
  std::string state;
  std::string stateAfterRestart = "active";
  bool isLoaded = true;
  bool isForbidden = false;
};

/// Answers for systemd, on GDBus's thread.
class Manager {
 public:
  explicit Manager(const char* address)
      : m_bus(g_dbus_connection_new_for_address_sync(
            address,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr)) {
    g_dbus_connection_add_filter(m_bus, OnMessage, this, nullptr);
    g_variant_unref(g_dbus_connection_call_sync(m_bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus",
                                                "RequestName", g_variant_new("(su)", "org.freedesktop.systemd1", 0),
                                                nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  }
  ~Manager() {
    g_dbus_connection_close_sync(m_bus, nullptr, nullptr);
    g_object_unref(m_bus);
  }

  void Play(const std::map<std::string, Service>& services) {
    const std::lock_guard lock(m_mutex);
    m_services = services;
    m_restarted.clear();
  }
  std::vector<std::string> Restarted() {
    const std::lock_guard lock(m_mutex);
    return m_restarted;
  }

 private:
  static GDBusMessage* OnMessage(GDBusConnection* bus, GDBusMessage* message, gboolean incoming, void* manager) {
    if (!incoming || g_strcmp0(g_dbus_message_get_interface(message), "org.freedesktop.systemd1.Manager") != 0)
      return message;
    GDBusMessage* reply = static_cast<Manager*>(manager)->Answer(message);
    g_dbus_connection_send_message(bus, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(reply);
    g_object_unref(message);
    return nullptr;
  }

  GDBusMessage* Answer(GDBusMessage* message) {
    const std::lock_guard lock(m_mutex);
    GVariant* body = g_dbus_message_get_body(message);
    GDBusMessage* reply = g_dbus_message_new_method_reply(message);
    if (g_strcmp0(g_dbus_message_get_member(message), "RestartUnit") == 0) {
      const char* name;
      g_variant_get(body, "(&s&s)", &name, nullptr);
      Service& service = m_services.at(name);
      if (service.isForbidden) {
        g_object_unref(reply);
        return g_dbus_message_new_method_error_literal(message, "org.freedesktop.DBus.Error.AccessDenied",
                                                       "Permission denied");
      }
      m_restarted.push_back(name);
      service.state = service.stateAfterRestart;
      g_dbus_message_set_body(reply, g_variant_new("(o)", "/org/freedesktop/systemd1/job/1"));
      return reply;
    }
    GVariantBuilder units;
    g_variant_builder_init(&units, G_VARIANT_TYPE("a(ssssssouso)"));
    GVariantIter* names;
    g_variant_get(body, "(as)", &names);
    for (const char* name; g_variant_iter_next(names, "&s", &name);) {
      const auto at = m_services.find(name);
      const bool here = at != m_services.end() && at->second.isLoaded;
      g_variant_builder_add(&units, "(ssssssouso)", name, "", here ? "loaded" : "not-found",
                            here ? at->second.state.c_str() : "inactive", "", "", "/unit", 0u, "", "/");
      // A service that is on its way has arrived when it is asked for again.
      if (here && at->second.state == "activating") at->second.state = "active";
    }
    g_variant_iter_free(names);
    g_dbus_message_set_body(reply, g_variant_new("(a(ssssssouso))", &units));
    return reply;
  }

  GDBusConnection* m_bus;
  std::mutex m_mutex;
  std::map<std::string, Service> m_services;
  std::vector<std::string> m_restarted;
};

TEST(ServiceControl, RestartsWhatHasFailedAndTellsHowItWent) {
  GTestDBus* bus = g_test_dbus_new(G_TEST_DBUS_NONE);
  g_test_dbus_up(bus);
  setenv("DBUS_SYSTEM_BUS_ADDRESS", g_test_dbus_get_bus_address(bus), 1);
  {
    Manager manager(g_test_dbus_get_bus_address(bus));
    const struct {
      std::map<std::string, Service> services;
      std::vector<std::string> restarted;
      const char* problem;
    } cases[] = {
        {{{"a.service", {"failed"}}, {"b.service", {"active"}}}, {"a.service"}, ""},
        {{{"a.service", {"failed"}}, {"b.service", {"failed", "activating"}}}, {"a.service", "b.service"}, ""},
        {{{"a.service", {"inactive"}}, {"b.service", {"active"}}}, {}, ""},
        {{{"a.service", {"inactive"}}}, {}, "cannot restart a.service: neither it nor another"},
        {{}, {}, "cannot restart a.service: neither it nor another"},
        {{{"b.service", {"failed", "failed"}}}, {"b.service"}, "b.service: it does not start: failed"},
        {{{"b.service", {"failed", "active", true, true}}}, {}, "b.service: GDBus.Error:org.freedesktop.DBus.Error."},
    };
    for (const auto& expected : cases) {
      manager.Play(expected.services);
      std::string problem;
      EXPECT_EQ(RestartFailedServices({"a.service", "b.service"}, problem), *expected.problem == '\0') << problem;
      EXPECT_THAT(problem, HasSubstr(expected.problem));
      EXPECT_EQ(manager.Restarted(), expected.restarted);
    }
  }
  std::string problem;
  EXPECT_FALSE(RestartFailedServices({"a.service"}, problem)) << "nobody owns the service manager's name";
  g_test_dbus_down(bus);
  g_object_unref(bus);
  EXPECT_FALSE(RestartFailedServices({"a.service"}, problem)) << "no bus";
  EXPECT_THAT(problem, HasSubstr("cannot restart a.service: "));
  for (const char* name : {"", "a", "a.target", "../a.service", "a service.service", "-a.service"}) {
    EXPECT_FALSE(RestartFailedServices({name}, problem));
    EXPECT_THAT(problem, HasSubstr("it is no name of a service")) << name;
  }
}

}  // namespace
