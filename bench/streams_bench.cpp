#include <benchmark/benchmark.h>

#include <cstring>
#include <kestrel/datastreaming/Keys.hpp>
#include <thread>
#include <vector>

#include "src/StreamsFactoryImpl.hpp"
#include "transports/memory/MemoryQueue.hpp"

namespace {

using namespace kestrel::streams;
using kestrel::datastreaming::AttributeMap;
using kestrel::datastreaming::MessageAttributes;

/// A producer and a consumer on a stream of their own, and the count of what has arrived.
class Line {
 public:
  Line() {
    const auto stream = _factory.getStream("", {});
    _consumer = _factory.createConsumer(stream);
    _consumer->setDataCallback(
        [this](const std::uint8_t* data, std::uint64_t size, const std::string&, AttributeMap&) {
          if (!_target.empty()) std::memcpy(_target.data(), data, size);
          _arrived.fetch_add(1, std::memory_order_release);
          _arrived.notify_one();
        });
    _consumer->start().get();
    _producer = _factory.createProducer(stream, {});
    _producer->start().get();
  }

  /// Copies what arrives, as a receiver that joins pieces does.
  void copyArrivals(std::size_t size) { _target.resize(size); }

  void send(const std::vector<std::uint8_t>& bytes, const AttributeMap& attributes) {
    _producer->send(bytes.data(), bytes.size(), attributes);
    ++_sent;
  }
  /// Waits until no more than so many messages are on their way.
  void await(std::uint64_t underWay = 0) {
    for (auto seen = _arrived.load(std::memory_order_acquire); seen + underWay < _sent;
         seen = _arrived.load(std::memory_order_acquire)) {
      _arrived.wait(seen, std::memory_order_acquire);
    }
  }

 private:
  StreamsFactoryImpl _factory;
  std::vector<std::uint8_t> _target;
  std::atomic<std::uint64_t> _arrived{0};
  std::uint64_t _sent = 0;
  std::shared_ptr<kestrel::datastreaming::Consumer> _consumer;
  std::shared_ptr<kestrel::datastreaming::Producer> _producer;
};

/// The way of a small message without threads: into the queue and out of it.
void smallMessagesThroughTheQueue(benchmark::State& state) {
  MemoryQueue queue(ByteBudget::defaultLimit);
  const std::vector<std::uint8_t> bytes(64);
  std::vector<MemoryQueue::Entry> batch;
  Stamp stamp{.producer = 1};
  constexpr int perBatch = 1000;
  for (auto _ : state) {
    for (int i = 0; i < perBatch; ++i) {
      queue.push(std::make_shared<MemoryMessage>(stamp, bytes.data(), bytes.size(), AttributeMap{}), 320);
    }
    benchmark::DoNotOptimize(queue.take(batch, {}));
  }
  state.SetItemsProcessed(state.iterations() * perBatch);
}
BENCHMARK(smallMessagesThroughTheQueue);

/// send() to data callback, with the producer some thousands of messages ahead.
void smallMessages(benchmark::State& state) {
  Line line;
  const std::vector<std::uint8_t> bytes(64);
  constexpr int perRound = 20'000;
  for (auto _ : state) {
    for (int i = 0; i < perRound; ++i) line.send(bytes, {});
    line.await();
  }
  state.SetItemsProcessed(state.iterations() * perRound);
}
BENCHMARK(smallMessages)->MeasureProcessCPUTime()->UseRealTime();

/// One message after the other: twice the cost of a hand-off between threads, there and back.
void oneMessageAtATime(benchmark::State& state) {
  Line line;
  const std::vector<std::uint8_t> bytes(64);
  for (auto _ : state) {
    line.send(bytes, {});
    line.await();
  }
}
BENCHMARK(oneMessageAtATime)->UseRealTime();

/// Payloads of 16 pieces of 1 MB, copied once more by the receiver.
void largePieces(benchmark::State& state) {
  constexpr std::size_t pieceSize = 1'000'000;
  constexpr int pieces = 16;
  Line line;
  line.copyArrivals(pieceSize);
  const std::vector<std::uint8_t> bytes(pieceSize, 7);
  const AttributeMap more{{MessageAttributes::CompressionType, "chunk"},
                          {MessageAttributes::UnCompressedSize, 1L}};
  const AttributeMap last{{MessageAttributes::CompressionType, "chunk"},
                          {MessageAttributes::UnCompressedSize, 0L}};
  for (auto _ : state) {
    for (int i = 1; i <= pieces; ++i) {
      line.send(bytes, i < pieces ? more : last);
      line.await(8);
    }
    line.await();
  }
  state.SetBytesProcessed(state.iterations() * pieces * static_cast<std::int64_t>(pieceSize));
}
BENCHMARK(largePieces)->MeasureProcessCPUTime()->UseRealTime();

/// The yardstick: the same bytes copied twice by one thread.
void largePiecesCopiedTwice(benchmark::State& state) {
  constexpr std::size_t pieceSize = 1'000'000;
  const std::vector<std::uint8_t> source(pieceSize, 7);
  std::vector<std::uint8_t> between(pieceSize), target(pieceSize);
  for (auto _ : state) {
    std::memcpy(between.data(), source.data(), pieceSize);
    benchmark::ClobberMemory();
    std::memcpy(target.data(), between.data(), pieceSize);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(pieceSize));
}
BENCHMARK(largePiecesCopiedTwice);

}  // namespace

BENCHMARK_MAIN();
