// The BUSMASTER row writer alone, on one core.
//
//   BM_LogRowsStamped  LogFile::WriteRow alone: every row with a time stamp of its own,
//                  taken from a list made beforehand (the time moves on by a millisecond
//                  every three rows, so the row times change and the seconds roll over),
//                  no clock read while timed: the row time, the row text, the buffer and
//                  its writes.
//   BM_LogRows/N   LogFile::WriteRow as the logging service calls it: one reading of the
//                  wall clock for every N rows (the service reads it once per receive,
//                  whose records arrived together; a busy board fills a receive with far
//                  more than 16), the row time stamp, the row text, the buffer and its
//                  writes. N = 1 is a quiet board: one frame per receive.
//   BM_FwriteRows  fwrite() of rows the writer made, already formatted, one call per row
//                  into a stdio stream: the baseline.
//
// Both write to /dev/null, so that only the writing itself is measured, not the disk.
// items_per_second is rows per second; the last lines give the ratios to the baseline (the
// best of the repetitions, with --benchmark_repetitions).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "logging/busmaster_format.h"
#include "logging/log_files.h"
#include "platform/clock.h"

namespace kel {
namespace {

constexpr char kSink[] = "/dev/null";
constexpr size_t kRowKinds = 256;

// Rows as the service sees them: four channels, standard and extended identifiers, every DLC.
std::vector<CanRow> SampleRows() {
  std::vector<CanRow> rows(kRowKinds);
  for (size_t i = 0; i < rows.size(); ++i) {
    CanRow& row = rows[i];
    row.channel = static_cast<int>(i % 4) + 1;
    row.extended = i % 8 == 7;
    row.id =
        row.extended ? 0x18DAF100U + static_cast<uint32_t>(i) : 0x100U + static_cast<uint32_t>(i);
    row.dlc = static_cast<int>(i % 9);
    for (size_t b = 0; b < row.data.size(); ++b) row.data[b] = static_cast<uint8_t>(i * 7 + b);
  }
  return rows;
}

// Writes one sample row per iteration into /dev/null, row i stamped with time_of(i).
template <typename TimeOf>
void WriteRows(benchmark::State& state, TimeOf time_of) {
  const std::vector<CanRow> rows = SampleRows();
  LogFile log = LogFile::Create(kSink);
  if (!log.IsOpen()) {
    state.SkipWithError("cannot open /dev/null");
    return;
  }
  size_t i = 0;
  uint64_t bytes = 0;
  for (auto _ : state) {
    bytes += log.WriteRow(rows[i % kRowKinds], time_of(i));
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

void BM_LogRows(benchmark::State& state) {
  const auto rows_per_reading = static_cast<size_t>(state.range(0));
  platform::WallTime now = platform::WallNow();
  WriteRows(state, [&](size_t i) {
    if (i % rows_per_reading == 0) now = platform::WallNow();
    return now;
  });
}
BENCHMARK(BM_LogRows)->Arg(1)->Arg(16);

void BM_LogRowsStamped(benchmark::State& state) {
  std::vector<platform::WallTime> times(3 * 65536);
  const platform::WallTime start = platform::WallNow();
  for (size_t i = 0; i < times.size(); ++i) {
    const int64_t ms = start.milliseconds + static_cast<int64_t>(i / 3);
    times[i] = platform::WallTime{start.seconds + ms / 1000, static_cast<int>(ms % 1000)};
  }
  WriteRows(state, [&](size_t i) { return times[i % times.size()]; });
}
BENCHMARK(BM_LogRowsStamped);

void BM_FwriteRows(benchmark::State& state) {
  // The very rows the writer makes: stamped by a row clock now, in the same order.
  const std::vector<CanRow> rows = SampleRows();
  RowClock clock;
  std::vector<std::string> texts;
  for (size_t i = 0; i < 4096; ++i) {
    char time[kRowTimeSize];
    const size_t time_length = clock.Stamp(platform::WallNow(), time);
    char text[kMaxRowSize];
    texts.emplace_back(text,
                       FormatRow(std::string_view(time, time_length), rows[i % kRowKinds], text));
  }
  std::FILE* file = std::fopen(kSink, "wb");
  if (file == nullptr) {
    state.SkipWithError("cannot open /dev/null");
    return;
  }
  size_t i = 0;
  uint64_t bytes = 0;
  for (auto _ : state) {
    const std::string& text = texts[i++ % texts.size()];
    bytes += std::fwrite(text.data(), 1, text.size(), file);
  }
  std::fclose(file);
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_FwriteRows);

// The console report, keeping each benchmark's rows per second for the ratio.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;  // repetitions: the best one counts
      const auto rate = run.counters.find("items_per_second");
      if (rate == run.counters.end()) continue;
      double& best = rates_[run.run_name.str()];
      best = std::max(best, rate->second.value);
    }
  }
  double Rate(const std::string& name) const {
    const auto found = rates_.find(name);
    return found == rates_.end() ? 0 : found->second;
  }

 private:
  std::map<std::string, double> rates_;
};

}  // namespace
}  // namespace kel

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  kel::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  const double baseline = reporter.Rate("BM_FwriteRows");
  for (const char* name : {"BM_LogRowsStamped", "BM_LogRows/16", "BM_LogRows/1"}) {
    const double rows = reporter.Rate(name);
    if (rows > 0 && baseline > 0) {
      std::printf("%s: %.0f rows/s, fwrite %.0f rows/s, ratio %.2f\n", name, rows, baseline,
                  rows / baseline);
    }
  }
  return 0;
}
