// Work off the main loop: the thread pool, a screen's long job on a real Ecore main loop, and the way back.

#include <Ecore.h>
#include <dlfcn.h>
#include <pthread.h>

#include <boost/asio/post.hpp>

#include "CScreenJob.h"
#include "TCThreadPool.h"
#include "support/files.h"

namespace {

std::atomic<int> g_threadsLeft{1000000};

}  // namespace

/// Lets the creation of threads fail when the test says so.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* data) {
  if (g_threadsLeft-- <= 0) return EAGAIN;
  return reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"))(thread, attributes, start,
                                                                                         data);
}

namespace {

using QUVA::CScreenJob;
using QUVA::PostToMainLoop;
using QUVA::TCThreadPool;
using Control = CScreenJob::Control;

// ---- the pool

TEST(ThreadPool, RunsEveryQueuedJobBeforeItEnds) {
  std::vector<int> results(200);
  {
    TCThreadPool pool(3);
    for (int& result : results) boost::asio::post(pool.m_GetContext(), [&result] { result = 1; });
  }
  EXPECT_THAT(results, testing::Each(1));
}

TEST(ThreadPool, EndsTheThreadsItHasWhenOneCannotBeStarted) {
  g_threadsLeft = 2;
  EXPECT_THROW(TCThreadPool pool(3), boost::thread_resource_error);
  const auto threads = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); };
  EXPECT_TRUE(Until([&] { return threads() == 1; }));
}

// ---- jobs

class ScreenJob : public testing::Test {
 protected:
  ScreenJob() {
    setenv("ECORE_NO_SYSTEM_MODULES", "1", 1);
    ecore_init();
  }
  ~ScreenJob() override { ecore_shutdown(); }

  /// Runs the main loop until the condition holds; false when it does not within half a minute.
  static bool RunUntil(const std::function<bool()>& condition) {
    return Until([&] {
      ecore_main_loop_iterate();
      return condition();
    });
  }

  /// Starts a job that notes in `m_calls`, on the main loop, what was called.
  bool Start(CScreenJob& job, std::function<void(const Control&)> work) {
    const auto note = [this](const char* what) {
      return [this, what] {
        EXPECT_EQ(std::this_thread::get_id(), m_main);
        m_calls += what;
      };
    };
    return job.m_Start(std::move(work), note("end "), note("cancel "));
  }

  static void UntilCancelled(const Control& control) {
    while (!control.m_IsCancelled()) std::this_thread::yield();
  }

  const std::thread::id m_main = std::this_thread::get_id();
  std::string m_calls;
};

TEST_F(ScreenJob, WorksOnAnotherThreadAndEndsOnTheMainLoop) {
  CScreenJob job;
  std::thread::id worker;
  for (int round = 1; round <= 2; ++round) {
    ASSERT_TRUE(Start(job, [&](const Control& control) {
      worker = std::this_thread::get_id();
      EXPECT_FALSE(control.m_IsCancelled());
    }));
    EXPECT_TRUE(job.m_IsRunning());
    ASSERT_TRUE(RunUntil([&] { return !job.m_IsRunning(); }));
    EXPECT_NE(worker, m_main);
  }
  EXPECT_EQ(m_calls, "end end ");
}

TEST_F(ScreenJob, CancelledWhileItWorksGetsCancelOnceAndNoEnd) {
  CScreenJob job;
  std::atomic<bool> works{false};
  Start(job, [&](const Control& control) {
    works = true;
    UntilCancelled(control);
  });
  ASSERT_TRUE(RunUntil([&] { return works.load(); }));
  job.m_Cancel();
  job.m_Cancel();
  EXPECT_FALSE(job.m_IsRunning());
  EXPECT_EQ(m_calls, "");
  // Another one need not wait for the first to return.
  ASSERT_TRUE(Start(job, [](const Control&) {}));
  ASSERT_TRUE(RunUntil([&] { return !job.m_IsRunning() && m_calls.size() > 10; }));
  EXPECT_THAT(m_calls, testing::AnyOf("cancel end ", "end cancel "));
}

TEST_F(ScreenJob, CancelledAfterItsWorkGetsNoEndEither) {
  CScreenJob job;
  std::atomic<bool> worked{false};
  Start(job, [&](const Control&) { worked = true; });
  while (!worked) std::this_thread::yield();
  job.m_Cancel();
  bool later = false;
  ASSERT_TRUE(RunUntil([&] { return !m_calls.empty(); }));
  PostToMainLoop([&] { later = true; });
  ASSERT_TRUE(RunUntil([&] { return later; }));
  EXPECT_EQ(m_calls, "cancel ");
}

TEST_F(ScreenJob, EndsWithItsOwnerByCancelling) {
  {
    CScreenJob job;
    Start(job, UntilCancelled);
    EXPECT_FALSE(Start(job, UntilCancelled)) << "one at a time";
  }
  EXPECT_TRUE(RunUntil([&] { return m_calls == "cancel "; }));
}

TEST_F(ScreenJob, GivesCancelWhereNoThreadCanBeHad) {
  g_threadsLeft = 0;
  CScreenJob job;
  EXPECT_FALSE(Start(job, UntilCancelled));
  EXPECT_FALSE(job.m_IsRunning());
  EXPECT_EQ(m_calls, "cancel ");
}

TEST_F(ScreenJob, SectionsHaveTheMainLoopForThemselvesUntilCancelled) {
  CScreenJob job;
  int widget = 0;  // not atomic: the sections must be enough
  std::atomic<int> refused{0};
  Start(job, [&](const Control& control) {
    while (control.m_RunInMainLoop([&] { ++widget; })) continue;
    refused += control.m_IsCancelled() ? 1 : 100;
  });
  int seen = 0;
  ASSERT_TRUE(RunUntil([&] {
    if (job.m_IsRunning() && (seen = widget) >= 5) job.m_Cancel();
    return !m_calls.empty();
  }));
  EXPECT_EQ(widget, seen);
  EXPECT_EQ(refused, 1);
}

}  // namespace
