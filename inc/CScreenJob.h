#pragma once
/// @file
/// How screens leave the main loop for a long job, and how any thread gets back to it.

#include <functional>

typedef struct _Ecore_Thread Ecore_Thread;

namespace QUVA {

/// Runs `call` on the main loop, later (from the main loop itself, at once); what it captured is released there. Calls
/// of one thread keep their order. Any thread, from the start of the toolkit to its end.
void PostToMainLoop(std::function<void()> call);

/// Calls `then` when `holds`: at once, or when it is found to hold, looked at once a second for half a minute; else
/// never. Main loop thread. For answers of threads that may outlive the main loop, and so must not post to it.
void WhenLater(std::function<bool()> holds, std::function<void()> then);

/// One long job of a screen, on a worker thread of Ecore's. A screen has it as a member, starts it when it needs it and
/// cancels it when it is hidden or cleaned up:
///
///     m_sizes.m_Start([this](const CScreenJob::Control& control) { m_Measure(control); },
///                     [this] { m_ShowSizes(); }, [this] { m_StopLoading(); });
///
/// For each job that was started, exactly one of `end` and `cancel` is called, once, on the main loop: `end` when the
/// work has returned, `cancel` when the job was cancelled before, even where the work has come to its end meanwhile.
/// All three functions are released on the main loop as well. They may be called after the object's end, which cancels.
/// No exception may leave them.
///
/// Thread rule: main loop thread. The work runs on the worker and has the control for what it needs of the main loop.
class CScreenJob {
 public:
  /// What the work may ask; valid while it runs, on its thread.
  class Control {
   public:
    explicit Control(Ecore_Thread* thread) : m_thread(thread) {}

    /// Long work asks this now and then, and returns early.
    bool m_IsCancelled() const;
    /// Runs `section` on this thread while the main loop stands still, so that it may touch widgets. False, without
    /// running it, when the job has been cancelled: the widgets may be gone. Waits for the main loop's next turn. No
    /// section within a section.
    bool m_RunInMainLoop(const std::function<void()>& section) const;

   private:
    Ecore_Thread* m_thread;
  };

  CScreenJob() = default;
  CScreenJob(const CScreenJob&) = delete;
  CScreenJob& operator=(const CScreenJob&) = delete;
  ~CScreenJob() { m_Cancel(); }

  /// Starts the job; `end` and `cancel` may be empty. False, after a log line, when one is running (none of the
  /// functions is called then) or no thread could be had (`cancel` has been called). A job that was cancelled and has
  /// not returned yet is in nobody's way.
  bool m_Start(std::function<void(const Control&)> work, std::function<void()> end, std::function<void()> cancel);

  /// Cancels the job if one is running. Work that has not begun never begins; work that has is waited for by nobody.
  /// `cancel` is called when the toolkit is done with the job: mostly later, but it may be from here.
  void m_Cancel();

  /// From the start to the call of `end`, or to m_Cancel().
  bool m_IsRunning() const { return m_job != nullptr; }

 private:
  struct Job;

  static void m_Work(void* data, Ecore_Thread* thread);
  static void m_End(void* data, Ecore_Thread* thread);
  static void m_Cancelled(void* data, Ecore_Thread* thread);

  Job* m_job = nullptr;  ///< the running one; owned by its last callback
};

}  // namespace QUVA
