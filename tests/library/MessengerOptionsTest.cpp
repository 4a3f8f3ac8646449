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
  using Case = std::tuple<std::string, std::any, std::string>;
  for (const auto& [key, value, types] :
       {Case{"producerACK", "YES", "must hold std::string, but holds char const*."},
        Case{"producerUsesBuffer", 1, "must hold bool, but holds int."},
        Case{"msgSizeLimit", 1000, "must hold unsigned long, but holds int."},
        Case{"msgSizeLimit", std::string("1"), "must hold unsigned long, but holds std::string."},
        Case{"masgSizeRate", std::any(), "must hold unsigned long, but holds nothing."}}) {
    const Options options{{key, value}};
    EXPECT_THAT([&] { make(options); },
                testing::ThrowsMessage<std::bad_any_cast>("Option \"" + key + "\" " + types));
  }
  EXPECT_EQ(log.count("create consumer/producer failed: "), 5);
  EXPECT_THROW(make({{"msgSizeLimit", 0UL}}), std::invalid_argument);
  EXPECT_THROW(make({{"masgSizeRate", 0UL}, {"producerUsesBuffer", true}}), std::invalid_argument);
}

TEST_F(MessengerTest, WarnsOfOptionsThatLookMisspelt) {
  for (const auto& [key, meant] : {std::pair{"msgSizeRate", "masgSizeRate"},
                                   {"MASGSIZERATE", "masgSizeRate"},
                                   {"producersUseBuffer", "producerUsesBuffer"}}) {
    log.clear();
    make({{key, 1}, {"unlike", 1}, {"msgSizeLimit", 1000UL}, {"producerACK", std::string("NO")}});
    EXPECT_THAT(logged(Severity::warning), ElementsAre(testing::AllOf(HasSubstr(key), HasSubstr(meant))));
  }
}

}  // namespace library_test
