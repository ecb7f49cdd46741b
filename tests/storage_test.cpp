// The store of the parsed solution map.

#include "QUVA_Storage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using QUVA::QUVA_Solution;
using QUVA::TCInformationStorage;
using QUVA::TSCurrentQUVAMap;

std::vector<QUVA_Solution> Solutions(size_t number, const std::string& code) {
  std::vector<QUVA_Solution> solutions(number);
  for (QUVA_Solution& solution : solutions) solution.issue_code = code;
  return solutions;
}

void ExpectMap(unsigned int version, unsigned int count, size_t length) {
  TSCurrentQUVAMap map{77, 77, Solutions(7, "own")};
  TCInformationStorage::Instance()->GetQUVAMapInformation(map);
  EXPECT_EQ(map.version, version);
  EXPECT_EQ(map.count, count);
  EXPECT_EQ(map.solutions.size(), length);
}

TEST(Storage, KeepsWhatIsSetUntilItIsEmptied) {
  TCInformationStorage* storage = TCInformationStorage::Instance();
  ExpectMap(0, 0, 0);
  for (const auto empty : {&TCInformationStorage::Initialize, &TCInformationStorage::ResetInformationStorage}) {
    storage->SetSolutionInformation(9, Solutions(4, "old"));
    storage->SetSolutionInformation(5, Solutions(3, "17"));
    storage->SetSMVersion(4294967295u);
    ExpectMap(4294967295u, 5, 3);
    unsigned int number = 0;
    storage->GetSMVersion(number);
    EXPECT_EQ(number, 4294967295u);
    storage->SetSMCount(6);
    storage->GetSMCount(number);
    EXPECT_EQ(number, 6u);

    auto solutions = Solutions(1, "own");
    storage->GetSolutionInformation(number, solutions);
    EXPECT_EQ(number, 6u) << "what was declared, not the length";
    ASSERT_EQ(solutions.size(), 4u) << "appended";
    EXPECT_EQ(solutions[0].issue_code + solutions[3].issue_code, "own17");
    (storage->*empty)();
    ExpectMap(0, 0, 0);
    storage->GetSolutionInformation(number, solutions);
    EXPECT_EQ(number, 0u);
    EXPECT_EQ(solutions.size(), 4u);
  }
}

TEST(Storage, ReadersNeverSeeAHalfReplacedMap) {
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int round = 0; round < 300; ++round)
      for (const unsigned int length : {0u, 3u, 40u})
        TCInformationStorage::Instance()->SetSolutionInformation(length, Solutions(length, std::to_string(length)));
    done = true;
  });
  const auto check = [](unsigned int count, const std::vector<QUVA_Solution>& solutions) {
    ASSERT_EQ(solutions.size(), count);
    for (const QUVA_Solution& solution : solutions) ASSERT_EQ(solution.issue_code, std::to_string(count));
  };
  std::thread lists([&] {
    while (!done) {
      unsigned int count = 0;
      std::vector<QUVA_Solution> solutions;
      TCInformationStorage::Instance()->GetSolutionInformation(count, solutions);
      check(count, solutions);
    }
  });
  while (!done) {
    TSCurrentQUVAMap map;
    TCInformationStorage::Instance()->GetQUVAMapInformation(map);
    check(map.count, map.solutions);
  }
  writer.join();
  lists.join();
}

}  // namespace
