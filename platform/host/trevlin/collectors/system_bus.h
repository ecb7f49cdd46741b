#pragma once
/// @file
/// Questions to services of the machine, over D-Bus.

#include <string>

#include "base/glib_handle.h"

namespace trevlin {

/// A method of a service, with the type of its reply ("(as)").
struct BusMethod {
  const char* service;
  const char* path;
  const char* interface;
  const char* name;
  const char* reply;
};

/// What the method returns, or null where there is no system bus, no such service (none is started for it), or no reply
/// of that type. Takes `arguments`, a floating tuple or null. Waits up to a second for the bus, and as long for the
/// reply. Callable from any thread.
GVariantHandle AskSystemBus(const BusMethod& method, GVariant* arguments);

}  // namespace trevlin
