#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Codec.hpp"

using namespace kestreldata;

namespace {

template <typename T>
struct Samples {
  static std::vector<T> get() {
    return {T{0}, T{1}, std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max(), T{5}, T{100}};
  }
};
template <>
struct Samples<bool> {
  static std::vector<bool> get() { return {true, false, true, true, false, false}; }
};
template <typename T>
struct Samples<std::complex<T>> {
  static std::vector<std::complex<T>> get() {
    const auto parts = Samples<T>::get();
    std::vector<std::complex<T>> samples;
    for (std::size_t i = 0; i < parts.size(); ++i)
      samples.emplace_back(parts[i], parts[parts.size() - 1 - i]);
    return samples;
  }
};
template <>
struct Samples<optional<String>> {
  static std::vector<optional<String>> get() {
    return {u"",         std::nullopt, u"short", u"longer than any short-string buffer", u"\u00e9\u4e2d",
            std::nullopt};
  }
};
template <>
struct Samples<Array> {
  static std::vector<Array> get() {
    const ArrayFactory factory;
    const TypedArray<Array> inner = factory.createCellArray({2, 1}, factory.createScalar(1.5), Array());
    return {Array(),
            inner,
            factory.createCharArray(u"\u4e2d"),
            factory.createScalar("text"),
            factory.createScalar(true),
            factory.createCellArray({1, 2}, inner, inner)};
  }
};

template <typename T>
class RoundTrip : public testing::Test {
 protected:
  Codec codec;
};

using ElementTypes =
    testing::Types<bool, char16_t, optional<String>, double, float, std::int8_t, std::uint8_t, std::int16_t,
                   std::uint16_t, std::int32_t, std::uint32_t, std::int64_t, std::uint64_t,
                   std::complex<double>, std::complex<float>, std::complex<std::int8_t>,
                   std::complex<std::uint8_t>, std::complex<std::int16_t>, std::complex<std::uint16_t>,
                   std::complex<std::int32_t>, std::complex<std::uint32_t>, std::complex<std::int64_t>,
                   std::complex<std::uint64_t>, Array>;
TYPED_TEST_SUITE(RoundTrip, ElementTypes);

}  // namespace

TYPED_TEST(RoundTrip, KeepsTypeDimensionsAndElements) {
  const auto samples = Samples<TypeParam>::get();
  const auto sent =
      this->codec.factory.template createArray<TypeParam>({3, 1, 2}, samples.begin(), samples.end());

  const TypedArray<TypeParam> received(this->codec.decode(this->codec.encode(sent)));

  EXPECT_EQ(received.getDimensions(), (ArrayDimensions{3, 1, 2}));
  EXPECT_EQ(std::vector<TypeParam>(received.begin(), received.end()), samples);
}

TYPED_TEST(RoundTrip, KeepsTheShapeOfArraysWithoutElements) {
  const std::size_t huge = std::numeric_limits<std::size_t>::max();
  for (const ArrayDimensions& shape : {ArrayDimensions{0, 0}, {1, 0}, {0, 5}, {2, 0, 3}, {huge, huge, 0}}) {
    const Array sent = this->codec.factory.template createArray<TypeParam>(shape);
    const TypedArray<TypeParam> received(this->codec.decode(this->codec.encode(sent)));
    EXPECT_EQ(received.getDimensions(), shape);
    EXPECT_TRUE(received.isEmpty());
    EXPECT_EQ(received.begin(), received.end());
  }
}

TYPED_TEST(RoundTrip, KeepsTheDefaultElements) {
  const Array sent = this->codec.factory.template createArray<TypeParam>({2, 2});
  const TypedArray<TypeParam> received(this->codec.decode(this->codec.encode(sent)));
  const TypeParam expected = [] {
    if constexpr (std::is_same_v<TypeParam, optional<String>>)
      return String();
    else
      return TypeParam{};
  }();
  EXPECT_EQ(std::vector<TypeParam>(received.begin(), received.end()), std::vector<TypeParam>(4, expected));
}

TEST(RoundTripOfReals, KeepsEveryBit) {
  const Codec codec;
  const double nan = std::nan("42");
  const auto sent = codec.factory.createArray<double>({1, 3}, {nan, -0.0, HUGE_VAL});
  const TypedArray<double> received(codec.decode(codec.encode(sent)));
  EXPECT_EQ(std::vector<std::uint64_t>({std::bit_cast<std::uint64_t>(nan), std::uint64_t{1} << 63}),
            std::vector<std::uint64_t>({std::bit_cast<std::uint64_t>(*received.begin()),
                                        std::bit_cast<std::uint64_t>(*(received.begin() + 1))}));
  EXPECT_EQ(Array(received), Array(sent)) << "a NaN equals itself";
}

TEST(Equality, TellsTypeShapeAndContentApart) {
  const ArrayFactory factory;
  const Array row = factory.createArray<double>({1, 2}, {0.0, 2.0});
  EXPECT_EQ(row, Array(factory.createArray<double>({1, 2}, {-0.0, 2.0})));
  EXPECT_EQ(Array(), factory.createEmptyArray());
  EXPECT_EQ(Array(), Array(factory.createArray<double>({0, 0})));
  for (const Array& other : std::vector<Array>{factory.createArray<double>({2, 1}, {0.0, 2.0}),
                                               factory.createArray<float>({1, 2}, {0.0F, 2.0F}),
                                               factory.createArray<double>({1, 2}, {0.0, 3.0}),
                                               factory.createArray<double>({1, 2, 1}, {0.0, 2.0})})
    EXPECT_NE(row, other);
  EXPECT_NE(Array(factory.createCellArray({1, 1}, row)), Array(factory.createCellArray({1, 1}, Array())));
}
