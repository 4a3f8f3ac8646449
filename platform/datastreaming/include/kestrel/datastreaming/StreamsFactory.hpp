#pragma once

#include <cppmicroservices/ServiceInterface.h>

#include <memory>
#include <string>
#include <vector>

#include "kestrel/datastreaming/Consumer.hpp"
#include "kestrel/datastreaming/Keys.hpp"
#include "kestrel/datastreaming/Producer.hpp"
#include "kestrel/datastreaming/Statistics.hpp"
#include "kestrel/datastreaming/Stream.hpp"
#include "kestrel/datastreaming/Types.hpp"

namespace kestrel::datastreaming {

/// The data-streaming service: hands out named streams and their ends. Safe for several threads at once.
/// Producers and consumers keep what they need alive and may outlive the factory.
class StreamsFactory {
 public:
  inline static const std::string DATASTREAMINGSERVICE_URLMANAGER_SERVICEID = "aps_stream";

  virtual ~StreamsFactory() = default;

  /// Takes settings over; absent keys keep their values, and streams that exist keep their connection.
  /// Throws std::invalid_argument for a key whose value is not a std::string or makes no sense.
  virtual void configure(const ConfigurationMap& configuration) = 0;

  /// Opens the stream of that identifier, which may hold any bytes. An empty one names a new anonymous
  /// stream that nobody else can open. Throws std::runtime_error where the endpoint cannot be used.
  virtual std::shared_ptr<Stream> getStream(const std::string& id, const AttributeMap& attributes) = 0;

  /// Makes a producer on a stream of this factory. The configuration may hold
  /// DataSteamingConfig::PRODUCER_ACK, "NO" or "YES".
  virtual std::shared_ptr<Producer> createProducer(const std::shared_ptr<Stream>& stream,
                                                   const ConfigurationMap& configuration) = 0;

  /// Makes a consumer on a stream of this factory.
  virtual std::shared_ptr<Consumer> createConsumer(const std::shared_ptr<Stream>& stream) = 0;

  /// One entry for each stream that this instance opened, in the order of opening. A stream has ended when
  /// nobody holds it or an end of it any more; the service keeps the entries of at most 2,000 such streams
  /// and sums up those that were opened before them in one entry more, the last. A summed-up stream that is
  /// opened again begins at 0.
  [[nodiscard]] virtual std::vector<StreamStatistics> statistics() const = 0;
};

}  // namespace kestrel::datastreaming

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(kestrel::datastreaming::StreamsFactory, "StreamsFactory")
