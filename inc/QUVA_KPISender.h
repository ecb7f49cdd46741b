#pragma once

#include <mutex>
#include <string>

namespace QUVA {

/// Records a usage event each time the user opens a feature, and a few results.
/// Thread rule: callable from any thread. Sending waits for nobody and no disk; nothing of it can fail for the
/// caller.
class QUVA_KPISender {
 public:
  /// Created on first use, when the facts of the device are read; never destroyed.
  static QUVA_KPISender* GetInstance();

  QUVA_KPISender(const QUVA_KPISender&) = delete;
  QUVA_KPISender& operator=(const QUVA_KPISender&) = delete;

  void SendVexiloKPI(const char* item);
  void SendVexiloKPI(const char* item, const char* status);
  void SendVexiloKPI(const char* item, int count);

  void m_pSet_param_select_type(const char* item);
  std::string m_Get_param_select_type();

  /// The description of the event last sent: "{chip_id=…;sn=…;…;remain_count=…}". The user time in it is a single
  /// byte, the low eight bits of the clock's seconds, as the receiving side expects it.
  std::string m_getVexiloDescription();
  /// Hands an event to the set's KPI log.
  void m_sendKPI(const std::string& eventName, const std::string& category, const std::string& description);

 private:
  QUVA_KPISender();

  void m_initialize();
  void m_readChipId();
  void m_readSerialNumber();
  void m_readSeries();
  void m_readImageType();
  void m_readPlatform();
  void m_readStorage();
  void m_send(const char* item);
  void m_setUserTime();

  // What cannot be read, and what no event has set yet, is "NULL".
  std::string m_selectType = "NULL";
  std::string m_chipID = "NULL";
  std::string m_serialNumber = "NULL";
  std::string m_series = "NULL";
  std::string m_platform = "NULL";
  std::string m_imageType = "NULL";
  std::string m_totalStorage = "NULL";
  std::string m_remainStorage = "NULL";
  std::string m_selectItem = "NULL";
  std::string m_userTime = "NULL";
  std::string m_status = "NULL";
  std::string m_issueCount = "NULL";
  std::string m_issueClear = "NULL";
  std::string m_remainCount = "NULL";

  std::recursive_mutex m_eventMutex;  ///< guards the fields of an event

  static QUVA_KPISender* m_pInstance;
  static std::recursive_mutex m_TVDMmutex;  ///< guards the creation
};

}  // namespace QUVA
