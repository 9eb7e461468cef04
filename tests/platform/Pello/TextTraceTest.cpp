// The setting text, the sources that follow it, and where traces go.
#include "Pello/TextTrace.h"

#include "Pello/Format.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Pello::TraceRecord;
using Pello::TraceSource;

class TextTrace : public testing::Test {
 protected:
   TextTrace() : before_{Pello::traceLevels()} { Pello::traceLevelsIs(""); }
   ~TextTrace() override {
      Pello::traceLevelsIs(before_);
      Pello::traceSinkIs({});
   }

   // The enabled levels as digits.
   static std::string levelsOf(const TraceSource& source) {
      std::string levels;
      for (U8 level = 0; level <= Pello::traceLevelMost; ++level) {
         levels += source.enabled(level) ? std::to_string(level) : "";
      }
      return levels;
   }

   template <class... Arguments>
   static void trace(const TraceSource& source, const char* className, const char* format,
                     const Arguments&... arguments) {
      const Pello::TracePoint point{&source, 12, className, "work", format, 5};
      Pello::fmtrace(point, format, fmt::make_format_args(arguments...));
   }

 private:
   std::string before_;
};

struct Setting {
   std::string setting;
   std::string levels; // that a source named "House/Lamp" then has
};

const Setting readable[] = {
      {"", ""},
      {" ; ;\t ", ""},
      {"House/Lamp/0", "0"},
      {"House/Lamp/9", "9"},
      {"House/Lamp/0-5,9", "0123459"},
      {"House/Lamp/0-9", "0123456789"},
      {"House/Lamp/3-3", "3"},
      {"House/Lamp/5,1,5", "15"},
      {"*/7", "7"},
      {"House*/2", "2"},
      {"*Lamp/2", "2"},
      {"*/Lamp/2", "2"},
      {"H*e*L*p/1", "1"},
      {"House/Lamp*/1", "1"},
      {"**House/Lamp**/1", "1"},
      {"*s*s*/1", ""},
      {"*am*am*/1", ""},
      {"House/Lam/1", ""},
      {"House/Lamps/1", ""},
      {"House/Lamps*/1", ""},
      {"house/lamp/1", ""},
      {"ouse*/1", ""},
      {"*Lam/1", ""},
      {"House/Lamp*p/1", ""},
      {"House/Lamp/1 Other/2", "1"},
      {"House/Lamp/1;*/2-3", "23"},
      {"*/2-3;House/Lamp/1", "1"},
      {"  */4\t", "4"},
};

TEST_F(TextTrace, theLastEntryThatFitsCounts) {
   const TraceSource source{"House/Lamp"};
   for (const auto& [setting, levels] : readable) {
      Pello::traceLevelsIs(setting);
      EXPECT_EQ(levelsOf(source), levels) << setting;
      EXPECT_EQ(Pello::traceLevels(), setting);
   }
}

// Settings whose only, or last, entry cannot be read; the entry itself stands in the message.
const Setting unreadable[] = {
      {"Lamp", "Lamp"},
      {"Lamp/", "Lamp/"},
      {"/5", "/5"},
      {"/", "/"},
      {"Lamp/10", "Lamp/10"},
      {"Lamp/-1", "Lamp/-1"},
      {"Lamp/a", "Lamp/a"},
      {"Lamp/5-", "Lamp/5-"},
      {"Lamp/-", "Lamp/-"},
      {"Lamp/5-3", "Lamp/5-3"},
      {"Lamp/1,", "Lamp/1,"},
      {"Lamp/,1", "Lamp/,1"},
      {"Lamp/1,,2", "Lamp/1,,2"},
      {"Lamp/1-2-3", "Lamp/1-2-3"},
      {"Lamp/+1", "Lamp/+1"},
      {"Lamp/1 Lamp/x", "Lamp/x"},
      {"Lamp/4294967296", "Lamp/4294967296"},
      {"Lamp/0x1", "Lamp/0x1"},
      {"Lamp/5-10", "Lamp/5-10"},
};

