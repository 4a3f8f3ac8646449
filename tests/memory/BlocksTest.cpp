#include "kestrel/memory/Blocks.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <limits>
#include <new>
#include <thread>
#include <vector>

#include "../Eventually.hpp"
#include "kestrel/memory/Buffer.hpp"

namespace kestrel::memory {
namespace {

TEST(Blocks, AreKeptUpToTheLimitAndGivenBackWhenNobodyWantsThem) {
  constexpr std::size_t megabyte = std::size_t{1} << 20;
  setLimit(4 * megabyte);
  void* const block = allocate(megabyte);
  release(block, megabyte);
  EXPECT_GE(kept(), megabyte);
  EXPECT_EQ(allocate(megabyte), block);
  release(block, megabyte);
  for (int i = 0; i < 3; ++i) release(allocate(3 * megabyte), 3 * megabyte);
  EXPECT_LE(kept(), 4 * megabyte);
  EXPECT_TRUE(eventually("idle memory to go", [] { return kept() == 0; }));
  setLimit(defaultLimit);
  EXPECT_THROW((void)allocate(std::numeric_limits<std::size_t>::max() / 2), std::bad_alloc);
}

TEST(Blocks, GoFromThreadToThread) {
  std::vector<std::jthread> threads;
  for (int t = 1; t <= 4; ++t) {
    threads.emplace_back([t] {
      for (std::size_t size = leastKept; size < 4 * leastKept; size += 4000) {
        auto* const bytes = static_cast<unsigned char*>(allocate(size));
        std::memset(bytes, t, size);
        std::this_thread::yield();
        EXPECT_TRUE(bytes[0] == t && std::memcmp(bytes, bytes + 1, size - 1) == 0) << "two have one block";
        std::jthread([bytes, size] { release(bytes, size); });
      }
    });
  }
}

#if !defined(__SANITIZE_THREAD__)  // which lets no thread begin in a forked process
TEST(Blocks, CanBeHadInAForkedProcess) {
  const auto useThem = [] {
    Buffer buffer(leastKept);
    buffer.freeze();
    return ownerOf(buffer.data(), 1).size == leastKept;
  };
  std::jthread busy([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) (void)useThem();
  });
  for (int i = 0; i < 200; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(60);
      ::_exit(useThem() && kept() > 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_TRUE(::waitpid(child, &status, 0) == child && status == 0) << "in process " << i;
  }
}
#endif

TEST(Buffer, IsFoundByItsBytesOnceItIsFrozenAndStaysForThoseWhoFoundIt) {
  const std::vector<std::uint8_t> bytes(leastKept, 7);
  SharedBytes owner;
  const std::uint8_t* begin = nullptr;
  {
    Buffer buffer;
    for (int i = 0; i < 2; ++i) buffer.append(bytes.data(), bytes.size());
    begin = buffer.data();
    EXPECT_EQ(ownerOf(begin, 1).owner, nullptr) << "it may still change";
    buffer.freeze();
    owner = ownerOf(begin + leastKept, leastKept).owner;
    EXPECT_EQ(ownerOf(begin + leastKept, leastKept + 1).owner, nullptr) << "a byte too many";
    EXPECT_EQ(ownerOf(begin - 1, 2).owner, nullptr);
    EXPECT_EQ(ownerOf(begin + 1, 2).size, 2 * leastKept);
  }
  ASSERT_NE(owner, nullptr);
  EXPECT_EQ(std::memcmp(begin, bytes.data(), leastKept), 0);
  owner.reset();
  EXPECT_EQ(ownerOf(begin, 1).owner, nullptr) << "it has gone";
}

}  // namespace
}  // namespace kestrel::memory
