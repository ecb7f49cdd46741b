// The store of the parsed solution map.

#include "QUVA_Storage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using QUVA::QUVA_Solution;
using QUVA::TCInformationStorage;
using QUVA::TSCurrentQUVAMap;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<QUVA_Solution> Solutions(const std::vector<std::string>& codes) {
  std::vector<QUVA_Solution> solutions;
  for (const std::string& code : codes) solutions.emplace_back().issue_code = code;
  return solutions;
}

std::vector<std::string> Codes(const std::vector<QUVA_Solution>& solutions) {
  std::vector<std::string> codes;
  for (const QUVA_Solution& solution : solutions) codes.push_back(solution.issue_code);
  return codes;
}

TEST(Storage, IsEmptyAtFirst) {
  TCInformationStorage* storage = TCInformationStorage::Instance();
  unsigned int count = 7;
  unsigned int version = 7;
  auto solutions = Solutions({"own"});
  storage->GetSolutionInformation(count, solutions);
  storage->GetSMVersion(version);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(version, 0u);
  EXPECT_THAT(Codes(solutions), ElementsAre("own"));
}

TEST(Storage, TheCountIsTheDeclaredOneAndSolutionsAreAppended) {
  TCInformationStorage* storage = TCInformationStorage::Instance();
  storage->SetSolutionInformation(9, Solutions({"old"}));
  storage->SetSolutionInformation(5, Solutions({"1", "2", "1"}));
  unsigned int count = 0;
  storage->GetSMCount(count);
  EXPECT_EQ(count, 5u);
  storage->SetSMCount(6);
  auto solutions = Solutions({"own"});
  storage->GetSolutionInformation(count, solutions);
  EXPECT_EQ(count, 6u);
  EXPECT_THAT(Codes(solutions), ElementsAre("own", "1", "2", "1"));
}

TEST(Storage, ASnapshotReplacesAndIsACopy) {
  TCInformationStorage* storage = TCInformationStorage::Instance();
  auto stored = Solutions({"1", "2"});
  stored[0].sol_values = {{"type", "value"}};
  stored[1].view_authority = "USER";
  storage->SetSolutionInformation(2, stored);
  storage->SetSMVersion(4294967295u);
  TSCurrentQUVAMap map{1, 1, Solutions({"own", "own", "own"})};
  storage->GetQUVAMapInformation(map);
  EXPECT_EQ(map.version, 4294967295u);
  EXPECT_EQ(map.count, 2u);
  EXPECT_THAT(Codes(map.solutions), ElementsAre("1", "2"));
  EXPECT_EQ(map.solutions[0].sol_values, stored[0].sol_values);
  EXPECT_EQ(map.solutions[1].view_authority, "USER");
  map.solutions.clear();
  storage->GetQUVAMapInformation(map);
  EXPECT_THAT(Codes(map.solutions), ElementsAre("1", "2"));
}

TEST(Storage, InitializeAndResetBothEmptyIt) {
  TCInformationStorage* storage = TCInformationStorage::Instance();
  for (const auto empty : {&TCInformationStorage::Initialize, &TCInformationStorage::ResetInformationStorage}) {
    storage->SetSolutionInformation(5, Solutions({"1", "2", "3"}));
    storage->SetSMVersion(8);
    (storage->*empty)();
    TSCurrentQUVAMap map{1, 1, Solutions({"own"})};
    storage->GetQUVAMapInformation(map);
    EXPECT_EQ(map.version, 0u);
    EXPECT_EQ(map.count, 0u);
    EXPECT_THAT(map.solutions, IsEmpty());
  }
}

TEST(Storage, IsOneForAllThreads) {
  std::vector<TCInformationStorage*> seen(8);
  std::vector<std::thread> threads;
  for (TCInformationStorage*& storage : seen) threads.emplace_back([&] { storage = TCInformationStorage::Instance(); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), 1u);
  EXPECT_NE(seen[0], nullptr);
}

TEST(Storage, ReadersNeverSeeAHalfReplacedMap) {
  constexpr unsigned int kLengths[] = {0, 3, 40};
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int round = 0; round < 300; ++round)
      for (const unsigned int length : kLengths)
        TCInformationStorage::Instance()->SetSolutionInformation(
            length, Solutions(std::vector<std::string>(length, std::to_string(length))));
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
