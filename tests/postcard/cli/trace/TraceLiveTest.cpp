// `postcard trace` over the rings of real processes: of ones that were killed in the middle of
// their work, and of ones that are still at it.
#include "Ringlog/Trace.h"
#include "postcard/cli/trace/TraceFiles.h"
#include "postcard/host/PluginHost.h"
#include "postcard/policy/PolicyBuilder.h"
#include "support/BackgroundProgram.h"

#include <algorithm>
#include <regex>

namespace {

const Pello::TraceSource traceSource{"TraceLiveTest"};

using TestSupport::BackgroundProgram;
using TestSupport::eventually;
using TestSupport::linesOf;
using TestSupport::program;
using TestSupport::ProgramResult;
using Lines = std::vector<std::string>;

// A child of this process that traces into a file of its own, and ends with the test. This process
// itself never traces, so that the child opens its own ring.
class TracingChild {
 public:
   TracingChild(const std::string& path, const std::function<void()>& work,
                const char* kibibytes = "1024") {
      child_ = ::fork();
      if (child_ == 0) {
         ::setenv("RINGLOG_FILE", path.c_str(), 1);
         ::setenv("RINGLOG_SIZE", kibibytes, 1);
         work();
         ::_exit(0);
      }
   }
   TracingChild(const TracingChild&) = delete;
   TracingChild& operator=(const TracingChild&) = delete;
   ~TracingChild() {
      if (child_ > 0) {
         ::kill(child_, SIGKILL);
         wait();
      }
   }

   pid_t process() const { return child_; }
   void signal(int number) const { ::kill(child_, number); }
   // The signal that ended it, 0 for none.
   int wait() {
      int status = 0;
      ::waitpid(child_, &status, 0);
      child_ = 0;
      return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
   }

 private:
   pid_t child_;
};

class TraceLive : public TestSupport::TraceFolder {
 protected:
   static std::string endOf(const std::string& line) { return line.substr(line.find(' ') + 1); }
   // Lines without their times.
   static Lines withoutTimes(const std::string& text) {
      Lines lines = linesOf(text);
      std::ranges::transform(lines, lines.begin(), endOf);
      return lines;
   }
   static std::vector<int> numbersOf(const std::string& text) {
      std::vector<int> numbers;
      for (const std::string& line : linesOf(text)) {
         numbers.push_back(std::stoi(line.substr(line.rfind(' ') + 1)));
      }
      return numbers;
   }
   static std::vector<int> upTo(int last) {
      std::vector<int> numbers;
      for (int i = 1; i <= last; ++i) {
         numbers.push_back(i);
      }
      return numbers;
   }
   static bool readable(const std::string& path) { return trace({path}).exitCode == 0; }
};

// How many blocks of records a process has begun.
U64 blocksUsed(const std::string& ring) {
   U64 claims = 0;
   std::ifstream in{ring, std::ios::binary};
   in.seekg(offsetof(Ringlog::RingHeader, claims));
   in.read(reinterpret_cast<char*>(&claims), sizeof claims);
   return claims;
}

void traceNumbers(int first, int last) {
   for (int i = first; i <= last; ++i) {
      RINGLOG_TRACE(5, "number {}", i);
   }
}

// A policy of so many rules that creating it takes a while.
std::string hugePolicy() {
   std::string text = "policies:\n  - name: huge\n    interfaces: { ipv4: [Ethernet1] }\n"
                      "    classes:\n";
   for (int i = 0; i < 1000; ++i) {
      text += "      - { name: c" + std::to_string(i) +
              ", actions: [sample], ipv4: { protocols: [{ protocol: tcp, ports: [{ source: "
              "[1-65534], destination: [1-65534] }] }] } }\n";
   }
   return text;
}

TEST_F(TraceLive, aProcessKilledInTheMiddleOfAnOperation) {
   const std::string policy = path("huge.yaml");
   std::ofstream{policy} << hugePolicy();
   const std::string ring = path("ring");
   BackgroundProgram compiler{{program, "compile", policy},
                              {"RINGLOG_FILE=" + ring, "RINGLOG_SIZE=131072"}};
   // Its traces turn no ring of this size before the policy is made; it is killed long before.
   const auto atWork = [&] { return blocksUsed(ring) > 3; };
   ASSERT_TRUE(eventually(atWork));
   compiler.signal(SIGKILL);
   const pid_t process = compiler.process();
   ASSERT_EQ(compiler.wait().signal, SIGKILL);

   const ProgramResult result = trace({ring});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.err, "");
   const Lines lines = linesOf(result.out);
   ASSERT_GT(lines.size(), 1000U);
   const std::string who = " " + std::to_string(process) + " OruPostcardTelemetryPolicyAcl";
   for (const std::string& line : lines) {
      ASSERT_EQ(line.substr(26, 1 + who.size()), "Z" + who);
      ASSERT_TRUE(line.ends_with(':') || line.find(": ") != std::string::npos) << line;
      ASSERT_EQ(line.find('<'), std::string::npos); // a note that something cannot be read
   }
   const std::string helper = std::to_string(process) + " OruPostcardTelemetryPolicyAclHelper ";
   const Lines begin = withoutTimes(trace({"--grep", "::createPolicy$", ring}).out);
   EXPECT_EQ(begin, (Lines{helper + "8 OruPostcardPolicyAclHelper::createPolicy:",
                           helper + "9 OruPostcardPolicyAclHelper::createPolicy: "
                                    "Policy : huge, Match Type : 0",
                           helper + "5 OruPostcardPolicyAclHelper::createPolicy: "
                                    "Adding interface from intf4"}));
   // Every rule up to that point, one by one; and the operation has not come to its end.
   const auto rules = numbersOf(trace({"--grep", "Sport Valid.*NextRuleIndex", ring}).out);
   ASSERT_GT(rules.size(), 100U);
   for (std::size_t i = 0; i < rules.size(); ++i) {
      ASSERT_EQ(rules[i], static_cast<int>(i));
   }
   EXPECT_EQ(trace({"--grep", "Return Status", ring}).out, "");
}

