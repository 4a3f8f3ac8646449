#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Codec.hpp"

using namespace kestreldata;

TEST(CopyOnWrite, WritingToACopyLeavesTheOriginalAlone) {
  const ArrayFactory factory;
  const auto original = factory.createArray<double>({1, 3}, {1, 2, 3});
  auto copy = original;
  EXPECT_EQ(copy.cbegin(), original.cbegin()) << "a copy shares its elements";

  copy[1] = 20.0;

  EXPECT_EQ(std::vector<double>(copy.begin(), copy.end()), (std::vector<double>{1, 20, 3}));
  EXPECT_EQ(std::vector<double>(original.begin(), original.end()), (std::vector<double>{1, 2, 3}));
}

TEST(CopyOnWrite, ReadingThroughAWritableArrayKeepsTheElementsShared) {
  const ArrayFactory factory;
  TypedArray<Array> cell = factory.createCellArray({1, 2}, factory.createScalar("a"), Array());
  const TypedArray<Array> copy = cell;

  const Array first = cell[0][0];
  EXPECT_EQ(first, Array(factory.createScalar("a")));

  EXPECT_EQ(cell.cbegin(), copy.cbegin());
}

TEST(CopyOnWrite, TheLastOwnerWritesInPlace) {
  auto array = ArrayFactory().createArray<std::int32_t>({1, 2}, {1, 2});
  const auto* const storage = array.cbegin();
  { const auto copy = array; }
  array[0] = 7;
  EXPECT_EQ(array.cbegin(), storage);
}

TEST(CopyOnWrite, AWriteToNestedElementsDoesNotReachACopyOfTheOuterArray) {
  const ArrayFactory factory;
  TypedArray<Array> cell = factory.createCellArray({1, 1}, factory.createScalar(1.0));
  const Array copy = cell;
  TypedArray<double> inner(cell[0]);
  inner[0] = 2.0;
  EXPECT_EQ(Array(cell), copy) << "the inner array was taken out as a value";
  cell[0] = inner;
  EXPECT_EQ(copy, Array(factory.createCellArray({1, 1}, factory.createScalar(1.0))));
}

TEST(CopyOnWrite, ThreadsWriteToTheirOwnCopies) {
  std::vector<double> values(1000);
  std::iota(values.begin(), values.end(), 0.0);
  const Codec codec;
  const auto original = codec.factory.createArray<double>({1, 1000}, values.begin(), values.end());

  std::vector<double> sums(4);
  std::vector<std::thread> threads;
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
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(sums, (std::vector<double>{499500, 500500, 501500, 502500}));
  EXPECT_TRUE(std::equal(values.begin(), values.end(), original.begin()));
}

TEST(CopyOnWrite, AnArrayMayBeWrittenToWhileItsMessageIsBeingSent) {
  const Codec codec;
  auto array = codec.factory.createArray<double>({1, 1}, {1.0});
  const auto message = codec.context.convertToProtobuf(array);
  array[0] = 2.0;
  std::vector<std::uint8_t> bytes(message->ByteSizeLong());
  ASSERT_TRUE(message->SerializeToArray(bytes.data(), static_cast<int>(bytes.size())));
  EXPECT_EQ(codec.decode(bytes), Array(codec.factory.createScalar(1.0)));
}

TEST(MovedFromArray, HasNoElements) {
  auto array = ArrayFactory().createArray<std::int8_t>({1, 2}, {1, 2});
  const Array taken = std::move(array);
  EXPECT_EQ(taken.getNumberOfElements(), 2U);
  EXPECT_EQ(Array(array), Array());  // NOLINT(bugprone-use-after-move): the state is part of the contract
  EXPECT_EQ(array.begin(), array.end());
  EXPECT_THROW(static_cast<void>(array[0]), InvalidArrayIndexException);
}

TEST(TypedArrayOfAnotherType, ShowsNoElementsAfterAssignmentThroughItsBase) {
  const ArrayFactory factory;
  auto array = factory.createArray<double>({1, 2}, {1, 2});
  static_cast<Array&>(array) = factory.createScalar("text");
  EXPECT_EQ(array.begin(), array.end());
  EXPECT_THROW(static_cast<void>(double(array[0])), InvalidArrayIndexException);
}
