#include "Constants.hpp"
#include "commands/CommandUtilParsing.hpp"
#include "remote_connectivity/asyncio/util/CommandUtil.hpp"

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;
using kestreldata::ArrayType;

namespace {

Array twoNumberCommand(const kestreldata::ArrayFactory& factory, const char* name, std::uint64_t first,
                       std::uint64_t second) {
  return factory.createCellArray({1, 3}, factory.createScalar(name), factory.createScalar(first),
                                 factory.createScalar(second));
}

}  // namespace

Array CommandUtil::createHostCmd(std::uint64_t first, std::uint64_t second) {
  return twoNumberCommand(kdaFactory(), constants::CreateHost, first, second);
}

Array CommandUtil::terminateHostCmd(std::uint64_t first, std::uint64_t second) {
  return twoNumberCommand(kdaFactory(), constants::TerminateHost, first, second);
}

Array CommandUtil::getActiveHostsCmd(std::uint64_t number) {
  const auto& factory = kdaFactory();
  return factory.createCellArray({1, 2}, factory.createScalar(constants::GetActiveHosts),
                                 factory.createScalar(number));
}

std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> CommandUtil::parseHostCmd(
    const Array& command, std::string expectedName) {
  std::uint64_t numbers[] = {noNumber, noNumber};
  const auto error = readNumberCommand(*this, command, expectedName, numbers);
  return {numbers[0], numbers[1], error};
}

std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> CommandUtil::parseCreateHostCmd(
    const Array& command) {
  return parseHostCmd(command, constants::CreateHost);
}

std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> CommandUtil::parseTerminateHostCmd(
    const Array& command) {
  return parseHostCmd(command, constants::TerminateHost);
}

std::tuple<std::uint64_t, RemoteAsyncIOError> CommandUtil::parseGetActiveHostsCmd(const Array& command) {
  std::uint64_t number[] = {noNumber};
  const auto error = readNumberCommand(*this, command, constants::GetActiveHosts, number);
  return {number[0], error};
}

Array CommandUtil::createHostResponse(std::uint64_t first, std::uint64_t second, RemoteAsyncIOError error) {
  const auto& factory = kdaFactory();
  return factory.createCellArray({1, 3}, createError(error, "", Array()), factory.createScalar(first),
                                 factory.createScalar(second));
}

std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> CommandUtil::parseCreateHostResponse(
    const Array& response) {
  const auto outcome = outcomeWithoutPayload(*this, response, CodeSource::responseError,
                                             {3, RemoteAsyncIOError::InvalidResponse});
  if (outcome) return {noNumber, noNumber, *outcome};
  const auto first = uint64FromArray(elementOf(response, 1));
  const auto second = uint64FromArray(elementOf(response, 2));
  return {first, second, RemoteAsyncIOError::NoError};
}

Array CommandUtil::getActiveHostsResponse(std::vector<std::uint64_t> hosts, RemoteAsyncIOError error) {
  const auto& factory = kdaFactory();
  const Array list = hosts.empty()
                         ? factory.createEmptyArray()
                         : factory.createArrayWithData(ArrayType::UINT64, {1, hosts.size()}, hosts.data(),
                                                       hosts.size() * sizeof(std::uint64_t));
  return factory.createCellArray({1, 2}, createError(error, "", Array()), list);
}

std::tuple<std::vector<std::uint64_t>, RemoteAsyncIOError> CommandUtil::parseGetActiveHostsResponse(
    const Array& response) {
  const auto outcome =
      outcomeWithoutPayload(*this, response, CodeSource::errorCell, {2, RemoteAsyncIOError::TooFewElements});
  if (outcome) return {std::vector<std::uint64_t>(), *outcome};
  const Array list = elementOf(response, 1);
  if (list.getType() != ArrayType::UINT64)
    return {std::vector<std::uint64_t>(), RemoteAsyncIOError::InvalidElementType};
  const kestreldata::TypedArray<std::uint64_t> hosts(list);
  return {std::vector<std::uint64_t>(hosts.begin(), hosts.end()), RemoteAsyncIOError::NoError};
}

}  // namespace remote_connectivity::asyncio::util
