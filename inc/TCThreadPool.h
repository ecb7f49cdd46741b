#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/thread/thread.hpp>
#include <memory>

namespace QUVA {

/// A fixed number of threads for many short jobs that block. Jobs are posted to the context and run in any order,
/// several at once:
///
///     TCThreadPool pool(20);
///     for (Row& row : rows) boost::asio::post(pool.m_GetContext(), [&row] { row.Measure(); });
///
/// Thread rule: created and destroyed by one thread that is none of the pool's; any thread may post meanwhile. A job
/// touches no widget and lets no exception out, which would end the process.
class TCThreadPool {
 public:
  /// Starts the threads; none for a count of 0 or less, when no job ever runs. Throws boost::thread_resource_error when
  /// one cannot be started, after ending those that were.
  explicit TCThreadPool(int threadCount);
  TCThreadPool(const TCThreadPool&) = delete;
  TCThreadPool& operator=(const TCThreadPool&) = delete;
  /// Blocks until every job that was posted has run and the threads have ended, so what the jobs wrote may then be read
  /// without a lock. On a thread of the pool itself it ends the process: "boost thread: trying joining itself".
  ~TCThreadPool();

  boost::asio::io_context& m_GetContext() { return m_context; }

 private:
  boost::asio::io_context m_context;
  std::shared_ptr<boost::asio::io_context::work> m_workGuard;  ///< keeps run() from returning while nothing is queued
  boost::thread_group m_threads;
};

}  // namespace QUVA
