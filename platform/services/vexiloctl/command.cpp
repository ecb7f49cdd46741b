#include "command.h"

#include <glib.h>
#include <json/writer.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "c_handle.h"

namespace vexiloctl {

namespace {

[[noreturn]] void OutputFailed() {
  if (errno == EPIPE) throw OutputClosed();
  throw Failure(std::string("standard output: ") + std::strerror(errno));
}

size_t Width(const std::string& cell) {
  return static_cast<size_t>(g_utf8_strlen(cell.c_str(), -1));
}

}  // namespace

void Print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) OutputFailed();
}

void Flush() {
  if (std::fflush(stdout) != 0) OutputFailed();
}

void Complain(const std::string& message) {
  std::fprintf(stderr, "vexiloctl: %s\n", message.c_str());
}

std::string LocalTime(time_t time) {
  struct tm local {};
  char text[64];
  localtime_r(&time, &local);
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local)};
}

std::string Visible(std::string_view text) {
  const std::unique_ptr<char, CRelease<&g_free>> valid(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  std::string visible;
  for (const char *at = valid.get(), *next; *at; at = next) {
    next = g_utf8_next_char(at);
    if (g_unichar_iscntrl(g_utf8_get_char(at)))
      visible += '?';
    else
      visible.append(at, next);
  }
  return visible;
}

std::string JsonLine(const Json::Value& value) {
  static const Json::StreamWriterBuilder oneLine = [] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return builder;
  }();
  return Json::writeString(oneLine, value) + "\n";
}

void Table::Add(std::vector<std::string> cells) {
  for (std::string& cell : cells) cell = cell.empty() ? "-" : Visible(cell);
  m_rows.push_back(std::move(cells));
}

std::string Table::Text() const {
  std::string text;
  std::vector<size_t> widths(m_rows.front().size());
  for (const auto& row : m_rows)
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
  for (const auto& row : m_rows) {
    for (size_t i = 0; i + 1 < row.size(); ++i) text.append(row[i]).append(widths[i] - Width(row[i]) + 2, ' ');
    text.append(row.back()).append("\n");
  }
  return text;
}

}  // namespace vexiloctl
