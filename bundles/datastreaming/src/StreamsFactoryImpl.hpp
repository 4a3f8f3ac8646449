#pragma once

#include <functional>
#include <kestrel/datastreaming/StreamsFactory.hpp>
#include <memory>
#include <mutex>
#include <vector>

#include "src/OpenedStreams.hpp"
#include "transports/shared/Transport.hpp"

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
  std::shared_ptr<Transport> transport();

  const TransportMaker _makeTransport;
  const std::shared_ptr<ErrorReporter> _reporter;

  mutable std::mutex _mutex;
  // Guarded by _mutex.
  ServiceSettings _settings;
  std::shared_ptr<Transport> _transport;  // for the settings in force, made when needed
  OpenedStreams _opened;
};

}  // namespace kestrel::streams
