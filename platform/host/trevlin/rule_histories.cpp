#include "trevlin/rule_histories.h"

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/atomic_file.h"
#include "base/file_lock.h"
#include "dlog.h"
#include "log_tags.h"
#include "set_paths.h"
#include "system_path.h"
#include "trevlin/collectors/readings.h"

namespace trevlin {

namespace {

using namespace std::chrono_literals;

constexpr const char* kTag = log_tags::kTrevlin;
constexpr auto kLongestLock = 1s;

void Complain(const char* path, const char* doing) {
  __dlog_print(LOG_ID_APPS, DLOG_WARN, kTag, "%s: %s: %s", path, doing, std::strerror(errno));
}

// What could not be stored.
std::mutex g_mutex;
std::optional<Histories>& g_unstored = *new std::optional<Histories>;

FdHandle Lock(std::chrono::steady_clock::time_point waitUntil) {
  FdHandle lock = OpenLockFile(SystemPath(set_paths::kRuleHistoriesLock));
  const auto end =
      std::min<std::chrono::steady_clock::time_point>(std::chrono::steady_clock::now() + kLongestLock, waitUntil);
  if (lock && LockFile(lock.get(), end)) return lock;
  Complain(set_paths::kRuleHistoriesLock, "cannot be locked");
  return {};
}

// What is no history of this start counts as none.
Histories Parse(const std::string& text) {
  Histories histories;
  Json::Value document;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &document, nullptr) ||
        document["boot"] != BootId(Machine{}))
      return histories;
    const Json::Value& issues = document["issues"];
    for (const std::string& code : issues.getMemberNames()) {
      const Json::Value& each = issues[code];
      histories[std::atoi(code.c_str())] = {
          .since = each["since"].asDouble(), .seen = each["seen"].asDouble(), .runs = each["runs"].asUInt()};
    }
  } catch (const Json::Exception&) {
    histories.clear();
  }
  return histories;
}

std::string ToText(const Histories& histories) {
  Json::Value document;
  document["boot"] = BootId(Machine{});
  Json::Value& issues = document["issues"] = Json::objectValue;
  for (const auto& [code, history] : histories) {
    Json::Value& each = issues[std::to_string(code)];
    each["since"] = history.since;
    each["seen"] = history.seen;
    each["runs"] = history.runs;
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, document) + "\n";
}

}  // namespace

void ChangeHistories(const std::function<void(Histories&)>& change, std::chrono::steady_clock::time_point waitUntil) {
  const std::lock_guard guard(g_mutex);
  const FdHandle lock = Lock(waitUntil);
  std::string text;
  if (!ReadWholeFile(SystemPath(set_paths::kRuleHistories), text, Links::kRefuse) && errno != ENOENT)
    Complain(set_paths::kRuleHistories, "cannot be read");
  const Histories before = Parse(text);
  Histories after = g_unstored.value_or(before);
  change(after);
  g_unstored.reset();
  if (after == before) return;
  if (lock && PublishFile(SystemPath(set_paths::kRuleHistories), ToText(after))) return;
  if (lock) Complain(set_paths::kRuleHistories, "cannot be written");
  g_unstored = std::move(after);
}

}  // namespace trevlin
