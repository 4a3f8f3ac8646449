#include "kestrel/diagnostics/FatalReport.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace kestrel::diagnostics {
namespace {

class FatalReport : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FatalReport, LogsAndEndsTheProcess) {
  EXPECT_EXIT(fatalReport("Item is corrupt.", "Test"), testing::KilledBySignal(SIGABRT),
              " error kestrel::diagnostics Test: Item is corrupt.\n.*Fatal error. Test: Item is corrupt.\n");
}

TEST_F(FatalReport, CallsTheHostsHandlerBeforeTheEnd) {
  const auto handler = [](std::string_view text, std::string_view source) {
    std::fprintf(stderr, "<%.*s|%.*s>", int(text.size()), text.data(), int(source.size()), source.data());
  };
  EXPECT_EXIT((setFatalReportHandler(handler), fatalReport("text", "source")),
              testing::KilledBySignal(SIGABRT), "<text.source>");
}

TEST_F(FatalReport, EndsTheProcessEvenIfTheHandlerFails) {
  EXPECT_EXIT(
      (setFatalReportHandler([](auto, auto) { throw std::runtime_error("no"); }), fatalReport("a", "b")),
      testing::KilledBySignal(SIGABRT), "b: a");
  EXPECT_EXIT(
      (setFatalReportHandler([](auto, auto) { fatalReport("again", "handler"); }), fatalReport("a", "b")),
      testing::KilledBySignal(SIGABRT), "b: a");
}

}  // namespace
}  // namespace kestrel::diagnostics
