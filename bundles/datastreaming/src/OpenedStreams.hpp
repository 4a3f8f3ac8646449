#pragma once

#include <kestrel/datastreaming/Statistics.hpp>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "delivery/StreamContext.hpp"

namespace kestrel::streams {

/// The streams that one service instance has opened, with what they carried. Bounded: a host may give each of
/// its clients streams of their own for months. Not safe for several threads.
class OpenedStreams {
 public:
  /// Streams that ended and keep an entry: never more than twice this number.
  static constexpr std::size_t keptEnded = 1000;

  /// The stream of that name, which counts on where it was; empty if it is not known or has no name.
  [[nodiscard]] std::shared_ptr<StreamContext> find(const std::string& id) const;
  /// Enters a stream, unless it is known.
  void add(const std::shared_ptr<StreamContext>& context);
  /// One entry a stream in the order of opening, then the one that sums up.
  [[nodiscard]] std::vector<datastreaming::StreamStatistics> statistics() const;

 private:
  void sumUpOldest();

  std::vector<std::shared_ptr<StreamContext>> _opened;  // in the order of opening
  std::unordered_map<std::string, std::shared_ptr<StreamContext>> _named;
  datastreaming::StreamStatistics _summedUp;
  std::size_t _sweepAt = 2 * keptEnded;
};

}  // namespace kestrel::streams