// What the helper does when its contract is broken: a policy that it does not know is committed.
void commitUnknownPolicy() {
   const Postcard::Host::PluginHost host{Postcard::Host::PluginHost::defaultModule()};
   const Postcard::Host::HelperHandle helper =
         host.makeHelper(OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory(),
                         Postcard::Policy::buildHwCapability({}));
   Postcard::Policy::Policy policy;
   policy.name.text = "unknown";
   helper->commitPolicy(Postcard::Policy::buildPolicy(policy),
                        Postcard::Policy::matchOptionOf(Postcard::Policy::Family::ipv4));
}

TEST_F(TraceLive, aProcessThatAbortsLeavesItsLastLine) {
   ::setenv("POSTCARD_MODULE", POSTCARD_MODULE_DIR "/OruPostcardTelemetryPolicyAclHelper.so", 1);
   const std::string ring = path("ring");
   TracingChild child{ring, [] {
                         ::close(STDERR_FILENO); // the line goes there too
                         commitUnknownPolicy();
                      }};
   EXPECT_EQ(child.wait(), SIGABRT);
   const Lines lines = linesOf(trace({ring}).out);
   ASSERT_GT(lines.size(), 3U);
   const std::regex fatal{".* Ringlog 0 recordFatal: "
                          "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper:[0-9]+: "
                          "virtual Kiv::String "
                          "OruPostcardTelemetry::OruPostcardPolicyAclHelper::commitPolicy\\(.*\\): "
                          "Assertion '.*' failed.*"};
   EXPECT_TRUE(std::regex_match(lines.back(), fatal)) << lines.back();
   EXPECT_NE(lines[lines.size() - 2].find("0 OruPostcardPolicyAclHelper::commitPolicy: Error: "
                                          "Commit Policy received for a non-existent policy"),
             std::string::npos);
}

TEST_F(TraceLive, valuesReadAsInTheTextTraceWithAndWithoutTheModule) {
   const std::string ring = path("ring");
   const std::string example = std::string{POSTCARD_SOURCE_DIR} + "/examples/all-features.yaml";
   const ProgramResult compiled = TestSupport::runProgram(
         {program, "compile", example},
         {"RINGLOG_FILE=" + ring, "RINGLOG_SIZE=65536", "FMTRACE=OruPostcardTelemetry*/0-9"});
   Lines expected;
   for (std::string line : linesOf(compiled.err)) {
      if (line.starts_with("OruPostcardTelemetry")) {
         expected.push_back(line);
      }
   }
   ASSERT_GT(expected.size(), 500U);
   for (const char* module : {"", "POSTCARD_MODULE=/no/such/module"}) {
      const ProgramResult result = trace({"--source", "OruPostcardTelemetry*", ring},
                                         *module == '\0' ? Lines{} : Lines{module});
      Lines lines;
      for (const std::string& line : withoutTimes(result.out)) {
         lines.push_back(endOf(line)); // without the thread
         lines.back() += lines.back().ends_with(":") ? " " : "";
      }
      EXPECT_EQ(lines, expected);
   }
}

TEST_F(TraceLive, followsUntilTheProcessEnds) {
   const std::string ring = path("ring");
   TracingChild child{ring, [] {
                         for (int burst = 0; burst < 40; ++burst) {
                            traceNumbers(burst * 50 + 1, burst * 50 + 50);
                            ::usleep(20'000);
                         }
                      }};
   ASSERT_TRUE(eventually([&] { return readable(ring); }));
   BackgroundProgram follower{{program, "trace", "--follow", ring}};
   const pid_t process = child.process();
   EXPECT_TRUE(eventually([&] { return linesOf(follower.out()).size() > 100; })); // while it runs
   child.wait();
   const ProgramResult result = follower.wait();
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.err, ring + ": process " + std::to_string(process) + " has ended\n");
   EXPECT_EQ(numbersOf(result.out), upTo(2000));
}

