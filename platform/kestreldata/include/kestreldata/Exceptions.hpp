#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

#include "kestreldata/ArrayType.hpp"
#include "kestreldata/Export.hpp"

namespace kestreldata {

/// Base of everything the data-array library throws, memory exhaustion (std::bad_alloc) apart.
class KESTRELDATA_EXPORT Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~Exception() override;
};

/// An array was taken for one of another element type, or a type number is unknown.
class KESTRELDATA_EXPORT InvalidArrayTypeException : public Exception {
 public:
  using Exception::Exception;
  InvalidArrayTypeException(ArrayType expected, ArrayType actual);
  ~InvalidArrayTypeException() override;
};

/// An element index lies outside the array, or there are more indices than dimensions.
class KESTRELDATA_EXPORT InvalidArrayIndexException : public Exception {
 public:
  using Exception::Exception;
  InvalidArrayIndexException(std::size_t index, std::size_t limit);
  ~InvalidArrayIndexException() override;
};

/// Fewer than two dimensions, or so large that the elements cannot be addressed.
class KESTRELDATA_EXPORT InvalidDimensionsException : public Exception {
 public:
  using Exception::Exception;
  ~InvalidDimensionsException() override;
};

/// The elements or bytes given do not fill the dimensions exactly.
class KESTRELDATA_EXPORT InvalidElementCountException : public Exception {
 public:
  using Exception::Exception;
  ~InvalidElementCountException() override;
};

/// Text that must be 7-bit holds another character.
class KESTRELDATA_EXPORT NonAsciiCharInInputDataException : public Exception {
 public:
  NonAsciiCharInInputDataException();
  ~NonAsciiCharInInputDataException() override;
};

/// The text of a missing string element was asked for.
class KESTRELDATA_EXPORT MissingStringException : public Exception {
 public:
  MissingStringException();
  ~MissingStringException() override;
};

/// An array cannot be encoded, or an encoded message is torn, contradicts itself or is past a limit.
class KESTRELDATA_EXPORT SerializationException : public Exception {
 public:
  using Exception::Exception;
  ~SerializationException() override;
};

}  // namespace kestreldata
