#include "BoostLogWriter.hpp"

#include <atomic>
#include <boost/log/attributes/attribute_name.hpp>
#include <boost/log/attributes/attribute_set.hpp>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/core/record.hpp>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

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
    if (_ended) return;
    _isOn = way != nullptr;
    _way.swap(way);
  }

  std::shared_ptr<const Way> way() {
    if (!_isOn) return nullptr;
    const std::lock_guard lock(_mutex);
    return _way;
  }

  /// Records under way get a moment: what they use goes next. Not for ever, as a sink may be what ends the
  /// process.
  void end() {
    const std::weak_ptr<const Way> inUse = way();
    set(nullptr);
    {
      const std::lock_guard lock(_mutex);
      _ended = true;
    }
    for (int i = 0; i < 100 && !inUse.expired(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

 private:
  std::atomic<bool> _isOn{false};  // spares the mutex where nobody wants the records
  std::mutex _mutex;
  // Guarded by _mutex.
  std::shared_ptr<const Way> _way;
  bool _ended = false;
};

struct EndsOutput {
  ~EndsOutput() { Output::shared().end(); }
};

}  // namespace

void setBoostLogOutput(bool on) {
  if (!on) return Output::shared().set(nullptr);
  Output::shared().set(std::make_shared<const Way>());
  static const EndsOutput atTheEnd;  // made after what the way uses, so it goes before
}

void writeToBoostLog(const Record& record) {
  namespace attributes = logging::attributes;
  const auto way = Output::shared().way();
  if (!way) return;
  logging::attribute_set set;
  set.insert(way->channel, attributes::constant<std::string>(std::string(record.channel)));
  set.insert(way->severity, attributes::constant<SeverityMask>(static_cast<SeverityMask>(record.severity)));
  set.insert(way->timeStamp, attributes::utc_clock());
  set.insert(way->threadId, attributes::current_thread_id());
  set.insert(way->message, attributes::constant<std::string>(std::string(record.text)));
  if (auto entry = way->core->open_record(set)) way->core->push_record(boost::move(entry));
}

}  // namespace kestrel::diagnostics
