#pragma once
/// @file
/// The package manager: sizes and data of installed packages.
///
/// Thread rule: callable from any thread; a client belongs to one thread at a time.

#include <sys/types.h>

extern "C" {

typedef struct pkgmgr_client pkgmgr_client;

typedef enum { PC_REQUEST = 0 } pkgmgr_client_type;
typedef enum { PM_DEFAULT = 0, PM_QUIET = 1 } pkgmgr_mode;

/// What a size query measures, in bytes as the file system counts them (allocated blocks).
typedef enum {
  PM_GET_TOTAL_SIZE = 0,  ///< program, data and cache
  PM_GET_DATA_SIZE = 1,   ///< data and cache
} pkgmgr_getsize_type;

/// Results. Every other negative value is a negative errno.
enum { PKGMGR_R_OK = 0, PKGMGR_R_EINVAL = -1, PKGMGR_R_ENOPKG = -2, PKGMGR_R_ERROR = -3 };

/// A client, or null when there is no memory for one. The caller ends it with pkgmgr_client_free().
pkgmgr_client* pkgmgr_client_new(pkgmgr_client_type type);
int pkgmgr_client_free(pkgmgr_client* client);

/// Measures a package (by package id) of the user. Blocks for as long as walking its folder takes.
/// Stores the size and returns PKGMGR_R_OK, or leaves `*size` untouched. On a host all users have the same packages.
int pkgmgr_client_usr_get_size(pkgmgr_client* client, const char* package_id, pkgmgr_getsize_type type, uid_t user,
                               long long* size);

/// Empties the data and cache folders of a package (by package id, or else by application id), as if it had just been
/// installed. `package_type` may be null. Blocks until it is done. On failure what could not be removed stays.
int pkgmgr_client_clear_user_data(pkgmgr_client* client, const char* package_type, const char* id, pkgmgr_mode mode);
}
