#include "transports/Transports.hpp"

#include <array>
#include <kestrel/datastreaming/Keys.hpp>
#include <stdexcept>
#include <string>

#include "transports/ipc/IpcEndpoint.hpp"
#include "transports/ipc/IpcTransport.hpp"
#include "transports/memory/MemoryTransport.hpp"
#ifdef KESTREL_HAS_NATS
#include "transports/nats/NatsTransport.hpp"
#endif

namespace kestrel::streams {

using datastreaming::lasting::DataSteamingConfig;

namespace {

struct Entry {
  const char* scheme;
  std::shared_ptr<Transport> (*make)(const ServiceSettings&);
};

std::shared_ptr<Transport> makeMemory(const ServiceSettings&) {
  return std::make_shared<MemoryTransport>();
}

std::shared_ptr<Transport> makeIpc(const ServiceSettings& settings) {
  return std::make_shared<IpcTransport>(
      folderOf(settings.text(DataSteamingConfig::DATASTREAMING_SERIVCE_URL)));
}

std::shared_ptr<Transport> makeNats(const ServiceSettings& settings) {
#ifdef KESTREL_HAS_NATS
  return std::make_shared<NatsTransport>(settings);
#else
  throw std::runtime_error("the endpoint of the data-streaming service begins with " + settings.scheme() +
                           ":, but this build has no NATS transport; build it where libnats is installed");
#endif
}

/// Every scheme that an endpoint may have. A new transport is entered here and nowhere else.
constexpr std::array entries{
    Entry{"memory", &makeMemory},
    Entry{"ipc", &makeIpc},
    Entry{"nats", &makeNats},
    Entry{"tls", &makeNats},
};

std::string knownSchemes() {
  std::string list;
  for (const Entry& entry : entries) list += (list.empty() ? "" : ", ") + std::string(entry.scheme) + ":";
  return list;
}

}  // namespace

std::shared_ptr<Transport> makeTransport(const ServiceSettings& settings) {
  const std::string scheme = settings.hasEndpoint() ? settings.scheme() : "memory";
  for (const Entry& entry : entries) {
    if (scheme == entry.scheme) return entry.make(settings);
  }
  // Nothing of it is repeated: what could not be read may be a password.
  throw std::runtime_error("the endpoint of the data-streaming service must begin with one of " +
                           knownSchemes());
}

}  // namespace kestrel::streams
