// Ends, in one of several ways, while messengers are at work on threads of the host and of the library.
// Nothing of the host's is destroyed that a thread may still use, so whatever goes wrong is the library's.
//   ends_busy <how> <endpoint>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "kestrel/host/Host.hpp"
#include "remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"
#include "remote_connectivity/asyncio/util/UUIDAdaptor.hpp"

namespace {

using namespace remote_connectivity::asyncio::util;
using namespace std::chrono_literals;

constexpr int exitCode = 7;
std::atomic<bool> exitsFromHandler{false};

DataStruct message() {
  return DataStruct(KDAHelper().kdaFromByteArray(std::vector<std::uint8_t>(4000)), {}, "busy");
}

/// A messenger whose peer refuses its messages and answers its requests. Neither ever goes.
ISendReceiveMessenger* makePair(DataStreamMessengerFactory& factory, unsigned long rate, bool buffered) {
  const std::unordered_map<std::string, std::any> options{
      {"producerUsesBuffer", buffered}, {"masgSizeRate", rate}, {"msgSizeLimit", 3000UL}};
  const std::string name = UUIDAdaptor()();
  auto* const peer = factory.createSendReceiveMessenger(name, name + "there", options).release();
  peer->setReceiveHandler(
      [](const DataStruct&) { throw std::runtime_error("refused, so that it is logged"); });
  peer->setRequestHandler([](const DataStruct& request) {
    if (exitsFromHandler.exchange(false)) std::exit(exitCode);
    return request;
  });
  return factory.createSendReceiveMessenger(name + "there", name, options).release();
}

/// Repeats the work on a thread that nobody waits for. What fails because everything ends is no fault.
void repeat(std::function<void()> work) {
  std::thread([work = std::move(work)] {
    while (true) {
      try {
        work();
      } catch (const std::exception&) {
        std::this_thread::sleep_for(1ms);
      }
    }
  }).detach();
}

/// A messenger that static destruction takes while others send to it, just before what it uses ends.
struct Kept {
  explicit Kept(const std::string& endpoint) : factory("", endpoint) {}
  kestrel::host::Host host;
  DataStreamMessengerFactory factory;
  std::unique_ptr<ISendReceiveMessenger> receiver = factory.createSendReceiveMessenger("", "kept");
};

void startFlows(DataStreamMessengerFactory& factory, unsigned long rate) {
  // Both made before the first one begins: what waits for a connection would hold up those behind it.
  for (auto* const messenger : {makePair(factory, rate, false), makePair(factory, rate, true)}) {
    for (int i = 0; i < 2; ++i) repeat([messenger] { messenger->send(message()); });
    repeat([messenger] { (void)messenger->request(message()); });
  }
  repeat([&factory] { (void)factory.createSendReceiveMessenger(); });
}

}  // namespace

int main(int, char** arguments) {
  const std::string how = arguments[1];
  const std::string endpoint = arguments[2];
  static const Kept kept(endpoint);
  auto* const factory = new DataStreamMessengerFactory("", endpoint);
  auto* const sender = factory->createSendReceiveMessenger("kept", "").release();
  startFlows(*factory, endpoint.starts_with("tls:") ? 300 : 100'000);  // a request must get through
  repeat([sender] { sender->send(message()); });
  if (how == "thread") {
    std::thread([] {
      std::this_thread::sleep_for(60ms);
      std::exit(exitCode);
    }).detach();
  }
  std::this_thread::sleep_for(60ms);
  exitsFromHandler = how == "handler";
  if (how != "main") std::this_thread::sleep_for(60s);
  return exitCode;
}
