// The messenger over NATS beside the plain C client doing the same work by hand: same server, same run,
// arrays encoded and decoded with KDAHelper on both sides.
#include <benchmark/benchmark.h>

#include <functional>
#include <remote_connectivity/asyncio/util/KDAHelper.hpp>
#include <semaphore>

#include "../tests/datastreaming/NatsServer.hpp"
#include "Load.hpp"
#include "PlainNats.hpp"
#include "Yardsticks.hpp"

namespace {

using namespace bench;

constexpr std::size_t smallSize = 100;
constexpr std::size_t largeSize = 100'000'000;
constexpr std::size_t chunkSize = 900'000;  // with headers well below the server's limit, on both sides

const std::string& url() {
  static const kestrel::streams::NatsServer server;
  static const std::string text = server.url();
  return text;
}

/// Each side has a connection of its own, as two processes would; so have the plain clients.
DataStreamMessengerFactory& nearFactory() {
  static DataStreamMessengerFactory factory((host(), ""), url());
  return factory;
}
DataStreamMessengerFactory& farFactory() {
  static DataStreamMessengerFactory factory((host(), ""), url());
  return factory;
}

Options chunked() {
  Options options = unlimited();
  options["msgSizeLimit"] = std::any(static_cast<unsigned long>(chunkSize));
  return options;
}

/// A plain client that decodes each request, encodes it again and sends it back.
class PlainEcho {
 public:
  explicit PlainEcho(const std::string& subject) : _client(url(), true) {
    _client.subscribe(subject, [this](natsMsg* message) {
      const auto* data = reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message));
      const auto bytes = _helper.kdaToProtobufBytes(
          _helper.kdaFromProtobuf(data, static_cast<std::size_t>(natsMsg_GetDataLength(message))));
      _client.publish(natsMsg_GetReply(message), bytes.data(), bytes.size());
    });
  }

 private:
  KDAHelper _helper;
  PlainNats _client;
};

double medianOf(int rounds, const std::function<void()>& action) {
  std::vector<double> samples;
  for (int i = 0; i < rounds; ++i) {
    const auto start = Clock::now();
    action();
    samples.push_back(secondsSince(start));
  }
  return median(std::move(samples));
}

void report(benchmark::State& state, const char* unit, double scale, const std::vector<double>& ours,
            const std::vector<double>& plain) {
  state.counters[std::string("ours_") + unit] = median(ours) * scale;
  state.counters[std::string("plain_") + unit] = median(plain) * scale;
  state.counters["time_of_plain"] = median(ours) / median(plain);
  state.counters["rate_of_plain"] = median(plain) / median(ours);
}

/// To reach: at most 1.4 times the plain client's time.
void roundTrip(benchmark::State& state) {
  Pair pair(unlimited(), nearFactory(), farFactory());
  echoRequests(*pair.far);
  const PlainEcho echo("plain.echo");
  PlainNats client(url(), true);
  KDAHelper helper;
  const DataStruct message(bytesArray(smallSize));
  std::vector<double> ours;
  std::vector<double> plain;
  for (auto _ : state) {
    ours.push_back(medianOf(1000, [&] { benchmark::DoNotOptimize(pair.near->request(message)); }));
    plain.push_back(medianOf(1000, [&] {
      const auto answer = client.request("plain.echo", helper.kdaToProtobufBytes(message.data));
      benchmark::DoNotOptimize(helper.kdaFromProtobuf(answer.data(), answer.size()));
    }));
  }
  report(state, "us", 1e6, ours, plain);
}
BENCHMARK(roundTrip)->Iterations(7)->UseRealTime()->Unit(benchmark::kMillisecond);

