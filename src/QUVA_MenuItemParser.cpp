#include "QUVA_MenuItemParser.h"

#include <dlfcn.h>
#include <json/json.h>
#include <locale.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "SafeFile.h"
#include "VexiloLog.h"
#include "menu_checker.h"
#include "set_paths.h"
#include "system_path.h"

namespace QUVA {

namespace {

constexpr size_t kLargestConfiguration = 1 << 20;  // bytes
constexpr const char* kItems[] = {"video-test",         "sound-test",     "hdmi-troubleshooting",  "sct",
                                  "signal-information", "homedeck_reset", "mled-installation-test"};
// Can be chosen whatever a checker says.
constexpr const char* kAlwaysEnabled[] = {"SID_PICTURE_TEST", "SID_SOUND_TEST"};

// ---- the types of values

/// As std::stod(), but with a point in every language.
double ToDouble(const std::string& text) {
  static const locale_t classic = newlocale(LC_NUMERIC_MASK, "C", nullptr);
  char* end = nullptr;
  errno = 0;
  const double value = strtod_l(text.c_str(), &end, classic);
  if (end == text.c_str()) throw std::invalid_argument("stod");
  if (errno == ERANGE) throw std::out_of_range("stod");
  return value;
}

template <typename Entry, typename Value>
int Call(void* entry, const std::string& key, Value value) {
  return reinterpret_cast<Entry*>(entry)(key.c_str(), value);
}

struct ValueType {
  const char* name;
  const char* enableSymbol;
  const char* visibleSymbol;
  /// Throws std::invalid_argument or std::out_of_range for a value that is not of the type.
  int (*ask)(const MenuItemChecker& checker);
};
// An entry has the same signature for both questions.
constexpr ValueType kTypes[] = {
    {"integer", "check_enable_int", "check_visibility_int",
     [](const MenuItemChecker& checker) {
       return Call<decltype(check_enable_int)>(checker.EntryFunction, checker.Key, std::stoi(checker.Value));
     }},
    {"bool", "check_enable_bool", "check_visibility_bool",
     [](const MenuItemChecker& checker) {
       return Call<decltype(check_enable_bool)>(checker.EntryFunction, checker.Key, std::stoi(checker.Value) != 0);
     }},
    {"string", "check_enable_string", "check_visibility_string",
     [](const MenuItemChecker& checker) {
       return Call<decltype(check_enable_string)>(checker.EntryFunction, checker.Key, checker.Value.c_str());
     }},
    {"double", "check_enable_double", "check_visibility_double",
     [](const MenuItemChecker& checker) {
       return Call<decltype(check_enable_double)>(checker.EntryFunction, checker.Key, ToDouble(checker.Value));
     }},
};

const ValueType* FindType(const std::string& name) {
  const auto* found =
      std::find_if(std::begin(kTypes), std::end(kTypes), [&](const auto& type) { return type.name == name; });
  return found == std::end(kTypes) ? nullptr : found;
}

// ---- the configuration

/// The member of an object; null where it has none or is no object.
Json::Value Member(const Json::Value& object, const std::string& name) {
  return object.isObject() ? object[name] : Json::Value();
}

std::string Text(const Json::Value& value) {
  return value.isConvertibleTo(Json::stringValue) ? value.asString() : "";
}

/// `question` is "enable" or "visible".
MenuItemChecker ReadChecker(const Json::Value& item, const std::string& question) {
  const Json::Value asked = Member(item, question);
  const std::string provider = Text(Member(asked, question + "-checker"));
  return {set_paths::kCheckerDir + Text(Member(Member(item, "providers"), provider)), Text(Member(asked, "key")),
          Text(Member(asked, "type")), Text(Member(asked, "value"))};
}

/// False, with the reason, for what is no JSON object.
bool ParseObject(const std::string& text, Json::Value& object, std::string& reason) {
  try {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &object, &reason)) return false;
  } catch (const std::exception& error) {  // nested too deeply
    reason = error.what();
    return false;
  }
  if (!object.isObject()) reason = "it is no object";
  return object.isObject();
}

// ---- the checkers

void* ResolveEntry(const MenuItemChecker& checker, const char* ValueType::*symbol) {
  void* const library = dlopen(SystemPath(checker.CheckerSOPath).c_str(), RTLD_LAZY);
  if (!library) {
    VEXILO_LOGE("Couldn't open  : %s : %s", checker.CheckerSOPath.c_str(), dlerror());
    return nullptr;
  }
  const ValueType* const type = FindType(checker.Type);
  if (!type) {
    VEXILO_LOGE("\"%s\", the type for key \"%s\", is none of integer, bool, string, double", checker.Type.c_str(),
                checker.Key.c_str());
    return nullptr;
  }
  dlerror();
  void* const entry = dlsym(library, type->*symbol);
  if (const char* error = dlerror()) {
    VEXILO_LOGE("Couldn't find %s: %s", type->*symbol, error);
    return nullptr;
  }
  return entry;
}

