// The library's pure pieces, each on the text that an ad attempt makes of it.
#include <benchmark/benchmark.h>

#include <optional>
#include <string>

#include "platform/json.h"
#include "platform/property_list.h"
#include "support/text_format.h"

namespace zln {
namespace {

Dictionary adZoneAttempt() {
  return {{"userId", "06118A00-1C64-4C26-9BAA-B61A61D66420"},
          {"country", "US"},
          {"type", "ReportTypeAdZoneAttempt"},
          {"device", "x86_64"},
          {"platform", "iOS"},
          {"bundleId", "com.example.bench"},
          {"adEventId", "540C0FBC-54AB-4F25-BBAB-3E3790A24053"},
          {"network", "Sunrise Ads & Partners"},
          {"adType", "interstitial"},
          {"zoneId", "level complete"},
          {"fill", Number::boolean(false)}};
}

void propertyListElementOfAReport(benchmark::State& state) {
  const Value report = adZoneAttempt();
  std::string out;
  for (auto _ : state) {
    out.clear();
    benchmark::DoNotOptimize(property_list::appendElement(out, report, 1));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(out.size()));
}
BENCHMARK(propertyListElementOfAReport);

void jsonOfAReport(benchmark::State& state) {
  const Dictionary report = adZoneAttempt();
  for (auto _ : state) benchmark::DoNotOptimize(json::serialize(report, nullptr));
}
BENCHMARK(jsonOfAReport);

void textOfALogLine(benchmark::State& state) {
  const std::string kind = "ZLNReportAdZoneAttempt";
  const std::string address = "https://127.0.0.1:18443/session";
  for (auto _ : state) {
    const FormatArgument arguments[] = {formatArgument(kind), formatArgument(address)};
    benchmark::DoNotOptimize(renderFormat("saving report %@ to %@", arguments));
  }
}
BENCHMARK(textOfALogLine);

void jsonParseOfAReply(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(json::parse("{\"success\":true}", nullptr));
}
BENCHMARK(jsonParseOfAReply);

void propertyListReadingOf1001Reports(benchmark::State& state) {
  const std::string stored = property_list::write(Array(1001, adZoneAttempt())).value();
  for (auto _ : state) {
    const std::optional<Value> read = property_list::read(stored);
    if (!read || read->array() == nullptr || read->array()->size() != 1001) {
      state.SkipWithError("the reports are not read");
      break;
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stored.size()));
}
BENCHMARK(propertyListReadingOf1001Reports)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zln
