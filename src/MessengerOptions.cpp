#include "MessengerOptions.hpp"

#include <cmath>
#include <stdexcept>

#include "Constants.hpp"

namespace remote_connectivity::asyncio::util {

namespace {

template <class Value, class Target>
void readOption(const std::unordered_map<std::string, std::any>& options, const char* key, Target& target) {
  const auto found = options.find(key);
  if (found != options.end()) target = std::any_cast<Value>(found->second);
}

}  // namespace

MessengerOptions MessengerOptions::read(const std::unordered_map<std::string, std::any>& options) {
  MessengerOptions result;
  readOption<std::string>(options, constants::ProducerAck, result.producerAck);
  readOption<bool>(options, constants::ProducerUsesBuffer, result.producerUsesBuffer);
  readOption<unsigned long>(options, constants::MessageSizeLimit, result.messageSizeLimit);
  readOption<unsigned long>(options, constants::MessageRateLimit, result.messageRate);
  if (result.messageSizeLimit == 0) {
    throw std::invalid_argument("Option \"msgSizeLimit\" must be at least 1 byte, but is 0.");
  }
  if (result.producerUsesBuffer && result.messageRate == 0) {
    throw std::invalid_argument(
        "Option \"masgSizeRate\" must be at least 1 message per second with a producer buffer, but is 0.");
  }
  return result;
}

std::chrono::milliseconds MessengerOptions::bufferPeriod() const {
  return std::chrono::milliseconds(
      static_cast<std::int64_t>(std::ceil(1000.0 / static_cast<double>(messageRate))));
}

}  // namespace remote_connectivity::asyncio::util
