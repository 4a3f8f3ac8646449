#include "Conductor.hpp"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "Table.hpp"

namespace soak {

using namespace std::chrono_literals;
using Role = Assignment::Role;

namespace {

constexpr std::int64_t keptSeconds =
    7;  // after which memory for payloads, and its descriptors, are given back
constexpr std::int64_t calmBeforeEnd = 12 * second;
constexpr std::int64_t longestEnd = 45 * second * slowness;  // a request may take 20 s to fail
constexpr std::int64_t longestDrain = 90 * second * slowness;
constexpr std::int64_t quiet = (retrySeconds + 12) * second;  // longer than anything is waited for

Footprint mostOf(const Footprint& one, const Footprint& other) {
  return {std::max(one.residentMiB, other.residentMiB), std::max(one.threads, other.threads),
          std::max(one.descriptors, other.descriptors)};
}

std::string queryOf(Transport transport) {
  if (transport == Transport::live) return "wsFirstReconnBackoffMs=50";
  return "delivery=durable&max_age_s=3600&max_bytes=134217728&wsFirstReconnBackoffMs=50&retry_s=" +
         std::to_string(retrySeconds);
}

}  // namespace

Conductor::Conductor(Options options, const volatile std::sig_atomic_t& interrupted)
    : _options(std::move(options)),
      _interrupted(interrupted),
      _random(_options.seed),
      _faults(_server, _proxies, _random.seed(), [this](const Outage& outage) {
        for (const Transport transport : {Transport::live, Transport::durable}) {
          _accounts[static_cast<std::size_t>(transport)].outage(outage);
        }
      }) {}

/// The processes before the server.
Conductor::~Conductor() {
  _visits.clear();
  for (auto& resident : _residents) resident.child.reset();
}

std::unique_ptr<Child> Conductor::makeChild(Role role, Transport transport, int slot) {
  Assignment assignment;
  assignment.role = role;
  assignment.transport = transport;
  assignment.slot = slot;
  assignment.process = ++_processes;
  assignment.seed = _random.seed();
  if (transport == Transport::ipc) assignment.endpoint = "ipc://" + (_options.folder / "streams").string();
  if (needsServer(transport)) {
    auto& proxy = _proxies[assignment.process] = std::make_unique<CuttingProxy>(_server.port());
    assignment.endpoint = proxy->url(queryOf(transport));
  }
  assignment.folder = _options.folder;
  return std::make_unique<Child>(std::move(assignment));
}

Accounts& Conductor::accountsOf(const Child& child) {
  return _accounts[static_cast<std::size_t>(child.assignment().transport)];
}

void Conductor::start() {
  for (std::size_t i = 0; i < _residents.size(); ++i) {
    _residents[i].child = makeChild(Role::resident, static_cast<Transport>(i), residentSlot);
    _accounts[i].residentIs(_residents[i].child->assignment().process);
  }
  for (const Transport transport : {Transport::live, Transport::durable, Transport::ipc}) {
    for (int i = 0; i < visitors; ++i) _visits.push_back({Role::visitor, transport, firstVisitorSlot + i});
    _visits.push_back({Role::host, transport, 0});
  }
  _begun = now();
  for (auto& visit : _visits) visit.due = _begun + second;
}

int Conductor::run() {
  start();
  const auto length = static_cast<std::int64_t>(_options.minutes * 60 * static_cast<double>(second));
  work(_begun + length - calmBeforeEnd, true);
  _faults.stop();
  work(_begun + length, false);
  drain();
  settle();
  end();
  return judge();
}

void Conductor::work(std::int64_t until, bool faults) {
  while (now() < until) {
    if (faults) _faults.step();
    step(true);
  }
}

void Conductor::step(bool comeAgain) {
  if (_interrupted != 0) throw std::runtime_error("interrupted");
  for (auto& visit : _visits) this->visit(visit, comeAgain);
  for (auto& resident : _residents) {
    if (resident.child->ended()) throw std::runtime_error("a process ended; " + resident.child->complaint());
  }
  fold();
  if (now() >= _nextMeasurement) measure();
  std::this_thread::sleep_for(30ms);
}

void Conductor::visit(Visit& visit, bool comeAgain) {
  if (visit.child && visit.patience > 0) return watchVisit(visit);
  if (visit.child && visit.child->ended()) {
    noteEnd(*visit.child, "a process ended without being told to");
    visit.child.reset();
  }
  if (now() < visit.due) return;
  if (visit.child) return endVisit(visit);
  if (!comeAgain) return;
  visit.child = makeChild(visit.role, visit.transport, visit.slot);
  visit.due = now() + _random.between(2'000, 9'000) * slowness * (second / 1000);
}

void Conductor::endVisit(Visit& visit) {
  visit.patience = now() + longestEnd;
  if (_random.chance(50)) {
    ++_departures;
    visit.child->signal(SIGTERM);
  } else {
    ++_kills;
    const std::int64_t time = now();
    visit.child->kill();
    accountsOf(*visit.child).killed(visit.child->assignment().process, time);
  }
}

void Conductor::watchVisit(Visit& visit) {
  if (!visit.child->ended()) {
    if (now() < visit.patience) return;
    _complaints.push_back("process " + std::to_string(visit.child->assignment().process) +
                          " did not end when it was told to");
    visit.child->kill();
  }
  noteEnd(*visit.child, {});
  visit.child.reset();
  visit.patience = 0;
  visit.due = now() + _random.between(0, 1'500) * (second / 1000);
}

void Conductor::noteEnd(Child& child, const std::string& unasked) {
  foldOf(child);
  accountsOf(child).ended(child.assignment().process, now());
  _proxies.erase(child.assignment().process);
  if (const auto complaint = child.complaint(); !complaint.empty()) {
    _complaints.push_back(complaint);
  } else if (!unasked.empty()) {
    _complaints.push_back(unasked);
  }
}

void Conductor::fold() {
  for (auto& resident : _residents) {
    if (foldOf(*resident.child)) resident.first = resident.child->footprint().value_or(Footprint{});
  }
  for (auto& visit : _visits) {
    if (visit.child) foldOf(*visit.child);
  }
}

bool Conductor::foldOf(Child& child) {
  bool ready = false;
  Accounts& accounts = accountsOf(child);
  for (const Record& record : child.journal().read()) {
    accounts.add(child.assignment().process, record);
    ready = ready || record.kind == Record::Kind::ready;
  }
  return ready;
}

void Conductor::measure() {
  _nextMeasurement = now() + second;
  for (auto& resident : _residents) {
    const auto footprint = resident.child->footprint();
    if (!footprint) continue;
    resident.last = *footprint;
    resident.most = mostOf(resident.most, *footprint);
  }
}

std::int64_t Conductor::lastEvent() const {
  std::int64_t last = 0;
  for (const Accounts& accounts : _accounts) last = std::max(last, accounts.lastEvent());
  return last;
}

/// Until nothing is open any more, or nothing has moved for longer than any time-out.
void Conductor::drain() {
  std::cout << "The senders stop; what is under way may arrive." << std::endl;
  for (auto& visit : _visits) {
    if (!visit.child || visit.patience > 0 || visit.role == Role::host) continue;
    visit.child->signal(SIGTERM);
    visit.patience = now() + longestEnd;
  }
  for (auto& resident : _residents) resident.child->signal(SIGUSR1);
  const std::int64_t deadline = now() + longestDrain;
  const auto busy = [&] {
    const bool visited = std::any_of(_visits.begin(), _visits.end(), [](const Visit& visit) {
      return visit.child && visit.role == Role::visitor;
    });
    const bool open = std::any_of(_accounts.begin(), _accounts.end(),
                                  [](const Accounts& accounts) { return accounts.open() > 0; });
    return visited || (open && now() - lastEvent() < quiet);
  };
  const std::int64_t least = now() + 5 * second;
  for (auto& visit : _visits) {  // a receiver stays for what is left
    if (visit.role == Role::host && visit.patience == 0) visit.due = visit.child ? deadline + second : 0;
  }
  while ((now() < least || busy()) && now() < deadline) step(true);
}

/// What is in use when all is idle.
void Conductor::settle() {
  for (auto& resident : _residents) resident.child->signal(SIGUSR2);
  const std::int64_t until = now() + (keptSeconds + 3 * slowness) * second;
  while (now() < until) step(false);
}

void Conductor::end() {
  for (auto& resident : _residents) resident.child->signal(SIGTERM);
  for (auto& visit : _visits) {
    if (visit.child) visit.child->signal(SIGTERM);
  }
  const std::int64_t deadline = now() + longestEnd;
  const auto finish = [&](Child& child) {
    while (!child.ended() && now() < deadline && _interrupted == 0) std::this_thread::sleep_for(20ms);
    if (!child.ended()) {
      _complaints.push_back("process " + std::to_string(child.assignment().process) +
                            " did not end when it was told to");
    }
    noteEnd(child, {});
  };
  for (auto& resident : _residents) finish(*resident.child);
  for (auto& visit : _visits) {
    if (visit.child) finish(*visit.child);
  }
}

int Conductor::judge() {
  std::cout << _faults.count() << " faults of server and connections, " << _kills << " processes killed, "
            << _departures << " told to end\n\n";
  Table table;
  for (std::size_t i = 0; i < _accounts.size(); ++i) {
    table.columns[i] = {_accounts[i].verdict(), _residents[i].first, _residents[i].most, _residents[i].last};
  }
  const bool held = table.print(std::cout);
  for (const auto& complaint : _complaints) std::cout << complaint << "\n";
  std::cout << (held && _complaints.empty() ? "All of it held." : "NOT all of it held.") << " Seed "
            << _options.seed << std::endl;
  return held && _complaints.empty() ? 0 : 1;
}

}  // namespace soak
