#include "Worker.hpp"

#include <malloc.h>
#include <pthread.h>

#include <csignal>
#include <iostream>
#include <memory>
#include <thread>

#include "Roles.hpp"

namespace soak {

using namespace std::chrono_literals;

namespace {

/// What the conductor says by signals, which have been blocked in all threads since the program began.
class Orders {
 public:
  Orders() {
    sigemptyset(&_orders);
    for (const int signal : {SIGTERM, SIGUSR1, SIGUSR2}) sigaddset(&_orders, signal);
  }
  /// Until SIGTERM.
  void obey(Crew& crew) const {
    for (int signal = 0; signal != SIGTERM;) {
      sigwait(&_orders, &signal);
      if (signal == SIGUSR2) {
        ::malloc_trim(0);  // what stays is held by somebody
      } else {
        crew.stop();
      }
    }
  }

 private:
  sigset_t _orders{};
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
  Crew crew(assignment.transport, assignment.process, assignment.seed, assignment.endpoint,
            assignment.folder);
  std::jthread obeying([&] { Orders().obey(crew); });  // the server may be away while the role is made
  {
    const auto role = makeRole(crew, assignment);
    crew.journal().write({.kind = Record::Kind::ready});
    const Reporting reporting(crew);
    obeying.join();
    crew.finish();
  }
  if (assignment.role == Assignment::Role::visitor) letConnectionFinish(assignment.transport);
  crew.reportStatistics();
  return 0;
}

}  // namespace soak
