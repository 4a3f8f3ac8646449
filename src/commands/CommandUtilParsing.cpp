#include "commands/CommandUtilParsing.hpp"

#include <kestreldata/TypedArray.hpp>

#include <exception>

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;
using kestreldata::TypedArray;

Array elementOf(const Array& cell, std::size_t index) {
  const TypedArray<Array> cells(cell);
  return cells[index].value();
}

std::uint64_t uint64FromArray(const Array& array) {
  const TypedArray<std::uint64_t> numbers(array);
  return numbers[0];
}

RemoteAsyncIOError readNumber(const Array& cell, std::size_t index, std::uint64_t& number) {
  try {
    number = uint64FromArray(elementOf(cell, index));
    return RemoteAsyncIOError::NoError;
  } catch (const std::exception&) {
    return RemoteAsyncIOError::InvalidElementType;
  }
}

RemoteAsyncIOError readNumberCommand(CommandUtil& commands, const Array& command,
                                     std::string_view expectedName, std::span<std::uint64_t> numbers) {
  if (!commands.ensureType(command)) return RemoteAsyncIOError::NotACellArray;
  if (command.getNumberOfElements() < 1 + numbers.size()) return RemoteAsyncIOError::TooFewElements;
  const auto [name, nameError] = commands.getCommand(command);
  if (nameError != RemoteAsyncIOError::NoError) return nameError;
  if (name != expectedName) return RemoteAsyncIOError::UnexpectedCommand;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const auto error = readNumber(command, 1 + i, numbers[i]);
    if (error != RemoteAsyncIOError::NoError) return error;
  }
  return RemoteAsyncIOError::NoError;
}

std::optional<RemoteAsyncIOError> outcomeWithoutPayload(CommandUtil& commands, const Array& response,
                                                        CodeSource source, ResponseRule rule) {
  if (!commands.isValidResponse(response)) return RemoteAsyncIOError::InvalidResponse;
  const auto error = source == CodeSource::responseError ? commands.getResponseError(response)
                                                         : commands.getError(elementOf(response, 0));
  if (error != RemoteAsyncIOError::NoError) return error;
  if (response.getNumberOfElements() < rule.elements) return rule.whenShorter;
  return std::nullopt;
}

}  // namespace remote_connectivity::asyncio::util
