#include <functional>
#include <limits>
#include <random>

#include "Codec.hpp"

using namespace kestreldata;

namespace {

const Codec codec;

std::unique_ptr<KESTREL_Array> parsed(const Array& array) {
  auto message = codec.context.createKESTREL_Array();
  const auto bytes = codec.encode(array);
  EXPECT_TRUE(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
  return message;
}

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
  const Array cell = f.createCellArray({1, 2}, numbers, strings);
  constexpr std::uint64_t huge = std::numeric_limits<std::uint64_t>::max();
  return {
      {"NoType", numbers, [](auto& m) { m.set_type(0); }},
      {"UnknownType", numbers, [](auto& m) { m.set_type(25); }},
      {"TypeOfManyBits", numbers, [](auto& m) { m.set_type(0x80000004U); }},
      {"FewerBytesThanElements", numbers, [](auto& m) { m.set_columns(4); }},
      {"MoreBytesThanElements", numbers, [](auto& m) { m.set_columns(2); }},
      {"PartOfAnElement", numbers, [](auto& m) { m.mutable_payload()->pop_back(); }},
      {"OverflowToTheSameProduct", numbers, [](auto& m) { m.add_higher_dimensions(huge / 2 + 2); }},
      {"ByteCountOverflow", numbers, [](auto& m) { m.set_rows(huge / 24 + 1); }},
      {"PayloadWithoutElements", numbers, [](auto& m) { m.set_rows(0); }},
      {"CellsInNumbers", numbers, [](auto& m) { m.add_cells()->set_type(4); }, true},
      {"StringLengthsInNumbers", numbers, [](auto& m) { m.add_string_lengths(1); }, true},
      {"LogicalOtherThanZeroAndOne", f.createScalar(true), [](auto& m) { m.set_payload("\x02"); }},
      {"TooFewLengths", strings, [](auto& m) { m.mutable_string_lengths()->RemoveLast(); }, true},
      {"TooManyLengths", strings, [](auto& m) { m.add_string_lengths(0); }, true},
      {"LengthPastTheText", strings, [](auto& m) { m.set_string_lengths(0, 5); }},
      {"HugeLength", strings, [](auto& m) { m.set_string_lengths(1, huge); }},
      {"LengthsBeforeTheEndOfTheText", strings, [](auto& m) { m.set_string_lengths(0, 3); }},
      {"HalfACodeUnit", strings, [](auto& m) { m.mutable_payload()->push_back('x'); }},
      {"ManyStringsClaimed", strings, [](auto& m) { m.set_columns(std::uint64_t{1} << 40); }, true},
      {"CellsInStrings", strings, [](auto& m) { m.add_cells()->set_type(4); }, true},
      {"PayloadInACell", cell, [](auto& m) { m.set_payload("x"); }},
      {"LengthsInACell", cell, [](auto& m) { m.add_string_lengths(0); }, true},
      {"MissingCell", cell, [](auto& m) { m.mutable_cells()->RemoveLast(); }, true},
      {"ManyCellsClaimed", cell, [](auto& m) { m.set_rows(std::uint64_t{1} << 40); }, true},
      {"FaultInsideACell", cell, [](auto& m) { m.mutable_cells(0)->set_rows(7); }},
      {"EndMarkInsideACell", cell, [](auto& m) { m.mutable_cells(0)->set_end_mark(m.end_mark()); }},
      {"WrongEndMark", numbers, [](auto& m) { m.set_end_mark(m.end_mark() ^ 1U); }},
      {"NoEndMark", numbers, [](auto& m) { m.clear_end_mark(); }},
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
    auto message = parsed(array);
    EXPECT_EQ(codec.context.convertFromProtobuf(parsed(array)), array) << name;
    corrupt(*message);
    const auto bytes = Codec::enlarged(Codec::bytesOf(*message));
    EXPECT_THROW((void)codec.context.convertFromProtobuf(std::move(message)), SerializationException) << name;
    const auto scan = [&] { codec.context.checkEncoding(bytes.data(), bytes.size()); };
    if (showsInCounts)
      EXPECT_THROW(scan(), SerializationException) << name;
    else
      EXPECT_NO_THROW(scan()) << name;
  }
}

TEST(RandomlyChangedBytes, YieldAnArrayOrASerializationException) {
  const auto& f = codec.factory;
  const auto sound = codec.encode(
      f.createCellArray({2, 2}, f.createScalar("text"), f.createCharArray("chars"),
                        f.createArray<double>({2, 1, 2}), f.createCellArray({1, 1}, f.createScalar(true))));
  std::mt19937 random(20240229);
  int refused = 0;
  for (int round = 0; round < 20'000; ++round) {
    auto bytes = sound;
    for (unsigned changes = 1 + random() % 3; changes > 0; --changes)
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    try {
      const Array array = codec.decode(bytes);
      EXPECT_EQ(codec.decode(codec.encode(array)), array);
      EXPECT_EQ(codec.decode(Codec::enlarged(bytes)), array) << "the walk refuses what the parser takes";
    } catch (const SerializationException&) {
      ++refused;
    }
  }
  EXPECT_GT(refused, 1'000);
}
