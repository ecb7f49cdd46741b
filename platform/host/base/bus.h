#pragma once
/// @file
/// The way to the session bus, the system bus, or another, and calls on it, none without an end. No bus and no service
/// is started.
///
/// Thread rule: callable from any thread; with a context, from the one that iterates it. Calls block.

#include <chrono>
#include <string>

#include "base/glib_handle.h"

/// Where the session bus is by this process's environment; empty when there is none.
std::string SessionBusAddress();

/// Where the system bus is by this process's environment, else where it is on every machine.
std::string SystemBusAddress();

/// A connection to the bus at `address`, or null with the reason in `problem`. Iterates `context` until it is there,
/// for `limit` at most; the connection's signals come there, too. With null it is made in a main loop of its own, in
/// which nothing but this happens, and signals come nowhere. `isSilent`, where given, tells of null whether something
/// is there that did not answer in time.
GObjectHandle<GDBusConnection> ConnectToBus(const std::string& address, std::chrono::milliseconds limit,
                                            GMainContext* context, std::string& problem, bool* isSilent = nullptr);

/// A method of a service, with the type of its reply ("(as)"; null for any).
struct BusMethod {
  const char* service;
  const char* path;
  const char* interface;
  const char* name;
  const char* reply;
  bool mayAskPerson = false;  ///< a password, where this user is not permitted to and there is an agent for it
};

/// What the method returns, or null with `error`. Takes `arguments`, a floating tuple or null. Waits for the reply for
/// `limit` at most, and not less than a millisecond.
GVariantHandle CallOnBus(GDBusConnection& bus, const BusMethod& method, GVariant* arguments,
                         std::chrono::milliseconds limit, GErrorHandle& error);

/// Whether a call failed because nobody has the service's name.
bool IsNobodyThere(const GErrorHandle& error);

/// The value in the reply to org.freedesktop.DBus.Properties.Get; null when it is not of that type.
GVariantHandle ValueOf(GVariant& reply, const char* type);

/// The same on a connection of its own to the system bus; null where there is no bus, no such service, or no reply of
/// that type. `isThere` gets whether the service is there, be it that it does not answer. Waits for the bus for a
/// second, and as long for the reply.
GVariantHandle AskSystemBus(const BusMethod& method, GVariant* arguments, bool* isThere = nullptr);
