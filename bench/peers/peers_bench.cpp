// Ways to talk to a far side, ours and others', side by side in one run. Prints a line for each measurement:
// work, way, value, unit, separated by tabs; of several runs the median.
//   peers_bench [RUNS [TEXT]]      all of them, or those in whose "work, way" the text occurs
//   peers_bench serve NAME ADDRESS the far side of one, until standard input ends
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>

#include "../../tests/datastreaming/NatsServer.hpp"
#include "../Yardsticks.hpp"
#include "Peer.hpp"

namespace {

using namespace bench;

std::vector<PeerKind> allKinds(const std::string& natsUrl, const std::string& folder) {
  std::vector<PeerKind> kinds;
  for (auto&& some :
       {kestrelKinds(natsUrl, folder), zeroMqKinds(folder), grpcKinds(folder), natsKinds(natsUrl)})
    kinds.insert(kinds.end(), some.begin(), some.end());
  return kinds;
}

/// The far side of a peer, in a process that ends with this object.
class FarSide {
 public:
  explicit FarSide(const PeerKind& kind) {
    if (!kind.serve) return;
    int life[2], ready[2];
    if (::pipe2(life, O_CLOEXEC) != 0 || ::pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    _process = ::fork();
    if (_process == 0) {
      ::dup2(life[0], STDIN_FILENO);
      ::dup2(ready[1], STDOUT_FILENO);
      ::execl("/proc/self/exe", "peers_bench", "serve", kind.name.c_str(), kind.address.c_str(), nullptr);
      ::_exit(127);
    }
    ::close(life[0]);
    ::close(ready[1]);
    _life = life[1];
    char byte = 0;
    if (::read(ready[0], &byte, 1) != 1) throw std::runtime_error("no far side: " + kind.name);
    ::close(ready[0]);
  }
  ~FarSide() {
    if (_process <= 0) return;
    ::close(_life);
    ::waitpid(_process, nullptr, 0);
  }
  FarSide(const FarSide&) = delete;
  FarSide& operator=(const FarSide&) = delete;

 private:
  pid_t _process = -1;
  int _life = -1;
};

int serve(const std::string& name, const std::string& address) {
  for (const PeerKind& kind : allKinds(address, "")) {
    if (kind.name != name) continue;
    const auto far = kind.serve(address);
    std::cout << 'r' << std::flush;
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
    std::_Exit(0);
  }
  return 1;
}

double exchangeTime(Peer& peer, std::size_t bytes, int rounds) {
  peer.load(bytes);
  std::vector<double> samples;
  for (int i = 0; i < rounds + rounds / 5; ++i) {
    const auto start = Clock::now();
    peer.exchange();
    if (i >= rounds / 5) samples.push_back(secondsSince(start));
  }
  return median(std::move(samples));
}

double sendRate(Peer& peer, int messages) {
  constexpr int window = 20'000;
  peer.load(100);
  const auto start = Clock::now();
  for (int i = 1; i <= messages; ++i) {
    peer.send();
    if (i % window == 0) peer.settle();
  }
  return messages / secondsSince(start);
}

double bulkRate(Peer& peer) {
  constexpr std::size_t bytes = 100'000'000;
  peer.load(bytes);
  std::vector<double> samples;
  for (int i = 0; i < 5; ++i) {
    const auto start = Clock::now();
    peer.send();
    peer.settle();
    samples.push_back(secondsSince(start));
  }
  return static_cast<double>(bytes) / median(std::move(samples));
}

double manyRate(Peer& peer) {
  constexpr int requests = 20'000, outstanding = 64;
  peer.load(100);
  const auto start = Clock::now();
  peer.exchangeMany(requests, outstanding);
  return requests / secondsSince(start);
}

struct Work {
  const char* name;
  const char* unit;
  double (*measure)(Peer& peer);
};

constexpr Work works[] = {
    {"round trip 100 B", "µs", [](Peer& peer) { return 1e6 * exchangeTime(peer, 100, 10'000); }},
    {"round trip 1 MB", "ms", [](Peer& peer) { return 1e3 * exchangeTime(peer, 1'000'000, 100); }},
    {"one way 100 B", "1000/s", [](Peer& peer) { return 1e-3 * sendRate(peer, 200'000); }},
    {"one array of 100 MB", "MB/s", [](Peer& peer) { return 1e-6 * bulkRate(peer); }},
    {"64 outstanding", "1000/s", [](Peer& peer) { return 1e-3 * manyRate(peer); }},
};

using Results = std::map<std::pair<std::size_t, std::size_t>, std::vector<double>>;  // by work and kind

void measureAll(const std::vector<PeerKind>& kinds, const std::string& wanted, Results& results) {
  for (std::size_t k = 0; k < kinds.size(); ++k) {
    const FarSide far(kinds[k]);
    const auto peer = kinds[k].connect(kinds[k].address);
    for (std::size_t w = 0; w < std::size(works); ++w) {
      if ((works[w].name + (", " + kinds[k].name)).find(wanted) == std::string::npos) continue;
      const double value = works[w].measure(*peer);
      results[{w, k}].push_back(value);
      std::fprintf(stderr, "%s, %s: %.4g %s\n", works[w].name, kinds[k].name.c_str(), value, works[w].unit);
    }
  }
}

void printLine(const char* work, const char* name, double value, const char* unit) {
  std::printf("%s\t%s\t%.3g\t%s\n", work, name, value, unit);
}

/// Median time in seconds in which 100 bytes go to another process over a Unix socket and come back.
double bareRoundTrip() {
  int ends[2];
  std::array<char, 100> bytes{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("socketpair");
  const pid_t far = ::fork();
  if (far == 0) {
    ::close(ends[0]);
    while (::read(ends[1], bytes.data(), bytes.size()) > 0)
      (void)!::write(ends[1], bytes.data(), bytes.size());
    ::_exit(0);
  }
  ::close(ends[1]);
  std::vector<double> samples;
  for (int i = 0; i < 20'000; ++i) {
    const auto start = Clock::now();
    (void)!::write(ends[0], bytes.data(), bytes.size());
    (void)!::read(ends[0], bytes.data(), bytes.size());
    samples.push_back(secondsSince(start));
  }
  ::close(ends[0]);
  ::waitpid(far, nullptr, 0);
  return median(std::move(samples));
}

/// What the machine itself can do.
void printYardsticks() {
  const std::vector<std::uint8_t> source(100'000'000, 1);
  std::vector<std::uint8_t> target(source.size());
  std::vector<double> fresh, warm;
  for (int i = 0; i < 5; ++i) {
    fresh.push_back(copyIntoNewBuffer(source));
    const auto start = Clock::now();
    std::copy(source.begin(), source.end(), target.begin());
    asm volatile("" : : "r"(target.data()) : "memory");  // the copy must happen
    warm.push_back(secondsSince(start));
  }
  const auto rate = [&](auto& samples) {
    return static_cast<double>(source.size()) / median(samples) * 1e-6;
  };
  printLine("yardsticks", "copy into pages in use", rate(warm), "MB/s");
  printLine("yardsticks", "copy into fresh pages", rate(fresh), "MB/s");
  printLine("yardsticks", "hand-off between threads", 1e6 * medianHandOff(20'000), "µs");
  printLine("yardsticks", "round trip of 100 B over a bare Unix socket", 1e6 * bareRoundTrip(), "µs");
}

}  // namespace

int main(int count, char** arguments) {
  if (count == 4 && std::strcmp(arguments[1], "serve") == 0) return serve(arguments[2], arguments[3]);
  const int runs = count > 1 ? std::atoi(arguments[1]) : 3;
  const kestrel::streams::NatsServer server;
  const std::string folder = server.directory();
  const auto kinds = allKinds(server.url(), folder);
  Results results;
  for (int run = 0; run < runs; ++run) measureAll(kinds, count > 2 ? arguments[2] : "", results);
  for (auto& [place, values] : results) {
    const Work& work = works[place.first];
    printLine(work.name, kinds[place.second].name.c_str(), median(values), work.unit);
  }
  printYardsticks();
  std::fflush(stdout);
  std::_Exit(0);
}
