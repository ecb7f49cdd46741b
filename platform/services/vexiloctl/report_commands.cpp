// The error reports that the log collector made.

#include <archive.h>
#include <archive_entry.h>
#include <dirent.h>
#include <fcntl.h>
#include <json/reader.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <tuple>

#include "applications.h"
#include "c_handle.h"
#include "command.h"
#include "set_paths.h"
#include "system_path.h"

namespace vexiloctl {

namespace {

constexpr char kMetaFile[] = "meta.json";
constexpr int64_t kMaxMetaBytes = 1 << 20;

struct Report {
  std::string name;
  int64_t bytes;
  time_t time;
};

std::string PathOf(const std::string& name) {
  return std::string(set_paths::kReportsDir) + "/" + name;
}

[[noreturn]] void Fail(const std::string& path) {
  throw Failure(path + ": " + std::strerror(errno));
}

/// Newest first.
std::vector<Report> ReadReports() {
  const std::unique_ptr<DIR, CRelease<&closedir>> folder(opendir(SystemPath(set_paths::kReportsDir).c_str()));
  if (!folder && errno == ENOENT) return {};
  if (!folder) Fail(set_paths::kReportsDir);
  std::vector<Report> reports;
  while (const dirent* entry = readdir(folder.get())) {
    const std::string name = entry->d_name;
    struct stat status;
    if (!name.ends_with(".tar.zst") && !name.ends_with(".tar.gz")) continue;
    if (fstatat(dirfd(folder.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode))
      continue;
    reports.push_back({name, status.st_size, status.st_mtime});
  }
  std::sort(reports.begin(), reports.end(), [](const Report& one, const Report& other) {
    return std::tie(one.time, one.name) > std::tie(other.time, other.name);
  });
  return reports;
}

Report Find(const std::vector<Report>& reports, const std::string& name) {
  for (const Report& report : reports)
    for (const std::string_view suffix : {"", ".tar.zst", ".tar.gz"})
      if (report.name == name + std::string(suffix)) return report;
  throw Failure("\"" + Visible(name) + "\": no such report in " + set_paths::kReportsDir);
}

Json::Value JsonOf(const Report& report) {
  Json::Value object;
  object["name"] = report.name;
  object["bytes"] = Json::Int64(report.bytes);
  object["time"] = LocalTime(report.time);
  return object;
}

struct Content {
  std::vector<std::pair<std::string, int64_t>> files;
  Json::Value meta;  ///< null when the report has none that can be read
};

Json::Value ReadMeta(archive* from, int64_t bytes) {
  std::string text(static_cast<size_t>(std::clamp<int64_t>(bytes, 0, kMaxMetaBytes)), '\0');
  const la_ssize_t read = archive_read_data(from, text.data(), text.size());
  Json::Value meta;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (read <= 0 || !reader->parse(text.data(), text.data() + read, &meta, nullptr) || !meta.isObject()) return {};
  return meta;
}

Content ReadContent(const Report& report) {
  const std::string path = PathOf(report.name);
  const FdHandle file(open(SystemPath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file) Fail(path);
  const std::unique_ptr<archive, CRelease<&archive_read_free>> from(archive_read_new());
  const auto check = [&](int result) {
    if (result != ARCHIVE_OK && result != ARCHIVE_EOF && result != ARCHIVE_WARN)
      throw Failure(path + ": " + (archive_error_string(from.get()) ? archive_error_string(from.get()) : "unreadable"));
    return result;
  };
  archive_read_support_filter_gzip(from.get());
  archive_read_support_filter_zstd(from.get());
  archive_read_support_format_tar(from.get());
  check(archive_read_open_fd(from.get(), file.get(), 65536));
  Content content;
  archive_entry* entry = nullptr;
  while (check(archive_read_next_header(from.get(), &entry)) != ARCHIVE_EOF) {
    const char* name = archive_entry_pathname(entry);
    content.files.emplace_back(name ? name : "", archive_entry_size(entry));
    if (content.files.back().first == kMetaFile) content.meta = ReadMeta(from.get(), archive_entry_size(entry));
  }
  return content;
}

/// Every value of it in a line of its own: "set.model", "QX55".
void AddFacts(const std::string& prefix, const Json::Value& value, Table& table) {
  if (!value.isObject()) {
    std::string text = value.isString() ? value.asString() : JsonLine(value);
    if (text.ends_with('\n')) text.pop_back();
    table.Add({prefix, text});
    return;
  }
  for (const std::string& key : value.getMemberNames())
    AddFacts(prefix.empty() ? key : prefix + "." + key, value[key], table);
}

}  // namespace

void ReportsList(const Arguments& arguments) {
  Listing listing(arguments.json, {"TIME", "SIZE", "NAME"});
  for (const Report& report : ReadReports())
    listing.Add([&] { return JsonOf(report); },
                [&]() -> std::vector<std::string> {
                  return {LocalTime(report.time), SizeText(report.bytes), report.name};
                });
  listing.Print();
}

void ReportsShow(const Arguments& arguments) {
  const Report report = Find(ReadReports(), arguments.values[0]);
  const Content content = ReadContent(report);
  if (content.meta.isNull()) Complain(PathOf(report.name) + ": it has no " + kMetaFile + " that can be read");
  if (arguments.json) {
    Json::Value object = JsonOf(report);
    object["meta"] = content.meta;
    object["files"] = Json::arrayValue;
    for (const auto& [name, bytes] : content.files) {
      Json::Value file;
      file["name"] = name;
      file["bytes"] = Json::Int64(bytes);
      object["files"].append(file);
    }
    return Print(JsonLine(object));
  }
  Print(PathOf(report.name) + "\n\n");
  if (!content.meta.isNull()) {
    Table facts({"FACT", "VALUE"});
    AddFacts("", content.meta, facts);
    facts.Print();
    Print("\n");
  }
  Table files({"SIZE", "FILE"});
  for (const auto& [name, bytes] : content.files) files.Add({SizeText(bytes), name});
  files.Print();
}

void ReportsRemove(const Arguments& arguments) {
  const std::vector<Report> all = ReadReports();
  std::vector<Report> chosen;
  for (const std::string& name : arguments.values) {
    const Report report = Find(all, name);
    if (std::none_of(chosen.begin(), chosen.end(), [&](const Report& each) { return each.name == report.name; }))
      chosen.push_back(report);
  }
  for (const Report& report : chosen) {
    const std::string path = PathOf(report.name);
    if (unlink(SystemPath(path).c_str()) != 0) Fail(path);
    if (arguments.json) {
      Json::Value object = JsonOf(report);
      object["removed"] = true;
      Print(JsonLine(object));
    } else {
      Print("removed " + path + "\n");
    }
  }
}

}  // namespace vexiloctl
