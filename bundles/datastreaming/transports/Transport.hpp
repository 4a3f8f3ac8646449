#pragma once

#include <functional>
#include <kestrel/datastreaming/Consumer.hpp>
#include <kestrel/datastreaming/Producer.hpp>
#include <memory>
#include <string>

#include "delivery/StreamContext.hpp"
#include "transports/ServiceSettings.hpp"

namespace kestrel::streams {

/// One opened stream of a transport; makes its ends. Safe from any thread. The ends keep what they need of it
/// and may outlive it.
class StreamLink {
 public:
  virtual ~StreamLink() = default;

  virtual std::shared_ptr<datastreaming::Producer> makeProducer(const ProducerSettings& settings) = 0;
  virtual std::shared_ptr<datastreaming::Consumer> makeConsumer() = 0;
};

/// A way for messages to travel, as one endpoint configures it. Safe from any thread.
class Transport {
 public:
  virtual ~Transport() = default;

  /// Opens the stream that the context names; an empty identifier asks for a private one. The link keeps the
  /// context, and what it needs of the transport. Throws std::runtime_error if the endpoint cannot be used.
  virtual std::shared_ptr<StreamLink> open(std::shared_ptr<StreamContext> context) = 0;
};

/// Makes the transport of an endpoint from the settings that are in force.
using TransportMaker = std::function<std::shared_ptr<Transport>(const ServiceSettings&)>;

}  // namespace kestrel::streams
