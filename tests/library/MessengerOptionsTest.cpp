#include "MessengerOptions.hpp"

#include <stdexcept>

#include "MessengerTest.hpp"

namespace library_test {

TEST(BufferPeriod, IsTheRatesShareOfASecondRoundedUp) {
  for (const auto& [rate, period] :
       {std::pair{50, 20}, {3, 334}, {4, 250}, {1, 1000}, {1000, 1}, {5000, 1}}) {
    const auto options = MessengerOptions::read({{"masgSizeRate", static_cast<unsigned long>(rate)}});
    EXPECT_EQ(options.bufferPeriod(), std::chrono::milliseconds(period)) << rate;
  }
}

TEST_F(MessengerTest, TakesTheChunkSizeAndTheAcknowledgementFromItsOptions) {
  using Case = std::tuple<Options, std::size_t, std::string>;
  for (const auto& [options, firstMessage, acknowledged] :
       {Case{{}, 1'000'000, "NO"}, Case{{{"msgsizelimit", 16UL}, {"unknown", 1}}, 1'000'000, "NO"},
        Case{{{"msgSizeLimit", 100'000UL}, {"producerACK", std::string("YES")}}, 100'000, "YES"}}) {
    streams = std::make_shared<FakeStreams>();
    make(options)->send(DataStruct(KDAHelper().kdaFromByteArray(Bytes(1'000'000))));
    EXPECT_EQ(streams->sent().at(0).bytes.size(), firstMessage);
    const auto& configuration = streams->producerConfigurations.at(0);
    EXPECT_EQ(configuration.size(), 1U);
    EXPECT_EQ(std::any_cast<std::string>(configuration.at("producerACK")), acknowledged);
  }
}

TEST_F(MessengerTest, RefusesOptionsOfTheWrongTypeOrWithoutAMeaning) {
  for (const Options& options :
       {Options{{"producerACK", "YES"}}, Options{{"producerUsesBuffer", 1}}, Options{{"msgSizeLimit", 1000}},
        Options{{"msgSizeLimit", 1000U}}, Options{{"masgSizeRate", 5.0}}}) {
    EXPECT_THROW(make(options), std::bad_any_cast) << options.begin()->first;
  }
  EXPECT_EQ(log.count("create consumer/producer failed: "), 5);
  EXPECT_THROW(make({{"msgSizeLimit", 0UL}}), std::invalid_argument);
  EXPECT_THROW(make({{"masgSizeRate", 0UL}, {"producerUsesBuffer", true}}), std::invalid_argument);
}

}  // namespace library_test
