#pragma once

#include <array>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "Accounts.hpp"
#include "Children.hpp"
#include "Faults.hpp"

namespace soak {

/// Runs the whole: the server, the processes, what befalls them, and the books. One thread.
class Conductor {
 public:
  struct Options {
    double minutes = 1;
    std::uint64_t seed = 0;
    std::filesystem::path folder{};  ///< where everything goes
  };

  Conductor(Options options, const volatile std::sig_atomic_t& interrupted);
  ~Conductor();
  Conductor(const Conductor&) = delete;
  Conductor& operator=(const Conductor&) = delete;

  /// The exit code: 0 if all held.
  int run();

 private:
  /// A process that comes again when it has ended.
  struct Visit {
    Assignment::Role role;
    Transport transport;
    int slot;
    std::unique_ptr<Child> child{};
    std::int64_t due = 0;       // of its end, or of its coming
    std::int64_t patience = 0;  // how long it may take to end once it was told to
  };
  struct Resident {
    std::unique_ptr<Child> child;
    Footprint first{};  // when all messengers are made
    Footprint last{};
    Footprint most{};
  };

  void start();
  void work(std::int64_t until, bool faults);
  void step(bool comeAgain);
  void visit(Visit& visit, bool comeAgain);
  void endVisit(Visit& visit);
  void watchVisit(Visit& visit);
  void fold();
  /// Returns whether it has just made all its messengers.
  bool foldOf(Child& child);
  void measure();
  void drain();
  void settle();
  void end();
  [[nodiscard]] std::unique_ptr<Child> makeChild(Assignment::Role role, Transport transport, int slot);
  [[nodiscard]] Accounts& accountsOf(const Child& child);
  void noteEnd(Child& child, const std::string& unasked);
  [[nodiscard]] std::int64_t lastEvent() const;
  void checkInterrupt() const;
  [[nodiscard]] int judge();

  const Options _options;
  const volatile std::sig_atomic_t& _interrupted;
  Random _random;
  kestrel::streams::NatsServer _server;
  Faults::Proxies _proxies;
  std::array<Accounts, transportNames.size()> _accounts{
      Accounts(Transport::memory), Accounts(Transport::live), Accounts(Transport::durable),
      Accounts(Transport::ipc)};
  Faults _faults;
  std::array<Resident, transportNames.size()> _residents;
  std::vector<Visit> _visits;
  std::uint32_t _processes = 0;
  std::int64_t _begun = 0;
  std::int64_t _nextMeasurement = 0;
  int _kills = 0;
  int _departures = 0;
  std::vector<std::string> _complaints;
};

}  // namespace soak
