#include "BoostLogWriter.hpp"

#include <boost/log/attributes/attribute_name.hpp>
#include <boost/log/attributes/attribute_set.hpp>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/core/record.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/smart_ptr/make_shared_object.hpp>

#include "StandardErrorSink.hpp"

namespace kestrel::diagnostics {

namespace {

namespace logging = boost::log;

logging::core_ptr* openCore() {
  auto* core = new logging::core_ptr(logging::core::get());
  (*core)->add_sink(boost::make_shared<logging::sinks::unlocked_sink<StandardErrorSink>>());
  return core;
}

/// Held for ever: records are written after the static objects of Boost.Log are gone.
logging::core& core() {
  static logging::core_ptr* const held = openCore();
  return **held;
}

struct Names {
  const logging::attribute_name channel{"Channel"};
  const logging::attribute_name severity{"Severity"};
  const logging::attribute_name timeStamp{"TimeStamp"};
  const logging::attribute_name threadId{"ThreadID"};
  const logging::attribute_name message{"Message"};
};

const Names& names() {
  static const auto* const known = new Names;
  return *known;
}

}  // namespace

void prepareBoostLog() {
  (void)core();
  (void)names();
}

void writeToBoostLog(const std::string& channel, Severity severity, std::string_view text) {
  namespace attributes = logging::attributes;
  auto& target = core();
  logging::attribute_set set;
  set.insert(names().channel, attributes::constant<std::string>(channel));
  set.insert(names().severity, attributes::constant<SeverityMask>(static_cast<SeverityMask>(severity)));
  set.insert(names().timeStamp, attributes::utc_clock());
  set.insert(names().threadId, attributes::current_thread_id());
  set.insert(names().message, attributes::constant<std::string>(std::string(text)));
  if (auto record = target.open_record(set)) target.push_record(boost::move(record));
}

}  // namespace kestrel::diagnostics
