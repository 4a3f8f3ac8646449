#pragma once

#include <kestreldata/Array.hpp>
#include <kestreldata/ArrayFactory.hpp>
#include <kestreldata/TypedArray.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "remote_connectivity/asyncio/util/Export.hpp"

namespace kestreldata {
class SerializationContext;
}

namespace remote_connectivity::asyncio::util {

/// Turns data arrays into bytes and text and back.
///
/// Makes its factory and its serialisation context on first use, without a lock: call
/// getSerializationContext() once before sharing a helper between threads. After that every operation is safe
/// for several at once. Whatever the array library throws reaches the caller unchanged.
class REMOTE_CONNECTIVITY_EXPORT KDAHelper {
 public:
  /// The error text of kdaToString() for an array that is not text.
  inline static const std::string NotAStringError = "NotAString";

  KDAHelper();

  /// Shares the caller's factory; an empty pointer is as the default constructor.
  explicit KDAHelper(const std::shared_ptr<kestreldata::ArrayFactory>& factory);
  virtual ~KDAHelper();
  KDAHelper(const KDAHelper&) = delete;
  KDAHelper& operator=(const KDAHelper&) = delete;

  /// The factory; lives as long as the helper, or longer where the caller gave it.
  [[nodiscard]] kestreldata::ArrayFactory& getFactory();

  /// The serialisation context; lives as long as the helper.
  [[nodiscard]] kestreldata::SerializationContext& getSerializationContext();

  /// The text of a char array, or of the first element of a string array, and an empty error; for any other
  /// type an empty text and NotAStringError. Throws for text beyond 7 bits, an empty string array or a
  /// missing first string.
  [[nodiscard]] std::pair<std::string, std::string> kdaToString(const kestreldata::Array& array);

  /// The elements of an unsigned 8-bit array in column-major order; empty for any other type.
  [[nodiscard]] std::vector<std::uint8_t> kdaToByteArray(const kestreldata::Array& array);

  /// The protobuf encoding of the array, empty if encoding fails.
  [[nodiscard]] std::vector<std::uint8_t> kdaToProtobufBytes(const kestreldata::Array& array);

  /// The array that kdaToProtobufBytes() encoded. Throws the array library's error for anything else. Takes
  /// up at most twice the size of the bytes, and 1 GiB for cells and strings
  /// (SerializationContext::checkEncoding), whatever the bytes are.
  [[nodiscard]] kestreldata::Array kdaFromProtobuf(const std::uint8_t* data, std::size_t size);

  /// A 1-by-N unsigned 8-bit array of the bytes.
  [[nodiscard]] kestreldata::Array kdaFromByteArray(const std::vector<std::uint8_t>& bytes);

  /// Replaces a 1-by-N cell array by one with n more columns of default cells. Of a taller array only row 0
  /// is kept; its other rows become default cells.
  void extendArray(kestreldata::TypedArray<kestreldata::Array>& cell, std::size_t n);

 private:
  std::shared_ptr<kestreldata::ArrayFactory> _factory;
  std::unique_ptr<kestreldata::SerializationContext> _serializationContext;
};

}  // namespace remote_connectivity::asyncio::util
