#pragma once
/// @file
/// What a tool shows for as long as it is open, read again and again.
///
/// Thread rule: main loop thread, but for what reads.

#include <Ecore.h>

#include <functional>
#include <string>
#include <vector>

#include "CScreenJob.h"
#include "base/netlink.h"

namespace tools {

class Live {
 public:
  using Show = std::function<void()>;

  /// `read` runs on a worker thread, and what it returns on the main loop: from now on once a second, and at once when
  /// the kernel tells that a device of the subsystem ("drm") has come, gone or changed.
  Live(std::string subsystem, std::function<Show()> read);
  Live(const Live&) = delete;
  Live& operator=(const Live&) = delete;
  ~Live();

  /// Reads anew, and calls `then` when what was read is shown.
  void LookNow(std::function<void()> then = {});

 private:
  static Eina_Bool OnTime(void* self);
  static Eina_Bool OnEvent(void* self, Ecore_Fd_Handler*);
  void Start();

  const std::string m_subsystem;
  const std::function<Show()> m_read;
  netlink::DeviceEvents m_events;
  Ecore_Fd_Handler* m_handler = nullptr;
  Ecore_Timer* m_timer = nullptr;
  bool m_isAsked = false;                        ///< since the reading that runs was begun
  std::vector<std::function<void()>> m_waiting;  ///< for the next reading
  QUVA::CScreenJob m_job;
};

}  // namespace tools
