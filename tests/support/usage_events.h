#pragma once
/// @file
/// The log of usage events as a test sees it.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "kpi_logger.h"
#include "set_paths.h"
#include "system_path.h"

/// What is stored, with all that this process has sent.
inline std::string StoredEvents() {
  EXPECT_TRUE(KPILogFramework::CLogger::GetInstance()->Flush(std::chrono::seconds(30)));
  std::ifstream file(SystemPath(set_paths::kEventLog), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
