#include "Texts.h"

#include <libintl.h>

#include <clocale>
#include <sstream>

#include "CMenuTimeUtil.h"
#include "SettingsKeys.h"
#include "VexiloLog.h"
#include "flux_resources.h"

namespace QUVA {

namespace {

constexpr double kKilobyte = 1024;
constexpr double kMegabyte = 1024 * kKilobyte;
constexpr double kGigabyte = 1024 * kMegabyte;

}  // namespace

std::string GetText(const char* sid) {
  // To the library the empty id is the catalogue's header.
  return sid && *sid ? dgettext(kApplicationId, sid) : "";
}

std::string GetTextWith(const char* sid, const std::string& value) {
  return CStringUtil::CombinateStrings(GetText(sid), value);
}

bool IsSidGiven(const std::string& sid) {
  return !sid.empty() && sid != "NULL";
}

std::string SolutionToast(const std::string& toast1, const std::string& toast2) {
  if (!IsSidGiven(toast1)) return "";
  const std::string text = GetText(toast1.c_str());
  return IsSidGiven(toast2) ? CStringUtil::CombinateStrings(text, GetText(toast2.c_str())) : text;
}

std::string RoundValue(double value) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text.setf(std::ios::fixed, std::ios::floatfield);
  text.precision(2);
  text << value;
  return text.str();
}

std::string ConvertBytes(int64_t bytes) {
  const double size = static_cast<double>(bytes);
  if (size >= kGigabyte) return RoundValue(size / kGigabyte) + "GB";
  if (size >= kMegabyte) return RoundValue(size / kMegabyte) + "MB";
  if (size >= kKilobyte) return RoundValue(size / kKilobyte) + "KB";
  return RoundValue(size) + "B";
}

double ConvertToGB(int64_t bytes) {
  const std::string text = RoundValue(static_cast<double>(bytes) / kGigabyte);
  // Stays so on purpose: whatever reads numbers later in this process reads them with a point.
  std::setlocale(LC_NUMERIC, "C");
  return std::stod(text);
}

std::string GigabytesText(double gigabytes) {
  return RoundValue(gigabytes) + "GB";
}

const char* GetDateFormat() {
  const int format = CMenuTimeUtil::GetTimeFormatType();
  VEXILO_LOGD("m_iTimeDateFormat [%d]", format);
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
