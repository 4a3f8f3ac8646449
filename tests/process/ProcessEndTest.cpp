#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "../Eventually.hpp"
#ifdef KESTREL_HAS_NATS
#include "../datastreaming/NatsServer.hpp"
#endif

namespace {

/// Runs the program once and says how it ended.
std::string endOf(const std::string& how, const std::string& endpoint) {
  std::string program = ENDS_BUSY, first = how, second = endpoint;
  char* const arguments[] = {program.data(), first.data(), second.data(), nullptr};
  pid_t process = 0;
  if (::posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ) != 0)
    return "not started";
  int status = 0;
  const auto ended = [&] { return ::waitpid(process, &status, WNOHANG) == process; };
  if (!becomesTrue(ended, std::chrono::seconds(60))) {
    ::kill(process, SIGKILL);
    ::waitpid(process, &status, 0);
    return "still running after 60 s";
  }
  return WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                           : "signal " + std::to_string(WTERMSIG(status));
}

class ProcessEnd : public testing::TestWithParam<const char*> {
 protected:
  void endsCleanly(const std::string& endpoint, int runs = 20) {
    for (int i = 0; i < runs; ++i) EXPECT_EQ(endOf(GetParam(), endpoint), "exit 7") << "run " << i;
  }
};

TEST_P(ProcessEnd, IsCleanWhileMessengersAreAtWorkInMemory) {
  endsCleanly("");
}

#ifdef KESTREL_HAS_NATS
TEST_P(ProcessEnd, IsCleanWhileMessengersAreAtWorkOverNats) {
  if (const auto reason = kestrel::streams::NatsServer::unavailable(); !reason.empty())
    GTEST_SKIP() << reason;
  const kestrel::streams::NatsServer server;
  endsCleanly(server.url());
}

TEST_P(ProcessEnd, IsCleanWhileMessengersAreAtWorkOverTls) {
  if (const auto reason = kestrel::streams::NatsServer::unavailable(); !reason.empty())
    GTEST_SKIP() << reason;
  const kestrel::streams::NatsServer folder;  // for the certificate
  const kestrel::streams::Certificate certificate(folder.directory(), "IP:127.0.0.1");
  const kestrel::streams::NatsServer server({.certificate = certificate.file, .key = certificate.key});
  endsCleanly(server.url("tls_ca=" + certificate.file), 4);
}
#endif

INSTANTIATE_TEST_SUITE_P(Ways, ProcessEnd, testing::Values("main", "thread", "handler"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
