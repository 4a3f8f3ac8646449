#include "kestrel/crypto/CryptoEngine.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <set>

#include "kestrel/crypto/CryptoProvider.hpp"

static auto makeGenerator() {
  using namespace kestrel::crypto;
  return CryptoEngine(std::make_shared<CryptoProvider>()).createDefaultCryptoPRNG({1, 2, 3});
}

TEST(CryptoEngine, FillsLargeByteArraysWithoutAHole) {
  const auto bytes = makeGenerator().generateByteArray(200'000);
  EXPECT_EQ(std::search_n(bytes.begin(), bytes.end(), 8, 0), bytes.end());
}

TEST(CryptoEngine, NeverRepeatsItselfForEqualSeedsOrOnThreadsThatShareAGenerator) {
  const auto draw = [shared = makeGenerator()] {
    std::set<std::vector<std::uint8_t>> drawn;
    for (int i = 0; i < 500; ++i)
      drawn.insert({shared.generateByteArray(64), makeGenerator().generateByteArray(64)});
    return drawn;
  };
  auto others = std::async(std::launch::async, draw);
  auto drawn = draw();
  drawn.merge(others.get());
  EXPECT_EQ(drawn.size(), 2000U);
}

TEST(CryptoEngine, GivesTheChildOfAForkOtherBytesThanItsParent) {
  const auto generator = makeGenerator();
  (void)generator.generateByteArray(16);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  auto drawn = generator.generateByteArray(16), childs = drawn;
  if (child == 0) _exit(write(ends[1], drawn.data(), 16) == 16 ? 0 : 1);
  ASSERT_EQ(read(ends[0], childs.data(), 16), 16);
  EXPECT_NE(childs, drawn);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}
