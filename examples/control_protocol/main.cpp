// The control protocol between a client and a service, here two messengers of one process.
#include <kestrel/host/Host.hpp>
#include <remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp>

#include <exception>
#include <iostream>

#include "Client.hpp"
#include "HostService.hpp"

using namespace remote_connectivity::asyncio::util;

namespace {

bool isRefused(Client& client, std::uint64_t formerClient) {
  try {
    client.createHost(formerClient, 7003);
  } catch (const std::runtime_error& error) {
    std::cout << "as it should be: " << error.what() << "\n";
    return true;
  }
  std::cout << "the service made a host for a client that is gone\n";
  return false;
}

bool walkThrough(Client& client) {
  const auto number = client.registerAs("example");
  const auto first = client.createHost(number, 7001);
  const auto second = client.createHost(number, 7002);
  const bool listed = client.hosts(number) == std::vector{first, second};
  client.closeChannel(second, client.openChannel(number, second));
  client.unregister(number);
  return listed && isRefused(client, number);
}

}  // namespace

int main() {
  try {
    const kestrel::host::Host host;
    DataStreamMessengerFactory factory("", "");
    HostService service;  // before the messenger whose handler uses it
    const auto remote = factory.createSendReceiveMessenger("to-client", "to-service", {});
    const auto local = factory.createSendReceiveMessenger("to-service", "to-client", {});
    remote->setRequestHandler(
        [&service](const DataStruct& request) { return DataStruct(service.answer(request.data)); });
    Client client(*local);
    return walkThrough(client) ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "failed: " << error.what() << "\n";
    return 1;
  }
}
