#pragma once

#include <kestreldata/kestreldata.hpp>
#include <remote_connectivity/asyncio/util/CommandUtil.hpp>

#include <cstdint>
#include <map>
#include <set>
#include <string>

/// A service that answers control commands: it keeps clients, their hosts and the channels to these as
/// numbers. One thread at a time.
class HostService {
 public:
  /// A code of this service's own, from those that the protocol leaves free.
  static constexpr auto noSuchNumber = remote_connectivity::asyncio::util::RemoteAsyncIOError{8};

  /// The response to any array. Does not throw for what is in the array.
  kestreldata::Array answer(const kestreldata::Array& command);

 private:
  using Array = kestreldata::Array;
  using Error = remote_connectivity::asyncio::util::RemoteAsyncIOError;

  Array dispatch(const Array& command);
  Array registerClient(const Array& command);
  Array unregisterClient(const Array& command);
  Array createHost(const Array& command);
  Array listHosts(const Array& command);
  Array createChannel(const Array& command);
  Array terminateChannel(const Array& command);
  Array refusal(Error error);

  remote_connectivity::asyncio::util::CommandUtil _commands{nullptr};
  std::uint64_t _lastNumber = 0;
  std::map<std::uint64_t, std::set<std::uint64_t>> _hosts;  // of each client
  std::map<std::uint64_t, std::uint64_t> _channels;         // the host that each channel leads to
};
