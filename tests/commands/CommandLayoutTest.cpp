#include <gtest/gtest.h>

#include "ArrayText.hpp"
#include "Parsers.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

using kestreldata::Array;

// A peer that was built by others understands these arrays only if every type, size and value is as here.
struct LayoutCase {
  const char* label;
  std::function<Array(CommandUtil&)> build;
  std::string expected;
  friend std::ostream& operator<<(std::ostream& out, const LayoutCase& row) { return out << row.label; }
};

class CommandLayout : public testing::TestWithParam<LayoutCase> {};

TEST_P(CommandLayout, IsWhatPeersExpect) {
  CommandUtil commands(nullptr);
  EXPECT_EQ(textOf(GetParam().build(commands)), GetParam().expected);
}

const std::string noErrorCell = R"(cell 1x3 {uint8 1x1 0, string 1x1 "", double 0x0})";

std::string errorCell(int code) {
  return "cell 1x3 {uint8 1x1 " + std::to_string(code) + R"(, string 1x1 "", double 0x0})";
}

constexpr auto code(int value) {
  return static_cast<RemoteAsyncIOError>(value);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, CommandLayout,
    testing::Values(
        LayoutCase{"register",
                   [](auto& c) {
                     return c.registerClientCmd(row({text("me"), real(1)}));
                   },
                   R"(cell 1x2 {string 1x1 "registerAsyncIOClient", )"
                   R"(cell 1x2 {string 1x1 "me", double 1x1 1.000000}})"},
        LayoutCase{"unregister", [](auto& c) { return c.unregisterClientCmd(7); },
                   R"(cell 1x2 {string 1x1 "unregisterAsyncIOClient", uint64 1x1 7})"},
        LayoutCase{"createHost", [](auto& c) { return c.createHostCmd(1, 1ull << 63); },
                   R"(cell 1x3 {string 1x1 "createHost", uint64 1x1 1, uint64 1x1 9223372036854775808})"},
        LayoutCase{"terminateHost", [](auto& c) { return c.terminateHostCmd(1, 2); },
                   R"(cell 1x3 {string 1x1 "terminateHost", uint64 1x1 1, uint64 1x1 2})"},
        LayoutCase{"getActiveHosts", [](auto& c) { return c.getActiveHostsCmd(3); },
                   R"(cell 1x2 {string 1x1 "getActiveHosts", uint64 1x1 3})"}));

INSTANTIATE_TEST_SUITE_P(
    Responses, CommandLayout,
    testing::Values(
        LayoutCase{"errorCell", [](auto& c) { return c.createError(code(15), "lost", byte(1)); },
                   R"(cell 1x3 {uint8 1x1 15, string 1x1 "lost", uint8 1x1 1})"},
        LayoutCase{"error", [](auto& c) { return c.createErrorResponse(code(4), "no", text("x")); },
                   R"(cell 1x1 {cell 1x3 {uint8 1x1 4, string 1x1 "no", string 1x1 "x"}})"},
        LayoutCase{"noError", [](auto& c) { return c.createNoErrorResponse(); },
                   "cell 1x1 {" + noErrorCell + "}"},
        LayoutCase{"registerError", [](auto& c) { return c.registerClientResponse(code(9)); },
                   "cell 1x1 {" + errorCell(9) + "}"},
        LayoutCase{"register", [](auto& c) { return c.registerClientResponse("a", "b", 7); },
                   "cell 1x4 {" + noErrorCell + R"(, string 1x1 "a", string 1x1 "b", uint64 1x1 7})"},
        LayoutCase{"registerInFull", [](auto& c) { return c.registerClientResponse(code(8), "", "b", 7); },
                   "cell 1x4 {" + errorCell(8) + R"(, string 1x1 "", string 1x1 "b", uint64 1x1 7})"},
        LayoutCase{"createHost", [](auto& c) { return c.createHostResponse(1, 2, code(10)); },
                   "cell 1x3 {" + errorCell(10) + ", uint64 1x1 1, uint64 1x1 2}"},
        LayoutCase{"getActiveHosts",
                   [](auto& c) {
                     return c.getActiveHostsResponse({5, 6, 7}, code(0));
                   },
                   "cell 1x2 {" + noErrorCell + ", uint64 1x3 5, 6, 7}"},
        LayoutCase{"noActiveHosts", [](auto& c) { return c.getActiveHostsResponse({}, code(11)); },
                   "cell 1x2 {" + errorCell(11) + ", double 0x0}"},
        LayoutCase{
            "createChannel", [](auto& c) { return c.createChannelResponse(row({byte(1)}), "a", "b"); },
            "cell 1x4 {" + noErrorCell + R"(, cell 1x1 {uint8 1x1 1}, string 1x1 "a", string 1x1 "b"})"},
        LayoutCase{"terminateChannel",
                   [](auto& c) { return c.terminateChannelResponse(chars(u"bye"), code(12)); },
                   "cell 1x2 {" + errorCell(12) + R"(, char 1x3 "bye"})"}));

TEST(CommandUtil, KeepsTheHelperItIsGivenAndMakesOneOtherwise) {
  const auto helper = std::make_shared<KDAHelper>();
  CommandUtil given(helper);
  CommandUtil own(nullptr);
  EXPECT_EQ(given.kdaHelper(), helper);
  EXPECT_EQ(&given.kdaFactory(), &helper->getFactory());
  ASSERT_NE(own.kdaHelper(), nullptr);
  EXPECT_EQ(&own.kdaFactory(), &own.kdaHelper()->getFactory());
}

TEST(CommandUtil, BuildersRefuseTextBeyondSevenBits) {
  CommandUtil commands(nullptr);
  using kestreldata::NonAsciiCharInInputDataException;
  EXPECT_THROW((void)commands.createError(code(0), "\xe9", Array()), NonAsciiCharInInputDataException);
  EXPECT_THROW((void)commands.registerClientResponse("a", "\xe9", 1), NonAsciiCharInInputDataException);
  EXPECT_THROW((void)commands.createChannelResponse(Array(), "\xe9", "b"), NonAsciiCharInInputDataException);
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