TEST_F(TextTrace, aSettingThatCannotBeReadChangesNothing) {
   Pello::traceLevelsIs("*/3");
   const TraceSource source{"Lamp"};
   for (const auto& [setting, entry] : unreadable) {
      try {
         Pello::traceLevelsIs(setting);
         ADD_FAILURE() << setting;
      } catch (const std::invalid_argument& error) {
         EXPECT_EQ(error.what(), "trace setting '" + entry +
                                       "': expected SOURCE/LEVELS with levels from 0 to 9, such as "
                                       "'Name*/0-5,9'");
      }
      EXPECT_EQ(levelsOf(source), "3");
      EXPECT_EQ(Pello::traceLevels(), "*/3");
   }
}

TEST_F(TextTrace, aPatternOfManyStarsIsReadQuickly) {
   std::string pattern;
   for (int i = 0; i < 30; ++i) {
      pattern += "*a";
   }
   const std::string name = std::string(60, 'a') + "b";
   const TraceSource source{name.c_str()};
   Pello::traceLevelsIs(pattern + "/1");
   EXPECT_EQ(levelsOf(source), "");
   Pello::traceLevelsIs(pattern + "*/1");
   EXPECT_EQ(levelsOf(source), "1");
}

TEST_F(TextTrace, sourcesTakeTheLevelsInForceAndFollow) {
   Pello::traceLevelsIs("La*/1 Bulb/2");
   const TraceSource lamp{"Lamp"};
   const TraceSource bulb{"Bulb"};
   EXPECT_EQ(levelsOf(lamp) + levelsOf(bulb), "12");
   EXPECT_STREQ(lamp.name(), "Lamp");
   Pello::traceLevelsIs("Bulb/3");
   EXPECT_EQ(levelsOf(lamp) + levelsOf(bulb), "3");
}

TEST_F(TextTrace, aDestroyedSourceIsForgotten) {
   auto gone = std::make_unique<TraceSource>("Gone");
   const TraceSource stays{"Stays"};
   gone.reset();
   Pello::traceLevelsIs("*/1"); // would write into the source that is gone
   EXPECT_EQ(levelsOf(stays), "1");
}

TEST_F(TextTrace, theDefaultWritesOneLineToStandardError) {
   const TraceSource source{"Lamp"};
   testing::internal::CaptureStderr();
   trace(source, "Bulb", "Error: {} 0x{:x}", "broken", 255);
   trace(source, "", "entry");
   EXPECT_EQ(testing::internal::GetCapturedStderr(),
             "Lamp 5 Bulb::work: Error: broken 0xff\nLamp 5 work: entry\n");
}

TEST_F(TextTrace, aSinkGetsPointAndText) {
   const TraceSource source{"Lamp"};
   std::vector<std::string> seen;
   Pello::traceSinkIs([&](const TraceRecord& record) {
      EXPECT_EQ(record.point->source, &source);
      EXPECT_EQ(record.point->line, 12U);
      seen.emplace_back(record.text);
   });
   trace(source, "Bulb", "{}-{}", 1, 2);
   Pello::traceSinkIs({});
   testing::internal::CaptureStderr();
   trace(source, "Bulb", "{}", 3);
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "Lamp 5 Bulb::work: 3\n");
   EXPECT_EQ(seen, std::vector<std::string>{"1-2"});
}

TEST_F(TextTrace, aSinkMayTraceAndMaySetAnotherSink) {
   const TraceSource source{"Lamp"};
   std::string seen;
   Pello::traceSinkIs([&](const TraceRecord& record) {
      const std::string text{record.text};
      Pello::traceSinkIs([&](const TraceRecord& inner) { seen += std::string{inner.text} + ";"; });
      trace(source, "", "inner");
      seen += text + ";";
   });
   trace(source, "", "outer");
   EXPECT_EQ(seen, "inner;outer;");
}

