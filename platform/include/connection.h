#pragma once
/// @file
/// The state of the set's network connection.
///
/// Thread rule: callable from any thread. Calls wait for nobody.

extern "C" {

enum { CONNECTION_ERROR_NONE = 0, CONNECTION_ERROR_INVALID_PARAMETER = -22, CONNECTION_ERROR_FAILED = -5 };

typedef struct connection_s* connection_h;

/// The caller ends the handle with connection_destroy().
int connection_create(connection_h* connection);
int connection_destroy(connection_h connection);

/// Whether this machine has a default gateway on an interface that is up.
int connection_is_gateway_reachable(connection_h connection, bool* reachable);
}
