#pragma once

#include <any>
#include <unordered_map>
#include <utility>

#include "TestTools.hpp"
#include "remote_connectivity/asyncio/util/ISendReceiveMessenger.hpp"

namespace library_test {

using Options = std::unordered_map<std::string, std::any>;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr int slowness = 10;
#else
inline constexpr int slowness = 1;
#endif

inline const Options fast{{"masgSizeRate", 1000000UL}};

/// Eight threads that hold eight requests outstanding each, to a messenger whose peer echoes them.
inline void holdSixtyFourRequestsOutstanding(ISendReceiveMessenger& client) {
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&, thread] {
      std::vector<std::pair<std::shared_future<DataStruct>, std::string>> pending;
      for (int i = 0; i < 48; ++i) {
        if (i < 40) pending.push_back(client.asyncRequest(DataStruct(number(thread * 100 + i))));
        if (i < 8) continue;
        const auto& [future, id] = pending[static_cast<std::size_t>(i - 8)];
        EXPECT_EQ(numberOf(client.getAsyncRequestResult(future, id).data), thread * 100 + i - 8);
      }
    });
  }
}

}  // namespace library_test
