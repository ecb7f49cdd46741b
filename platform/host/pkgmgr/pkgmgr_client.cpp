#include "pkgmgr_client.h"

#include <cstring>
#include <new>

#include "dlog.h"
#include "log_tags.h"
#include "packages/package_store.h"

// The packages of a host are those of all its users.

struct pkgmgr_client {};

namespace {

constexpr const char* kTag = log_tags::kPkgmgr;

/// Adds what was measured of the folder. False, and a line in the log, on failure.
bool Add(const packages::TreeResult& result, const std::string& folder, long long& size) {
  size += result.bytes;
  if (result.error == 0) return true;
  __dlog_print(LOG_ID_APPS, DLOG_ERROR, kTag, "cannot measure %s: %s", folder.c_str(), std::strerror(result.error));
  return false;
}

}  // namespace

extern "C" {

pkgmgr_client* pkgmgr_client_new(pkgmgr_client_type) {
  return new (std::nothrow) pkgmgr_client;
}

int pkgmgr_client_free(pkgmgr_client* client) {
  if (!client) return PKGMGR_R_EINVAL;
  delete client;
  return PKGMGR_R_OK;
}

int pkgmgr_client_usr_get_size(pkgmgr_client* client, const char* package_id, pkgmgr_getsize_type type, uid_t,
                               long long* size) {
  if (!client || !package_id || !size || (type != PM_GET_TOTAL_SIZE && type != PM_GET_DATA_SIZE))
    return PKGMGR_R_EINVAL;
  const auto package = packages::ReadPackage(package_id);
  if (!package) return PKGMGR_R_ENOPKG;
  long long measured = 0;
  const bool done = type == PM_GET_TOTAL_SIZE ? Add(MeasureWhole(*package), FolderOf(*package), measured)
                                              : Add(MeasureData(*package), DataFolderOf(*package), measured) &&
                                                    Add(MeasureCache(*package), CacheFolderOf(*package), measured);
  if (!done) return PKGMGR_R_ERROR;
  *size = measured;
  return PKGMGR_R_OK;
}

int pkgmgr_client_clear_user_data(pkgmgr_client* client, const char*, const char* id, pkgmgr_mode) {
  if (!client || !id) return PKGMGR_R_EINVAL;
  auto package = packages::FindByPackageId(id);
  if (!package) package = packages::FindByAppId(id);
  return package ? packages::ClearData(*package) : static_cast<int>(PKGMGR_R_ENOPKG);
}

}  // extern "C"
