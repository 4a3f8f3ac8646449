#include "kestrel/diagnostics/FunctionTrace.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "RecordLog.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

namespace kestrel::diagnostics {
namespace {

using testing::ElementsAre;
using testing::Pair;

struct FunctionTraceTest : testing::Test {
  void SetUp() override { setSeverities("test::function", allSeverities); }

  void traced(bool fails) const {
    const FunctionTrace trace(_logger, "void f(int)");
    if (fails) throw std::runtime_error("failed");
  }

  const Logger _logger{"test::function"};
  const RecordLog _log{"test::function"};
};

TEST_F(FunctionTraceTest, RecordsEntryAndExit) {
  traced(false);
  EXPECT_THAT(_log.entries(), ElementsAre(Pair(Severity::functionTrace, "void f(int)"),
                                          Pair(Severity::functionTrace, "void f(int)")));
}

TEST_F(FunctionTraceTest, MarksAnExitByAnException) {
  EXPECT_THROW(traced(true), std::runtime_error);
  EXPECT_THAT(_log.entries(), ElementsAre(Pair(Severity::functionTrace, "void f(int)"),
                                          Pair(Severity::functionTrace, "void f(int) [throw]")));
}

TEST_F(FunctionTraceTest, DoesNotMarkAReturnInsideTheUnwindingOfAnother) {
  struct TracesInItsDestructor {
    ~TracesInItsDestructor() { test->traced(false); }
    const FunctionTraceTest* test;
  };
  EXPECT_THROW(
      {
        const TracesInItsDestructor guard{this};
        throw std::runtime_error("failed");
      },
      std::runtime_error);
  EXPECT_THAT(_log.entries(), ElementsAre(Pair(Severity::functionTrace, "void f(int)"),
                                          Pair(Severity::functionTrace, "void f(int)")));
}

TEST_F(FunctionTraceTest, WritesBothRecordsOrNeither) {
  setSeverities("test::function", noSeverities);
  {
    const FunctionTrace trace(_logger, "off on entry");
    setSeverities("test::function", allSeverities);
  }
  EXPECT_THAT(_log.entries(), ElementsAre());
}

}  // namespace
}  // namespace kestrel::diagnostics
