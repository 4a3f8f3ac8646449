#pragma once

#include <atomic>
#include <cstdint>
#include <kestrel/datastreaming/Types.hpp>
#include <utility>

namespace kestrel::streams {

/// The bound, in bytes, of what waits for one consumer. Reading and releasing are safe from any thread;
/// charges are taken by one thread at a time.
class ByteBudget {
 public:
  static constexpr std::uint64_t defaultLimit = 256ULL << 20;

  explicit ByteBudget(std::uint64_t limit = defaultLimit) : _limit(limit) {}
  ByteBudget(const ByteBudget&) = delete;
  ByteBudget& operator=(const ByteBudget&) = delete;

  /// A share of the budget, given back when it is destroyed. The budget must outlive it.
  class Charge {
   public:
    Charge() = default;
    Charge(ByteBudget& budget, std::uint64_t bytes) : _budget(&budget), _bytes(bytes) {
      budget._used.fetch_add(bytes, std::memory_order_relaxed);
    }
    Charge(Charge&& other) noexcept : _budget(std::exchange(other._budget, nullptr)), _bytes(other._bytes) {}
    Charge& operator=(Charge&& other) noexcept {
      std::swap(_budget, other._budget);
      std::swap(_bytes, other._bytes);
      return *this;
    }
    ~Charge() {
      if (_budget != nullptr) _budget->_used.fetch_sub(_bytes, std::memory_order_relaxed);
    }

   private:
    ByteBudget* _budget = nullptr;
    std::uint64_t _bytes = 0;
  };

  /// What a message costs: its bytes, those of its attributes, and the memory that handles them.
  [[nodiscard]] static std::uint64_t costOf(std::uint64_t size,
                                            const datastreaming::AttributeMap& attributes);

  [[nodiscard]] bool hasRoom(std::uint64_t cost) const;

  [[nodiscard]] std::uint64_t used() const { return _used.load(std::memory_order_relaxed); }
  [[nodiscard]] std::uint64_t limit() const { return _limit; }

 private:
  const std::uint64_t _limit;
  std::atomic<std::uint64_t> _used{0};
};

}  // namespace kestrel::streams
