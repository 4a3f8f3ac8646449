// Keeps everything busy that the library promises something about, for as long as it is told to, while
// servers, connections and processes fail; then says what became of every message.
#include <cstdlib>
#include <exception>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "Conductor.hpp"

namespace {

volatile std::sig_atomic_t interrupted = 0;

void interrupt(int) {
  interrupted = 1;
}

soak::Conductor::Options optionsFrom(const std::vector<std::string>& arguments) {
  soak::Conductor::Options options;
  options.folder = arguments.at(0);
  options.minutes = std::stod(arguments.at(1));
  if (!(options.minutes >= 0.5 && options.minutes < 100'000)) {
    throw std::invalid_argument("half a minute is the least, not " + arguments.at(1));
  }
  options.seed = arguments.size() > 2 ? std::stoull(arguments.at(2)) : std::random_device{}();
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  try {
    if (!arguments.empty() && arguments[0] == "--worker") {
      return soak::runWorker(soak::Assignment({arguments.begin() + 1, arguments.end()}));
    }
    if (arguments.size() < 2 || arguments.size() > 3) {
      std::cerr << "usage: soak FOLDER MINUTES [SEED]\n";
      return 2;
    }
    const auto options = optionsFrom(arguments);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, interrupt);
    std::cout << "Soaking for " << options.minutes << " minutes with the seed " << options.seed << std::endl;
    return soak::Conductor(options, interrupted).run();
  } catch (const std::exception& error) {
    std::cerr << "soak: " << error.what() << "\n";
    return 2;
  }
}
