#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "remote_connectivity/asyncio/util/ICommandUtil.hpp"
#include "remote_connectivity/asyncio/util/ITimer.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

/// Where an operation stands in the virtual table. A pointer to a virtual member function holds one more than
/// its byte offset there.
template <class Operation>
std::ptrdiff_t slotOf(Operation operation) {
  std::ptrdiff_t words[2];
  static_assert(sizeof(words) == sizeof(operation));
  std::memcpy(words, &operation, sizeof(words));
  return (words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

/// The destructor takes the first two places.
void expectInOrder(const std::vector<std::ptrdiff_t>& slots) {
  for (std::size_t i = 0; i < slots.size(); ++i) {
    EXPECT_EQ(slots[i], static_cast<std::ptrdiff_t>(i + 2)) << "operation number " << i + 1;
  }
}

using kestreldata::Array;
using I = ICommandUtil;

TEST(VirtualOrder, CommandsStandWhereCompiledCallersLookForThem) {
  expectInOrder({
      slotOf(&I::kdaHelper),
      slotOf(&I::kdaFactory),
      slotOf(&I::createErrorResponse),
      slotOf(&I::createNoErrorResponse),
      slotOf(&I::getResponseError),
      slotOf(&I::getCommand),
      slotOf(&I::registerClientCmd),
      slotOf(&I::unregisterClientCmd),
      slotOf(&I::createHostCmd),
      slotOf(&I::getActiveHostsCmd),
      slotOf(&I::terminateHostCmd),
      slotOf(&I::terminateChannelCmd),
      slotOf<Array (I::*)(std::string, std::string, std::uint64_t)>(&I::registerClientResponse),
      slotOf<Array (I::*)(RemoteAsyncIOError)>(&I::registerClientResponse),
      slotOf(&I::createHostResponse),
      slotOf(&I::getActiveHostsResponse),
      slotOf(&I::createChannelResponse),
      slotOf(&I::terminateChannelResponse),
      slotOf(&I::parseRegisterClientCmd),
      slotOf(&I::parseCreateHostCmd),
      slotOf(&I::parseTerminateHostCmd),
      slotOf(&I::parseGetActiveHostsCmd),
      slotOf(&I::parseUnregisterClientCmd),
      slotOf(&I::parseCreateChannelCmd),
      slotOf(&I::parseTerminateChannelCmd),
      slotOf(&I::getInterprocessTerminateChannelCmd),
      slotOf(&I::parseHostCmd),
      slotOf(&I::parseRegisterClientResponse),
      slotOf(&I::parseCreateHostResponse),
      slotOf(&I::parseGetActiveHostsResponse),
      slotOf(&I::parseCreateChannelResponse),
      slotOf(&I::parseTerminateChannelResponse),
  });
}

TEST(VirtualOrder, TimersStandWhereCompiledCallersLookForThem) {
  expectInOrder({slotOf(&ITimer::setCallback), slotOf(&ITimer::start), slotOf(&ITimer::restart),
                 slotOf(&ITimer::stop)});
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
