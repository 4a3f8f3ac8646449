#include "Crew.hpp"

#include <iostream>
#include <kestrel/datastreaming/Statistics.hpp>
#include <optional>
#include <utility>

namespace soak {

using namespace std::chrono_literals;

namespace {

constexpr unsigned long unlimited = 1'000'000'000;

/// What a stream's statistics are counted for; nothing for the streams that go unused.
std::optional<Lane> laneOf(Transport transport, const std::string& stream) {
  for (const Lane lane : {Lane::ask, Lane::calls}) {
    if (stream.starts_with(streamOf(transport, lane) + "-")) return lane;
  }
  for (std::size_t lane = 0; lane < laneNames.size(); ++lane) {
    if (stream == streamOf(transport, static_cast<Lane>(lane))) return static_cast<Lane>(lane);
  }
  return std::nullopt;
}

}  // namespace

Crew::Crew(Transport transport, std::uint32_t process, std::uint64_t seed, const std::string& endpoint,
           const std::filesystem::path& folder)
    : _transport(transport),
      _process(process),
      _random(seed),
      _journal(folder, process),
      _near(std::make_unique<Factory>("", endpoint)),
      _far(std::make_unique<Factory>("", endpoint)) {}

Crew::~Crew() {
  stop();
  finish();
}

Messenger Crew::make(End end, const std::string& sendTo, const std::string& receiveFrom,
                     unsigned long chunkSize) {
  auto& factory = end == End::near ? *_near : *_far;
  for (int triesAfterStop = 25; working() || triesAfterStop > 0; triesAfterStop -= working() ? 0 : 1) {
    try {
      return factory.createSendReceiveMessenger(
          sendTo, receiveFrom,
          {{"masgSizeRate", unlimited}, {"msgSizeLimit", chunkSize}, {"producerUsesBuffer", false}});
    } catch (const std::exception& error) {
      std::cerr << "no messenger for " << sendTo << " yet: " << error.what() << std::endl;
    }
    std::this_thread::sleep_for(200ms);
  }
  return nullptr;
}

void Crew::employ(std::function<void(Random&)> work) {
  _threads.emplace_back([work = std::move(work), seed = _random.seed()] {
    Random random(seed);
    work(random);
  });
}

bool Crew::pause(std::chrono::milliseconds time) {
  std::unique_lock lock(_mutex);
  return !_wake.wait_for(lock, time, [this] { return _stopping.load(); });
}

void Crew::stop() {
  {
    const std::lock_guard lock(_mutex);
    _stopping = true;
  }
  _wake.notify_all();
}

void Crew::finish() {
  for (auto& thread : _threads) thread.join();
  _threads.clear();
}

std::uint64_t Crew::newSender() {
  return std::uint64_t{_process} << 32 | ++_senders;
}

void Crew::reportStatistics() {
  const std::lock_guard lock(_reporting);
  reportStatistics(*_near, 0);
  reportStatistics(*_far, 1);
}

void Crew::reportStatistics(const Factory& factory, std::uint32_t end) {
  std::map<Lane, Record> reports;
  for (const auto& stream : factory.statistics()) {
    if (const auto lane = laneOf(_transport, stream.streamId)) {
      reports[*lane].number += stream.refused;
      reports[*lane].value += stream.lost;
    }
    if (std::exchange(_errors[stream.streamId], stream.lastError) == stream.lastError) continue;
    std::cerr << stream.streamId << " refused " << stream.refused << ", lost " << stream.lost << ": "
              << stream.lastError << std::endl;
  }
  for (auto& [lane, report] : reports) {
    report.kind = Record::Kind::reported;
    report.lane = lane;
    report.receiver = end;
    _journal.write(report);
  }
}

}  // namespace soak
