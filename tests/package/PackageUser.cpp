// PackageUser BUNDLE-FOLDER: 0 if the service of the bundle there and the messengers of the package both
// work.
#include <filesystem>
#include <iostream>
#include <kestrel/framework/InstallAndStart.hpp>
#include <kestrel/framework/ServiceLookup.hpp>
#include <kestrel/host/Host.hpp>
#include <remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp>

#include "../framework/bundles/Greeting.hpp"

int main(int, char** arguments) {
  const kestrel::host::Host host;
  const auto bundles = kestrel::framework::installAndStart(std::filesystem::path(arguments[1]).u16string());
  const auto greeting = kestrel::framework::findService<Greeting>();
  remote_connectivity::asyncio::util::DataStreamMessengerFactory factory("", "");
  const auto messenger = factory.createSendReceiveMessenger("to", "fro");
  const std::string text = greeting ? greeting->text() : "no greeting";
  std::cout << bundles.size() << " bundle: " << text << "\n";
  return bundles.size() == 1 && text == "hello from greeting_bundle" && messenger ? 0 : 1;
}
