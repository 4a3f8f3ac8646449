// The main job of the library on real input: a table goes to the remote side and its statistics come back,
// then a large file goes over in chunks and is compared there.
#include <kestrel/host/Host.hpp>
#include <kestreldata/kestreldata.hpp>
#include <remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp>

#include <chrono>
#include <cmath>
#include <csignal>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "ChunkProgress.hpp"
#include "CsvTable.hpp"
#include "Server.hpp"
#include "Sha256.hpp"

using namespace remote_connectivity::asyncio::util;
using kestreldata::ArrayFactory;
using kestreldata::TypedArray;

namespace {

bool showStatistics(ISendReceiveMessenger& client, const std::string& path) {
  const auto table = CsvTable::read(path);
  const auto matrix = ArrayFactory().createArray<double>({table.rows(), table.columns.size()},
                                                         table.values.begin(), table.values.end());
  const DataStruct response = client.request(DataStruct(matrix, {}, "statistics"));
  const TypedArray<double> statistics(response.data);

  std::cout << "Column statistics of " << path << " (" << table.rows() << " rows), from the remote side:\n"
            << std::left << std::setw(22) << "  column" << std::right;
  for (const char* name : {"count", "mean", "deviation", "minimum", "maximum"})
    std::cout << std::setw(13) << name;
  std::cout << "\n";
  bool held = statistics.getDimensions() == kestreldata::ArrayDimensions{table.columns.size(), 5};
  for (std::size_t column = 0; held && column < table.columns.size(); ++column) {
    std::cout << std::left << "  " << std::setw(20) << table.columns[column] << std::right;
    for (std::size_t i = 0; i < 5; ++i) std::cout << std::setw(13) << double(statistics[column][i]);
    std::cout << "\n";
    const auto first = table.values.begin() + static_cast<std::ptrdiff_t>(column * table.rows());
    const double mean = std::accumulate(first, first + static_cast<std::ptrdiff_t>(table.rows()), 0.0) /
                        static_cast<double>(table.rows());
    held = std::abs(double(statistics[column][1]) - mean) <= 1e-9 * std::abs(mean);
  }
  std::cout << (held ? "  The means agree with our own.\n\n" : "  The means differ from our own.\n\n");
  return held;
}

std::vector<std::uint8_t> readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || bytes.empty()) throw std::runtime_error(path + ": cannot be read, or is empty");
  return bytes;
}

bool sendFile(ISendReceiveMessenger& client, const std::string& path) {
  const auto bytes = readFile(path);
  const auto array = ArrayFactory().createArrayWithData(kestreldata::ArrayType::UINT8, {1, bytes.size()},
                                                        bytes.data(), bytes.size());
  std::cout << "Sending " << path << ":\n";
  const auto start = std::chrono::steady_clock::now();
  const ChunkProgress progress(bytes.size());
  client.send(DataStruct(array));
  const DataStruct response = client.request(DataStruct({}, {}, "digest"));
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;

  const auto ours = sha256(bytes.data(), bytes.size());
  const std::string theirs =
      kestreldata::castToString(TypedArray<kestreldata::optional<std::u16string>>(response.data)[0]);
  std::cout << "\n  " << bytes.size() << " bytes, " << progress.chunks() << " chunks, " << seconds.count()
            << " seconds\n  SHA-256 here  " << ours << "\n  SHA-256 there " << theirs << "\n  "
            << (ours == theirs ? "They agree." : "They differ.") << "\n";
  return ours == theirs;
}

std::unique_ptr<ISendReceiveMessenger> serverMessenger(IMessengerFactory& factory) {
  return factory.createSendReceiveMessenger("to-client", "to-server", {});
}

/// Serves until SIGTERM or SIGINT.
int serve() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before there are threads, which inherit it
  const kestrel::host::Host host;
  DataStreamMessengerFactory factory("", "");
  const Server server(serverMessenger(factory));
  std::cout << "ready" << std::endl;
  int signal = 0;
  return sigwait(&signals, &signal);
}

}  // namespace

int main(int argc, char** argv) try {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments == std::vector<std::string>{"--serve"}) return serve();
  const bool clientOnly = arguments.size() == 3 && arguments[0] == "--client";
  if (arguments.size() != 2 && !clientOnly) {
    std::cerr << "usage: demo CSV FILE            both sides in this process\n"
                 "       demo --serve             the remote side, until a signal ends it\n"
                 "       demo --client CSV FILE   the near side\n"
                 "The environment variable DS_ENDPOINT names the server that two processes meet at.\n";
    return 2;
  }
  const kestrel::host::Host host;
  DataStreamMessengerFactory factory("", "");
  const auto server = clientOnly ? nullptr : std::make_unique<Server>(serverMessenger(factory));
  const auto client = factory.createSendReceiveMessenger("to-server", "to-client", {});
  const bool statisticsHeld = showStatistics(*client, arguments[arguments.size() - 2]);
  const bool fileHeld = sendFile(*client, arguments.back());
  return statisticsHeld && fileHeld ? 0 : 1;
} catch (const std::exception& error) {
  std::cerr << "demo: " << error.what() << "\n";
  return 1;
}
