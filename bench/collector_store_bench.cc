// What the collector's store takes: the judging of a report, and reports a second with all that
// belongs to it, down to the file.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "collector/report_facts.h"
#include "collector/report_judge.h"
#include "collector/report_schemas.h"
#include "collector/report_store.h"

namespace zln::collector {
namespace {

constexpr std::int64_t kKeep = 100000;

// An empty folder, removed at the end.
class Folder {
 public:
  Folder() : path_(std::filesystem::temp_directory_path() / "zln_bench_XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder");
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string database() const { return path_ + "/reports.db"; }

 private:
  std::string path_;
};

ReportSchemas schemas() {
  std::map<ReportKind, std::string> texts;
  for (const ReportKind kind : kReportKinds) {
    std::ifstream file(std::string(ZLN_SCHEMA_FOLDER "/") + std::string(nameOf(kind)) +
                       ".schema.json");
    texts[kind] = std::string(std::istreambuf_iterator<char>(file), {});
  }
  return ReportSchemas(texts);
}

std::string uuid(std::int64_t number) {
  const std::string digits = std::to_string(number);
  return "00000000-0000-4000-8000-" + std::string(12 - digits.size(), '0') + digits;
}

nlohmann::json adZoneAttempt(std::int64_t number) {
  return {
      {"userId", uuid(number % 50)}, {"country", "US"},        {"type", "ReportTypeAdZoneAttempt"},
      {"device", "x86_64"},          {"platform", "iOS"},      {"bundleId", "com.example.bench"},
      {"adEventId", uuid(number)},   {"network", "Sunrise"},   {"adType", "banner"},
      {"zoneId", "main menu"},       {"fill", number % 2 == 0}};
}

Answer accepted(const ReportRow&, const nlohmann::json&) { return {}; }

void schemaCheckOfAReport(benchmark::State& state) {
  const ReportSchemas checked = schemas();
  const nlohmann::json report = adZoneAttempt(1);
  for (auto _ : state) {
    if (!checked.check(ReportKind::kAdZoneAttempt, report).empty()) {
      state.SkipWithError("the report is invalid");
      break;
    }
  }
}
BENCHMARK(schemaCheckOfAReport);

void judgingOfAReport(benchmark::State& state) {
  ReportJudge judge;
  ReportFacts facts = factsOf(adZoneAttempt(1));
  std::int64_t id = 0;
  for (auto _ : state) {
    facts.event = uuid(++id);
    benchmark::DoNotOptimize(judge.judge(facts));
    judge.remember(id, facts);
    judge.forgetThrough(id - kKeep);
  }
}
BENCHMARK(judgingOfAReport);

double microseconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

// How long callers waited for `add`.
void setLatencies(benchmark::State& state, std::vector<double>& latencies) {
  if (latencies.empty()) return;
  std::ranges::sort(latencies);
  double sum = 0;
  for (const double latency : latencies) sum += latency;
  state.counters["add_mean_us"] = sum / static_cast<double>(latencies.size());
  state.counters["add_p99_us"] = latencies[latencies.size() * 99 / 100];
  state.counters["add_max_us"] = latencies.back();
}

// As fast as one thread can give them, each judged; done when all are in the file.
void reportsTaken(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  std::vector<double> latencies;
  for (auto _ : state) {
    state.PauseTiming();
    const Folder folder;
    ReportStore store(folder.database(), {.reports = kKeep}, schemas());
    std::vector<std::string> bodies;
    for (std::int64_t i = 1; i <= count; ++i) bodies.push_back(adZoneAttempt(i).dump());
    state.ResumeTiming();
    for (std::string& body : bodies) {
      const auto before = std::chrono::steady_clock::now();
      store.add(std::move(body), accepted);
      latencies.push_back(microseconds(std::chrono::steady_clock::now() - before));
    }
    store.flush();
    state.PauseTiming();
    if (store.list({}).total != std::min(count, kKeep)) state.SkipWithError("reports are missing");
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * count);
  setLatencies(state, latencies);
}
BENCHMARK(reportsTaken)->Arg(20000)->Arg(120000)->Unit(benchmark::kMillisecond)->UseRealTime();

// A store with as many reports as it keeps.
ReportStore& fullStore() {
  static const Folder folder;
  static ReportStore store(folder.database(), {.reports = kKeep}, schemas());
  static const bool filled = [] {
    for (std::int64_t i = 1; i <= kKeep; ++i) store.add(adZoneAttempt(i).dump(), accepted);
    store.flush();
    return true;
  }();
  benchmark::DoNotOptimize(filled);
  return store;
}

void summaryOf100000Reports(benchmark::State& state) {
  ReportStore& store = fullStore();
  for (auto _ : state) benchmark::DoNotOptimize(store.summary());
}
BENCHMARK(summaryOf100000Reports)->Unit(benchmark::kMillisecond);

void timelineOf100000Reports(benchmark::State& state) {
  ReportStore& store = fullStore();
  for (auto _ : state) benchmark::DoNotOptimize(store.timeline({}, 40));
}
BENCHMARK(timelineOf100000Reports)->Unit(benchmark::kMillisecond);

void timelineOfOneOf50Installations(benchmark::State& state) {
  ReportStore& store = fullStore();
  for (auto _ : state) benchmark::DoNotOptimize(store.timeline(uuid(7), 1));
}
BENCHMARK(timelineOfOneOf50Installations)->Unit(benchmark::kMillisecond);

void newest100Of100000Reports(benchmark::State& state) {
  ReportStore& store = fullStore();
  ReportQuery query;
  query.newestFirst = true;
  for (auto _ : state) benchmark::DoNotOptimize(store.list(query));
}
BENCHMARK(newest100Of100000Reports)->Unit(benchmark::kMillisecond);

void matchOfAMemberIn100000Reports(benchmark::State& state) {
  ReportStore& store = fullStore();
  ReportQuery query;
  query.match["fill"] = true;
  for (auto _ : state) benchmark::DoNotOptimize(store.list(query));
}
BENCHMARK(matchOfAMemberIn100000Reports)->Unit(benchmark::kMillisecond);

void matchOfATextIn100000Reports(benchmark::State& state) {
  ReportStore& store = fullStore();
  ReportQuery query;
  query.match["adEventId"] = uuid(77777);
  for (auto _ : state) benchmark::DoNotOptimize(store.list(query));
}
BENCHMARK(matchOfATextIn100000Reports)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zln::collector
