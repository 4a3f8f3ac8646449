#include "remote_connectivity/asyncio/util/MessengerException.hpp"

#include <gtest/gtest.h>

#include "Wire.hpp"

namespace library_test {
namespace {

using namespace remote_connectivity::asyncio::util;

class MessengerExceptionText : public testing::TestWithParam<std::pair<MessengerExceptionType, const char*>> {
};

TEST_P(MessengerExceptionText, IsTheTextOfItsType) {
  const auto& [type, expected] = GetParam();
  const MessengerException thrown(type);
  EXPECT_STREQ(thrown.what(), expected);
  EXPECT_EQ(thrown.type(), type);
  EXPECT_EQ(&getStringForExceptionType(type), &getStringForExceptionType(type));
}

INSTANTIATE_TEST_SUITE_P(Types, MessengerExceptionText,
                         testing::Values(std::pair{MessengerExceptionType{0}, "Invalid channel messenger."},
                                         std::pair{MessengerExceptionType{1},
                                                   "Timeout waiting for response."}));

TEST(MessengerExceptionDeathTest, EndsTheProcessForAnUnknownType) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH((void)getStringForExceptionType(MessengerExceptionType{2}),
               "MessengerError: Item is corrupt\\.");
}

TEST(DataStruct, IsEmptyAtFirstAndGivesIndependentCopies) {
  const DataStruct fresh;
  EXPECT_TRUE(fresh.id.empty() && fresh.attributes.empty() && fresh.data.isEmpty());
  DataStruct original(arrays().createArray<double>({1, 2}, {1.0, 2.0}), {{"unit", std::string("m")}}, "a");
  DataStruct copy = original;
  EXPECT_EQ(copy.data, original.data);
  TypedArray<double> changed(copy.data);
  changed[0] = 5.0;
  copy.data = changed;
  copy.attributes["unit"] = 7L;
  copy.id = "b";
  EXPECT_EQ(numberOf(original.data), 1.0);
  EXPECT_EQ(original.attributes, (AttributeMap{{"unit", std::string("m")}}));
  EXPECT_EQ(original.id, "a");
}

}  // namespace
}  // namespace library_test
