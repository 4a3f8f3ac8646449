#pragma once

#include "FakeStreams.hpp"
#include "LogCapture.hpp"
#include "SendReceiveDataStream.hpp"

namespace library_test {

using ds::Handling;
using Options = SendReceiveDataStream::Options;

/// A messenger over a fake service; the test is its peer: it sends on "out" and receives from "in".
class MessengerTest : public testing::Test {
 protected:
  std::unique_ptr<SendReceiveDataStream> make(const Options& options = {}, const MessengerTiming& timing = {},
                                              const std::string& sendStreamId = "out") {
    return std::make_unique<SendReceiveDataStream>(sendStreamId, "in", streams, options, timing);
  }
  ds::Handling deliver(const Array& envelope, const AttributeMap& attributes = {}) {
    return streams->deliver(encoded(envelope), attributes);
  }
  Lines logged(Severity severity) const { return log.texts("asyncio::util", severity); }
  testing::AssertionResult soonLogs(const std::string& part) const {
    return eventually("a record of " + part, [&] { return log.count(part) > 0; });
  }

  LogCapture log;
  std::shared_ptr<FakeStreams> streams = std::make_shared<FakeStreams>();
  const Array plainMessage = row({text("send"), number(1), text("plain")});
};

}  // namespace library_test
