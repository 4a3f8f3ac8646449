// A request from one process to another. Start one with "serve", then one with "ask".
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <kestrel/host/Host.hpp>
#include <kestreldata/kestreldata.hpp>
#include <remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp>

using namespace remote_connectivity::asyncio::util;
using kestreldata::TypedArray;

namespace {

void serve(DataStreamMessengerFactory& factory) {
  const auto server = factory.createSendReceiveMessenger("to-client", "to-server");
  server->setRequestHandler([](const DataStruct& message) {
    double sum = 0;
    for (const double value : TypedArray<double>(message.data)) sum += value;
    return DataStruct(kestreldata::ArrayFactory().createScalar(sum));
  });
  std::cout << "Serving until the end of the input" << std::endl;
  while (std::cin.get() != std::istream::traits_type::eof()) {
  }
}

void ask(DataStreamMessengerFactory& factory) {
  const auto client = factory.createSendReceiveMessenger("to-server", "to-client");
  const DataStruct numbers(kestreldata::ArrayFactory().createArray<double>({1, 3}, {1.0, 2.0, 3.5}));
  const DataStruct answer = client->request(numbers);
  std::cout << "sum " << double(TypedArray<double>(answer.data)[0]) << std::endl;
}

}  // namespace

int main(int count, char** arguments) {
  const bool serves = count == 2 && std::strcmp(arguments[1], "serve") == 0;
  if (!serves && (count != 2 || std::strcmp(arguments[1], "ask") != 0)) {
    std::cerr << "usage: two_processes serve|ask\n";
    return 2;
  }
  const kestrel::host::Host host;
  // The processes of this machine; "nats://host:4222" is all that it takes to reach those of others.
  const char* const endpoint = std::getenv("DS_ENDPOINT");
  DataStreamMessengerFactory factory("", endpoint != nullptr ? endpoint : "ipc:");
  serves ? serve(factory) : ask(factory);
}
