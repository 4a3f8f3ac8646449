#include "kestrel/crypto/CryptoEngine.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <set>
#include <thread>

#include "kestrel/crypto/CryptoException.hpp"
#include "kestrel/crypto/CryptoProvider.hpp"

namespace kestrel::crypto {
namespace {

using Bytes = std::vector<std::uint8_t>;

class FailingProvider : public ICryptoProvider {
  void randomBytes(std::uint8_t*, std::size_t) override { throw CryptoException("no entropy left"); }
  void addSeed(const std::uint8_t*, std::size_t) override {}
};

auto makeGenerator(std::shared_ptr<ICryptoProvider> provider = std::make_shared<CryptoProvider>()) {
  return CryptoEngine(std::move(provider)).createDefaultCryptoPRNG({1, 2, 3});
}

TEST(CryptoEngine, FillsByteArraysOfAnyLength) {
  for (const std::size_t size : {0, 1, 16, 65536, 200000}) {
    const auto bytes = makeGenerator().generateByteArray(size);
    EXPECT_EQ(bytes.size(), size);
    for (std::size_t start = 0; start + 1000 <= size; start += 1000) {
      const std::set<std::uint8_t> values(bytes.begin() + start, bytes.begin() + start + 1000);
      EXPECT_GT(values.size(), 128U) << "in the block that starts at byte " << start;
    }
  }
}

TEST(CryptoEngine, NeverRepeatsItselfForEqualSeedsOrOnThreadsThatShareAGenerator) {
  const auto shared = makeGenerator();
  std::vector<std::vector<Bytes>> drawn(8);
  {
    std::vector<std::jthread> threads;
    for (auto& mine : drawn) {
      threads.emplace_back([&shared, &mine] {
        for (int i = 0; i < 500; ++i) {
          mine.insert(mine.end(), {shared.generateByteArray(16), makeGenerator().generateByteArray(16)});
        }
      });
    }
  }
  std::set<Bytes> distinct;
  for (const auto& mine : drawn) distinct.insert(mine.begin(), mine.end());
  EXPECT_EQ(distinct.size(), 8000U);
}

TEST(CryptoEngine, GivesTheChildOfAForkOtherBytesThanItsParent) {
  const auto generator = makeGenerator();
  (void)generator.generateByteArray(16);
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    const auto bytes = generator.generateByteArray(16);
    _exit(write(ends[1], bytes.data(), bytes.size()) == 16 ? 0 : 1);
  }
  Bytes childs(16);
  ASSERT_EQ(read(ends[0], childs.data(), childs.size()), 16);
  EXPECT_NE(childs, generator.generateByteArray(16));
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  close(ends[0]);
  close(ends[1]);
}

TEST(CryptoEngine, PassesOnTheFailureOfItsProvider) {
  const auto generator = makeGenerator(std::make_shared<FailingProvider>());
  EXPECT_THROW((void)generator.generateByteArray(16), CryptoException);
  EXPECT_THROW(CryptoEngine(nullptr), std::invalid_argument);
}

}  // namespace
}  // namespace kestrel::crypto
