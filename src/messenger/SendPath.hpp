#pragma once

#include <memory>

#include "kestrel/datastreaming/StreamsFactory.hpp"
#include "messenger/Backlog.hpp"
#include "messenger/MessengerOptions.hpp"
#include "remote_connectivity/asyncio/util/SendDataHelper.hpp"
#include "transfer/ProducerBuffer.hpp"

namespace remote_connectivity::asyncio::util {

/// Everything that sending needs, made together and never changed. Members are destroyed from the last to the
/// first: the buffer's runs use the helper, and the helper uses the producer.
struct SendPath {
  MessengerOptions options;
  std::shared_ptr<kestrel::datastreaming::Stream> stream;
  std::shared_ptr<kestrel::datastreaming::Producer> producer;
  std::unique_ptr<SendDataHelper> helper;
  Backlog backlog;                         ///< of the buffer
  std::unique_ptr<ProducerBuffer> buffer;  ///< empty unless the options ask for it
};

}  // namespace remote_connectivity::asyncio::util
