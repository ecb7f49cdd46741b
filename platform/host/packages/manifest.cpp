#include "packages/manifest.h"

#include <glib.h>
#include <json/json.h>

#include <memory>
#include <string_view>

#include "plain_text.h"
#include "set_paths.h"

namespace packages {

namespace {

constexpr size_t kMaxTitleBytes = 256;
constexpr char kIdRule[] = "must be 1 to 128 letters, digits, '.', '_' or '-', the first a letter or digit";

bool ReadId(const Json::Value& value, std::string& id) {
  if (!value.isString() || !IsId(value.asString())) return false;
  id = value.asString();
  return true;
}

bool ReadFlag(const Json::Value& value, bool& flag) {
  if (value.isBool()) flag = value.asBool();
  return value.isBool();
}

bool ReadTitle(const Json::Value& value, Package& package) {
  if (!value.isString()) return false;
  package.title = value.asString();
  return IsTitle(package.title);
}

/// Without links, such a path stays below where it starts.
bool GoesUp(const std::string& path) {
  return ("/" + path + "/").find("/../") != std::string::npos;
}

bool ReadIconFolder(const Json::Value& value, Package& package) {
  if (!value.isString()) return false;
  std::string folder = value.asString();
  while (!folder.empty() && folder.back() == '/') folder.pop_back();
  if (folder.empty() || folder.front() == '/' || GoesUp(folder) || !IsPlain(folder, "/")) return false;
  package.iconDir = InPackages(package.packageId) + "/" + folder + "/";
  return true;
}

bool ReadCommand(const Json::Value& value, Package& package) {
  if (!value.isArray()) return false;
  std::vector<std::string> command;
  for (const Json::Value& word : value) {
    if (!word.isString() || word.asString().find('\0') != std::string::npos) return false;
    command.push_back(word.asString());
  }
  if (!command.empty() && (command.front().empty() || GoesUp(command.front()))) return false;
  package.command = std::move(command);
  return true;
}

bool ReadAttributes(const Json::Value& value, Package& package) {
  if (!value.isArray() || value.size() != 2 || !value[0].isInt() || !value[1].isInt()) return false;
  package.attribute1 = value[0].asInt();
  package.attribute2 = value[1].asInt();
  return true;
}

struct Member {
  const char* name;
  bool required;
  bool (*read)(const Json::Value&, Package&);
  const char* rule;
};

constexpr char kFlagRule[] = "must be true or false";

constexpr Member kMembers[] = {
    {"package_id", true, [](const Json::Value& v, Package& p) { return v.isString() && v.asString() == p.packageId; },
     "must be the name of the folder"},
    {"app_id", true, [](const Json::Value& v, Package& p) { return ReadId(v, p.appId); }, kIdRule},
    {"service_id", false, [](const Json::Value& v, Package& p) { return ReadId(v, p.serviceId); }, kIdRule},
    {"title", true, ReadTitle, "must be a text of 1 to 256 bytes of UTF-8 without control characters"},
    {"icon_folder", false, ReadIconFolder,
     "must be a folder inside the package, of letters, digits, '.', '_', '-', '/'"},
    {"command", false, ReadCommand, "must be a list of texts, the first a program that is named without \"..\""},
    {"attributes", false, ReadAttributes, "must be a list of two whole numbers"},
    {"removable", false, [](const Json::Value& v, Package& p) { return ReadFlag(v, p.removable); }, kFlagRule},
    {"locked", false, [](const Json::Value& v, Package& p) { return ReadFlag(v, p.locked); }, kFlagRule},
    {"keep_running", false, [](const Json::Value& v, Package& p) { return ReadFlag(v, p.keepRunning); }, kFlagRule},
};

/// Into `root`; the parser's complaints as one line.
bool ParseJson(const std::string& text, Json::Value& root, std::string& problem) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  try {
    if (reader->parse(text.data(), text.data() + text.size(), &root, &problem)) return true;
  } catch (const Json::Exception& exception) {
    problem = exception.what();
  }
  std::replace(problem.begin(), problem.end(), '\n', ' ');
  return false;
}

std::string Quoted(const std::string& name) {
  return "\"" + name + "\"";
}

}  // namespace

bool IsTitle(const std::string& text) {
  const auto isControl = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; };
  return !text.empty() && text.size() <= kMaxTitleBytes && std::none_of(text.begin(), text.end(), isControl) &&
         g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr);
}

std::optional<Package> ParseManifest(const std::string& packageId, const std::string& text, std::string& problem) {
  Json::Value root;
  if (!ParseJson(text, root, problem)) return std::nullopt;
  if (!root.isObject()) {
    problem = "is no JSON object";
    return std::nullopt;
  }
  Package package;
  package.packageId = packageId;
  package.iconDir = InPackages(package.packageId) + "/icons/";
  for (const Member& member : kMembers) {
    const bool there = root.isMember(member.name);
    if (there ? member.read(root[member.name], package) : !member.required) {
      root.removeMember(member.name);
      continue;
    }
    problem = Quoted(member.name) + (there ? std::string(" ") + member.rule : " is missing");
    return std::nullopt;
  }
  if (!root.empty()) {
    problem = Quoted(root.getMemberNames().front()) + " is no member of a manifest";
    return std::nullopt;
  }
  if (package.serviceId.empty()) package.serviceId = package.appId;
  return package;
}

}  // namespace packages
