#include <numeric>
#include <thread>

#include "Codec.hpp"

using namespace kestreldata;

static const ArrayFactory factory;

/// A 2x3x4 array whose elements are their own column-major positions.
static TypedArray<std::int32_t> numbered() {
  std::vector<std::int32_t> positions(24);
  std::iota(positions.begin(), positions.end(), 0);
  return factory.createArray<std::int32_t>({2, 3, 4}, positions.begin(), positions.end());
}

TEST(ElementReference, CountsColumnMajorWithTheLastIndexRunningOverTheRestToReadAndToWrite) {
  auto array = numbered();
  EXPECT_EQ(array[1][2], 5);
  EXPECT_EQ(array[1][11], 23);
  array[1][2][3] = array[0][1][2];
  EXPECT_EQ(array[23], 14);
}

TEST(ElementReference, RefusesIndicesOutsideTheirDimension) {
  const auto array = numbered();
  EXPECT_THROW((void)array[24], InvalidArrayIndexException);
  EXPECT_THROW((void)array[2][0], InvalidArrayIndexException);
  EXPECT_THROW((void)array[0][12], InvalidArrayIndexException);
  EXPECT_THROW((void)array[0][3][0], InvalidArrayIndexException);
  EXPECT_THROW((void)array[0][0][4], InvalidArrayIndexException);
  EXPECT_THROW((void)array[0][0][0][0], InvalidArrayIndexException);
  const auto empty = factory.createArray<std::int32_t>({1, 0});
  EXPECT_THROW((void)empty[0][0], InvalidArrayIndexException);
}

TEST(CopyOnWrite, WritingToACopyLeavesTheOriginalAlone) {
  const auto original = factory.createArray<double>({1, 3}, {1, 2, 3});
  auto copy = original;
  EXPECT_EQ(copy[0], 1.0);
  EXPECT_EQ(copy.cbegin(), original.cbegin()) << "a copy shares its elements until it is written to";
  copy[1] = 20.0;
  const double* const storage = copy.cbegin();
  copy[1] = 20.0;
  EXPECT_EQ(copy.cbegin(), storage) << "the last owner copies nothing";
  EXPECT_EQ(Array(copy), Array(factory.createArray<double>({1, 3}, {1, 20, 3})));
  EXPECT_EQ(Array(original), Array(factory.createArray<double>({1, 3}, {1, 2, 3})));
}

TEST(CopyOnWrite, ThreadsWriteToTheirOwnCopies) {
  const auto original = factory.createArray<double>({1, 2}, {1, 2});
  std::vector<std::jthread> threads;
  for (int t = 1; t <= 4; ++t)
    threads.emplace_back([t, copy = original] {
      for (int round = 0; round < 200; ++round) {
        auto mine = copy;
        for (double& value : mine) value *= t;
        EXPECT_EQ(mine, Array(factory.createArray<double>({1, 2}, {1.0 * t, 2.0 * t})));
      }
    });
  threads.clear();
  EXPECT_EQ(original, Array(factory.createArray<double>({1, 2}, {1, 2})));
}

TEST(CopyOnWrite, AnArrayMayBeWrittenToWhileItsMessageIsBeingSent) {
  const Codec codec;
  auto array = factory.createScalar(1.0);
  const auto message = codec.context.convertToProtobuf(array);
  array[0] = 2.0;
  EXPECT_EQ(codec.decode(Codec::bytesOf(*message)), Array(factory.createScalar(1.0)));
}

TEST(TypedArray, HasNoElementsOnceMovedFromOrOfAnotherType) {
  auto moved = factory.createScalar(1.0);
  auto assigned = moved;
  const auto reference = assigned[0];
  EXPECT_EQ(Array(std::move(moved)).getNumberOfElements(), 1U);
  static_cast<Array&>(assigned) = factory.createScalar("text");
  EXPECT_THROW((void)double(reference), InvalidArrayIndexException);
  for (auto* array : {&moved, &assigned}) {  // NOLINT(bugprone-use-after-move): part of the contract
    EXPECT_EQ(array->begin(), array->end());
    EXPECT_THROW((void)double((*array)[0]), InvalidArrayIndexException);
  }
}
