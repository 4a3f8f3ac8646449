#include "transports/ServiceSettings.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <kestrel/datastreaming/Keys.hpp>
#include <stdexcept>

namespace kestrel::streams {

using datastreaming::lasting::DataSteamingConfig;

namespace {

bool parseNumber(const std::string& text, long& number) {
  const char* const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && at == end && number >= 0;
}

bool isNumberKey(const std::string& key) {
  return key == DataSteamingConfig::WS_FIRST_RECONN_BACKOFF_MS ||
         key == DataSteamingConfig::WS_MAX_RECONN_ATTEMPTS || key == DataSteamingConfig::WS_PING_INTERVAL_S;
}

bool parseAcknowledge(const std::string& value) {
  if (value == "YES") return true;
  if (value == "NO") return false;
  throw std::invalid_argument("setting '" + DataSteamingConfig::PRODUCER_ACK +
                              "' must be \"NO\" or \"YES\", \"" + value + "\" came");
}

const std::string& textOf(const std::string& key, const std::any& value) {
  if (const auto* text = std::any_cast<std::string>(&value)) return *text;
  throw std::invalid_argument("setting '" + key + "' must be a std::string, another type came");
}

void check(const std::string& key, const std::string& value) {
  long number = 0;
  if (isNumberKey(key) && !parseNumber(value, number)) {
    throw std::invalid_argument("setting '" + key + "' must be a whole number from 0 on, \"" + value +
                                "\" came");
  }
  if (key == DataSteamingConfig::PRODUCER_ACK) parseAcknowledge(value);
}

}  // namespace

void ServiceSettings::update(const datastreaming::ConfigurationMap& configuration) {
  auto values = _values;
  for (const auto& [key, value] : configuration) {
    const std::string& text = textOf(key, value);
    check(key, text);
    values[key] = text;
  }
  _values.swap(values);
}

std::string ServiceSettings::text(const std::string& key, const std::string& fallback) const {
  const auto found = _values.find(key);
  return found == _values.end() ? fallback : found->second;
}

long ServiceSettings::number(const std::string& key, long fallback) const {
  long number = 0;
  return parseNumber(text(key), number) ? number : fallback;
}

bool ServiceSettings::hasEndpoint() const {
  return !text(DataSteamingConfig::DATASTREAMING_SERIVCE_URL).empty();
}

std::string ServiceSettings::scheme() const {
  std::string scheme = text(DataSteamingConfig::DATASTREAMING_SERIVCE_URL);
  const auto colon = scheme.find(':');
  if (colon == std::string::npos) return {};
  scheme.resize(colon);
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return scheme;
}

ProducerSettings readProducerSettings(const datastreaming::ConfigurationMap& configuration,
                                      const ServiceSettings& service) {
  const std::string& key = DataSteamingConfig::PRODUCER_ACK;
  const auto found = configuration.find(key);
  if (found != configuration.end()) return {parseAcknowledge(textOf(key, found->second))};
  return {parseAcknowledge(service.text(key, "NO"))};
}

}  // namespace kestrel::streams
