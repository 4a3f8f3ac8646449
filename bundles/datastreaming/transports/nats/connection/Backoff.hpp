#pragma once

#include <algorithm>
#include <chrono>
#include <random>

namespace kestrel::streams {

/// How long to wait before that attempt to reconnect, counted from 1: twice as long each time, at most two
/// seconds or the first wait if that is longer, less up to a half at random, so that clients of one server do
/// not all come back at once.
[[nodiscard]] inline std::chrono::milliseconds backoff(std::chrono::milliseconds first, int attempt) {
  constexpr std::chrono::milliseconds cap{2000};
  const auto most = std::max(first, cap);
  auto wait = first;
  for (int i = 1; i < attempt && wait < most; ++i) wait *= 2;
  wait = std::min(wait, most);
  thread_local std::minstd_rand source{std::random_device{}()};
  std::uniform_int_distribution<std::chrono::milliseconds::rep> less(0, wait.count() / 2);
  return wait - std::chrono::milliseconds(less(source));
}

}  // namespace kestrel::streams
