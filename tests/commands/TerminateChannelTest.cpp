#include <gtest/gtest.h>

#include "ArrayText.hpp"
#include "Parsers.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

using kestreldata::Array;
using Cells = kestreldata::TypedArray<Array>;

Cells cells(std::size_t rows, std::size_t columns) {
  return kestreldata::ArrayFactory().createCellArray({rows, columns});
}

struct ResizeCase {
  const char* label;
  Cells command;
  const char* longer;  // with the number 7 appended
  const char* shorter;
  friend std::ostream& operator<<(std::ostream& out, const ResizeCase& row) { return out << row.label; }
};

class TerminateChannel : public testing::TestWithParam<ResizeCase> {};

TEST_P(TerminateChannel, GrowsAndShrinksByRows) {
  CommandUtil commands(nullptr);
  const auto before = textOf(GetParam().command);
  EXPECT_EQ(textOf(commands.terminateChannelCmd(Cells(GetParam().command), 7)), GetParam().longer);
  EXPECT_EQ(textOf(commands.getInterprocessTerminateChannelCmd(GetParam().command)), GetParam().shorter);
  EXPECT_EQ(textOf(GetParam().command), before) << "the caller's array was changed";
}

INSTANTIATE_TEST_SUITE_P(
    Commands, TerminateChannel,
    testing::Values(ResizeCase{"column", column({text("term"), number(3)}),
                               R"(cell 3x1 {string 1x1 "term", uint64 1x1 3, uint64 1x1 7})",
                               R"(cell 1x1 {string 1x1 "term"})"},
                    ResizeCase{"row", row({text("term"), number(3), number(4)}),
                               R"(cell 2x3 {string 1x1 "term", uint64 1x1 7, )"
                               R"(double 0x0, double 0x0, double 0x0, double 0x0})",
                               "cell 0x3 {}"},
                    ResizeCase{"scalar", row({text("term")}), R"(cell 2x1 {string 1x1 "term", uint64 1x1 7})",
                               "cell 0x1 {}"},
                    ResizeCase{"noRows", cells(0, 1), "cell 1x1 {uint64 1x1 7}", "double 0x0"}));

TEST(TerminateChannelCmd, ShrinkingUndoesGrowingOfAColumn) {
  CommandUtil commands(nullptr);
  const Cells command = column({text("term"), number(3)});
  const Cells longer = commands.terminateChannelCmd(Cells(command), 4);
  EXPECT_EQ(textOf(commands.getInterprocessTerminateChannelCmd(longer)), textOf(command));
}

TEST(TerminateChannelCmd, WithoutColumnsHasNoPlaceForTheNumber) {
  CommandUtil commands(nullptr);
  EXPECT_THROW((void)commands.terminateChannelCmd(cells(0, 0), 7), kestreldata::InvalidArrayIndexException);
  EXPECT_THROW((void)commands.getInterprocessTerminateChannelCmd(cells(2, 0)),
               kestreldata::InvalidArrayIndexException);
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
