#pragma once
/// @file
/// What becomes text: message ids, numbers, sizes and dates. Sizes are binary, numbers have two decimals after a point,
/// in every language. Thread rule: any thread.

#include <cstdint>
#include <string>

namespace QUVA {

/// The text of a message id in the menu language; the id itself where there is none. Empty for no id.
std::string GetText(const char* sid);
/// The same with its placeholder replaced by `value`.
std::string GetTextWith(const char* sid, const std::string& value);

/// Whether a solution has a text in this place: its message id.
bool IsSidGiven(const std::string& sid);
/// What a solution says once it is done, by its two message ids: the second text in the place of %s in the first. Empty
/// where it says nothing.
std::string SolutionToast(const std::string& toast1, const std::string& toast2);
/// "3.50"
std::string RoundValue(double value);
/// "512.00B", "1.50KB", "1024.00GB"; the unit is chosen before rounding
std::string ConvertBytes(int64_t bytes);
/// The gigabytes (2^30 bytes), rounded to two decimals. Sets the process's numeric locale to "C" for good.
double ConvertToGB(int64_t bytes);
/// "3.50GB"
std::string GigabytesText(double gigabytes);
/// The order of year, month and day in dates: "YMD", "DMY" or "MDY".
const char* GetDateFormat();

}  // namespace QUVA