// Traces when it goes, as an object that a sink holds may do.
struct TracesAtItsEnd {
   const TraceSource* source;
   std::shared_ptr<int> alive;
   ~TracesAtItsEnd() {
      const Pello::TracePoint point{source, 1, "", "end", "gone", 0};
      Pello::fmtrace(point, "gone", {});
   }
};

TEST_F(TextTrace, aReplacedSinkMayTraceWhenItGoes) {
   const TraceSource source{"Lamp"};
   std::string seen;
   auto held = std::make_shared<TracesAtItsEnd>(&source, nullptr);
   Pello::traceSinkIs([held](const TraceRecord&) {});
   held.reset();
   Pello::traceSinkIs([&](const TraceRecord& record) { seen += record.text; });
   EXPECT_EQ(seen, "gone");
}

TEST_F(TextTrace, argumentsThatDoNotFitTheFormatAreRefused) {
   const TraceSource source{"Lamp"};
   EXPECT_THROW(trace(source, "", "{} {}", 1), fmt::format_error);
}

// Runs this test program again, with FMTRACE set, and returns what the inner run says.
std::string underEnvironment(const std::string& setting) {
   int ends[2];
   if (::pipe(ends) != 0) {
      return "no pipe";
   }
   const pid_t child = ::fork();
   if (child == 0) {
      ::dup2(ends[1], STDERR_FILENO);
      ::close(STDOUT_FILENO);
      ::setenv("FMTRACE", setting.c_str(), 1);
      ::setenv("PELLO_TEST_INNER", "1", 1);
      ::execl("/proc/self/exe", "test", "--gtest_filter=TextTraceEnvironment.inner", nullptr);
      ::_exit(127);
   }
   ::close(ends[1]);
   std::string said;
   char buffer[4096];
   for (ssize_t size = 0; (size = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
      said.append(buffer, static_cast<std::size_t>(size));
   }
   ::close(ends[0]);
   int status = 0;
   ::waitpid(child, &status, 0);
   return said + "exit " + std::to_string(WEXITSTATUS(status));
}

TEST(TextTraceEnvironment, inner) {
   if (std::getenv("PELLO_TEST_INNER") == nullptr) {
      return; // only means something in the inner run, which the tests below start
   }
   const TraceSource source{"Lamp"};
   std::string levels;
   for (U8 level = 0; level <= Pello::traceLevelMost; ++level) {
      levels += source.enabled(level) ? std::to_string(level) : "";
   }
   std::fprintf(stderr, "<%s><%s>\n", levels.c_str(), Pello::traceLevels().c_str());
}

TEST(TextTraceEnvironment, givesTheLevelsAtStart) {
   EXPECT_EQ(underEnvironment("La*/0-2,9"), "<0129><La*/0-2,9>\nexit 0");
}

TEST(TextTraceEnvironment, anUnreadableOneIsReportedAndIgnored) {
   EXPECT_EQ(underEnvironment("*/1 Lamp/x"),
             "FMTRACE ignored: trace setting 'Lamp/x': expected SOURCE/LEVELS with levels from 0 "
             "to 9, such as 'Name*/0-5,9'\n<><>\nexit 0");
}

TEST(TextTraceLevels, asBits) {
   EXPECT_EQ(Pello::traceLevelBits("0"), 1U);
   EXPECT_EQ(Pello::traceLevelBits("1-3,9"), 0x20eU);
   for (const char* text : {"", "10", "3-1", "1,", "*/1"}) {
      EXPECT_EQ(Pello::traceLevelBits(text), std::nullopt) << text;
   }
}

TEST(TextTraceLevels, sourcePatterns) {
   EXPECT_TRUE(Pello::traceSourceFits("L*p", "Lamp"));
   EXPECT_TRUE(Pello::traceSourceFits("Lamp", "Lamp"));
   EXPECT_FALSE(Pello::traceSourceFits("La", "Lamp"));
}

} // namespace
