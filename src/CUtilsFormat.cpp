// The formatting operations of CUtils.

#include <clocale>
#include <sstream>

#include "CMenuTimeUtil.h"
#include "CUtils.h"
#include "VexiloLog.h"

namespace QUVA {

namespace {

constexpr double kKilobyte = 1024;
constexpr double kMegabyte = 1024 * kKilobyte;
constexpr double kGigabyte = 1024 * kMegabyte;

}  // namespace

std::string CUtils::m_RoundValue(double value) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text.setf(std::ios::fixed, std::ios::floatfield);
  text.precision(2);
  text << value;
  return text.str();
}

std::string CUtils::m_GetStringOfNumber(int32_t number) {
  return std::to_string(number);
}

std::string CUtils::m_ConvertBytes(int64_t bytes) {
  const double size = static_cast<double>(bytes);
  if (size >= kGigabyte) return m_RoundValue(size / kGigabyte) + "GB";
  if (size >= kMegabyte) return m_RoundValue(size / kMegabyte) + "MB";
  if (size >= kKilobyte) return m_RoundValue(size / kKilobyte) + "KB";
  return m_RoundValue(size) + "B";
}

double CUtils::m_ConvertToGB(int64_t bytes) {
  const std::string text = m_RoundValue(static_cast<double>(bytes) / kGigabyte);
  // Stays so on purpose: whatever reads numbers later in this process reads them with a point.
  std::setlocale(LC_NUMERIC, "C");
  return std::stod(text);
}

std::string CUtils::convertToString(double gigabytes) {
  return m_RoundValue(gigabytes) + "GB";
}

const char* CUtils::m_GetDateFormat() {
  const int format = CMenuTimeUtil::GetTimeFormatType();
  VEXILO_LOGI("m_iTimeDateFormat [%d]", format);
  switch (format) {
    case 0:
    case 3:
    case 5:
      return "YMD";
    case 2:
    case 4:
      return "DMY";
    default:
      return "MDY";
  }
}

}  // namespace QUVA
