#include "ErrorReportGate.h"

#include "CGetData.h"
#include "VexiloLog.h"

namespace QUVA {

ErrorReportGate CheckErrorReportGate(const char* occasion, const char* connected) {
  CGetData* const data = CGetData::GetInstance();
  const bool network = data->m_CheckNetwork();
  VEXILO_LOGI("network falg %sis %d", occasion, network);
  if (!network) return ErrorReportGate::kNoNetwork;
  if (connected) VEXILO_LOGI("%s", connected);
  return data->m_CheckTermsCond() ? ErrorReportGate::kOpen : ErrorReportGate::kNoConsent;
}

}  // namespace QUVA
