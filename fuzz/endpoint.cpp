// An endpoint is read or refused, and no text that anybody may see holds a secret of it.
#include <kestrel/datastreaming/Keys.hpp>

#include "Fuzz.hpp"
#include "transports/Transports.hpp"
#include "transports/ipc/IpcEndpoint.hpp"
#include "transports/nats/connection/NatsEndpoint.hpp"

using namespace kestrel::fuzz;
using namespace kestrel::streams;

static constexpr const char* secret = "Xq7secretq7X";

template <class Allowed, class Action>
static void checkSilent(Action&& action) {
  check(failureOf<Allowed>(action).find(secret) == std::string::npos, "no failure tells the secret");
}

/// What stands in front of the secret and behind it is the input's.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const bool isPassword = input.ConsumeBool(), withScheme = input.ConsumeBool();
  std::string endpoint = (withScheme ? "nats://" : "") + input.ConsumeRandomLengthString();
  endpoint += isPassword ? std::string(":") + secret + "@" : secret;
  endpoint += input.ConsumeRemainingBytesAsString();
  if (endpoint.find(secret) != endpoint.rfind(secret)) return 0;  // libFuzzer has learnt it: it may be a host
  ServiceSettings settings;
  checkSilent<std::invalid_argument>([&] {
    settings.update({{kestrel::datastreaming::DataSteamingConfig::DATASTREAMING_SERIVCE_URL, endpoint}});
  });
  if (settings.hasEndpoint() && settings.scheme() == "ipc") {
    // A path holds no secret, and what is made of it would make the folder.
    (void)failureOf<std::runtime_error>([&] { check(!folderOf(endpoint).empty(), "a folder has a name"); });
    return 0;
  }
  checkSilent<std::runtime_error>([&] { (void)makeTransport(settings); });
  checkSilent<std::runtime_error>([&] {
    const NatsEndpoint read = readNatsEndpoint(settings);
    check(!read.servers.empty(), "an endpoint that is read names a server");
    check(!isPassword || read.shown.find(secret) == std::string::npos,
          "what is shown does not tell the secret");
  });
  return 0;
}
