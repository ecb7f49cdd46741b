#include "CScreenJob.h"

#include <Ecore.h>

#include <list>
#include <memory>
#include <utility>

#include "VexiloLog.h"

namespace QUVA {

struct CScreenJob::Job {
  std::function<void(const Control&)> work;
  std::function<void()> end;
  std::function<void()> cancel;
  CScreenJob* owner;  ///< null once it was cancelled
  Ecore_Thread* thread = nullptr;

  void LeaveOwner() {
    if (owner) owner->m_job = nullptr;
    owner = nullptr;
  }
};

void PostToMainLoop(std::function<void()> call) {
  const auto run = [](void* data) {
    const std::unique_ptr<std::function<void()>> owned(static_cast<std::function<void()>*>(data));
    (*owned)();
  };
  ecore_main_loop_thread_safe_call_async(run, new std::function<void()>(std::move(call)));
}

namespace {

struct Watch {
  std::function<bool()> holds;
  std::function<void()> then;
  int rounds;
};

constexpr double kWatchRound = 1.0;  // seconds
constexpr int kWatchRounds = 30;

// Those that are still waiting.
std::list<Watch>& Watches() {
  static auto* watches = new std::list<Watch>;
  return *watches;
}

Eina_Bool Look(void* data) {
  auto* const watch = static_cast<Watch*>(data);
  const bool holds = watch->holds();
  if (!holds && --watch->rounds > 0) return ECORE_CALLBACK_RENEW;
  const auto then = watch->then;
  Watches().remove_if([watch](const Watch& each) { return &each == watch; });
  if (holds) then();
  return ECORE_CALLBACK_CANCEL;
}

}  // namespace

void WhenLater(std::function<bool()> holds, std::function<void()> then) {
  Watches().push_back({std::move(holds), std::move(then), kWatchRounds});
  Watch* const watch = &Watches().back();
  if (Look(watch) == ECORE_CALLBACK_RENEW) ecore_timer_add(kWatchRound, Look, watch);
}

// ---- what the work sees

bool CScreenJob::Control::m_IsCancelled() const {
  return ecore_thread_check(m_thread);
}

bool CScreenJob::Control::m_RunInMainLoop(const std::function<void()>& section) const {
  ecore_thread_main_loop_begin();
  // Asked only now: a screen cancels on the main loop, so inside the section the answer stays true.
  const bool wanted = !m_IsCancelled();
  if (wanted) section();
  ecore_thread_main_loop_end();
  return wanted;
}

// ---- the job

bool CScreenJob::m_Start(std::function<void(const Control&)> work, std::function<void()> end,
                         std::function<void()> cancel) {
  if (m_job) {
    VEXILO_LOGE("a job is running, another one is not started");
    return false;
  }
  auto* const job = m_job = new Job{std::move(work), std::move(end), std::move(cancel), this};
  Ecore_Thread* const thread = ecore_thread_run(m_Work, m_End, m_Cancelled, job);
  if (!thread) {
    VEXILO_LOGE("no thread for a job");
    return false;
  }
  job->thread = thread;
  return true;
}

void CScreenJob::m_Cancel() {
  if (!m_job) return;
  Ecore_Thread* const thread = m_job->thread;
  m_job->LeaveOwner();
  ecore_thread_cancel(thread);
}

void CScreenJob::m_Work(void* data, Ecore_Thread* thread) {
  static_cast<Job*>(data)->work(Control(thread));
}

void CScreenJob::m_End(void* data, Ecore_Thread*) {
  const std::unique_ptr<Job> job(static_cast<Job*>(data));
  job->LeaveOwner();
  if (job->end) job->end();
}

void CScreenJob::m_Cancelled(void* data, Ecore_Thread*) {
  const std::unique_ptr<Job> job(static_cast<Job*>(data));
  job->LeaveOwner();
  if (job->cancel) job->cancel();
}

}  // namespace QUVA
