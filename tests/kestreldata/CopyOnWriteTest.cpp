#include <algorithm>
#include <numeric>
#include <thread>

#include "Codec.hpp"

using namespace kestreldata;

static const ArrayFactory factory;

TEST(CopyOnWrite, WritingToACopyLeavesTheOriginalAlone) {
  const auto original = factory.createArray<double>({1, 3}, {1, 2, 3});
  auto copy = original;
  EXPECT_EQ(copy.cbegin(), original.cbegin()) << "a copy shares its elements";
  copy[1] = 20.0;
  EXPECT_EQ(Array(copy), Array(factory.createArray<double>({1, 3}, {1, 20, 3})));
  EXPECT_EQ(Array(original), Array(factory.createArray<double>({1, 3}, {1, 2, 3})));
}

TEST(CopyOnWrite, CopiesNothingToReadNorForTheLastOwner) {
  TypedArray<Array> cell = factory.createCellArray({1, 2}, factory.createScalar("a"), Array());
  const auto* const storage = cell.cbegin();
  {
    const TypedArray<Array> copy = cell;
    EXPECT_EQ(Array(cell[0][0]), Array(factory.createScalar("a")));
    EXPECT_EQ(cell.cbegin(), copy.cbegin());
  }
  cell[0] = Array();
  EXPECT_EQ(cell.cbegin(), storage);
}

TEST(CopyOnWrite, ThreadsWriteToTheirOwnCopies) {
  std::vector<double> values(1000);
  std::iota(values.begin(), values.end(), 0.0);
  const Codec codec;
  const auto original = factory.createArray<double>({1, 1000}, values.begin(), values.end());
  std::vector<double> sums(4);
  std::vector<std::jthread> threads;
  for (std::size_t t = 0; t < sums.size(); ++t)
    threads.emplace_back([&sums, &codec, t, copy = original]() mutable {
      for (int round = 0; round < 200; ++round) {
        auto mine = copy;
        for (double& value : mine) value += static_cast<double>(t);
        const TypedArray<double> decoded(codec.decode(codec.encode(mine)));
        sums[t] = std::accumulate(decoded.begin(), decoded.end(), 0.0);
        if (round == 100) copy[0] = 0.0;
      }
    });
  threads.clear();
  EXPECT_EQ(sums, (std::vector<double>{499500, 500500, 501500, 502500}));
  EXPECT_TRUE(std::equal(values.begin(), values.end(), original.begin()));
}

TEST(CopyOnWrite, AnArrayMayBeWrittenToWhileItsMessageIsBeingSent) {
  const Codec codec;
  auto array = factory.createScalar(1.0);
  const auto message = codec.context.convertToProtobuf(array);
  array[0] = 2.0;
  EXPECT_EQ(codec.decode(Codec::bytesOf(*message)), Array(factory.createScalar(1.0)));
}

TEST(TypedArray, HasNoElementsOnceMovedFromOrOfAnotherType) {
  auto moved = factory.createArray<double>({1, 2}, {1, 2});
  auto assigned = moved;
  EXPECT_EQ(Array(std::move(moved)).getNumberOfElements(), 2U);
  EXPECT_EQ(Array(moved), Array());  // NOLINT(bugprone-use-after-move): the state is part of the contract
  static_cast<Array&>(assigned) = factory.createScalar("text");
  for (auto* array : {&moved, &assigned}) {
    EXPECT_EQ(array->begin(), array->end());
    EXPECT_THROW((void)double((*array)[0]), InvalidArrayIndexException);
  }
}