/// The plain client's way of one large array: chunks by hand, the last one shorter.
class PlainLarge {
 public:
  explicit PlainLarge(Receipts& receipts) : _sender(url(), false), _receiver(url(), false) {
    _receiver.subscribe("plain.large", [this, &receipts](natsMsg* message) {
      const auto* data = reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message));
      const auto size = static_cast<std::size_t>(natsMsg_GetDataLength(message));
      _joined.insert(_joined.end(), data, data + size);
      if (size == chunkSize) return;
      benchmark::DoNotOptimize(_helper.kdaFromProtobuf(_joined.data(), _joined.size()));
      _joined.clear();
      receipts.add();
    });
  }

  void send(const kestreldata::Array& array) {
    const auto bytes = _encoder.kdaToProtobufBytes(array);
    for (std::size_t offset = 0; offset < bytes.size(); offset += chunkSize) {
      _sender.publish("plain.large", bytes.data() + offset, std::min(chunkSize, bytes.size() - offset));
    }
  }

 private:
  KDAHelper _encoder;
  KDAHelper _helper;
  std::vector<std::uint8_t> _joined;
  PlainNats _sender;
  PlainNats _receiver;
};

/// To reach: 0.85 of the plain client's rate.
void largeArray(benchmark::State& state) {
  Receipts ourReceipts;
  Pair pair(chunked(), nearFactory(), farFactory());
  countReceipts(*pair.far, ourReceipts);
  Receipts plainReceipts;
  PlainLarge plainClient(plainReceipts);
  const DataStruct message(bytesArray(largeSize));
  std::vector<double> ours;
  std::vector<double> plain;
  std::uint64_t sent = 0;
  for (auto _ : state) {
    ++sent;
    ours.push_back(medianOf(1, [&] {
      pair.near->send(message);
      ourReceipts.waitFor(sent);
    }));
    plain.push_back(medianOf(1, [&] {
      plainClient.send(message.data);
      plainReceipts.waitFor(sent);
    }));
  }
  report(state, "ms", 1e3, ours, plain);
}
BENCHMARK(largeArray)->Iterations(15)->UseRealTime()->Unit(benchmark::kMillisecond);

/// Keeps eight requests outstanding on a plain client that others share.
class PlainRequester {
 public:
  PlainRequester(PlainNats& client, int number)
      : _client(client), _inbox("plain.inbox." + std::to_string(number)) {
    client.subscribe(_inbox, [this](natsMsg* message) {
      const auto* data = reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message));
      benchmark::DoNotOptimize(
          _decoder.kdaFromProtobuf(data, static_cast<std::size_t>(natsMsg_GetDataLength(message))));
      _free.release();
    });
  }

  void run(const kestreldata::Array& array, int requests) {
    for (int i = 0; i < requests; ++i) {
      _free.acquire();
      _client.publishRequest("plain.many", _inbox, _encoder.kdaToProtobufBytes(array));
    }
    for (int i = 0; i < ManyRequests::outstandingEach; ++i) _free.acquire();
    _free.release(ManyRequests::outstandingEach);
  }

 private:
  PlainNats& _client;
  const std::string _inbox;
  KDAHelper _encoder;
  KDAHelper _decoder;
  std::counting_semaphore<> _free{ManyRequests::outstandingEach};
};

/// To reach: 0.7 of the plain client's rate.
void requestsFromEightThreads(benchmark::State& state) {
  constexpr int requestsEach = 2'000;
  Pair pair(unlimited(), nearFactory(), farFactory());
  echoRequests(*pair.far);
  const PlainEcho echo("plain.many");
  std::deque<PlainRequester> requesters;
  PlainNats client(url(), true);
  for (int i = 0; i < ManyRequests::threads; ++i) requesters.emplace_back(client, i);
  const DataStruct message(bytesArray(smallSize));
  std::vector<double> ours;
  std::vector<double> plain;
  for (auto _ : state) {
    ours.push_back(medianOf(1, [&] { ManyRequests::run(*pair.near, message, requestsEach); }));
    plain.push_back(medianOf(1, [&] {
      ManyRequests::onEachThread(
          [&](int i) { requesters[static_cast<std::size_t>(i)].run(message.data, requestsEach); });
    }));
  }
  report(state, "ms", 1e3, ours, plain);
  state.counters["our_requests_per_s"] = ManyRequests::threads * requestsEach / median(ours);
}
BENCHMARK(requestsFromEightThreads)->Iterations(7)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
