#include "kestreldata/Exceptions.hpp"

#include <cstddef>
#include <string>

namespace kestreldata {

namespace {

std::string named(ArrayType type) {
  return std::string(toString(type)) + " (" + std::to_string(static_cast<int>(type)) + ")";
}

}  // namespace

// The destructors are here so that each class has one type information, in this library, and can be caught
// across all the objects of a process.
Exception::~Exception() = default;
InvalidArrayTypeException::~InvalidArrayTypeException() = default;
InvalidArrayIndexException::~InvalidArrayIndexException() = default;
InvalidDimensionsException::~InvalidDimensionsException() = default;
InvalidElementCountException::~InvalidElementCountException() = default;
NonAsciiCharInInputDataException::~NonAsciiCharInInputDataException() = default;
MissingStringException::~MissingStringException() = default;
SerializationException::~SerializationException() = default;

InvalidArrayTypeException::InvalidArrayTypeException(ArrayType expected, ArrayType actual)
    : Exception("Expected an array of type " + named(expected) + ", got one of type " + named(actual)) {}

InvalidArrayIndexException::InvalidArrayIndexException(std::size_t index, std::size_t limit)
    : Exception("Expected an index below " + std::to_string(limit) + ", got " + std::to_string(index)) {}

NonAsciiCharInInputDataException::NonAsciiCharInInputDataException()
    : Exception("Input data can only contain ASCII characters.") {}

MissingStringException::MissingStringException()
    : Exception("Expected a string element with a value, got a missing string") {}

}  // namespace kestreldata
