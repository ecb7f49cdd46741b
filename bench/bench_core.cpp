// Parsing the solution map beside the XML library alone, and resolution over the number of solutions.

#include <benchmark/benchmark.h>
#include <expat.h>

#include <cstdlib>

#include "QUVA_DiagResultManager.h"
#include "QUVA_Storage.h"
#include "QUVA_XMLParser.h"
#include "bench_data.h"
#include "trevlin_engine.h"

namespace {

constexpr int kRowsOfAnIssue = bench::kTransitions / bench::kSolutions;

void BM_ExpatAlone(benchmark::State& state) {
  const std::string text = bench::SolutionMap(bench::kSolutions);
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(
        parser, [](void*, const char*, const char**) {}, [](void*, const char*) {});
    benchmark::DoNotOptimize(XML_Parse(parser, text.data(), static_cast<int>(text.size()), XML_FALSE));
    XML_ParserFree(parser);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_ExpatAlone)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly();

void BM_Parse(benchmark::State& state) {
  const std::string text = bench::SolutionMap(bench::kSolutions);
  const QUVA::TCXMLParser parser;
  for (auto _ : state) {
    QUVA::QUVA_SolutionMap map;
    benchmark::DoNotOptimize(parser.Parse(text, map));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_Parse)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly();

void BM_Resolve(benchmark::State& state) {
  const int solutions = static_cast<int>(state.range(0));
  QUVA::QUVA_SolutionMap map;
  QUVA::TCXMLParser().Parse(bench::SolutionMap(solutions), map);
  QUVA::TCInformationStorage::Instance()->SetSolutionInformation(map.count, map.solutions);
  auto* manager = QUVA::QUVA_DiagResultManager::GetInstance();
  int found = 0;
  for (auto _ : state) {
    manager->CleanDiagResult();
    found = manager->GetInferenceResult();
  }
  state.counters["found"] = found;
  state.SetComplexityN(solutions);
}
BENCHMARK(BM_Resolve)->RangeMultiplier(2)->Range(2500, bench::kSolutions)->Unit(benchmark::kMillisecond)->Complexity();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (CreateAPIInstance() != 0 || !bench::FillDatabases(bench::kSolutions, bench::kSolutions * kRowsOfAnIssue))
    return EXIT_FAILURE;
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
}
