#include "kestreldata/ArrayType.hpp"

#include <array>
#include <cstddef>
#include <string_view>

namespace kestreldata {

namespace {

struct TypeFacts {
  std::string_view name;
  std::size_t elementSize;
};

constexpr TypeFacts unknownType{"unknown", 0};

// In the order of the type numbers, from 1 on.
constexpr std::array<TypeFacts, 24> types{{
    {"LOGICAL", 1},         {"CHAR", 2},
    {"STRING", 0},          {"DOUBLE", 8},
    {"SINGLE", 4},          {"INT8", 1},
    {"UINT8", 1},           {"INT16", 2},
    {"UINT16", 2},          {"INT32", 4},
    {"UINT32", 4},          {"INT64", 8},
    {"UINT64", 8},          {"COMPLEX_DOUBLE", 16},
    {"COMPLEX_SINGLE", 8},  {"COMPLEX_INT8", 2},
    {"COMPLEX_UINT8", 2},   {"COMPLEX_INT16", 4},
    {"COMPLEX_UINT16", 4},  {"COMPLEX_INT32", 8},
    {"COMPLEX_UINT32", 8},  {"COMPLEX_INT64", 16},
    {"COMPLEX_UINT64", 16}, {"CELL", 0},
}};

const TypeFacts& factsOf(ArrayType type) noexcept {
  const auto number = static_cast<int>(type);
  if (number < 1 || number > static_cast<int>(types.size())) return unknownType;
  return types[static_cast<std::size_t>(number) - 1];
}

}  // namespace

std::string_view toString(ArrayType type) noexcept {
  return factsOf(type).name;
}

std::size_t fixedElementSize(ArrayType type) noexcept {
  return factsOf(type).elementSize;
}

}  // namespace kestreldata
