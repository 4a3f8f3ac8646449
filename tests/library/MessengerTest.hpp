#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "FakeStreams.hpp"
#include "LogCapture.hpp"
#include "SendReceiveDataStream.hpp"
#include "Wire.hpp"

namespace library_test {

using remote_connectivity::asyncio::util::MessengerTiming;
using remote_connectivity::asyncio::util::SendReceiveDataStream;
using Options = SendReceiveDataStream::Options;

inline const std::string messengerChannel = "asyncio::util";

/// A rate that no test reaches.
inline Options unlimited(Options others = {}) {
  others.emplace("masgSizeRate", 1000000UL);
  return others;
}

/// A messenger over a fake service; the test is its peer: it sends on "out" and receives from "in".
class MessengerTest : public testing::Test {
 protected:
  std::unique_ptr<SendReceiveDataStream> make(const Options& options = unlimited(),
                                              const MessengerTiming& timing = {},
                                              const std::string& sendStreamId = "out") {
    return std::make_unique<SendReceiveDataStream>(sendStreamId, "in", streams, options, timing);
  }

  void deliver(const Array& envelope, const AttributeMap& attributes = {}) {
    streams->deliver("in", encoded(envelope), attributes);
  }
  void respond(const std::string& uuid, double value) {
    deliver(column({chars("requestResponse"), chars(uuid), number(value), text("")}));
  }

  /// The cells of the newest message that was sent.
  TypedArray<Array> lastSent() const { return decodedCell(streams->sent().back().bytes); }

  LogCapture log;
  std::shared_ptr<FakeStreams> streams = std::make_shared<FakeStreams>();
};

}  // namespace library_test
