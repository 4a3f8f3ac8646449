#include "HostService.hpp"

using remote_connectivity::asyncio::util::RemoteAsyncIOErrorText;

kestreldata::Array HostService::answer(const Array& command) {
  try {
    return dispatch(command);
  } catch (const kestreldata::Exception&) {  // text that cannot be read; without an answer the client waits
    return refusal(Error::InvalidElementType);
  }
}

kestreldata::Array HostService::dispatch(const Array& command) {
  static const std::map<std::string, Array (HostService::*)(const Array&)> operations{
      {"registerAsyncIOClient", &HostService::registerClient},
      {"unregisterAsyncIOClient", &HostService::unregisterClient},
      {"createHost", &HostService::createHost},
      {"getActiveHosts", &HostService::listHosts},
      {"createChannel", &HostService::createChannel},
      {"term", &HostService::terminateChannel},
  };
  const auto [name, error] = _commands.getCommand(command);
  if (error != Error::NoError) return refusal(error);
  const auto found = operations.find(name);
  return found == operations.end() ? refusal(Error::UnexpectedCommand) : (this->*found->second)(command);
}

kestreldata::Array HostService::registerClient(const Array& command) {
  const auto [name, client, error] = _commands.parseRegisterClientCmd(command);
  if (error != Error::NoError) return refusal(error);
  _hosts[++_lastNumber];
  return _commands.registerClientResponse("host service", "welcome, " + client, _lastNumber);
}

kestreldata::Array HostService::unregisterClient(const Array& command) {
  const auto [client, error] = _commands.parseUnregisterClientCmd(command);
  if (error != Error::NoError) return refusal(error);
  return _hosts.erase(client) == 0 ? refusal(noSuchNumber) : _commands.createNoErrorResponse();
}

kestreldata::Array HostService::createHost(const Array& command) {
  const auto [client, port, error] = _commands.parseCreateHostCmd(command);
  if (error != Error::NoError) return refusal(error);
  const auto hosts = _hosts.find(client);
  if (hosts == _hosts.end()) return refusal(noSuchNumber);
  hosts->second.insert(++_lastNumber);
  return _commands.createHostResponse(_lastNumber, port, Error::NoError);
}

kestreldata::Array HostService::listHosts(const Array& command) {
  const auto [client, error] = _commands.parseGetActiveHostsCmd(command);
  if (error != Error::NoError) return refusal(error);
  const auto hosts = _hosts.find(client);
  if (hosts == _hosts.end()) return refusal(noSuchNumber);
  return _commands.getActiveHostsResponse({hosts->second.begin(), hosts->second.end()}, Error::NoError);
}

kestreldata::Array HostService::createChannel(const Array& command) {
  const auto [client, host, error] = _commands.parseCreateChannelCmd(command);
  if (error != Error::NoError) return refusal(error);
  const auto hosts = _hosts.find(client);
  if (hosts == _hosts.end() || !hosts->second.contains(host)) return refusal(noSuchNumber);
  _channels[++_lastNumber] = host;
  const auto number = std::to_string(_lastNumber);
  return _commands.createChannelResponse(_commands.kdaFactory().createScalar(_lastNumber), "to-" + number,
                                         "from-" + number);
}

kestreldata::Array HostService::terminateChannel(const Array& command) {
  const auto [host, channel, error] = _commands.parseTerminateChannelCmd(command);
  if (error != Error::NoError) return refusal(error);
  const auto found = _channels.find(channel);
  if (found == _channels.end() || found->second != host) return refusal(noSuchNumber);
  _channels.erase(found);
  return _commands.terminateChannelResponse(_commands.kdaFactory().createScalar("closed"), Error::NoError);
}

kestreldata::Array HostService::refusal(Error error) {
  return _commands.createErrorResponse(error, RemoteAsyncIOErrorText::ServiceErrorParsingRequest, Array());
}
