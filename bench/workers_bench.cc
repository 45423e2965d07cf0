// 100 regression-test workers, each a copy of kelcmd running `delay 0`, against 100
// starts of /bin/true in the same run: total time and the cost per worker.
//   workers_bench <path of kelcmd>

#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

#include "can/workers.h"
#include "platform/subprocess.h"

namespace {

constexpr int kWorkers = 100;

double Ms(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - since)
      .count();
}

double SpawnTrue() {
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::unique_ptr<kel::platform::ChildProcess>> children;
  kel::platform::ChildProcess::Options options;
  options.output = kel::platform::ChildProcess::OutputMode::kDiscard;
  for (int i = 0; i < kWorkers; ++i) {
    children.push_back(std::make_unique<kel::platform::ChildProcess>());
    children.back()->Start({"/bin/true"}, options);
  }
  for (auto& child : children) child->Wait();
  return Ms(start);
}

double RunWorkers(const char* kelcmd) {
  const auto start = std::chrono::steady_clock::now();
  kel::WorkerPool pool(512);
  for (int i = 0; i < kWorkers; ++i) {
    auto slot = std::make_shared<kel::WorkerSlot>();
    slot->argv = {kelcmd, "delay", "0"};
    pool.Launch(slot);
  }
  while (!pool.WaitAll(1000)) {
  }
  for (int i = 0; i < kWorkers; ++i) {
    if (pool.Outcome(static_cast<size_t>(i)).result != 0) return -1;
  }
  return Ms(start);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: workers_bench <path of kelcmd>\n");
    return 2;
  }
  SpawnTrue();  // warm the page cache
  RunWorkers(argv[1]);
  double base = 1e300;
  double workers = 1e300;
  for (int i = 0; i < 3; ++i) {
    base = std::min(base, SpawnTrue());
    workers = std::min(workers, RunWorkers(argv[1]));
  }
  if (workers < 0) {
    std::fprintf(stderr, "workers_bench: a worker failed\n");
    return 1;
  }
  std::printf(
      "workers: %d x kelcmd delay 0 in %.1f ms (%.2f ms each), %d x /bin/true in %.1f ms "
      "(%.2f ms each), ratio %.2f\n",
      kWorkers, workers, workers / kWorkers, kWorkers, base, base / kWorkers, workers / base);
  return 0;
}
