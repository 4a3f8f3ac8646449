#include <cstring>

#include "Commands.hpp"
#include "remote_connectivity/asyncio/util/ITimer.hpp"

using namespace remote_connectivity::asyncio::util;

/// Where an operation stands in the virtual table. A pointer to a virtual member function holds one more than
/// its byte offset there.
std::size_t slotOf(auto operation) {
  std::size_t words[2];
  static_assert(sizeof(words) == sizeof(operation));
  std::memcpy(words, &operation, sizeof(words));
  return (words[0] - 1) / sizeof(void*);
}

/// The destructor takes the first two places.
void expectInOrder(auto... operations) {
  std::size_t slot = 2;
  for (const std::size_t place : {slotOf(operations)...}) EXPECT_EQ(place, slot++);
}

TEST(VirtualOrder, OperationsStandWhereCompiledCallersLookForThem) {
  using I = ICommandUtil;
  using RegisterInFull = kestreldata::Array (I::*)(std::string, std::string, std::uint64_t);
  using RegisterCode = kestreldata::Array (I::*)(RemoteAsyncIOError);
  expectInOrder(&I::kdaHelper, &I::kdaFactory, &I::createErrorResponse, &I::createNoErrorResponse,
                &I::getResponseError, &I::getCommand, &I::registerClientCmd, &I::unregisterClientCmd,
                &I::createHostCmd, &I::getActiveHostsCmd, &I::terminateHostCmd, &I::terminateChannelCmd,
                RegisterInFull(&I::registerClientResponse), RegisterCode(&I::registerClientResponse),
                &I::createHostResponse, &I::getActiveHostsResponse, &I::createChannelResponse,
                &I::terminateChannelResponse, &I::parseRegisterClientCmd, &I::parseCreateHostCmd,
                &I::parseTerminateHostCmd, &I::parseGetActiveHostsCmd, &I::parseUnregisterClientCmd,
                &I::parseCreateChannelCmd, &I::parseTerminateChannelCmd,
                &I::getInterprocessTerminateChannelCmd, &I::parseHostCmd, &I::parseRegisterClientResponse,
                &I::parseCreateHostResponse, &I::parseGetActiveHostsResponse, &I::parseCreateChannelResponse,
                &I::parseTerminateChannelResponse);
  expectInOrder(&ITimer::setCallback, &ITimer::start, &ITimer::restart, &ITimer::stop);
}

struct Replaced : C {
  using C::CommandUtil;
  std::tuple<std::string, E> getCommand(const Array&) override { return {"getActiveHosts", ok}; }
  E getResponseError(const Array&) override { return E{9}; }
  Array createErrorResponse(E error, std::string, const Array&) override { return row("refused", error); }
};

TEST(OverriddenCommands, ChangeWhatIsBuiltOnThem) {
  Replaced commands(nullptr);
  const auto response = row(row(ok), 1, 2, 3);
  expectParsed(commands, {{&C::parseGetActiveHostsCmd, row("x", 1), row(1, ok)},
                          {&C::parseCreateHostResponse, response, row(noNumber, noNumber, E{9})},
                          // Looks at the error cell itself.
                          {&C::parseGetActiveHostsResponse, response, row(Numbers{1}, ok)}});
  EXPECT_EQ(commands.registerClientResponse(E{8}), row("refused", E{8}));
}
