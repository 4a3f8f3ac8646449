#include "Client.hpp"

#include <iostream>
#include <stdexcept>

using kestreldata::Array;
using kestreldata::TypedArray;
using remote_connectivity::asyncio::util::DataStruct;
using remote_connectivity::asyncio::util::RemoteAsyncIOError;

namespace {

void require(const char* operation, RemoteAsyncIOError error) {
  if (error == RemoteAsyncIOError::NoError) return;
  throw std::runtime_error(std::string(operation) + " failed with code " +
                           std::to_string(static_cast<int>(error)));
}

}  // namespace

Array Client::ask(const Array& command) {
  return _messenger.request(DataStruct(command)).data;
}

std::uint64_t Client::registerAs(const std::string& name) {
  auto& factory = _commands.kdaFactory();
  const auto information = factory.createCellArray({1, 1}, factory.createScalar(name));
  const auto [service, greeting, number, error] =
      _commands.parseRegisterClientResponse(ask(_commands.registerClientCmd(information)));
  require("register", error);
  std::cout << service << ": " << greeting << ", you are client " << number << "\n";
  return number;
}

void Client::unregister(std::uint64_t client) {
  require("unregister", _commands.getResponseError(ask(_commands.unregisterClientCmd(client))));
  std::cout << "client " << client << " is unregistered\n";
}

std::uint64_t Client::createHost(std::uint64_t client, std::uint64_t port) {
  const auto [host, used, error] =
      _commands.parseCreateHostResponse(ask(_commands.createHostCmd(client, port)));
  require("create host", error);
  std::cout << "host " << host << " listens on port " << used << "\n";
  return host;
}

std::vector<std::uint64_t> Client::hosts(std::uint64_t client) {
  auto [hosts, error] = _commands.parseGetActiveHostsResponse(ask(_commands.getActiveHostsCmd(client)));
  require("list hosts", error);
  std::cout << "active hosts:";
  for (const auto host : hosts) std::cout << " " << host;
  std::cout << "\n";
  return std::move(hosts);
}

std::uint64_t Client::openChannel(std::uint64_t client, std::uint64_t host) {
  auto& factory = _commands.kdaFactory();
  const auto command =
      factory.createCellArray({1, 3}, factory.createScalar("createChannel"), factory.createScalar(client),
                              factory.createScalar(host));  // callers put this command together themselves
  const auto [channel, sendStream, receiveStream, error] = _commands.parseCreateChannelResponse(ask(command));
  require("open channel", error);
  const std::uint64_t number = TypedArray<std::uint64_t>(channel)[0];
  std::cout << "channel " << number << " sends on " << sendStream << ", receives from " << receiveStream
            << "\n";
  return number;
}

void Client::closeChannel(std::uint64_t host, std::uint64_t channel) {
  auto& factory = _commands.kdaFactory();
  // A column, so that the channel's number can be appended to it.
  auto command = factory.createCellArray({2, 1}, factory.createScalar("term"), factory.createScalar(host));
  const auto [data, error] = _commands.parseTerminateChannelResponse(
      ask(_commands.terminateChannelCmd(std::move(command), channel)));
  require("close channel", error);
  std::cout << "channel " << channel << " is " << _commands.kdaHelper()->kdaToString(data).first << "\n";
}
