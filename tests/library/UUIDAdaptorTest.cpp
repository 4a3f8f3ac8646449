#include "remote_connectivity/asyncio/util/UUIDAdaptor.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace library_test {
namespace {

using remote_connectivity::asyncio::util::UUIDAdaptor;

TEST(UUIDAdaptor, MakesFreshLowerCaseTextWhoseDigitsAreAllRandom) {
  UUIDAdaptor adaptor;
  std::set<std::string> texts;
  std::set<char> versions;
  std::set<char> variants;
  for (int i = 0; i < 2000; ++i) {
    const std::string text = adaptor();
    ASSERT_EQ(text.size(), 36U);
    EXPECT_EQ(text.find_first_not_of("0123456789abcdef-"), std::string::npos) << text;
    for (const std::size_t hyphen : {8U, 13U, 18U, 23U}) EXPECT_EQ(text[hyphen], '-') << text;
    texts.insert(text);
    versions.insert(text[14]);
    variants.insert(text[19]);
  }
  EXPECT_EQ(texts.size(), 2000U);
  EXPECT_EQ(versions.size(), 16U) << "a version was set";
  EXPECT_EQ(variants.size(), 16U) << "a variant was set";
}

TEST(UUIDAdaptor, WritesBytesInOrder) {
  UUIDAdaptor adaptor;
  boost::uuids::uuid id{};
  EXPECT_EQ(adaptor.toString(id), "00000000-0000-0000-0000-000000000000");
  for (std::uint8_t i = 0; i < 16; ++i) id.data[i] = static_cast<std::uint8_t>(0xA0 + i);
  EXPECT_EQ(adaptor.toString(id), "a0a1a2a3-a4a5-a6a7-a8a9-aaabacadaeaf");
}

TEST(UUIDAdaptor, ServesSeveralThreadsAtOnce) {
  UUIDAdaptor adaptor;
  std::vector<std::vector<std::string>> drawn(4);
  {
    std::vector<std::jthread> threads;
    for (auto& mine : drawn) {
      threads.emplace_back([&] {
        for (int i = 0; i < 500; ++i) mine.push_back(adaptor());
      });
    }
  }
  std::set<std::string> all;
  for (const auto& mine : drawn) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), 2000U);
}

}  // namespace
}  // namespace library_test
