#include <gtest/gtest.h>

#include <cstring>

#include "remote_connectivity/asyncio/util/ICommandUtil.hpp"
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
