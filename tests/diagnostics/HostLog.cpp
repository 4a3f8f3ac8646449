// A host that logs with Boost.Log's default sink. Built twice, with the library and without it: what it
// prints must be the same.
#include <boost/log/trivial.hpp>

#ifdef WITH_LIBRARY
#include "kestrel/diagnostics/Logger.hpp"
#include "kestrel/host/Host.hpp"
#include "remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp"

namespace util = remote_connectivity::asyncio::util;

struct UsesTheLibrary {
  UsesTheLibrary() { kestrel::diagnostics::Logger("test::ours").log(Severity::error, "a record of ours"); }
  using Severity = kestrel::diagnostics::Severity;
  kestrel::host::Host host;
  util::DataStreamMessengerFactory factory{"", ""};
  std::unique_ptr<util::ISendReceiveMessenger> messenger = factory.createSendReceiveMessenger();
};
#else
struct UsesTheLibrary {};
#endif

int main() {
  BOOST_LOG_TRIVIAL(info) << "before";
  {
    [[maybe_unused]] const UsesTheLibrary use;
    BOOST_LOG_TRIVIAL(warning) << "during";
  }
  BOOST_LOG_TRIVIAL(error) << "after";
}
