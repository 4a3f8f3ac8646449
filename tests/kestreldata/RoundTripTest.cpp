#include <cmath>
#include <complex>
#include <cstring>
#include <limits>

#include "Codec.hpp"

using namespace kestreldata;

static const Codec codec;
static const auto& factory = codec.factory;

static Array sent(const Array& array) {
  return codec.decode(codec.encode(array));
}

template <typename T>
static std::vector<T> samples() {
  if constexpr (std::is_same_v<T, bool>)
    return {true, false, true};
  else if constexpr (std::is_same_v<T, optional<String>>)
    return {u"", std::nullopt, u"\u00e9\u4e2d, longer than any short-string buffer"};
  else if constexpr (std::is_same_v<T, Array>)
    return {Array(), factory.createScalar("text"),
            factory.createCellArray({1, 1}, factory.createScalar(true))};
  else if constexpr (std::is_arithmetic_v<T>)
    return {T{1}, std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max()};
  else {
    std::vector<T> complex;
    for (const auto real : samples<typename T::value_type>()) complex.emplace_back(real, real / 2);
    return complex;
  }
}

template <typename T>
struct RoundTrip : testing::Test {};

using ElementTypes =
    testing::Types<bool, char16_t, optional<String>, double, float, std::int8_t, std::uint8_t, std::int16_t,
                   std::uint16_t, std::int32_t, std::uint32_t, std::int64_t, std::uint64_t,
                   std::complex<double>, std::complex<float>, std::complex<std::int8_t>,
                   std::complex<std::uint8_t>, std::complex<std::int16_t>, std::complex<std::uint16_t>,
                   std::complex<std::int32_t>, std::complex<std::uint32_t>, std::complex<std::int64_t>,
                   std::complex<std::uint64_t>, Array>;
TYPED_TEST_SUITE(RoundTrip, ElementTypes);

TYPED_TEST(RoundTrip, KeepsTypeShapeAndElements) {
  const auto elements = samples<TypeParam>();
  const auto full = factory.createArray<TypeParam>({1, 1, 3}, elements.begin(), elements.end());
  EXPECT_EQ(sent(full).getDimensions(), (ArrayDimensions{1, 1, 3}));
  const TypedArray<TypeParam> received(sent(full));
  EXPECT_EQ(std::vector<TypeParam>(received.begin(), received.end()), elements);
  for (const ArrayDimensions& shape :
       {ArrayDimensions{0, 0}, {1, 0}, {0, 5}, {2, 0, 3}, {2, ~std::size_t{0}, 0}}) {
    const TypedArray<TypeParam> empty(sent(factory.createArray<TypeParam>(shape)));
    EXPECT_EQ(empty.getDimensions(), shape);
    EXPECT_EQ(empty.begin(), empty.end());
  }
}

TEST(RoundTripOfReals, KeepsEveryBit) {
  const Array reals = factory.createArray<double>({1, 3}, {std::nan("42"), -0.0, HUGE_VAL});
  const TypedArray<double> before(reals), after(sent(reals));
  EXPECT_EQ(std::memcmp(before.begin(), after.begin(), 3 * sizeof(double)), 0);
  EXPECT_EQ(Array(after), reals) << "a NaN equals itself";
}

TEST(Equality, TellsTypeShapeAndContentApart) {
  const Array row = factory.createArray<double>({1, 2}, {0.0, 2.0});
  EXPECT_EQ(row, Array(factory.createArray<double>({1, 2}, {-0.0, 2.0})));
  EXPECT_NE(row, Array(factory.createArray<double>({2, 1}, {0.0, 2.0})));
  EXPECT_NE(row, Array(factory.createArray<float>({1, 2}, {0.0F, 2.0F})));
  EXPECT_NE(row, Array(factory.createArray<double>({1, 2}, {0.0, 3.0})));
  EXPECT_NE(Array(factory.createCellArray({1, 1}, row)), Array(factory.createCellArray({1, 1}, Array())));
}
