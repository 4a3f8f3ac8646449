#pragma once

#include <algorithm>
#include <map>

#include "FakeStreams.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"
#include "messenger/SendReceiveDataStream.hpp"

namespace library_test {

using ds::Handling;
using kestrel::diagnostics::Severity;
using Options = SendReceiveDataStream::Options;

/// A messenger over a fake service; the test is its peer: it sends on "out" and receives from "in". Keeps
/// what is logged, at every severity.
class MessengerTest : public testing::Test {
 protected:
  MessengerTest() { setLogging(kestrel::diagnostics::allSeverities, false); }
  ~MessengerTest() override { setLogging(kestrel::diagnostics::defaultSeverities, true); }

  std::unique_ptr<SendReceiveDataStream> make(const Options& options = {}, const MessengerTiming& timing = {},
                                              const std::string& sendStreamId = "out") {
    return std::make_unique<SendReceiveDataStream>(sendStreamId, "in", streams, options, timing);
  }
  ds::Handling deliver(const Array& envelope, const AttributeMap& attributes = {}) {
    return streams->deliver(encoded(envelope), attributes);
  }
  /// The texts of one severity, in order.
  Lines logged(Severity severity) {
    const std::lock_guard lock(_mutex);
    return _texts[severity];
  }
  bool hasLogged(const std::string& part) {
    const std::lock_guard lock(_mutex);
    return std::ranges::any_of(_texts, [&](const auto& texts) {
      return testing::Value(texts.second, testing::Contains(HasSubstr(part)));
    });
  }
  testing::AssertionResult soonLogs(const std::string& part) {
    return eventually("a record of " + part, [&] { return hasLogged(part); });
  }

  std::shared_ptr<FakeStreams> streams = std::make_shared<FakeStreams>();
  const Array plainMessage = row({text("send"), number(1), text("plain")});
  const Array request = row({chars("request"), chars("id"), number(1), text("")});

 private:
  static void setLogging(kestrel::diagnostics::SeverityMask severities, bool standardError) {
    kestrel::diagnostics::setStandardErrorOutput(standardError);
    kestrel::diagnostics::setSeverities("*", severities);
  }
  std::mutex _mutex;  // guards _texts
  std::map<Severity, Lines> _texts;
  const kestrel::diagnostics::RecordObserver _observer{[this](const kestrel::diagnostics::Record& record) {
    const std::lock_guard lock(_mutex);
    _texts[record.severity].emplace_back(record.text);
  }};
};

}  // namespace library_test
