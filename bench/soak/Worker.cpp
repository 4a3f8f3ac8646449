#include "Worker.hpp"

#include <pthread.h>

#include <csignal>
#include <iostream>
#include <memory>
#include <thread>

#include "Roles.hpp"

namespace soak {

using namespace std::chrono_literals;

namespace {

/// Made before there are threads, which inherit the mask. A keyboard interrupt is the conductor's to handle.
class Orders {
 public:
  Orders() {
    sigemptyset(&_blocked);
    for (const int signal : {SIGTERM, SIGUSR1, SIGINT}) sigaddset(&_blocked, signal);
    pthread_sigmask(SIG_BLOCK, &_blocked, nullptr);
    sigdelset(&_blocked, SIGINT);
  }
  /// Until SIGTERM; with either signal the crew stops.
  void obey(Crew& crew) const {
    for (int signal = 0; signal != SIGTERM;) {
      sigwait(&_blocked, &signal);
      crew.stop();
    }
  }

 private:
  sigset_t _blocked{};
};

/// Writes the statistics down twice a second, until it goes.
class Reporting {
 public:
  explicit Reporting(Crew& crew)
      : _thread([&crew](const std::stop_token& stop) {
          while (!stop.stop_requested()) {
            crew.reportStatistics();
            std::this_thread::sleep_for(500ms);
          }
        }) {}

 private:
  std::jthread _thread;
};

/// After the last messenger of a process has gone: what it left to its connection is stored, sent or given
/// up.
void letConnectionFinish(Transport transport) {
  if (transport == Transport::live) std::this_thread::sleep_for(1s);
  if (transport == Transport::durable) std::this_thread::sleep_for(std::chrono::seconds(retrySeconds + 1));
}

}  // namespace

Assignment::Assignment(const std::vector<std::string>& arguments)
    : role(static_cast<Role>(std::stoi(arguments.at(0)))),
      transport(static_cast<Transport>(std::stoi(arguments.at(1)))),
      slot(std::stoi(arguments.at(2))),
      process(static_cast<std::uint32_t>(std::stoul(arguments.at(3)))),
      seed(std::stoull(arguments.at(4))),
      endpoint(arguments.at(5)),
      folder(arguments.at(6)) {}

std::vector<std::string> Assignment::arguments() const {
  return {std::to_string(static_cast<int>(role)),
          std::to_string(static_cast<int>(transport)),
          std::to_string(slot),
          std::to_string(process),
          std::to_string(seed),
          endpoint,
          folder.string()};
}

int runWorker(const Assignment& assignment) {
  const Orders orders;
  Crew crew(assignment.transport, assignment.process, assignment.seed, assignment.endpoint,
            assignment.folder);
  std::jthread obeying([&] { orders.obey(crew); });  // the server may be away while the role is made
  {
    const auto role = makeRole(crew, assignment);
    const Reporting reporting(crew);
    obeying.join();
    crew.finish();
  }
  if (assignment.role == Assignment::Role::visitor) letConnectionFinish(assignment.transport);
  crew.reportStatistics();
  return 0;
}

}  // namespace soak
