#include "BoostLogWriter.hpp"

#include <atomic>
#include <boost/log/attributes/attribute_name.hpp>
#include <boost/log/attributes/attribute_set.hpp>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/core/record.hpp>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "kestrel/callbacks/ExitGate.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

namespace kestrel::diagnostics {

namespace {

namespace logging = boost::log;

/// What writing to the core needs. Made once Boost.Log's own static objects exist.
struct Way {
  const logging::core_ptr core = logging::core::get();
  const logging::attribute_name channel{"Channel"};
  const logging::attribute_name severity{"Severity"};
  const logging::attribute_name timeStamp{"TimeStamp"};
  const logging::attribute_name threadId{"ThreadID"};
  const logging::attribute_name message{"Message"};
};

/// The way to the core while there is one. Never destroyed: threads still log while the process ends.
class Output {
 public:
  static Output& shared() {
    static auto* const output = new Output;
    return *output;
  }

  void set(std::shared_ptr<const Way> way) {
    const std::lock_guard lock(_mutex);
    _isOn = way != nullptr;
    _way.swap(way);
  }

  bool isOn() const { return _isOn; }
  std::shared_ptr<const Way> way() {
    const std::lock_guard lock(_mutex);
    return _way;
  }

  /// Open until the static objects of Boost.Log go.
  callbacks::ExitGate gate;

 private:
  std::atomic<bool> _isOn{false};  // spares the mutex where nobody wants the records
  std::mutex _mutex;
  std::shared_ptr<const Way> _way;  // guarded by _mutex
};

/// Made after what the way uses, so destroyed before it. Gives the core back, for the host's sinks go with
/// it.
struct EndsOutput {
  ~EndsOutput() { Output::shared().set(nullptr); }
  callbacks::ExitGate::Closer closer{Output::shared().gate};
};

}  // namespace

void setBoostLogOutput(bool on) {
  auto& output = Output::shared();
  const auto pass = output.gate.enter();
  if (!on || !pass) return output.set(nullptr);
  output.set(std::make_shared<const Way>());
  static const EndsOutput atTheEnd;
}

void writeToBoostLog(const Record& record) {
  namespace attributes = logging::attributes;
  auto& output = Output::shared();
  if (!output.isOn()) return;
  const auto pass = output.gate.enter();
  const auto way = output.way();
  if (!pass || !way) return;
  logging::attribute_set set;
  set.insert(way->channel, attributes::constant<std::string>(std::string(record.channel)));
  set.insert(way->severity, attributes::constant<SeverityMask>(static_cast<SeverityMask>(record.severity)));
  set.insert(way->timeStamp, attributes::utc_clock());
  set.insert(way->threadId, attributes::current_thread_id());
  set.insert(way->message, attributes::constant<std::string>(std::string(record.text)));
  if (auto entry = way->core->open_record(set)) way->core->push_record(boost::move(entry));
}

}  // namespace kestrel::diagnostics