TEST_F(TraceLive, followsUntilASignal) {
   const std::string ring = path("ring");
   TracingChild child{ring, [] {
                         traceNumbers(1, 3);
                         ::pause();
                      }};
   ASSERT_TRUE(eventually([&] { return linesOf(trace({ring}).out).size() == 3; }));
   for (const int signal : {SIGINT, SIGTERM}) {
      BackgroundProgram follower{{program, "trace", "--follow", "--format", "json", ring}};
      EXPECT_TRUE(eventually([&] { return linesOf(follower.out()).size() == 3; }));
      follower.signal(signal);
      const ProgramResult result = follower.wait();
      EXPECT_EQ(result.exitCode, 0);
      EXPECT_EQ(result.err, "");
   }
   // Nobody reads any more: noticed without a new trace.
   const ProgramResult head = TestSupport::runProgram(
         {"/bin/sh", "-c",
          "(" + program + " trace --follow " + ring + "; echo $? >&2) | head -n 1"});
   EXPECT_EQ(head.err, "0\n");
}

TEST_F(TraceLive, aRingThatAnotherProcessPutsInThePlaceIsFollowed) {
   const std::string ring = path("ring");
   const auto work = [](int first) {
      return [first] {
         traceNumbers(first, first + 2);
         ::pause();
      };
   };
   TracingChild first{ring, work(1)};
   ASSERT_TRUE(eventually([&] { return linesOf(trace({ring}).out).size() == 3; }));
   BackgroundProgram follower{{program, "trace", "--follow", ring}};
   ASSERT_TRUE(eventually([&] { return linesOf(follower.out()).size() == 3; }));
   std::filesystem::remove(ring);
   TracingChild second{ring, work(4)};
   EXPECT_TRUE(eventually([&] { return linesOf(follower.out()).size() == 6; }));
   const std::string process = std::to_string(second.process());
   second.signal(SIGKILL);
   const ProgramResult result = follower.wait(); // although the first one is still there
   EXPECT_EQ(numbersOf(result.out), upTo(6));
   EXPECT_EQ(result.err, ring + ": process " + process + " traces into it from here on\n" + ring +
                               ": process " + process + " has ended\n");
}

TEST_F(TraceLive, twoProcessesAreFollowedUntilBothHaveEnded) {
   const auto work = [](int first) {
      return [first] {
         for (int i = first; i < 100; i += 2) {
            traceNumbers(i, i);
            ::usleep(5'000);
         }
         ::pause();
      };
   };
   TracingChild odd{path("odd"), work(1)};
   TracingChild even{path("even"), work(2)};
   ASSERT_TRUE(eventually([&] { return readable(path("odd")) && readable(path("even")); }));
   BackgroundProgram follower{{program, "trace", "--follow", path("odd"), path("even")}};
   EXPECT_TRUE(eventually([&] { return linesOf(follower.out()).size() == 99; }));
   odd.signal(SIGKILL);
   odd.wait();
   EXPECT_EQ(follower.err(), "");
   even.signal(SIGKILL);
   const ProgramResult result = follower.wait();
   EXPECT_EQ(result.exitCode, 0);
   std::vector<int> numbers = numbersOf(result.out);
   std::ranges::sort(numbers);
   EXPECT_EQ(numbers, upTo(99));
}

TEST_F(TraceLive, whatAFollowerMissesIsCounted) {
   const std::string ring = path("ring");
   TracingChild child{ring,
                      [] {
                         traceNumbers(1, 10);
                         ::raise(SIGSTOP);
                         traceNumbers(11, 50'000);
                      },
                      "128"};
   ASSERT_TRUE(eventually([&] { return linesOf(trace({ring}).out).size() == 10; }));
   BackgroundProgram follower{{program, "trace", "--follow", ring}};
   ASSERT_TRUE(eventually([&] { return linesOf(follower.out()).size() == 10; }));
   follower.signal(SIGSTOP);
   child.signal(SIGCONT);
   EXPECT_EQ(child.wait(), 0);
   follower.signal(SIGCONT);
   const ProgramResult result = follower.wait();
   const std::vector<int> numbers = numbersOf(result.out);
   EXPECT_EQ(numbers.back(), 50'000);
   EXPECT_TRUE(std::ranges::is_sorted(numbers, std::ranges::less_equal{}));
   EXPECT_LT(numbers.size(), 10'000U);
   EXPECT_EQ(linesOf(result.err).at(0),
             ring + ": " + std::to_string(50'000 - numbers.size()) +
                   " traces made room for newer ones before they could be read");
}

} // namespace
