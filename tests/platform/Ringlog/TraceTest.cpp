// A trace that names the operation whose work it is.
#include "Ringlog/Trace.h"

#include "LastRecord.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

namespace Ringlog {
namespace {

const Pello::TraceSource traceSource{"TraceTest"};

// A format is checked while it is compiled: one field per argument, 'x' for whole numbers only.
// Codes as in ArgumentKind: u natural, i whole, s text.
using Detail::formatFits;
static_assert(formatFits("", ""));
static_assert(formatFits("{} and {:x}", "su"));
static_assert(formatFits("{{}} {:#06x}}}", "i"));
static_assert(!formatFits("{}", ""));
static_assert(!formatFits("none", "u"));
static_assert(!formatFits("{} {}", "u"));
static_assert(!formatFits("{:x}", "s"));
static_assert(!formatFits("{0}", "u"));
static_assert(!formatFits("{", "u"));
static_assert(!formatFits("}", ""));
static_assert(formatFits("{:{}}|{:04}", "uiu"));
static_assert(!formatFits("{:{}}", "us"));
static_assert(!formatFits("{:{}}", "u"));
static_assert(!formatFits("{:{", "uu"));

struct Joining {
   static constexpr const char* name = "join";
};
struct Leaving {
   static constexpr const char* name = "leave";
};

struct Member {
   static constexpr const char* kivClassName = "Member";
   static U32 part() {
      RINGLOG_TRACE_OF("whole", 5, "part {}", 1);
      return __LINE__ - 1;
   }
   template <class Operation>
   static void shared(int number) {
      RINGLOG_TRACE_OF(Operation::name, 9, "shared {}", number);
   }
};

TEST(TraceTest, namesTheOperationInTheRingAndInTheTextTrace) {
   const TestSupport::TraceCapture capture;
   const U32 line = Member::part();
   const TestSupport::LastRecord last = TestSupport::lastRecord();
   EXPECT_EQ(last.site.className + "::" + last.site.functionName, "Member::whole");
   EXPECT_EQ(last.site.line, line);
   EXPECT_EQ(last.site.level, 5U);
   EXPECT_EQ(last.text, "part 1");
   ASSERT_EQ(capture.lines(), std::vector<std::string>{"5 part 1"});
   EXPECT_EQ(capture.traces()[0].functionName, "whole");
}

TEST(TraceTest, operationsThatShareWorkHaveDescriptorsOfTheirOwn) {
   Member::shared<Joining>(0);
   const std::size_t before = TestSupport::readRing().descriptors().size();
   for (const int number : {1, 2}) {
      Member::shared<Joining>(number);
      EXPECT_EQ(TestSupport::lastRecord().site.functionName, "join");
      Member::shared<Leaving>(number);
      EXPECT_EQ(TestSupport::lastRecord().site.functionName, "leave");
      EXPECT_EQ(TestSupport::lastRecord().text, "shared " + std::to_string(number));
   }
   EXPECT_EQ(TestSupport::readRing().descriptors().size(), before + 1);
}

} // namespace
} // namespace Ringlog
