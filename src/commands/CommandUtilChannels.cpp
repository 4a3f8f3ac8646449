#include <utility>

#include "Constants.hpp"
#include "commands/CommandUtilParsing.hpp"
#include "remote_connectivity/asyncio/util/CommandUtil.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;
using kestreldata::ArrayType;
using kestreldata::TypedArray;

namespace {

void copyFirstElements(const TypedArray<Array>& from, TypedArray<Array>& to, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) to[i] = from[i].value();
}

}  // namespace

std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> CommandUtil::parseCreateChannelCmd(
    const Array& command) {
  return parseHostCmd(command, constants::CreateChannel);
}

std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> CommandUtil::parseTerminateChannelCmd(
    const Array& command) {
  return parseHostCmd(command, constants::TerminateChannel);
}

// Peers rely on the number of rows standing for the number of elements, also where a command is no column.
Array CommandUtil::terminateChannelCmd(TypedArray<Array>&& command, std::uint64_t number) {
  const auto& factory = kdaFactory();
  auto dimensions = command.getDimensions();
  const std::size_t kept = dimensions[0]++;
  TypedArray<Array> extended(factory.createArray(ArrayType::CELL, dimensions));
  copyFirstElements(command, extended, kept);
  extended[kept] = factory.createScalar(number);
  return extended;
}

Array CommandUtil::getInterprocessTerminateChannelCmd(const TypedArray<Array>& command) {
  const auto& factory = kdaFactory();
  auto dimensions = command.getDimensions();
  if (dimensions[0] == 0) return factory.createEmptyArray();
  const std::size_t kept = --dimensions[0];
  TypedArray<Array> shortened(factory.createArray(ArrayType::CELL, dimensions));
  copyFirstElements(command, shortened, kept);
  return shortened;
}

Array CommandUtil::createChannelResponse(const Array& channel, std::string first, std::string second) {
  const auto& factory = kdaFactory();
  return factory.createCellArray({1, 4}, createError(RemoteAsyncIOError::NoError, "", Array()), channel,
                                 factory.createScalar(first), factory.createScalar(second));
}

std::tuple<Array, std::string, std::string, RemoteAsyncIOError> CommandUtil::parseCreateChannelResponse(
    const Array& response) {
  const auto outcome = outcomeWithoutPayload(*this, response, CodeSource::responseError,
                                             {4, RemoteAsyncIOError::TooFewElements});
  if (outcome) return {kdaFactory().createEmptyArray(), "", "", *outcome};
  auto [first, firstError] = _helper->kdaToString(elementOf(response, 2));
  auto [second, secondError] = _helper->kdaToString(elementOf(response, 3));
  if (!firstError.empty() || !secondError.empty()) {
    return {kdaFactory().createEmptyArray(), "", "", RemoteAsyncIOError::InvalidElementType};
  }
  return {elementOf(response, 1), std::move(first), std::move(second), RemoteAsyncIOError::NoError};
}

Array CommandUtil::terminateChannelResponse(const Array& data, RemoteAsyncIOError error) {
  return kdaFactory().createCellArray({1, 2}, createError(error, "", Array()), data);
}

std::tuple<Array, RemoteAsyncIOError> CommandUtil::parseTerminateChannelResponse(const Array& response) {
  const auto outcome = outcomeWithoutPayload(*this, response, CodeSource::responseError,
                                             {2, RemoteAsyncIOError::TooFewElements});
  if (outcome) return {kdaFactory().createEmptyArray(), *outcome};
  return {elementOf(response, 1), RemoteAsyncIOError::NoError};
}

}  // namespace remote_connectivity::asyncio::util
