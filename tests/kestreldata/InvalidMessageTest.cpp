#include <functional>
#include <limits>

#include "Codec.hpp"

using namespace kestreldata;

namespace {

const Codec codec;

struct Fault {
  const char* name;
  Array array;
  std::function<void(KESTREL_Array&)> corrupt;
  bool showsInCounts = false;  // before anything is built
};

std::vector<Fault> faults() {
  const auto& f = codec.factory;
  const Array numbers = f.createArray<double>({2, 3});
  const Array strings = f.createArray<optional<String>>({1, 2}, {u"abc", std::nullopt});
  const Array longStrings = f.createArray<optional<String>>({1, 2}, {String(200, u'x'), u"abc"});
  const Array cell = f.createCellArray({1, 2}, numbers, strings);
  constexpr std::uint64_t huge = std::numeric_limits<std::uint64_t>::max();
  return {
      {"UnknownType", numbers, [](auto& m) { m.set_type(25); }},
      {"TypeOfManyBits", numbers, [](auto& m) { m.set_type(0x80000004U); }},
      {"MoreBytesThanElements", numbers, [](auto& m) { m.set_columns(2); }},
      {"PartOfAnElement", numbers, [](auto& m) { m.mutable_payload()->pop_back(); }},
      {"OverflowToTheSameProduct", numbers, [](auto& m) { m.add_higher_dimensions(huge / 2 + 2); }},
      {"CellsInNumbers", numbers, [](auto& m) { m.add_cells()->set_type(4); }, true},
      {"StringLengthsInNumbers", numbers, [](auto& m) { m.add_string_lengths(1); }, true},
      {"LogicalOtherThanZeroAndOne", f.createScalar(true), [](auto& m) { m.set_payload("\x02"); }},
      {"HugeLength", strings, [](auto& m) { m.set_string_lengths(1, huge); }},
      {"LengthsBeforeTheEndOfTheText", strings, [](auto& m) { m.set_string_lengths(0, 3); }},
      {"TooFewLongLengths", longStrings, [](auto& m) { m.mutable_string_lengths()->RemoveLast(); }, true},
      {"PayloadInACell", cell, [](auto& m) { m.set_payload("x"); }},
      {"ManyCellsClaimed", cell, [](auto& m) { m.set_rows(std::uint64_t{1} << 40); }, true},
      {"FaultInsideACell", cell, [](auto& m) { m.mutable_cells(0)->set_rows(7); }},
      {"EndMarkInsideACell", cell, [](auto& m) { m.mutable_cells(0)->set_end_mark(m.end_mark()); }},
      {"WrongEndMark", numbers, [](auto& m) { m.set_end_mark(m.end_mark() ^ 1U); }},
      {"NestedPastTheLimit", codec.nested(maxNestingDepth),
       [](auto& m) {
         KESTREL_Array inner(m);
         inner.clear_end_mark();
         *m.mutable_cells(0) = inner;
       },
       true},
  };
}

}  // namespace

TEST(InvalidMessage, IsRefusedWhereItsSoundFormIsTaken) {
  for (const auto& [name, array, corrupt, showsInCounts] : faults()) {
    auto message = codec.parsed(codec.encode(array));
    EXPECT_EQ(codec.decode(Codec::enlarged(codec.encode(array))), array) << name;
    corrupt(*message);
    const auto bytes = Codec::enlarged(Codec::bytesOf(*message));
    EXPECT_THROW((void)codec.context.convertFromProtobuf(std::move(message)), SerializationException) << name;
    if (showsInCounts) {
      EXPECT_THROW(codec.context.checkEncoding(bytes.data(), bytes.size()), SerializationException) << name;
    }
  }
}
