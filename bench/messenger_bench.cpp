// The messenger over streams in the process, each figure beside its yardstick.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>

#include <deque>

#include "Load.hpp"
#include "Yardsticks.hpp"

namespace {

using namespace bench;

constexpr std::size_t smallSize = 100;
constexpr std::size_t largeSize = 100'000'000;

/// To reach: at most 8 hand-offs; three are needed.
void requestAndResponse(benchmark::State& state) {
  const PinnedToOneCore pinned;
  const double handOff = medianHandOff(20'000);
  Pair pair;
  echoRequests(*pair.far);
  const DataStruct message(bytesArray(smallSize));
  std::vector<double> samples;
  for (auto _ : state) {
    const auto start = Clock::now();
    benchmark::DoNotOptimize(pair.near->request(message));
    samples.push_back(secondsSince(start));
  }
  const double p50 = median(std::move(samples));
  state.counters["p50_us"] = p50 * 1e6;
  state.counters["hand_off_us"] = handOff * 1e6;
  state.counters["hand_offs"] = p50 / handOff;
}
BENCHMARK(requestAndResponse)->MinTime(2)->UseRealTime();

double processorSeconds() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

/// A request after each pause, in microseconds. To compare: the same with KESTREL_SHORT_WAITS=off.
void conversation(benchmark::State& state) {
  const std::chrono::microseconds pause(state.range(0));
  Pair pair;
  echoRequests(*pair.far);
  const DataStruct message(bytesArray(smallSize));
  for (int i = 0; i < 1000; ++i) benchmark::DoNotOptimize(pair.near->request(message));
  std::vector<double> samples;
  const double usedBefore = processorSeconds();
  const auto begin = Clock::now();
  for (auto _ : state) {
    const auto start = Clock::now();
    benchmark::DoNotOptimize(pair.near->request(message));
    samples.push_back(secondsSince(start));
    if (pause.count() > 0) std::this_thread::sleep_for(pause);
  }
  state.counters["p50_us"] = median(std::move(samples)) * 1e6;
  state.counters["percent_of_a_core"] = 100 * (processorSeconds() - usedBefore) / secondsSince(begin);
}
BENCHMARK(conversation)->ArgName("pause_us")->Arg(0)->Arg(300)->Arg(10'000)->MinTime(1)->UseRealTime();

/// To reach: 100,000 a second on two cores.
void requestsFromEightThreads(benchmark::State& state) {
  constexpr int requestsEach = 5'000;
  Pair pair;
  echoRequests(*pair.far);
  const DataStruct message(bytesArray(smallSize));
  for (auto _ : state) ManyRequests::run(*pair.near, message, requestsEach);
  state.SetItemsProcessed(state.iterations() * ManyRequests::threads * requestsEach);
}
BENCHMARK(requestsFromEightThreads)->MinTime(2)->UseRealTime();

/// To reach: 300,000 a second, and not much less among other messengers; what counts is what arrived.
void oneWay(benchmark::State& state) {
  constexpr std::uint64_t window = 4096;
  Receipts receipts;
  std::deque<Pair> others;
  for (std::int64_t i = 0; i < state.range(0); i += 2) others.emplace_back();
  Pair pair;
  countReceipts(*pair.far, receipts);
  const DataStruct message(bytesArray(smallSize));
  std::uint64_t sent = 0;
  for (auto _ : state) {
    pair.near->send(message);
    if (++sent % (window / 2) == 0 && sent >= window) receipts.waitFor(sent - window / 2);
  }
  receipts.waitFor(sent);
  state.SetItemsProcessed(static_cast<std::int64_t>(sent));
}
BENCHMARK(oneWay)->ArgName("others")->Arg(0)->Arg(1000)->MinTime(2)->UseRealTime();

/// To reach: 0.3 of the rate of a copy into new pages.
void largeArrayInChunks(benchmark::State& state) {
  Receipts receipts;
  Pair pair;
  countReceipts(*pair.far, receipts);
  const DataStruct message(bytesArray(largeSize));
  const std::vector<std::uint8_t> source(largeSize, 1);
  std::vector<double> copies;
  std::vector<double> transfers;
  std::uint64_t sent = 0;
  for (int i = 0; i < 2; ++i) {  // steady state begins after the first
    pair.near->send(message);
    receipts.waitFor(++sent);
  }
  for (auto _ : state) {
    const auto start = Clock::now();
    pair.near->send(message);
    receipts.waitFor(++sent);
    transfers.push_back(secondsSince(start));
    state.PauseTiming();
    copies.push_back(copyIntoNewBuffer(source));
    state.ResumeTiming();
  }
  const double transfer = median(std::move(transfers));
  const double copy = median(std::move(copies));
  state.counters["transfer_ms"] = transfer * 1e3;
  state.counters["copy_ms"] = copy * 1e3;
  state.counters["of_copy"] = copy / transfer;
}
BENCHMARK(largeArrayInChunks)->MinTime(3)->UseRealTime()->Unit(benchmark::kMillisecond);

std::size_t heapInUse() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

/// To reach: 64 KiB beside the thread stacks.
void memoryOfIdleMessenger(benchmark::State& state) {
  constexpr std::size_t pairs = 100;
  const Options options = state.range(0) != 0 ? Options{{"producerUsesBuffer", std::any(true)}} : unlimited();
  const DataStruct message(bytesArray(smallSize));
  for (auto _ : state) {
    const Pair first(options);  // what is made once for all
    const std::size_t before = heapInUse();
    Receipts receipts;
    std::deque<Pair> made;
    for (std::size_t i = 0; i < pairs; ++i) {
      const Pair& pair = made.emplace_back(options);
      countReceipts(*pair.far, receipts);
      pair.near->send(message);
      receipts.waitFor(i + 1);
    }
    state.counters["KiB"] = static_cast<double>(heapInUse() - before) / (2.0 * pairs) / 1024;
  }
}
BENCHMARK(memoryOfIdleMessenger)->ArgName("buffered")->Arg(0)->Arg(1)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