int Ask(const std::string& item, const MenuItemChecker& checker) {
  const ValueType* const type = FindType(checker.Type);
  if (!type || !checker.EntryFunction) return 0;
  try {
    return type->ask(checker);
  } catch (const std::logic_error&) {
    VEXILO_LOGE("Key : %s has the value \"%s\", which is no %s", item.c_str(), checker.Value.c_str(), type->name);
    return 0;
  }
}

}  // namespace

MenuItemParser* MenuItemParser::m_pInstance = nullptr;

MenuItemParser* MenuItemParser::GetInstance() {
  if (!m_pInstance) {
    m_pInstance = new MenuItemParser;
    m_pInstance->ParseJson(set_paths::kMenuItems);
    m_pInstance->GetCheckerFnPtrs();
  }
  return m_pInstance;
}

void MenuItemParser::ParseJson(std::string path) {
  VEXILO_LOGI("Attempting to parse json at path : %s", path.c_str());
  std::string text, reason;
  if (!ReadRegularFile(path, kLargestConfiguration, true, text, reason)) {
    VEXILO_LOGE(" Failed to open providers json file..");
    VEXILO_LOGE("%s: %s", path.c_str(), reason.c_str());
    return;
  }
  VEXILO_LOGI("parsing Begins..");
  Json::Value root;
  if (!ParseObject(text, root, reason)) {
    VEXILO_LOGE("Json parsing failed...");
    VEXILO_LOGE("%s: %s", path.c_str(), reason.c_str());
    return;
  }
  for (const char* name : kItems) {
    const Json::Value item = Member(root, name);
    m_enableCheckerMap[name] = ReadChecker(item, "enable");
    m_visibleCheckerMap[name] = ReadChecker(item, "visible");
  }
  VEXILO_LOGI("parsing Ends..");
}

void MenuItemParser::GetCheckerFnPtrs() {
  for (auto& [item, checker] : m_enableCheckerMap)
    checker.EntryFunction = ResolveEntry(checker, &ValueType::enableSymbol);
  for (auto& [item, checker] : m_visibleCheckerMap)
    checker.EntryFunction = ResolveEntry(checker, &ValueType::visibleSymbol);
}

int MenuItemParser::GetEnableCheck(std::string item) {
  VEXILO_LOGD("Value of key : %s", item.c_str());
  if (std::find(std::begin(kAlwaysEnabled), std::end(kAlwaysEnabled), item) != std::end(kAlwaysEnabled)) return 1;
  const auto found = m_enableCheckerMap.find(item);
  if (found == m_enableCheckerMap.end()) {
    VEXILO_LOGE("Key : %s not found in EnableChecker Map", item.c_str());
    return 0;
  }
  const int enable = Ask(item, found->second);
  VEXILO_LOGD("Returning enable : %d for Key : %s", enable, item.c_str());
  return enable;
}

int MenuItemParser::GetVisibleCheck(std::string item) {
  if (m_visibleCheckerMap.empty()) {
    VEXILO_LOGI("Size of visibleCheckerMap found to be Zero.. ReParsing and ReSetting FnPtrs..");
    ParseJson(set_paths::kMenuItems);
    GetCheckerFnPtrs();
  } else {
    VEXILO_LOGI("Size of visibleCheckerMap = %zu", m_visibleCheckerMap.size());
  }
  VEXILO_LOGD("Value of key : %s", item.c_str());
  const auto found = m_visibleCheckerMap.find(item);
  if (found == m_visibleCheckerMap.end()) {
    VEXILO_LOGE("Key : %s not found in VisibleChecker Map", item.c_str());
    return 0;
  }
  const int visible = Ask(item, found->second);
  VEXILO_LOGD("Returning visible : %d for Key : %s", visible, item.c_str());
  return visible;
}

std::string MenuItemParser::GetEnableKey(const std::string& item) const {
  const auto found = m_enableCheckerMap.find(item);
  return found == m_enableCheckerMap.end() ? "" : found->second.Key;
}

void MenuItemParser::printParsedData() {
  const auto print = [](const CheckerMap& checkers) {
    for (const auto& [item, checker] : checkers) {
      VEXILO_LOGD("AppName : %s", item.c_str());
      VEXILO_LOGD("CheckerSOPath : %s", checker.CheckerSOPath.c_str());
      VEXILO_LOGD("Key : %s", checker.Key.c_str());
      VEXILO_LOGD("Type : %s", checker.Type.c_str());
      VEXILO_LOGD("Value : %s", checker.Value.c_str());
      VEXILO_LOGD("FnPtrs : %p", checker.EntryFunction);
    }
  };
  VEXILO_LOGD("Enable checker printing..");
  print(m_enableCheckerMap);
  VEXILO_LOGD("Visible checker printing..");
  print(m_visibleCheckerMap);
}

}  // namespace QUVA
