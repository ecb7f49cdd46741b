#include "QUVA_KPISender.h"

#include <sys/statvfs.h>

#include <cstdio>
#include <ctime>
#include <utility>

#include "SafeFile.h"
#include "VexiloLog.h"
#include "c_handle.h"
#include "kpi_logger.h"
#include "set_paths.h"
#include "system_info.h"
#include "system_path.h"
#include "vconf.h"

namespace QUVA {

namespace {

constexpr size_t kLargestChipId = 4096;  // bytes; its four words take 50
constexpr char kUnknown[] = "NULL";
constexpr char kService[] = "23_vexilo";
constexpr char kEventName[] = "VEXILO";
constexpr char kCategory[] = "EV003";
constexpr char kPlatformKey[] = "memory/sp-kpi/platform";
constexpr int kEventStored = 1;

std::string Mebibytes(unsigned long blocks, unsigned long blockSize) {
  return std::to_string(blocks * (blockSize / 1024) / 1024);
}

}  // namespace

QUVA_KPISender* QUVA_KPISender::m_pInstance = nullptr;
std::recursive_mutex QUVA_KPISender::m_TVDMmutex;

QUVA_KPISender* QUVA_KPISender::GetInstance() {
  std::lock_guard lock(m_TVDMmutex);
  if (!m_pInstance) m_pInstance = new QUVA_KPISender;
  return m_pInstance;
}

QUVA_KPISender::QUVA_KPISender() {
  m_initialize();
}

// ---- facts of the device

void QUVA_KPISender::m_initialize() {
  VEXILO_LOGI("m_initialize()");
  m_readChipId();
  VEXILO_LOGI("m_chipID[%s]", m_chipID.c_str());
  m_readSerialNumber();
  VEXILO_LOGI("m_serialNumber[%s]", m_serialNumber.c_str());
  m_readSeries();
  VEXILO_LOGI("m_series[%s]", m_series.c_str());
  m_readImageType();
  VEXILO_LOGI("m_imageType[%s]", m_imageType.c_str());
  m_readPlatform();
  VEXILO_LOGI("m_platform[%s]", m_platform.c_str());
  m_readStorage();
  VEXILO_LOGI("m_FlashSize[%s, %s]", m_totalStorage.c_str(), m_remainStorage.c_str());
}

void QUVA_KPISender::m_readChipId() {
  std::string id, problem;
  if (!ReadRegularFile(set_paths::kChipId, kLargestChipId, true, id, problem)) {
    VEXILO_LOGE("ERROR: failed to open chipID!!");
    return;
  }
  unsigned int words[4] = {};
  if (std::sscanf(id.c_str(), "0x%x 0x%x 0x%x 0x%x\n", &words[0], &words[1], &words[2], &words[3]) < 1) {
    VEXILO_LOGE("ERROR: failed to read chipID!!");
    return;
  }
  char text[128];
  std::snprintf(text, sizeof text, "%08X_%08X_%08X_%08X", words[0], words[1], words[2], words[3]);
  m_chipID = text;
}

void QUVA_KPISender::m_readSerialNumber() {
  char* value = nullptr;
  if (system_info_get_value_string(SYSTEM_INFO_KEY_SERIAL_NUMBER, &value) != SYSTEM_INFO_ERROR_NONE) {
    VEXILO_LOGE("ERROR: failed to get serial number!!");
    return;
  }
  m_serialNumber = CText(value).get();
}

void QUVA_KPISender::m_readSeries() {
  char* value = nullptr;
  if (system_info_get_value_string(SYSTEM_INFO_KEY_MODEL_NAME, &value) != SYSTEM_INFO_ERROR_NONE) {
    VEXILO_LOGE("ERROR: failed to get series!!");
    m_series = kUnknown;
    return;
  }
  const std::string model = CText(value).get();
  if (model.empty()) return;
  const size_t digit = model.find_first_of("0123456789");
  m_series = digit == std::string::npos ? model : model.substr(0, digit + 1);
}

void QUVA_KPISender::m_readImageType() {
  if (FileExists(set_paths::kReleaseMark))
    m_imageType = "release";
  else
    m_imageType = FileExists(set_paths::kDebugMark) ? "debug" : "perf";
}

void QUVA_KPISender::m_readPlatform() {
  const CText value(vconf_get_str(kPlatformKey));
  m_platform = value ? value.get() : kUnknown;
}

void QUVA_KPISender::m_readStorage() {
  struct statvfs info {};
  if (statvfs(SystemPath(set_paths::kUserPartition).c_str(), &info) != 0) return;
  m_totalStorage = Mebibytes(info.f_blocks, info.f_frsize);
  m_remainStorage = Mebibytes(info.f_bavail, info.f_frsize);
}

// ---- events

void QUVA_KPISender::SendVexiloKPI(const char* item) {
  std::lock_guard lock(m_eventMutex);
  m_send(item);
}

void QUVA_KPISender::SendVexiloKPI(const char* item, const char* status) {
  std::lock_guard lock(m_eventMutex);
  m_status = status;
  m_send(item);
}

void QUVA_KPISender::SendVexiloKPI(const char* item, int count) {
  std::lock_guard lock(m_eventMutex);
  m_issueCount = std::to_string(count);
  m_send(item);
}

void QUVA_KPISender::m_pSet_param_select_type(const char* item) {
  std::lock_guard lock(m_eventMutex);
  m_selectType = item;
}

std::string QUVA_KPISender::m_Get_param_select_type() {
  std::lock_guard lock(m_eventMutex);
  return m_selectType;
}

void QUVA_KPISender::m_send(const char* item) {
  VEXILO_LOGI("SendVexilo KPI");
  m_pSet_param_select_type(item);
  m_selectItem = m_Get_param_select_type();
  m_setUserTime();
  m_sendKPI(kEventName, kCategory, m_getVexiloDescription());
}

void QUVA_KPISender::m_setUserTime() {
  struct timespec now {};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    VEXILO_LOGE("GetTTime Fail");
    now.tv_sec = 0;
  }
  m_userTime.assign(1, static_cast<char>(now.tv_sec & 0xFF));
}

std::string QUVA_KPISender::m_getVexiloDescription() {
  std::lock_guard lock(m_eventMutex);
  const std::pair<const char*, const std::string*> fields[] = {
      {"chip_id=", &m_chipID},
      {"sn=", &m_serialNumber},
      {"series=", &m_series},
      {"platform=", &m_platform},
      {"img_type=", &m_imageType},
      {"user_time=", &m_userTime},
      {"select_item=", &m_selectItem},
      {"status=", &m_status},
      {"issue_count=", &m_issueCount},
      {"issue_clear=", &m_issueClear},
      {"total_storage=", &m_totalStorage},
      {"remain_storage=", &m_remainStorage},
      {"remain_count=", &m_remainCount},
  };
  std::string description;
  for (const auto& [key, value] : fields) description += (description.empty() ? "{" : ";") + (key + *value);
  return description + "}";
}

void QUVA_KPISender::m_sendKPI(const std::string& eventName, const std::string& category,
                               const std::string& description) {
  VEXILO_LOGI("eventName[%s] category[%s] description[%s]", eventName.c_str(), category.c_str(), description.c_str());
  const int result =
      KPILogFramework::CLogger::GetInstance()->AddEventLogSync(kService, eventName, category, description);
  if (result != kEventStored) VEXILO_LOGE("ERROR: could not send event log!! [%d]", result);
}

}  // namespace QUVA
