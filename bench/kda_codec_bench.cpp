// Encoding and decoding of arrays beside a plain copy of as many bytes into a new buffer.

#include <benchmark/benchmark.h>

#include <kestreldata/SerializationContext.hpp>
#include <kestreldata/kestreldata.hpp>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

namespace {

using namespace kestreldata;

const standalone::ArrayFactory factory;
const SerializationContext& context() {
  static standalone::ArrayFactory store;
  static const SerializationContext made(store, false, nullptr, nullptr, OptimizedSparseFormat::coordinates);
  return made;
}

Array doubles(std::size_t bytes) {
  const std::size_t count = bytes / sizeof(double);
  const std::vector<double> values(count, 1.5);
  return factory.createArray<double>({1, count}, values.begin(), values.end());
}

Array envelope(const Array& data) {
  return factory.createCellArray({1, 4}, factory.createCharArray("request"),
                                 factory.createCharArray("01234567-89ab-cdef-0123-456789abcdef"), data,
                                 factory.createScalar(""));
}

std::vector<std::uint8_t> encoded(const Array& array) {
  const auto message = context().convertToProtobuf(array);
  std::vector<std::uint8_t> bytes(message->ByteSizeLong());
  if (!message->SerializeToArray(bytes.data(), static_cast<int>(message->ByteSizeLong()))) bytes.clear();
  return bytes;
}

Array decoded(const std::vector<std::uint8_t>& bytes) {
  context().checkEncoding(bytes.data(), bytes.size());
  auto message = context().createKESTREL_Array();
  static_cast<void>(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
  return context().convertFromProtobuf(std::move(message));
}

void copy(benchmark::State& state) {
  const std::vector<std::uint8_t> source(static_cast<std::size_t>(state.range(0)), 1);
  for (auto _ : state) {
    std::vector<std::uint8_t> target(source);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void encode(benchmark::State& state) {
  const Array array = doubles(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(encoded(array).data());
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void decode(benchmark::State& state) {
  const auto bytes = encoded(doubles(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) benchmark::DoNotOptimize(decoded(bytes).getNumberOfElements());
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void encodeEnvelope(benchmark::State& state) {
  const Array array = envelope(doubles(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) benchmark::DoNotOptimize(encoded(array).data());
}

void decodeEnvelope(benchmark::State& state) {
  const auto bytes = encoded(envelope(doubles(static_cast<std::size_t>(state.range(0)))));
  for (auto _ : state) benchmark::DoNotOptimize(decoded(bytes).getNumberOfElements());
}

constexpr std::int64_t megabyte = 1'000'000;
constexpr std::int64_t hundredMegabytes = 100 * megabyte;

BENCHMARK(copy)->Arg(megabyte)->Arg(hundredMegabytes);
BENCHMARK(encode)->Arg(megabyte)->Arg(hundredMegabytes);
BENCHMARK(decode)->Arg(megabyte)->Arg(hundredMegabytes);
BENCHMARK(encodeEnvelope)->Arg(8)->Arg(megabyte);
BENCHMARK(decodeEnvelope)->Arg(8)->Arg(megabyte);

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

template <typename Work>
double secondsFor(int runs, const Work& work) {
  const double begin = cpuSeconds();
  for (int run = 0; run < runs; ++run) work();
  return cpuSeconds() - begin;
}

/// Rates in processor time, which other programs disturb less than the clock on the wall; the kinds of work
/// take turns, so that each meets the same state of the machine. The first turn is not counted.
void printRatios(std::int64_t bytes) {
  const Array array = doubles(static_cast<std::size_t>(bytes));
  const auto encoding = encoded(array);
  const int runs = static_cast<int>(hundredMegabytes / bytes);
  double copyingTime = 0;
  double encodingTime = 0;
  double decodingTime = 0;
  constexpr int turns = 10;
  for (int turn = 0; turn <= turns; ++turn) {
    const double counted = turn == 0 ? 0.0 : 1.0;
    copyingTime += counted * secondsFor(runs, [&] {
                     std::vector<std::uint8_t> target(encoding);
                     benchmark::DoNotOptimize(target.data());
                   });
    encodingTime += counted * secondsFor(runs, [&] { benchmark::DoNotOptimize(encoded(array).data()); });
    decodingTime +=
        counted * secondsFor(runs, [&] { benchmark::DoNotOptimize(decoded(encoding).getType()); });
  }
  std::printf("%9lld bytes: copy %.2f GB/s, encode %.2f of it, decode %.2f of it\n",
              static_cast<long long>(bytes), static_cast<double>(bytes) * runs * turns / copyingTime / 1e9,
              copyingTime / encodingTime, copyingTime / decodingTime);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  printRatios(megabyte);
  printRatios(hundredMegabytes);
  return 0;
}
