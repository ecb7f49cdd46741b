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
#include <filesystem>
#include <memory>
#include <string_view>
#include <tuple>

#include "applications.h"
#include "base/atomic_file.h"
#include "c_handle.h"
#include "command.h"
#include "report_summary.h"
#include "set_paths.h"
#include "setd/archive.h"
#include "setd/report.h"
#include "system_path.h"

namespace vexiloctl {

namespace {

constexpr char kSummaryFile[] = "summary.txt";
constexpr size_t kMaxReportBytes = 64 << 20;

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

Json::Value ParseMeta(const std::string& text) {
  Json::Value meta;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  try {
    if (reader->parse(text.data(), text.data() + text.size(), &meta, nullptr) && meta.isObject()) return meta;
  } catch (const Json::Exception&) {  // too deep
  }
  return {};
}

/// What is not read to its end, or is more than a report can be, is none: throws Failure.
class ReportReader {
 public:
  explicit ReportReader(const std::string& name);
  ReportContent Read();

 private:
  int Check(int result) const;
  ReportFile ReadFile(archive_entry* entry);

  std::string m_path;
  FdHandle m_file;
  std::unique_ptr<archive, CRelease<&archive_read_free>> m_archive{archive_read_new()};
  size_t m_bytes = 0;
};

ReportReader::ReportReader(const std::string& name)
    : m_path(PathOf(name)), m_file(open(SystemPath(m_path).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)) {
  if (!m_file) Fail(m_path);
  archive_read_support_filter_gzip(m_archive.get());
  archive_read_support_filter_zstd(m_archive.get());
  archive_read_support_format_tar(m_archive.get());
  Check(archive_read_open_fd(m_archive.get(), m_file.get(), 65536));
}

int ReportReader::Check(int result) const {
  if (result >= ARCHIVE_OK || result == ARCHIVE_WARN) return result;
  const char* const reason = archive_error_string(m_archive.get());
  throw Failure(m_path + ": " + (reason ? reason : "unreadable"));
}

ReportFile ReportReader::ReadFile(archive_entry* entry) {
  const char* const name = archive_entry_pathname(entry);
  ReportFile file{name ? name : "", "", archive_entry_mtime(entry)};
  if (archive_entry_filetype(entry) != AE_IFREG || file.name.empty() || file.name.find('/') != file.name.npos)
    throw Failure(m_path + ": \"" + Visible(file.name) + "\" in it is no file of a report");
  char buffer[65536];
  la_ssize_t got = 0;
  while ((got = archive_read_data(m_archive.get(), buffer, sizeof buffer)) != 0) {
    // A warning here is about bytes that are missing.
    if (got < 0) Check(ARCHIVE_FATAL);
    file.content.append(buffer, static_cast<size_t>(got));
    m_bytes += static_cast<size_t>(got);
    if (m_bytes > kMaxReportBytes) throw Failure(m_path + ": it is larger than a report can be");
  }
  return file;
}

ReportContent ReportReader::Read() {
  ReportContent content;
  archive_entry* entry = nullptr;
  while (Check(archive_read_next_header(m_archive.get(), &entry)) != ARCHIVE_EOF) {
    content.files.push_back(ReadFile(entry));
    if (content.files.back().name == setd::kMetaFile) content.meta = ParseMeta(content.files.back().content);
  }
  return content;
}

/// Whether the file is what the report's meta.json says of it.
bool IsWhole(const ReportFile& file, const Json::Value& expected) {
  const Json::Value& sum = expected.isObject() ? expected["sha256"] : expected;
  if (!sum.isString()) return false;
  if (file.name != setd::kMetaFile) return setd::Sha256(file.content) == sum.asString();
  std::string content = file.content;
  const std::string own = sum.asString();
  const size_t at = own.empty() ? content.npos : content.rfind(own);
  return at != content.npos && setd::Sha256(content.replace(at, own.size(), own.size(), '0')) == own;
}

/// Throws Failure with the name of a file that is not as it was collected. Reports of older versions do not tell.
void CheckFiles(const std::string& path, const ReportContent& content) {
  const auto isThere = [&](const std::string& name) {
    return std::any_of(content.files.begin(), content.files.end(), [&](const auto& file) { return file.name == name; });
  };
  const Json::Value sums = content.meta.isObject() ? content.meta["files"] : Json::Value();
  if (sums.isNull() && (content.meta.isObject() || !isThere(setd::kMetaFile))) return;
  if (!sums.isObject() || !sums.isMember(setd::kMetaFile))
    throw Failure(path + ": \"" + setd::kMetaFile + "\" in it is damaged");
  for (const std::string& name : sums.getMemberNames())
    if (!isThere(name)) throw Failure(path + ": \"" + Visible(name) + "\" is not in it any more");
  for (const ReportFile& file : content.files)
    if (file.name != kSummaryFile && !IsWhole(file, sums[file.name]))
      throw Failure(path + ": \"" + Visible(file.name) + "\" in it is damaged");
}

/// Throws Failure when the report is damaged; complains when it does not tell what it is about.
ReportContent ReadContent(const Report& report) {
  ReportContent content = ReportReader(report.name).Read();
  CheckFiles(PathOf(report.name), content);
  if (content.meta.isNull()) Complain(PathOf(report.name) + ": it has no " + setd::kMetaFile);
  return content;
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
  const ReportContent content = ReadContent(report);
  if (arguments.json) {
    Json::Value object = JsonOf(report);
    object["meta"] = content.meta;
    object["files"] = Json::arrayValue;
    for (const ReportFile& each : content.files) {
      Json::Value file;
      file["name"] = each.name;
      file["bytes"] = Json::UInt64(each.content.size());
      object["files"].append(file);
    }
    return Print(JsonLine(object));
  }
  Print(PathOf(report.name) + "\n\n");
  if (!content.meta.isNull()) {
    Table facts({"FACT", "VALUE"});
    Json::Value about = content.meta;
    about.removeMember("files");
    AddFacts("", about, facts);
    facts.Print();
    Print("\n");
  }
  Table files({"SIZE", "FILE"});
  for (const ReportFile& each : content.files)
    files.Add({SizeText(static_cast<int64_t>(each.content.size())), each.name});
  files.Print();
}

void ReportsExport(const Arguments& arguments) {
  const Report report = Find(ReadReports(), arguments.values[0]);
  const std::string folder = arguments.values[1], path = std::filesystem::path(folder) / report.name;
  if (folder.empty()) throw UsageError("FOLDER is empty");
  struct stat status;
  if (stat(folder.c_str(), &status) != 0) Fail(Visible(folder));
  if (!S_ISDIR(status.st_mode)) throw Failure(Visible(folder) + ": it is no folder");
  ReportContent content = ReadContent(report);
  // That of an export that was put back among the reports.
  std::erase_if(content.files, [](const ReportFile& file) { return file.name == kSummaryFile; });
  setd::Archive exported(report.name.ends_with(".zst"));
  exported.Add(kSummaryFile, SummaryOf(report.name, content), report.time);
  for (const ReportFile& file : content.files) exported.Add(file.name, file.content, file.time);
  std::string bytes, problem;
  if (!exported.Finish(bytes, problem)) throw Failure(Visible(path) + ": " + problem);
  if (!PublishPrivateFile(path, bytes)) Fail(Visible(path));
  if (!arguments.json) return Print("exported " + Visible(path) + "\n");
  Json::Value object = JsonOf(report);
  object["bytes"] = Json::UInt64(bytes.size());
  object["path"] = path;
  object["exported"] = true;
  Print(JsonLine(object));
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
