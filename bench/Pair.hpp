#pragma once

#include <kestrel/host/Host.hpp>
#include <kestreldata/kestreldata.hpp>
#include <remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp>

#include <any>
#include <memory>
#include <string>
#include <unordered_map>

namespace bench {

using namespace remote_connectivity::asyncio::util;

using Options = std::unordered_map<std::string, std::any>;

/// Unbuffered, with the rate limit out of the way.
inline Options unlimited() {
  return {{"masgSizeRate", std::any(1'000'000'000UL)}};
}

/// The host that all benchmarks of the process share.
inline const kestrel::host::Host& host() {
  static const kestrel::host::Host instance;
  return instance;
}

/// Makes messengers over streams in this process.
inline DataStreamMessengerFactory& localFactory() {
  static DataStreamMessengerFactory factory((host(), ""), "");
  return factory;
}

/// Two messengers that face each other over streams of their own.
struct Pair {
  explicit Pair(const Options& options = unlimited()) : Pair(options, localFactory(), localFactory()) {}

  Pair(const Options& options, IMessengerFactory& nearFactory, IMessengerFactory& farFactory) {
    static int made = 0;
    const std::string to = "bench-to-" + std::to_string(++made);
    const std::string from = "bench-from-" + std::to_string(made);
    far = farFactory.createSendReceiveMessenger(from, to, options);
    near = nearFactory.createSendReceiveMessenger(to, from, options);
  }

  std::unique_ptr<ISendReceiveMessenger> far;
  std::unique_ptr<ISendReceiveMessenger> near;
};

/// An unsigned 8-bit array of that many bytes.
inline kestreldata::Array bytesArray(std::size_t size) {
  return kestreldata::ArrayFactory().createArray<std::uint8_t>({1, size});
}

}  // namespace bench
