#pragma once

#include <kestrel/datastreaming/Types.hpp>
#include <map>
#include <string>

namespace kestrel::streams {

/// The settings of the service, checked. A value object.
class ServiceSettings {
 public:
  /// Takes the settings of the map over; absent keys keep their values. Throws std::invalid_argument, and
  /// changes nothing, if a value is no std::string or makes no sense.
  void update(const datastreaming::ConfigurationMap& configuration);

  /// The value of a key of DataSteamingConfig, or the fallback where it was never set.
  [[nodiscard]] std::string text(const std::string& key, const std::string& fallback = {}) const;

  /// The same for a key that holds a whole number.
  [[nodiscard]] long number(const std::string& key, long fallback) const;

  [[nodiscard]] bool hasEndpoint() const;

  /// What comes before the first ':' of the endpoint, in lower case; empty if there is none.
  [[nodiscard]] std::string scheme() const;

 private:
  std::map<std::string, std::string> _values;
};

/// Settings of one producer.
struct ProducerSettings {
  bool acknowledge = false;  ///< whether the future of send() waits for, and names, the message taken over
};

/// Reads DataSteamingConfig::PRODUCER_ACK, first from the producer's map, else from the service's settings.
/// Throws std::invalid_argument for a value other than "NO" and "YES".
[[nodiscard]] ProducerSettings readProducerSettings(const datastreaming::ConfigurationMap& configuration,
                                                    const ServiceSettings& service);

}  // namespace kestrel::streams
