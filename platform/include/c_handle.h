#pragma once
/// @file
/// Move-only owners for the handles of C libraries, so that no path forgets to release one.
/// A writer that must know whether its data arrived closes explicitly and checks: release() first, then the C call.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

/// Calls the C function `Release` on what a unique_ptr holds.
template <auto Release>
struct CRelease {
  template <typename T>
  void operator()(T* handle) const {
    Release(handle);
  }
};

using FileHandle = std::unique_ptr<FILE, CRelease<&std::fclose>>;
using CText = std::unique_ptr<char, CRelease<&std::free>>;

/// A file descriptor; -1 for none.
class FdHandle {
 public:
  FdHandle() = default;
  explicit FdHandle(int fd) : m_fd(fd) {}
  FdHandle(FdHandle&& other) noexcept : m_fd(other.release()) {}
  FdHandle& operator=(FdHandle&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~FdHandle() { reset(); }

  int get() const { return m_fd; }
  explicit operator bool() const { return m_fd >= 0; }
  int release() { return std::exchange(m_fd, -1); }
  void reset(int fd = -1) {
    if (m_fd >= 0) close(m_fd);
    m_fd = fd;
  }

 private:
  int m_fd = -1;
};
