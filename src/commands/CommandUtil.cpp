#include "remote_connectivity/asyncio/util/CommandUtil.hpp"

#include <exception>
#include <utility>

#include "commands/CommandUtilParsing.hpp"
#include "kestrel/diagnostics/Logger.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;

namespace {

// Nothing is logged here; the channel exists so that hosts find it beside those of the other classes.
[[maybe_unused]] const kestrel::diagnostics::Logger logger("remote_connectivity::asyncio::util::CommandUtil");

constexpr std::uint8_t codeLimit = 16;

bool hasNoElements(const Array& array) {
  return array.getType() != kestreldata::ArrayType::CELL || array.isEmpty();
}

}  // namespace

CommandUtil::CommandUtil(std::shared_ptr<KDAHelper> helper) : _helper(std::move(helper)) {
  if (_helper) return;
  _helper = std::make_shared<KDAHelper>();
  static_cast<void>(_helper->getFactory());  // made now, since its first use must not race
}

CommandUtil::~CommandUtil() = default;

std::shared_ptr<KDAHelper> CommandUtil::kdaHelper() {
  return _helper;
}

kestreldata::ArrayFactory& CommandUtil::kdaFactory() {
  return _helper->getFactory();
}

bool CommandUtil::ensureType(const Array& array) {
  return array.getType() == kestreldata::ArrayType::CELL;
}

std::tuple<std::string, RemoteAsyncIOError> CommandUtil::getCommand(const Array& command) {
  if (!ensureType(command)) return {"", RemoteAsyncIOError::NotACellArray};
  if (command.isEmpty()) return {"", RemoteAsyncIOError::TooFewElements};
  auto [name, textError] = _helper->kdaToString(elementOf(command, 0));
  if (!textError.empty()) return {"", RemoteAsyncIOError::InvalidElementType};
  if (name.empty()) return {"", RemoteAsyncIOError::EmptyCommandName};
  return {std::move(name), RemoteAsyncIOError::NoError};
}

RemoteAsyncIOError CommandUtil::getError(const Array& errorCell) {
  if (hasNoElements(errorCell)) return RemoteAsyncIOError::InvalidErrorElement;
  try {
    const kestreldata::TypedArray<std::uint8_t> codes(elementOf(errorCell, 0));
    const std::uint8_t code = codes[0];
    return code < codeLimit ? RemoteAsyncIOError{code} : RemoteAsyncIOError::InvalidErrorElement;
  } catch (const std::exception&) {
    return RemoteAsyncIOError::InvalidErrorElement;
  }
}

RemoteAsyncIOError CommandUtil::getResponseError(const Array& response) {
  if (hasNoElements(response)) return RemoteAsyncIOError::InvalidResponse;
  return getError(elementOf(response, 0));
}

bool CommandUtil::isValidResponse(const Array& response) {
  const auto error = getResponseError(response);
  return error != RemoteAsyncIOError::InvalidErrorElement && error != RemoteAsyncIOError::InvalidResponse;
}

bool CommandUtil::isErrorResponse(const Array& response) {
  return getResponseError(response) != RemoteAsyncIOError::NoError;
}

Array CommandUtil::createError(RemoteAsyncIOError error, std::string message, const Array& data) {
  const auto& factory = kdaFactory();
  return factory.createCellArray({1, 3}, factory.createScalar(static_cast<std::uint8_t>(error)),
                                 factory.createScalar(message), data);
}

Array CommandUtil::createErrorResponse(RemoteAsyncIOError error, std::string message, const Array& data) {
  return kdaFactory().createCellArray({1, 1}, createError(error, std::move(message), data));
}

Array CommandUtil::createNoErrorResponse() {
  return createErrorResponse(RemoteAsyncIOError::NoError, "", Array());
}

}  // namespace remote_connectivity::asyncio::util
