#include "steps.h"

#include <utility>

namespace tools {

void Steps::Run(std::function<void()> work, std::function<void()> end) {
  m_steps.push_back({std::move(work), std::move(end)});
  RunNext();
}

void Steps::RunNext() {
  if (m_steps.empty() || m_job.m_IsRunning()) return;
  const Step step = std::move(m_steps.front());
  m_steps.pop_front();
  m_job.m_Start([work = step.work](const QUVA::CScreenJob::Control&) { work(); },
                [this, end = step.end] {
                  end();
                  RunNext();
                },
                {});
}

}  // namespace tools
