// `postcard trace` over files that are put together by hand: lines, filters, and files that cannot
// be used.
#include "Pello/VisibleCharacters.h"
#include "postcard/cli/trace/TraceFiles.h"
#include "support/Sanitized.h"

#include <nlohmann/json.hpp>

#include <ctime>
#include <sys/stat.h>

namespace {

using Json = nlohmann::json;
using Ringlog::BlockHeader;
using Ringlog::RingHeader;
using TestSupport::Bytes;
using TestSupport::KindOf;
using TestSupport::linesOf;
using TestSupport::program;
using TestSupport::ProgramResult;
using TestSupport::RingBytes;
using TestSupport::runProgram;

struct Site {
   U32 level;
   std::string_view source;
   std::string_view className;
   std::string_view functionName;
   std::string_view format;
};

void addSite(RingBytes& ring, U32 number, const Site& site) {
   Bytes body;
   body.number(number).number(U32{7}).number(site.level).text(site.source).text(site.className);
   ring.descriptor(body.text(site.functionName).text(site.format).number(U32{0}).bytes());
}

// Second `n` of the ring: 5 + n seconds after the beginning of 1970.
constexpr U64 atSecond(U64 n) {
   return n * 1'000'000'000;
}

class Trace : public TestSupport::TraceFolder {
 protected:
   // A ring whose ticks are nanoseconds, of thread 31.
   static RingBytes ring(U32 process = 30) {
      RingBytes ring;
      ring.clocks({0, 5'000'000'000}, {1'000'000'000, 6'000'000'000});
      ring.put(offsetof(RingHeader, processId), process);
      return ring.put(RingBytes::blockAt(0) + offsetof(BlockHeader, thread), U32{31});
   }
   // Four traces, at the seconds 1 to 4.
   static RingBytes four() {
      RingBytes ring = Trace::ring();
      addSite(ring, 1, {8, "AlphaHelper", "Helper", "create", ""});
      addSite(ring, 2, {5, "AlphaHelper", "Helper", "walk", "Rule 12 made"});
      addSite(ring, 3, {9, "AlphaTypes", "", "copy", "Rule (copied)"});
      addSite(ring, 4, {0, "Beta", "Beta", "check", "Error: create it"});
      for (U32 number = 1; number <= 4; ++number) {
         ring.record(0, number, atSecond(number));
      }
      return ring;
   }
   // Which of the four are printed.
   std::string chosen(std::vector<std::string> options) const {
      options.push_back(path("four"));
      const ProgramResult result = trace(options);
      EXPECT_EQ(result.exitCode, 0) << result.err;
      std::string seconds;
      for (const std::string& line : linesOf(result.out)) {
         seconds += static_cast<char>(line[18] - 5); // the last digit of the second
      }
      return seconds;
   }
};

TEST_F(Trace, aLinePerTrace) {
   RingBytes ring = four();
   const ProgramResult result = trace({file("four", ring)});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.err, "");
   EXPECT_EQ(result.out, "1970-01-01T00:00:06.000000Z 31 AlphaHelper 8 Helper::create:\n"
                         "1970-01-01T00:00:07.000000Z 31 AlphaHelper 5 Helper::walk: Rule 12 made\n"
                         "1970-01-01T00:00:08.000000Z 31 AlphaTypes 9 copy: Rule (copied)\n"
                         "1970-01-01T00:00:09.000000Z 31 Beta 0 Beta::check: Error: create it\n");
}

TEST_F(Trace, anObjectPerTrace) {
   RingBytes ring = four();
   const ProgramResult result = trace({"--format", "json", file("four", ring)});
   EXPECT_EQ(linesOf(result.out).at(1),
             R"({"schema":1,"time":"1970-01-01T00:00:07.000000Z","process":30,"thread":31,)"
             R"("source":"AlphaHelper","level":5,"class":"Helper","function":"walk","line":7,)"
             R"("text":"Rule 12 made"})");
   EXPECT_EQ(linesOf(result.out).size(), 4U);
}

TEST_F(Trace, severalFilesByTime) {
   RingBytes first = four();
   RingBytes second = ring(40);
   addSite(second, 1, {5, "Other", "", "f", "between"});
   second.record(0, 1, atSecond(2) + 500).record(0, 1, atSecond(9));
   const ProgramResult result = trace({file("two", second), file("four", first)});
   std::vector<std::string> begins;
   for (const std::string& line : linesOf(result.out)) {
      begins.push_back(line.substr(17, 16));
   }
   EXPECT_EQ(begins, (std::vector<std::string>{"06.000000Z 30/31", "07.000000Z 30/31",
                                               "07.000001Z 40/31", "08.000000Z 30/31",
                                               "09.000000Z 30/31", "14.000000Z 40/31"}));
}

TEST_F(Trace, filters) {
   RingBytes ring = four();
   file("four", ring);
   const struct {
      std::vector<std::string> options;
      std::string expected;
   } rows[] = {
         {{}, "1234"},
         {{"--level", "0-9"}, "1234"},
         {{"--level", "8"}, "1"},
         {{"--level", "0,5-8"}, "124"},
         {{"--level", "1-4"}, ""},
         {{"--since", "1970-01-01T00:00:07.000001Z"}, "34"},
         {{"--since", "1970-01-01T00:00:07Z"}, "234"},
         {{"--since", "1970-01-01 01:00:08+01:00"}, "34"},
         {{"--since", "1969-12-31t23:00:08.0-01:00"}, "34"},
         {{"--since", "10s"}, ""},
         {{"--since", "36500d"}, "1234"},
         {{"--grep", "Rule"}, "23"},
         {{"--grep", "Rule [0-9]+ made$"}, "2"},
         {{"--grep", "^(Rule|Error).*it$"}, "4"},
         {{"--grep", "create"}, "14"}, // a function, and a text
         {{"--grep", "Helper::"}, "12"},
         {{"--grep", "\\(copied\\)"}, "3"},
         {{"--grep", "[[:digit:]]{2} m"}, "2"},
         {{"--grep", "Rule \\d+|\\bit$"}, "24"},
         {{"--grep", "(?i)rULE"}, "23"},
         {{"--source", "Alpha*"}, "123"},
         {{"--source", "AlphaHelper"}, "12"},
         {{"--source", "*e*a*"}, "4"}, // AlphaHelper has no a behind its e
         {{"--source", "Alpha"}, ""},
         {{"--level", "5-9", "--source", "Alpha*", "--grep", "Rule", "--since",
           "1970-01-01T00:00:08Z"},
          "3"},
   };
   for (const auto& row : rows) {
      EXPECT_EQ(chosen(row.options), row.expected)
            << (row.options.empty() ? "" : row.options.back());
   }
}

TEST_F(Trace, anAgeIsCountedFromNow) {
   const auto now = static_cast<U64>(std::time(nullptr)) * 1'000'000'000;
   RingBytes ring = Trace::ring();
   ring.clocks({0, now - atSecond(5000)}, {1'000'000'000, now - atSecond(4999)});
   addSite(ring, 1, {5, "Source", "", "f", "old"});
   addSite(ring, 2, {5, "Source", "", "f", "new"});
   ring.record(0, 1, atSecond(1000)).record(0, 2, atSecond(4900)); // 4000 and 100 seconds old
   const std::string path = file("ring", ring);
   const auto count = [&](const char* age) { return linesOf(trace({"--since", age, path}).out); };
   EXPECT_EQ(count("60s").size(), 0U);
   EXPECT_EQ(count("1m").size(), 0U);
   EXPECT_EQ(count("200s").size(), 1U);
   EXPECT_EQ(count("1h").size(), 1U);
   EXPECT_EQ(count("2h").size(), 2U);
   EXPECT_EQ(count("1d").size(), 2U);
}

TEST_F(Trace, settingsThatCannotBeRead) {
   RingBytes ring = four();
   const std::string path = file("four", ring);
   const std::string times = "': expected a time such as 2025-11-21T11:36:51Z, or an age such as "
                             "10s, 5m, 2h, 1d\n";
   const std::string levels = "': expected levels from 0 to 9, such as 0-5,9\n";
   const struct {
      std::string option;
      std::vector<std::string> values;
      std::string rest;
   } rows[] = {
         {"--level", {"x", "10", "5-3", "1,", "-1", "*/5"}, levels},
         {"--since",
          {"x", "10", "s", "-1s", "10w", "1.5h", "99999999999999999999s", "36601d", "2025-11-21",
           "2025-11-21T11:36:51", "2025-02-29T00:00:00Z", "2025-13-01T00:00:00Z",
           "2025-11-21T24:00:00Z", "2025-11-21T11:36:51.Z", "2025-11-21T11:36:51Zx",
           "2025-11-21T11:36:51+1:00", "20255-11-21T11:36:51Z", "2025-11-21T11:36:61Z"},
          times},
         {"--grep", {"("}, "': not a regular expression: missing ): (\n"},
         {"--grep", {"[a"}, "': not a regular expression: missing ]: [a\n"},
         {"--grep", {"(a)\\1"}, "': not a regular expression: invalid escape sequence: \\1\n"},
         {"--grep", {"(?=a)"}, "': not a regular expression: invalid perl operator: (?=\n"},
         {"--grep", {"\xff"}, "': not a regular expression: it is not UTF-8\n"},
         {"--grep",
          {"((a{100}){100}){100}", "(((x{100}){100}){100}){100}"},
          "': not a regular expression: a repetition of more than 1000, nested ones multiplied, or "
          "one whose end is before its beginning: {100}\n"},
         {"--grep",
          {"\\pL{1000}"},
          "': not a regular expression: it takes too much memory; use smaller repetitions or a "
          "shorter expression\n"},
   };
   for (const auto& row : rows) {
      for (const std::string& value : row.values) {
         const ProgramResult result = trace({row.option + "=" + value, path});
         EXPECT_EQ(result.exitCode, 2) << value;
         EXPECT_EQ(result.out, "") << value;
         EXPECT_EQ(result.err.substr(0, result.err.find('\n') + 1),
                   "postcard trace: " + row.option + ": '" + Pello::escaped(value) + row.rest);
      }
   }
   EXPECT_EQ(trace({}).exitCode, 2);
   EXPECT_EQ(trace({"--format", "xml", path}).exitCode, 2);
}

// Neither the time nor the memory of an expression has to do with how it is nested.
TEST_F(Trace, noExpressionTakesMuchTimeOrMemory) {
   RingBytes ring = Trace::ring();
   addSite(ring, 1, {5, "Source", "", "f", std::string(4000, 'x') + "!"});
   for (U64 i = 0; i < 10; ++i) {
      ring.record(0, 1, i);
   }
   const std::string path = file("ring", ring);
   const auto nested = [](std::size_t times, const std::string& open, const std::string& close) {
      std::string expression;
      for (std::size_t i = 0; i < times; ++i) {
         expression += open;
      }
      expression += "x";
      for (std::size_t i = 0; i < times; ++i) {
         expression += close;
      }
      return expression;
   };
   const struct {
      std::string expression;
      int exitCode;
      std::size_t lines;
   } rows[] = {
         {nested(15'000, "(", ")"), 0, 10}, {nested(15'000, "(", ")") + ")", 2, 0},
         {nested(60'000, "[", ""), 2, 0},   {nested(10, "(", "{0,10})"), 2, 0},
         {nested(500, "(", "*)"), 0, 10},   {"(x+x+)+y", 0, 0},
         {"(x|x)*(x|x)*(x|x)*$", 0, 10},    {"(.*)(.*)(.*)(.*)[^xf!]", 0, 0},
   };
   for (const auto& row : rows) {
      const ProgramResult result = trace({"--grep", row.expression, path});
      const std::string begin = row.expression.substr(0, 40);
      EXPECT_EQ(result.exitCode, row.exitCode) << begin << result.signal;
      EXPECT_EQ(linesOf(result.out).size(), row.lines) << begin;
      EXPECT_LT(result.err.size(), 1'000U) << begin;
      EXPECT_LT(result.seconds, 10 * TestSupport::patience) << begin;
      if (!TestSupport::sanitized) {
         EXPECT_LT(result.peakKibibytes, 200'000) << begin;
      }
   }
}

TEST_F(Trace, expressionsSeeWholeTexts) {
   RingBytes ring = Trace::ring();
   using std::string_literals::operator""s;
   addSite(ring, 1, {5, "Source", "", "f", "one\ntwo\0three|\xff|f\xc3\xbcr"s});
   ring.record(0, 1, atSecond(1));
   const std::string path = file("ring", ring);
   for (const char* found :
        {"one.two", "three", "two.+three", "^one.*two", "für$", "f.r", "two\\x00"}) {
      EXPECT_EQ(linesOf(trace({"--grep", found, path}).out).size(), 1U) << found;
   }
   for (const char* other : {"^two", "one$", "f..r"}) {
      EXPECT_EQ(trace({"--grep", other, path}).out, "") << other;
   }
}

TEST_F(Trace, filesThatCannotBeUsed) {
   RingBytes whole = four();
   const std::string good = file("good", whole);
   RingBytes damaged = four();
   damaged.put(Ringlog::headerSize, U32{3});
   std::vector<std::byte> cut = whole.bytes();
   cut.erase(cut.end() - 100, cut.end());
   const struct {
      std::string path;
      std::string reason;
   } rows[] = {
         {path("missing"), "No such file or directory"},
         {path(""), "Is a directory"},
         {file("empty", std::vector<std::byte>{}), "not a trace ring: only 0 bytes"},
         {file("text", Bytes{}.raw(std::string(700'000, 'x')).bytes()),
          "not a trace ring: the first bytes are not those of one"},
         {file("cut", cut), "damaged trace ring: 2 blocks in 659356 bytes"},
         {file("damaged", damaged), "damaged trace ring: a descriptor of 3 bytes"},
   };
   for (const auto& row : rows) {
      for (const std::vector<std::string>& options :
           {std::vector<std::string>{}, {good}, {"--follow"}}) {
         std::vector<std::string> arguments = options;
         arguments.push_back(row.path);
         const ProgramResult result = trace(arguments);
         EXPECT_EQ(result.exitCode, 2) << row.path;
         EXPECT_EQ(result.out, "") << row.path;
         EXPECT_EQ(result.err, row.path + ": " + row.reason + "\n");
      }
   }
   // Every file that cannot be used is told.
   EXPECT_EQ(linesOf(trace({rows[0].path, good, rows[2].path}).err).size(), 2U);
}

TEST_F(Trace, textsStayOnTheirLine) {
   RingBytes ring = Trace::ring();
   addSite(ring, 1,
           {5, "So\nurce", "Cl\tass", "f\x1b[31m",
            "a\nb\r\tc\\ \x01\x7f|\xff|\xc2\x85|\xe2\x80\xa8|ü|"});
   ring.record(0, 1, atSecond(1));
   const std::string path = file("ring", ring);
   EXPECT_EQ(trace({path}).out, "1970-01-01T00:00:06.000000Z 31 So\\nurce 5 Cl\\tass::f\\x1b[31m: "
                                "a\\nb\\r\\tc\\ \\x01\\x7f|\\xff|\\xc2\\x85|\\xe2\\x80\\xa8|ü|\n");
   const ProgramResult json = trace({"--format", "json", path});
   ASSERT_EQ(linesOf(json.out).size(), 1U);
   EXPECT_EQ(Json::parse(json.out).at("text"),
             "a\nb\r\tc\\ \x01\x7f|\xef\xbf\xbd|\xc2\x85|\xe2\x80\xa8|ü|");
}

TEST_F(Trace, timesThatNoCalendarHas) {
   RingBytes ring = Trace::ring();
   addSite(ring, 1, {77, "Source", "", "f", "x"});
   ring.record(0, 1, U64{1} << 63).record(0, 1, (U64{1} << 63) - 1);
   ring.clocks({0, 5'000'000'000}, {1, U64{1} << 62});
   const std::string path = file("ring", ring);
   EXPECT_EQ(trace({path}).out, "1970-01-01T00:00:00.000000Z 31 Source 77 f: x\n"
                                "9999-12-31T23:59:59.000000Z 31 Source 77 f: x\n");
   EXPECT_EQ(trace({"--level", "0-9", path}).out, ""); // no such level
}

TEST_F(Trace, lossesAreTold) {
   RingBytes ring = four();
   ring.record(0, 78, atSecond(5)).put(offsetof(RingHeader, lostDescriptors), U32{2});
   ring.put(offsetof(RingHeader, lostBlocks), U32{3});
   ring.record(1, 1, atSecond(6)).put(RingBytes::blockAt(1) + 8, U32{70'000});
   const std::string path = file("ring", ring);
   const ProgramResult result = trace({path});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(linesOf(result.out).size(), 4U);
   EXPECT_EQ(result.err,
             path + ": 2 call sites found no room for their description\n" + path +
                   ": 1 traces of call sites without a description are left out\n" + path +
                   ": 3 times a thread found all of the ring in use by others and lost its next 64 "
                   "KiB of traces\n" +
                   path + ": 1 of 2 blocks are damaged; what lies behind the damage is left out\n");
}

TEST_F(Trace, valuesOfUnknownTypesAreSaidToBe) {
   RingBytes ring = Trace::ring();
   ring.site(1, "Value : {}", {KindOf{'v', "No::Type", ""}});
   ring.record(0, 1, atSecond(1), Bytes{}.number(U64{1}).bytes());
   ring.site(2, "Type : {}", {KindOf{'v', "Acl::AclType", ""}});
   ring.record(0, 2, atSecond(2), Bytes{}.number(U64{1}).bytes());
   const auto lines = linesOf(trace({file("ring", ring)}).out);
   EXPECT_EQ(lines.at(0).substr(28), "31 Source 5 f: <Value : {}: unknown type No::Type>");
   EXPECT_EQ(lines.at(1).substr(28), "31 Source 5 f: Type : ipv6");
}

TEST_F(Trace, theFileIsNotTouched) {
   RingBytes ring = four();
   const std::string path = file("ring", ring);
   ::chmod(path.c_str(), 0400);
   struct stat before {};
   ::stat(path.c_str(), &before);
   // As in a shell where the traced program was started.
   EXPECT_EQ(linesOf(trace({path}, {"RINGLOG_FILE=" + path}).out).size(), 4U);
   struct stat after {};
   ::stat(path.c_str(), &after);
   EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
   EXPECT_EQ(before.st_size, after.st_size);
   EXPECT_EQ(linesOf(trace({path}).out).size(), 4U);
}

TEST_F(Trace, outputThatNobodyReadsOrThatHasNoRoom) {
   RingBytes ring = Trace::ring();
   addSite(ring, 1, {5, "Source", "", "f", std::string(200, 'x')});
   for (U64 i = 0; i < 4000; ++i) { // more than a pipe holds
      ring.record(0, 1, i);
   }
   const std::string path = file("ring", ring);
   const std::string command = program + " trace " + path;
   const ProgramResult head =
         runProgram({"/bin/sh", "-c", "(" + command + "; echo $? >&2) | head -n 1"});
   EXPECT_EQ(linesOf(head.out).size(), 1U);
   EXPECT_EQ(head.err, "0\n");
   const ProgramResult full = runProgram({"/bin/sh", "-c", command + " >/dev/full"});
   EXPECT_EQ(full.exitCode, 3);
   EXPECT_EQ(full.err, "postcard: standard output: No space left on device\n");
}

} // namespace
