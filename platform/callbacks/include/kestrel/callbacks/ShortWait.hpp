#pragma once

#include <sched.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstring>

namespace kestrel::callbacks {

/// Whether it is worth while to look for what one waits for before one sleeps. A plain object: it is told how
/// waits went.
class ShortWaitPolicy {
 public:
  using Duration = std::chrono::nanoseconds;

  /// Waking a thread takes about half of that, so that looking for longer costs more than it can save.
  static constexpr Duration longestLook{20'000};
  /// Waits that took so long with the time to wake up may be short enough without it.
  static constexpr Duration worthwhile{100'000};
  /// After so many looks in vain, one after the other, so many waits sleep at once.
  static constexpr int mostInVain = 4;
  static constexpr int restingWaits = 256;

  [[nodiscard]] bool mayLook() const { return _resting == 0 && _usual <= worthwhile; }

  /// A wait is over: how long it was in all, and, if one has looked, whether that was enough.
  void ended(Duration took, bool looked, bool found) {
    constexpr int weight = 8;
    _usual += (std::min(took, 10 * worthwhile) - _usual) / weight;
    if (_resting > 0) --_resting;
    if (!looked) return;
    _inVain = found ? 0 : _inVain + 1;
    if (_inVain < mostInVain) return;
    _inVain = 0;
    _resting = restingWaits;
  }

 private:
  Duration _usual = 10 * worthwhile;  // the mean of the last waits
  int _inVain = 0;
  int _resting = 0;
};

/// The waits of one thread for one thing. Where the last ones were short it looks for a moment before it
/// sleeps: to wake a thread up takes several times what most answers within a process take. Meanwhile it
/// leaves the core to any other thread that wants it, and where that makes it look in vain it sleeps at once
/// for a while. Never on one core, and not where KESTREL_SHORT_WAITS is "off" in the environment.
class ShortWait {
 public:
  using Clock = std::chrono::steady_clock;

  /// Looks for that long at most.
  explicit ShortWait(std::chrono::nanoseconds longestLook = ShortWaitPolicy::longestLook)
      : _longestLook(longestLook) {}

  /// Begins a wait; returns whether ready() held before one has to sleep.
  template <class Ready>
  [[nodiscard]] bool look(const Ready& ready) {
    _begin = Clock::now();
    _looked = _policy.mayLook() && hasCores();
    _found = _looked && seen(ready);
    return _found;
  }

  /// The wait is over, at that time.
  void end(Clock::time_point now) { _policy.ended(now - _begin, _looked, _found); }

 private:
  template <class Ready>
  [[nodiscard]] bool seen(const Ready& ready) const {
    constexpr int looksPerTime = 16;
    do {
      for (int i = 0; i < looksPerTime; ++i) {
        if (ready()) return true;
        relax();
      }
      sched_yield();  // to whoever makes what is waited for, if he needs this core, and to anybody else
    } while (Clock::now() - _begin < _longestLook);
    return false;
  }

  static void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
  }

  /// Asks the system now and then, for threads may be bound to other cores at any time.
  bool hasCores() {
    constexpr int looksPerQuestion = 1024;
    if (_untilQuestion-- > 0) return _hasCores;
    _untilQuestion = looksPerQuestion;
    cpu_set_t cores;
    _hasCores = enabled() && sched_getaffinity(0, sizeof cores, &cores) == 0 && CPU_COUNT(&cores) > 1;
    return _hasCores;
  }

  static bool enabled() {
    static const bool on = [] {
      const char* const setting = secure_getenv("KESTREL_SHORT_WAITS");
      return setting == nullptr || std::strcmp(setting, "off") != 0;
    }();
    return on;
  }

  const std::chrono::nanoseconds _longestLook;
  ShortWaitPolicy _policy;
  Clock::time_point _begin{};
  bool _looked = false;
  bool _found = false;
  bool _hasCores = false;
  int _untilQuestion = 0;
};

}  // namespace kestrel::callbacks
