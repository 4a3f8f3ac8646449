// PackageUser BUNDLE-FOLDER: 0 if the service of the bundle there and the messengers of the package both
// work.
#include <filesystem>
#include <iostream>
#include <kestrel/framework/InstallAndStart.hpp>
#include <kestrel/framework/ServiceLookup.hpp>
#include <kestrel/host/Host.hpp>
#include <remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp>

#include "Clock.hpp"

int main(int, char** arguments) {
  const kestrel::host::Host host;
  const auto bundles = kestrel::framework::installAndStart(std::filesystem::path(arguments[1]).u16string());
  const auto clock = kestrel::framework::findService<Clock>();
  remote_connectivity::asyncio::util::DataStreamMessengerFactory factory("", "");
  const auto messenger = factory.createSendReceiveMessenger("to", "fro");
  std::cout << bundles.size() << " bundle, hour " << (clock ? clock->hour() : -1) << "\n";
  return bundles.size() == 1 && clock && clock->hour() == 12 && messenger ? 0 : 1;
}
