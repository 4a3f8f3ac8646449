#include <benchmark/benchmark.h>

#include <cstring>
#include <kestrel/datastreaming/Keys.hpp>
#include <thread>
#include <vector>

#include "sequencing/PayloadSequencer.hpp"
#include "src/StreamsFactoryImpl.hpp"
#include "transports/memory/MemoryQueue.hpp"

namespace {

using namespace kestrel::streams;
using kestrel::datastreaming::AttributeMap;
using kestrel::datastreaming::MessageAttributes;

/// A producer and a consumer on a stream of their own, and the bytes that have arrived.
class Line {
 public:
  Line() {
    const auto stream = _factory.getStream("", {});
    _consumer = _factory.createConsumer(stream);
    _consumer->setDataCallback(
        [this](const std::uint8_t*, std::uint64_t size, const std::string&, AttributeMap&) {
          _arrived.fetch_add(size, std::memory_order_release);
          _arrived.notify_one();
        });
    _consumer->start().get();
    _producer = _factory.createProducer(stream, {});
    _producer->start().get();
  }

  void send(const std::vector<std::uint8_t>& bytes, const AttributeMap& attributes) {
    _producer->send(bytes.data(), bytes.size(), attributes);
    _sent += bytes.size();
  }
  /// Waits until all bytes have arrived.
  void await() {
    for (auto seen = _arrived.load(std::memory_order_acquire); seen < _sent;
         seen = _arrived.load(std::memory_order_acquire)) {
      _arrived.wait(seen, std::memory_order_acquire);
    }
  }

 private:
  StreamsFactoryImpl _factory;
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
      queue.push(MemoryMessage::copying(stamp, bytes.data(), bytes.size(), AttributeMap{}), 320);
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

/// Payloads of 16 pieces of 1 MB, copied into messages and joined.
void largePieces(benchmark::State& state) {
  constexpr std::size_t pieceSize = 1'000'000;
  constexpr int pieces = 16;
  Line line;
  const std::vector<std::uint8_t> bytes(pieceSize, 7);
  const AttributeMap more{{MessageAttributes::CompressionType, "chunk"},
                          {MessageAttributes::UnCompressedSize, 1L}};
  const AttributeMap last{{MessageAttributes::CompressionType, "chunk"},
                          {MessageAttributes::UnCompressedSize, 0L}};
  for (auto _ : state) {
    for (int i = 1; i <= pieces; ++i) line.send(bytes, i < pieces ? more : last);
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

/// A plain message of a producer that nobody has heard of, while so many others leave payloads unfinished.
void newProducerBesideUnfinishedPayloads(benchmark::State& state) {
  PayloadSequencer sequencer;
  const std::uint8_t byte = 1;
  std::uint64_t producer = 0;
  const auto send = [&](bool piece) {
    Frame frame;
    frame.stamp = {.producer = ++producer, .sequence = 1, .payload = 1, .chunked = piece, .last = !piece};
    if (piece) {
      frame.attributes = {{MessageAttributes::CompressionType, "chunk"},
                          {MessageAttributes::UnCompressedSize, 1L}};
    }
    frame.data = &byte;
    frame.size = 1;
    frame.arrival = Clock::now();
    sequencer.accept(std::move(frame));
    while (auto action = sequencer.next()) benchmark::DoNotOptimize(action);
  };
  for (std::int64_t i = 0; i < state.range(0); ++i) send(true);
  for (auto _ : state) send(false);
}
BENCHMARK(newProducerBesideUnfinishedPayloads)->Arg(0)->Arg(32'000);

}  // namespace

BENCHMARK_MAIN();
