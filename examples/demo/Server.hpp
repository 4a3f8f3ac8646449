#pragma once

#include <remote_connectivity/asyncio/util/ISendReceiveMessenger.hpp>

#include <memory>
#include <string>

/// The remote side of the demo. Answers two kinds of request, told apart by their id: "statistics" with one
/// row of count, mean, deviation, minimum and maximum for each column of a double matrix, and "digest" with
/// the SHA-256 of the bytes that came last.
class Server {
 public:
  using Messenger = remote_connectivity::asyncio::util::ISendReceiveMessenger;
  using DataStruct = remote_connectivity::asyncio::util::DataStruct;

  explicit Server(std::unique_ptr<Messenger> messenger);

 private:
  // Both run on the messenger's one delivery thread.
  void receive(const DataStruct& message);
  DataStruct answer(const DataStruct& request) const;

  std::string _digest;
  std::unique_ptr<Messenger> _messenger;  // last, so that its handlers are gone before what they use
};
