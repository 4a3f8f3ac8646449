#include "Roles.hpp"

#include <deque>
#include <string>

#include "Ends.hpp"

namespace soak {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

milliseconds anyTime(Random& random, int least, int most) {
  return milliseconds(random.between(least, most));
}

/// Whole or in chunks, by the messenger's choice of chunk size.
unsigned long anyChunk(Random& random) {
  return static_cast<unsigned long>(random.chance(50) ? random.between(20'000, 100'000) : 500'000);
}

std::string ownStream(const Crew& crew, Lane lane, int slot = 0) {
  return streamOf(crew.transport(), lane) + "-back-" + std::to_string(slot);
}

/// All sizes, at a rate that two busy cores carry.
void sendSteadily(Crew& crew, Sender& sender, Random& random, int longestPause) {
  while (crew.pause(anyTime(random, 1, longestPause * slowness))) sender.send(anySize(random));
}

/// Live, a message shows what is missing before it; when it comes after the outage.
void sendLast(Sender& sender) {
  sender.send(100);
}

/// What a resident process keeps and does: both ends of the lanes within it, and its part of those to others.
class Resident final : public Role {
 public:
  explicit Resident(Crew& crew) : _crew(crew) {
    for (const Lane lane : {Lane::steady, Lane::idle, Lane::comers}) _receivers.emplace_back(crew, lane);
    _receivers.emplace_back(crew, Lane::flood, slowly);
    for (int slot = 0; slot < firstVisitorSlot; ++slot) _responders.emplace_back(crew, slot);
    _steady.emplace(crew, Lane::steady, ownStream(crew, Lane::steady), 50'000);
    _idle.emplace(crew, Lane::idle, ownStream(crew, Lane::idle), 50'000);
    _flooder.emplace(crew, Lane::flood, ownStream(crew, Lane::flood), 900'000);
    _toGuests.emplace(crew, Lane::guests, ownStream(crew, Lane::guests), 50'000);
    _requester.emplace(crew, residentSlot, 100'000);
    if (crew.transport() != Transport::memory) receiveVisitors();
    employ();
  }

 private:
  static constexpr int requesters = 3;

  static void slowly(std::uint64_t size) {
    if (size > 100'000) std::this_thread::sleep_for(3ms);
  }

  void receiveVisitors() {
    _receivers.emplace_back(_crew, Lane::visitors);
    _toHosts.emplace(_crew, Lane::hosts, ownStream(_crew, Lane::hosts), 50'000);
    for (int visitor = 0; visitor < visitors; ++visitor) {
      _responders.emplace_back(_crew, firstVisitorSlot + visitor);
    }
    _crew.employ([this](Random& random) { sendLong(*_toHosts, random, 50); });
  }

  void employ() {
    _crew.employ([this](Random& random) { sendLong(*_steady, random, 30); });
    _crew.employ([this](Random& random) { sendLong(*_toGuests, random, 40); });
    _crew.employ([this](Random& random) { flood(random); });
    _crew.employ([this](Random& random) { sendAndPause(random); });
    _crew.employ([this](Random& random) { comeAndGo(random); });
    _crew.employ([this](Random& random) { haveGuests(random); });
    for (int i = 0; i < requesters; ++i) _crew.employ([this](Random& random) { request(random); });
  }

  void sendLong(Sender& sender, Random& random, int longestPause) {
    sendSteadily(_crew, sender, random, longestPause);
    sendLast(sender);
  }

  /// More at once than any queue takes; durable, less, for the disk is everybody's.
  void flood(Random& random) {
    const int large = (_crew.transport() == Transport::durable ? 60 : 340) / slowness;
    if (!_crew.pause(5s * slowness)) return;  // the memory of the process is measured before
    do {
      for (int i = 0; i < large && _crew.working(); ++i) {
        _flooder->send(static_cast<std::uint64_t>(random.chance(70) ? 880'000 : 2'500'000));
      }
      for (int i = 0; i < 3'000 / slowness && _crew.working(); ++i) {
        _flooder->send(static_cast<std::uint64_t>(random.between(0, 200)));
      }
    } while (_crew.pause(anyTime(random, 15'000, 25'000)));
    std::this_thread::sleep_for(3s);  // so that there is room for the last one
    sendLast(*_flooder);
  }

  void sendAndPause(Random& random) {
    const auto longPause = std::chrono::seconds(longPauseSeconds(_crew.transport()));
    do {
      for (auto left = random.between(1, 5); left > 0; --left) _idle->send(anySize(random));
      _idle->send(200'000);
    } while (_crew.pause(longPause + anyTime(random, 0, 3'000)));
    sendLast(*_idle);
  }

  void comeAndGo(Random& random) {
    while (_crew.pause(anyTime(random, 20, 400 * slowness))) {
      Sender sender(_crew, Lane::comers, ownStream(_crew, Lane::comers), anyChunk(random));
      if (!sender) return;
      for (auto left = random.between(0, 12); left > 0; --left) sender.send(anySize(random));
      if (!random.chance(20)) continue;
      Requester requester(_crew, comersSlot, anyChunk(random));
      if (requester) requester.askAndLeave(anySize(random) / 10);
    }
  }

  void haveGuests(Random& random) {
    do {
      const Receiver guest(_crew, Lane::guests);
      _crew.pause(anyTime(random, 300, 3'000));
      if (!_crew.working()) break;
    } while (_crew.pause(anyTime(random, 0, 300)));
    _lastGuest.emplace(_crew, Lane::guests);
  }

  void request(Random& random) {
    while (_crew.pause(anyTime(random, 0, 20 * slowness))) _requester->ask(anySize(random) / 10);
  }

  Crew& _crew;
  std::deque<Receiver> _receivers;
  std::deque<Responder> _responders;
  std::optional<Sender> _steady, _idle, _flooder, _toGuests, _toHosts;
  std::optional<Requester> _requester;
  std::optional<Receiver> _lastGuest;
};

/// A process that sends to the resident one until it is killed or told to go.
class Visitor final : public Role {
 public:
  Visitor(Crew& crew, int slot)
      : _sender(crew, Lane::visitors, ownStream(crew, Lane::visitors, slot), 50'000),
        _requester(crew, slot, 100'000) {
    if (!_sender || !_requester) return;
    crew.employ([&crew, this](Random& random) { sendSteadily(crew, _sender, random, 40); });
    crew.employ([&crew, this](Random& random) {
      while (crew.pause(anyTime(random, 5, 60 * slowness))) _requester.ask(anySize(random) / 10);
    });
  }

 private:
  Sender _sender;
  Requester _requester;
};

class HostRole final : public Role {
 public:
  explicit HostRole(Crew& crew) : _receiver(crew, Lane::hosts) {}

 private:
  Receiver _receiver;
};

}  // namespace

std::unique_ptr<Role> makeRole(Crew& crew, const Assignment& assignment) {
  switch (assignment.role) {
    case Assignment::Role::resident:
      return std::make_unique<Resident>(crew);
    case Assignment::Role::visitor:
      return std::make_unique<Visitor>(crew, assignment.slot);
    case Assignment::Role::host:
      return std::make_unique<HostRole>(crew);
  }
  throw std::invalid_argument("no such role");
}

}  // namespace soak
