#include "messenger/MessengerOptions.hpp"

#include <stdexcept>

#include "MessengerTest.hpp"

namespace library_test {

TEST(BufferPeriod, IsTheRatesShareOfASecondRoundedUp) {
  for (const auto& [rate, period] : {std::pair{50, 20}, {3, 334}, {5000, 1}}) {
    const auto options = MessengerOptions::read({{"masgSizeRate", static_cast<unsigned long>(rate)}});
    EXPECT_EQ(options.bufferPeriod(), std::chrono::milliseconds(period)) << rate;
  }
}

TEST_F(MessengerTest, TakesTheChunkSizeAndTheAcknowledgementFromItsOptions) {
  using Case = std::tuple<Options, std::size_t, std::string>;
  for (const auto& [options, firstMessage, acknowledged] :
       {Case{{{"msgsizelimit", 16UL}, {"unknown", 1}}, 1'000'000, "NO"},
        Case{{{"msgSizeLimit", 100'000UL}, {"producerACK", std::string("YES")}}, 100'000, "YES"}}) {
    streams = std::make_shared<FakeStreams>();
    make(options)->send(DataStruct(KDAHelper().kdaFromByteArray(Bytes(1'000'000))));
    EXPECT_EQ(streams->sent().at(0).bytes.size(), firstMessage);
    EXPECT_EQ(std::any_cast<std::string>(streams->producerConfigurations.at(0).at("producerACK")),
              acknowledged);
  }
}

TEST_F(MessengerTest, RefusesOptionsOfTheWrongTypeOrWithoutAMeaning) {
  using Case = std::tuple<std::string, std::any, std::string>;
  for (const auto& [key, value, types] :
       {Case{"producerACK", "YES", "must hold std::string, but holds char const*."},
        Case{"msgSizeLimit", std::string("1"), "must hold unsigned long, but holds std::string."},
        Case{"masgSizeRate", std::any(), "must hold unsigned long, but holds nothing."}}) {
    const Options options{{key, value}};
    EXPECT_THAT([&] { make(options); },
                testing::ThrowsMessage<std::bad_any_cast>("Option \"" + key + "\" " + types));
  }
  EXPECT_THROW(make({{"msgSizeLimit", 0UL}}), std::invalid_argument);
  EXPECT_THROW(make({{"masgSizeRate", 0UL}, {"producerUsesBuffer", true}}), std::invalid_argument);
}

}  // namespace library_test
