#include <bit>
#include <cmath>
#include <complex>
#include <limits>

#include "Codec.hpp"

using namespace kestreldata;

namespace {

template <typename T>
std::vector<T> samples() {
  const ArrayFactory f;
  if constexpr (std::is_same_v<T, bool>)
    return {true, false, true, true, false, false};
  else if constexpr (std::is_same_v<T, optional<String>>)
    return {u"",         std::nullopt, u"short", u"longer than any short-string buffer", u"\u00e9\u4e2d",
            std::nullopt};
  else if constexpr (std::is_same_v<T, Array>)
    return {Array(),
            f.createCellArray({2, 1}, f.createScalar(1.5), Array()),
            f.createCharArray(u"\u4e2d"),
            f.createScalar("text"),
            f.createScalar(true),
            f.createCellArray({1, 1}, f.createCellArray({1, 2}))};
  else if constexpr (std::is_arithmetic_v<T>)
    return {T{0}, T{1}, std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max(), T{5}, T{100}};
  else {
    std::vector<T> complex;
    for (const auto real : samples<typename T::value_type>()) complex.emplace_back(real, real / 2);
    return complex;
  }
}

template <typename T>
struct RoundTrip : testing::Test {
  TypedArray<T> sent(const Array& array) const { return codec.decode(codec.encode(array)); }
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
  const auto elements = samples<TypeParam>();
  const TypedArray<TypeParam> received = this->sent(
      this->codec.factory.template createArray<TypeParam>({3, 1, 2}, elements.begin(), elements.end()));
  EXPECT_EQ(received.getDimensions(), (ArrayDimensions{3, 1, 2}));
  EXPECT_EQ(std::vector<TypeParam>(received.begin(), received.end()), elements);
}

TYPED_TEST(RoundTrip, KeepsTheShapeOfArraysWithoutElements) {
  const std::size_t huge = std::numeric_limits<std::size_t>::max();
  for (const ArrayDimensions& shape : {ArrayDimensions{0, 0}, {1, 0}, {0, 5}, {2, 0, 3}, {huge, huge, 0}}) {
    const auto received = this->sent(this->codec.factory.template createArray<TypeParam>(shape));
    EXPECT_EQ(received.getDimensions(), shape);
    EXPECT_EQ(received.begin(), received.end());
  }
}

TEST(RoundTripOfReals, KeepsEveryBit) {
  const Codec codec;
  const std::vector<double> reals{std::nan("42"), -0.0, HUGE_VAL};
  const auto sent = codec.factory.createArray<double>({1, 3}, reals.begin(), reals.end());
  const TypedArray<double> received(codec.decode(codec.encode(sent)));
  for (std::size_t i = 0; i < reals.size(); ++i)
    EXPECT_EQ(std::bit_cast<std::uint64_t>(double(received[i])), std::bit_cast<std::uint64_t>(reals[i]));
  EXPECT_EQ(Array(received), Array(sent)) << "a NaN equals itself";
}

TEST(Equality, TellsTypeShapeAndContentApart) {
  const ArrayFactory f;
  const Array row = f.createArray<double>({1, 2}, {0.0, 2.0});
  EXPECT_EQ(row, Array(f.createArray<double>({1, 2}, {-0.0, 2.0})));
  EXPECT_EQ(Array(), Array(f.createArray<double>({0, 0})));
  EXPECT_NE(row, Array(f.createArray<double>({2, 1}, {0.0, 2.0})));
  EXPECT_NE(row, Array(f.createArray<float>({1, 2}, {0.0F, 2.0F})));
  EXPECT_NE(row, Array(f.createArray<double>({1, 2}, {0.0, 3.0})));
  EXPECT_NE(row, Array(f.createArray<double>({1, 2, 1}, {0.0, 2.0})));
  EXPECT_NE(Array(f.createCellArray({1, 1}, row)), Array(f.createCellArray({1, 1}, Array())));
}
