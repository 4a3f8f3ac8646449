#include "messenger/MessengerOptions.hpp"

#include <algorithm>
#include <array>
#include <boost/core/demangle.hpp>
#include <cctype>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include "Constants.hpp"
#include "messenger/MessengerLog.hpp"

namespace remote_connectivity::asyncio::util {

namespace {

using Options = std::unordered_map<std::string, std::any>;

constexpr std::array knownKeys{constants::ProducerAck, constants::ProducerUsesBuffer,
                               constants::MessageSizeLimit, constants::MessageRateLimit};

std::string nameOf(const std::type_info& type) {
  if (type == typeid(void)) return "nothing";
  if (type == typeid(std::string)) return "std::string";
  return boost::core::demangle(type.name());
}

/// Says which option it was, and what it should have held.
class WrongOptionType final : public std::bad_any_cast {
 public:
  WrongOptionType(const std::string& key, const std::type_info& expected, const std::type_info& came)
      // NOLINTNEXTLINE(bugprone-throw-keyword-missing): a member, not an exception that was forgotten
      : _text("Option \"" + key + "\" must hold " + nameOf(expected) + ", but holds " + nameOf(came) + ".") {}
  [[nodiscard]] const char* what() const noexcept override { return _text.what(); }

 private:
  std::runtime_error _text;  // copied without an exception of its own
};

template <class Value, class Target>
void readOption(const Options& options, const char* key, Target& target) {
  const auto found = options.find(key);
  if (found == options.end()) return;
  const auto* value = std::any_cast<Value>(&found->second);
  if (value == nullptr) throw WrongOptionType(key, typeid(Value), found->second.type());
  target = *value;
}

/// How many letters must be put in, left out or replaced to make one key of the other, upper and lower case
/// being the same.
std::size_t editDistance(std::string_view left, std::string_view right) {
  const auto lower = [](char letter) { return std::tolower(static_cast<unsigned char>(letter)); };
  std::vector<std::size_t> row(right.size() + 1);  // of the table, for one more letter of the left key a time
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < left.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < right.size(); ++j) {
      const std::size_t replaced = diagonal + (lower(left[i]) == lower(right[j]) ? 0 : 1);
      diagonal = std::exchange(row[j + 1], std::min({replaced, row[j] + 1, row[j + 1] + 1}));
    }
  }
  return row.back();
}

/// The spelling of one of the keys is peculiar, and what is misspelt goes unheard.
void warnOfMisspeltKeys(const Options& options) {
  constexpr std::size_t close = 2;  // no two known keys are that close
  constexpr std::size_t longest = 40;
  if (!messengerLog().enabled(Severity::warning)) return;
  for (const auto& option : options) {
    for (const std::string_view known : knownKeys) {
      const std::string& key = option.first;
      if (key == known || key.size() > longest || editDistance(key, known) > close) continue;
      messengerLog().log(Severity::warning, "Option \"", key, "\" is unknown and ignored. Is \"", known,
                         "\" meant?");
    }
  }
}

}  // namespace

MessengerOptions MessengerOptions::read(const std::unordered_map<std::string, std::any>& options) {
  warnOfMisspeltKeys(options);
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
