// The other process of a test: takes what comes on the stream "there" and sends it back on "back", until it
// is ended. Says "r" when it has begun.
//   ipc_peer FOLDER [fork]     with a child, which goes at the end of the input
#include <unistd.h>

#include "TransportSuite.hpp"
#include "src/StreamsFactoryImpl.hpp"
#include "transports/ipc/IpcTransport.hpp"

int main(int, char** arguments) {
  using namespace kestrel::streams;
  StreamsFactoryImpl factory(
      [&](const ServiceSettings&) { return std::make_shared<IpcTransport>(arguments[1]); });
  const auto producer = startProducer(factory, factory.getStream("back", {}));
  const auto consumer = startConsumer(factory, factory.getStream("there", {}),
                                      [&](const auto* data, auto size, const auto&, auto& attributes) {
                                        (void)producer->send(data, size, attributes);
                                      });
  if (arguments[2] != nullptr && ::fork() == 0) {
    char byte = 0;
    ::alarm(200);
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
    ::_exit(0);
  }
  if (::write(STDOUT_FILENO, "r", 1) != 1) return 1;
  while (true) ::pause();
}
