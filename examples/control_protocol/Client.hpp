#pragma once

#include <kestreldata/kestreldata.hpp>
#include <remote_connectivity/asyncio/util/CommandUtil.hpp>
#include <remote_connectivity/asyncio/util/ISendReceiveMessenger.hpp>
#include <remote_connectivity/asyncio/util/KDAHelper.hpp>

#include <cstdint>
#include <string>
#include <vector>

/// The other side of HostService: each operation sends a command, waits for the response and takes it apart.
/// All of them throw std::runtime_error, which names the operation and the code, when the service refuses.
class Client {
 public:
  explicit Client(remote_connectivity::asyncio::util::ISendReceiveMessenger& messenger)
      : _messenger(messenger) {}

  /// Gives the number by which the service knows this client.
  std::uint64_t registerAs(const std::string& name);
  void unregister(std::uint64_t client);
  std::uint64_t createHost(std::uint64_t client, std::uint64_t port);
  std::vector<std::uint64_t> hosts(std::uint64_t client);
  std::uint64_t openChannel(std::uint64_t client, std::uint64_t host);
  void closeChannel(std::uint64_t host, std::uint64_t channel);

 private:
  kestreldata::Array ask(const kestreldata::Array& command);

  remote_connectivity::asyncio::util::ISendReceiveMessenger& _messenger;
  remote_connectivity::asyncio::util::CommandUtil _commands{nullptr};
};
