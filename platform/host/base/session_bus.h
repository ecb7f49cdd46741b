#pragma once
/// @file
/// The way to the session bus, or another. A bus is never started.
///
/// Thread rule: the thread that iterates the context.

#include <chrono>
#include <string>

#include "base/glib_handle.h"

/// Where the session bus is by this process's environment; empty when there is none.
std::string SessionBusAddress();

/// A connection to the bus at `address`, or null with the reason in `problem`. Iterates `context` until it is there,
/// for `limit` at most; the connection's signals come there, too.
GObjectHandle<GDBusConnection> ConnectToBus(const std::string& address, std::chrono::milliseconds limit,
                                            GMainContext* context, std::string& problem);
