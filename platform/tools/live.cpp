#include "live.h"

#include <memory>
#include <utility>

namespace tools {

namespace {

constexpr double kPeriod = 1.0;  // seconds; also where no events of the kernel are to be had

}  // namespace

Live::Live(std::string subsystem, std::function<Show()> read)
    : m_subsystem(std::move(subsystem)), m_read(std::move(read)) {
  if (m_events.Fd() >= 0)
    m_handler = ecore_main_fd_handler_add(m_events.Fd(), ECORE_FD_READ, OnEvent, this, nullptr, nullptr);
  m_timer = ecore_timer_add(kPeriod, OnTime, this);
  LookNow();
}

Live::~Live() {
  if (m_handler) ecore_main_fd_handler_del(m_handler);
  ecore_timer_del(m_timer);
}

Eina_Bool Live::OnTime(void* self) {
  static_cast<Live*>(self)->LookNow();
  return ECORE_CALLBACK_RENEW;
}

Eina_Bool Live::OnEvent(void* self, Ecore_Fd_Handler*) {
  auto* const live = static_cast<Live*>(self);
  if (live->m_events.Take(live->m_subsystem)) live->LookNow();
  return ECORE_CALLBACK_RENEW;
}

void Live::LookNow(std::function<void()> then) {
  if (then) m_waiting.push_back(std::move(then));
  m_isAsked = true;
  if (!m_job.m_IsRunning()) Start();
}

void Live::Start() {
  m_isAsked = false;
  const auto show = std::make_shared<Show>();
  m_job.m_Start([show, read = m_read](const QUVA::CScreenJob::Control&) { *show = read(); },
                [this, show, waiting = std::exchange(m_waiting, {})] {
                  (*show)();
                  for (const auto& then : waiting) then();
                  if (m_isAsked && !m_job.m_IsRunning()) Start();
                },
                {});
}

}  // namespace tools
