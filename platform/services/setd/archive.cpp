#include "setd/archive.h"

#include <archive_entry.h>

#include "base/glib_handle.h"

namespace setd {

namespace {

using EntryHandle = std::unique_ptr<archive_entry, CRelease<&archive_entry_free>>;

la_ssize_t Append(archive*, void* bytes, const void* data, size_t size) {
  static_cast<std::string*>(bytes)->append(static_cast<const char*>(data), size);
  return static_cast<la_ssize_t>(size);
}

}  // namespace

std::string Sha256(std::string_view bytes) {
  return GText(g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()),
                                           bytes.size()))
      .get();
}

Archive::Archive(bool isZstd) : m_archive(archive_write_new()) {
  Check(archive_write_set_format_pax_restricted(m_archive.get()));
  // It warns when it would have to start a program for it.
  if (isZstd && archive_write_add_filter_zstd(m_archive.get()) == ARCHIVE_OK)
    m_suffix = "tar.zst";
  else
    Check(archive_write_add_filter_gzip(m_archive.get()));
  archive_write_set_bytes_in_last_block(m_archive.get(), 1);
  Check(archive_write_open(m_archive.get(), &m_bytes, nullptr, Append, nullptr));
}

void Archive::Check(int result) {
  if (result == ARCHIVE_OK || !m_problem.empty()) return;
  const char* reason = archive_error_string(m_archive.get());
  m_problem = reason ? reason : "the archive cannot be made";
}

void Archive::Add(const std::string& name, std::string_view content, time_t time) {
  const EntryHandle entry(archive_entry_new());
  archive_entry_set_pathname(entry.get(), name.c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), 0644);
  archive_entry_set_mtime(entry.get(), time, 0);
  archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
  Check(archive_write_header(m_archive.get(), entry.get()));
  if (archive_write_data(m_archive.get(), content.data(), content.size()) != static_cast<la_ssize_t>(content.size()))
    Check(ARCHIVE_FATAL);
}

bool Archive::Finish(std::string& bytes, std::string& problem) {
  Check(archive_write_close(m_archive.get()));
  if (m_problem.empty())
    bytes = std::move(m_bytes);
  else
    problem = m_problem;
  return m_problem.empty();
}

}  // namespace setd
