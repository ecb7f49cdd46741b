#include "TCThreadPool.h"

namespace QUVA {

TCThreadPool::TCThreadPool(int threadCount) : m_workGuard(std::make_shared<boost::asio::io_context::work>(m_context)) {
  try {
    for (int i = 0; i < threadCount; ++i) m_threads.create_thread([this] { m_context.run(); });
  } catch (...) {
    m_workGuard.reset();
    m_threads.join_all();
    throw;
  }
}

TCThreadPool::~TCThreadPool() {
  m_workGuard.reset();
  m_threads.join_all();
}

}  // namespace QUVA
