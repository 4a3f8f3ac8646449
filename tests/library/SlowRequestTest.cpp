#include <gtest/gtest.h>

#include <cstdlib>

#include "MessengerTest.hpp"
#include "remote_connectivity/asyncio/util/MessengerException.hpp"

namespace library_test {
namespace {

TEST_F(MessengerTest, WaitsTwentySecondsWhateverTheEnvironmentSays) {
  setenv("QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT", "1", 1);
  const auto messenger = make();
  const auto took = timeOf([&] {
    EXPECT_THROW((void)messenger->request(DataStruct(number(1))),
                 remote_connectivity::asyncio::util::MessengerException);
  });
  unsetenv("QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT");
  EXPECT_GE(took, 20s);
  EXPECT_LT(took, 22s);
  EXPECT_EQ(messenger->pendingRequests(), 0U);
}

}  // namespace
}  // namespace library_test
