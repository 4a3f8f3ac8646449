#pragma once

#include <functional>
#include <kestrel/datastreaming/StreamsFactory.hpp>
#include <memory>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "src/OpenedStreams.hpp"
#include "transports/Transport.hpp"

namespace kestrel::streams {

/// The data-streaming service: one endpoint's settings, and the streams opened under them.
class StreamsFactoryImpl final : public datastreaming::StreamsFactory {
 public:
  StreamsFactoryImpl();
  /// With another way to choose transports.
  explicit StreamsFactoryImpl(TransportMaker maker);

  void configure(const datastreaming::ConfigurationMap& configuration) override;
  std::shared_ptr<datastreaming::Stream> getStream(const std::string& id,
                                                   const datastreaming::AttributeMap& attributes) override;
  std::shared_ptr<datastreaming::Producer> createProducer(
      const std::shared_ptr<datastreaming::Stream>& stream,
      const datastreaming::ConfigurationMap& configuration) override;
  std::shared_ptr<datastreaming::Consumer> createConsumer(
      const std::shared_ptr<datastreaming::Stream>& stream) override;
  [[nodiscard]] std::vector<datastreaming::StreamStatistics> statistics() const override;

 private:
  std::shared_ptr<Transport> transport() KESTREL_REQUIRES(_mutex);

  const TransportMaker _makeTransport;
  const std::shared_ptr<ErrorReporter> _reporter;

  mutable callbacks::Mutex _mutex;
  ServiceSettings _settings KESTREL_GUARDED_BY(_mutex);
  // For the settings in force, made when needed.
  std::shared_ptr<Transport> _transport KESTREL_GUARDED_BY(_mutex);
  OpenedStreams _opened KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::streams
