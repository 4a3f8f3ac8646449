#include <utility>

#include "Constants.hpp"
#include "commands/CommandUtilParsing.hpp"
#include "remote_connectivity/asyncio/util/CommandUtil.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;

Array CommandUtil::registerClientCmd(const Array& clientInfo) {
  const auto& factory = kdaFactory();
  return factory.createCellArray({1, 2}, factory.createScalar(constants::RegisterClient), clientInfo);
}

Array CommandUtil::unregisterClientCmd(std::uint64_t number) {
  const auto& factory = kdaFactory();
  return factory.createCellArray({1, 2}, factory.createScalar(constants::UnregisterClient),
                                 factory.createScalar(number));
}

Array CommandUtil::registerClientResponse(RemoteAsyncIOError error) {
  return createErrorResponse(error, "", Array());
}

Array CommandUtil::registerClientResponse(std::string first, std::string second, std::uint64_t number) {
  return registerClientResponse(RemoteAsyncIOError::NoError, std::move(first), std::move(second), number);
}

Array CommandUtil::registerClientResponse(RemoteAsyncIOError error, std::string first, std::string second,
                                          std::uint64_t number) {
  const auto& factory = kdaFactory();
  return factory.createCellArray({1, 4}, createError(error, "", Array()), factory.createScalar(first),
                                 factory.createScalar(second), factory.createScalar(number));
}

std::tuple<RemoteAsyncIOError, std::string> CommandUtil::parseClientInfo(const Array& clientInfo) {
  if (!ensureType(clientInfo)) return {RemoteAsyncIOError::NotACellArray, ""};
  auto [text, textError] = _helper->kdaToString(elementOf(clientInfo, 0));
  if (!textError.empty()) return {RemoteAsyncIOError::InvalidElementType, ""};
  return {RemoteAsyncIOError::NoError, std::move(text)};
}

std::tuple<std::string, std::string, RemoteAsyncIOError> CommandUtil::parseRegisterClientCmd(
    const Array& command) {
  if (command.getNumberOfElements() < 2) return {"", "", RemoteAsyncIOError::TooFewElements};
  if (!ensureType(command)) return {"", "", RemoteAsyncIOError::NotACellArray};
  auto [name, nameError] = getCommand(command);
  if (nameError != RemoteAsyncIOError::NoError) return {"", "", nameError};
  auto [infoError, text] = parseClientInfo(elementOf(command, 1));
  if (infoError != RemoteAsyncIOError::NoError) return {"", "", infoError};
  return {std::move(name), std::move(text), RemoteAsyncIOError::NoError};
}

std::tuple<std::uint64_t, RemoteAsyncIOError> CommandUtil::parseUnregisterClientCmd(const Array& command) {
  std::uint64_t number[] = {noNumber};
  const auto error = readNumberCommand(*this, command, constants::UnregisterClient, number);
  return {number[0], error};
}

std::tuple<std::string, std::string, std::uint64_t, RemoteAsyncIOError>
CommandUtil::parseRegisterClientResponse(const Array& response) {
  // A service that has nothing to tell answers with the bare error cell, so a short response is a success.
  const auto outcome =
      outcomeWithoutPayload(*this, response, CodeSource::errorCell, {4, RemoteAsyncIOError::NoError});
  if (outcome) return {"", "", noNumber, *outcome};
  auto first = _helper->kdaToString(elementOf(response, 1)).first;
  auto second = _helper->kdaToString(elementOf(response, 2)).first;
  std::uint64_t number = noNumber;
  const auto error = readNumber(response, 3, number);
  return {std::move(first), std::move(second), number, error};
}

}  // namespace remote_connectivity::asyncio::util
