#include <iostream>
#include <kestrel/host/Host.hpp>
#include <kestreldata/kestreldata.hpp>
#include <remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp>

using namespace remote_connectivity::asyncio::util;
using kestreldata::TypedArray;

int main() {
  const kestrel::host::Host host;              // a service framework with a thread pool
  DataStreamMessengerFactory factory("", "");  // no endpoint: streams live in this process
  const auto client = factory.createSendReceiveMessenger("to-server", "to-client");
  const auto server = factory.createSendReceiveMessenger("to-client", "to-server");
  server->setReceiveHandler([](const DataStruct& message) { std::cout << "got " << message.id << "\n"; });
  server->setRequestHandler([](const DataStruct& message) {
    double sum = 0;
    for (const double value : TypedArray<double>(message.data)) sum += value;
    return DataStruct(kestreldata::ArrayFactory().createScalar(sum));
  });
  const DataStruct numbers(kestreldata::ArrayFactory().createArray<double>({1, 3}, {1.0, 2.0, 3.5}), {},
                           "numbers");
  client->send(numbers);
  const DataStruct answer = client->request(numbers);
  std::cout << "sum " << double(TypedArray<double>(answer.data)[0]) << "\n";
}
