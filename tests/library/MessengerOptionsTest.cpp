#include "MessengerOptions.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

#include "MessengerTest.hpp"
#include "kestrel/host/Host.hpp"

namespace library_test {
namespace {

using remote_connectivity::asyncio::util::MessengerOptions;

class BufferPeriod : public testing::TestWithParam<std::pair<unsigned long, int>> {};

TEST_P(BufferPeriod, IsTheRatesShareOfASecondRoundedUp) {
  const MessengerOptions options = MessengerOptions::read({{"masgSizeRate", GetParam().first}});
  EXPECT_EQ(options.bufferPeriod(), std::chrono::milliseconds(GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(Rates, BufferPeriod,
                         testing::Values(std::pair{50, 20}, std::pair{3, 334}, std::pair{4, 250},
                                         std::pair{1, 1000}, std::pair{7, 143}, std::pair{1000, 1},
                                         std::pair{5000, 1}));

class MessengerOptionsTest : public MessengerTest {};

TEST_F(MessengerOptionsTest, HaveDefaultsWhichAMisspelledKeyLeavesAlone) {
  const auto messenger = make({{"msgSizeRate", 1UL}, {"msgRate", 1UL}, {"msgsizelimit", 1UL}});
  messenger->send(DataStruct(number(1)));
  ASSERT_EQ(streams->sent().size(), 1U);
  EXPECT_TRUE(streams->sent()[0].attributes.empty()) << "chunked at another limit";
  ASSERT_EQ(streams->producerConfigurations.size(), 1U);
  const auto& configuration = streams->producerConfigurations[0];
  EXPECT_EQ(configuration.size(), 1U);
  EXPECT_EQ(std::any_cast<std::string>(configuration.at("producerACK")), "NO");
  EXPECT_EQ(log.count("starting periodic work"), 0U);
  messenger->send(DataStruct(number(1)));
  EXPECT_EQ(log.count("Reached limit"), 0U) << "sent at another rate";
}

TEST_F(MessengerOptionsTest, CutAtTheDefaultLimitOfAMillionBytes) {
  const auto messenger = make();
  messenger->send(DataStruct(arrays().createArray(ArrayType::UINT8, {1, 1'000'000})));
  const auto sent = streams->sent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0].bytes.size(), 1'000'000U);
}

TEST_F(MessengerOptionsTest, AreTaken) {
  const kestrel::host::Host host;
  const auto messenger = make({{"producerACK", std::string("YES")}, {"msgSizeLimit", 16UL}, {"unknown", 1}});
  EXPECT_EQ(std::any_cast<std::string>(streams->producerConfigurations.at(0).at("producerACK")), "YES");
  messenger->send(DataStruct(number(1)));
  const auto sent = streams->sent();
  ASSERT_GE(sent.size(), 2U);
  EXPECT_EQ(sent.front().bytes.size(), 16U);
  EXPECT_EQ(sent.front().attributes.at("UNCOMPRESSEDSIZE"), ds::AttributeValue(16L));
  const auto buffered = make({{"producerUsesBuffer", true}, {"masgSizeRate", 4UL}}, {}, "buffered");
  EXPECT_TRUE(log.wrote("asyncio::util::ProducerBuffer", Severity::setup,
                        "starting periodic work with interval: 250"));
}

template <class Error>
void refuse(const std::shared_ptr<FakeStreams>& streams, const Options& options) {
  EXPECT_THROW(SendReceiveDataStream("out", "in", streams, options), Error) << options.begin()->first;
}

TEST_F(MessengerOptionsTest, OfTheWrongTypeAreRefused) {
  for (const Options& options :
       {Options{{"producerACK", "YES"}}, Options{{"producerUsesBuffer", 1}}, Options{{"msgSizeLimit", 1000}},
        Options{{"msgSizeLimit", 1000U}}, Options{{"masgSizeRate", 5.0}}}) {
    refuse<std::bad_any_cast>(streams, options);
  }
  EXPECT_EQ(log.count("create consumer/producer failed: "), 5U);
}

TEST_F(MessengerOptionsTest, WithoutAMeaningAreRefused) {
  refuse<std::invalid_argument>(streams, {{"msgSizeLimit", 0UL}});
  refuse<std::invalid_argument>(streams, {{"masgSizeRate", 0UL}, {"producerUsesBuffer", true}});
}

}  // namespace
}  // namespace library_test
