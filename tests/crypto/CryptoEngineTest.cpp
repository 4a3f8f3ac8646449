#include "kestrel/crypto/CryptoEngine.hpp"

#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "kestrel/crypto/CryptoException.hpp"
#include "kestrel/crypto/CryptoProvider.hpp"

namespace kestrel::crypto {
namespace {

using Bytes = std::vector<std::uint8_t>;

class FakeProvider : public ICryptoProvider {
 public:
  void randomBytes(std::uint8_t*, std::size_t) override { throw CryptoException("no entropy left"); }
  void addSeed(const std::uint8_t* seed, std::size_t size) override {
    _seeds.emplace_back(seed, seed + size);
  }

  std::vector<Bytes> _seeds;
};

CryptoPRNG<DefaultPRNGAlgorithm> makeGenerator(const Bytes& seed) {
  return CryptoEngine(std::make_shared<CryptoProvider>()).createDefaultCryptoPRNG(seed);
}

TEST(CryptoEngine, GeneratesByteArraysOfAnyLength) {
  const auto generator = makeGenerator({});
  for (const std::size_t size : {0, 1, 16, 65536, 200000}) {
    EXPECT_EQ(generator.generateByteArray(size).size(), size);
  }
}

TEST(CryptoEngine, LeavesNoPartOfALongArrayUnfilled) {
  const auto bytes = makeGenerator({}).generateByteArray(200000);
  for (std::size_t start = 0; start < bytes.size(); start += 1000) {
    const std::set<std::uint8_t> values(bytes.begin() + start, bytes.begin() + start + 1000);
    EXPECT_GT(values.size(), 128u) << "in the block that starts at byte " << start;
  }
}

TEST(CryptoEngine, DoesNotRepeatItselfForEqualSeeds) {
  const Bytes seed{1, 2, 3};
  EXPECT_NE(makeGenerator(seed).generateByteArray(16), makeGenerator(seed).generateByteArray(16));
}

TEST(CryptoEngine, GivesDistinctArraysToThreadsThatShareAGenerator) {
  constexpr int threadCount = 8, perThread = 1000;
  const auto generator = makeGenerator({});
  std::vector<std::vector<Bytes>> drawn(threadCount);
  {
    std::vector<std::jthread> threads;
    for (auto& mine : drawn) {
      threads.emplace_back([&generator, &mine] {
        for (int i = 0; i < perThread; ++i) mine.push_back(generator.generateByteArray(16));
      });
    }
  }
  std::set<Bytes> distinct;
  for (const auto& mine : drawn) distinct.insert(mine.begin(), mine.end());
  EXPECT_EQ(distinct.size(), std::size_t{threadCount} * perThread);
}

TEST(CryptoEngine, MixesInASeedOnlyIfThereIsOne) {
  const auto provider = std::make_shared<FakeProvider>();
  const CryptoEngine engine(provider);
  (void)engine.createDefaultCryptoPRNG({});
  EXPECT_TRUE(provider->_seeds.empty());
  (void)engine.createDefaultCryptoPRNG({7, 8});
  EXPECT_EQ(provider->_seeds, std::vector<Bytes>({{7, 8}}));
}

TEST(CryptoEngine, PassesOnTheFailureOfItsProvider) {
  const auto generator = CryptoEngine(std::make_shared<FakeProvider>()).createDefaultCryptoPRNG({});
  EXPECT_THROW((void)generator.generateByteArray(16), CryptoException);
}

TEST(CryptoEngine, RefusesAnEmptyProvider) {
  EXPECT_THROW(CryptoEngine(nullptr), std::invalid_argument);
}

}  // namespace
}  // namespace kestrel::crypto
