#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "../Eventually.hpp"
#ifdef KESTREL_HAS_NATS
#include "../datastreaming/NatsServer.hpp"
#endif

namespace {

/// Runs the program once and says how it ended.
std::string endOf(std::string how, std::string endpoint) {
  std::string program = ENDS_BUSY;
  char* const arguments[] = {program.data(), how.data(), endpoint.data(), nullptr};
  pid_t process = 0;
  if (::posix_spawn(&process, ENDS_BUSY, nullptr, nullptr, arguments, environ) != 0) return "not started";
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
  void endsCleanly(const std::string& endpoint, int runs) {
    for (int i = 0; i < runs; ++i) EXPECT_EQ(endOf(GetParam(), endpoint), "exit 7") << "run " << i;
  }
};

TEST_P(ProcessEnd, IsCleanWhileMessengersAreAtWorkInMemory) {
  endsCleanly("", 20);
}

TEST_P(ProcessEnd, IsCleanWhileMessengersAreAtWorkBetweenProcesses) {
  std::string folder = std::filesystem::temp_directory_path() / "kestrel-end-XXXXXX";
  ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  endsCleanly("ipc://" + folder, 6);
  std::filesystem::remove_all(folder);
}

#ifdef KESTREL_HAS_NATS
TEST_P(ProcessEnd, IsCleanWhileMessengersAreAtWorkOverNatsAndTls) {
  using namespace kestrel::streams;
  if (const auto reason = NatsServer::unavailable(); !reason.empty()) GTEST_SKIP() << reason;
  const NatsServer plain;
  endsCleanly(plain.url(), 10);
  const Certificate certificate(plain.directory(), "IP:127.0.0.1");
  const NatsServer guarded({.certificate = certificate.file, .key = certificate.key});
  endsCleanly(guarded.url("tls_ca=" + certificate.file), 4);
}
#endif

INSTANTIATE_TEST_SUITE_P(Ways, ProcessEnd, testing::Values("main", "thread", "handler"));

}  // namespace
