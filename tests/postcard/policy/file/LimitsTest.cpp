// Hostile texts: whatever a file holds, the answer comes within a second and 256 MiB. Every text is
// read in a process of its own. The processor time counts the library only: making 15 MiB of text
// takes an unoptimised test longer than reading it takes the library.

#include "Pello/FileDescriptor.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/policy/file/PolicyFileFrames.h"
#include "support/Sanitized.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Postcard::Policy::File {
namespace {

using TestSupport::patience;
using TestSupport::sanitized;

constexpr std::size_t mebibyte = 1U << 20U;

std::string repeated(std::string_view piece, std::size_t count) {
   std::string text;
   text.reserve(piece.size() * count);
   for (std::size_t i = 0; i < count; ++i) {
      text += piece;
   }
   return text;
}

std::string numbered(std::size_t count, const std::function<std::string(std::size_t)>& piece) {
   std::string text;
   for (std::size_t i = 0; i < count; ++i) {
      text += piece(i);
   }
   return text;
}

double secondsOf(const rusage& usage) {
   const auto seconds = [](const timeval& time) {
      return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
   };
   return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Usage {
   bool good = false;  // whether the process ended by itself and with the expected answer
   double seconds = 0; // processor time of reading, without that of making the text
   long kibibytes = 0; // peak memory of the whole process, its text included
};

// Reads what `make` makes, and sends the processor time that reading takes to `out`. Returns the
// exit status of the process: 0 when the findings contain `expected`, or there are none when
// `expected` is empty.
int readInChild(const std::function<std::string()>& make, std::string_view expected, int out) {
   const std::string text = make();
   rusage before = {};
   rusage after = {};
   ::getrusage(RUSAGE_SELF, &before);
   const std::string findings = formatFindings(parsePolicyText(text, "F"));
   ::getrusage(RUSAGE_SELF, &after);
   const double seconds = secondsOf(after) - secondsOf(before);
   const bool sent = ::write(out, &seconds, sizeof seconds) == sizeof seconds;
   const bool good =
         expected.empty() ? findings.empty() : findings.find(expected) != std::string::npos;
   return sent && good ? 0 : 1;
}

Usage read(const std::function<std::string()>& make, std::string_view expected) {
   int ends[2];
   if (::pipe(ends) != 0) {
      return {};
   }
   const Pello::FileDescriptor in{ends[0]};
   const Pello::FileDescriptor out{ends[1]};
   const pid_t child = ::fork();
   if (child == 0) {
      ::_exit(readInChild(make, expected, out.get()));
   }
   int status = -1;
   rusage usage = {};
   if (child < 0 || ::wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) ||
       WEXITSTATUS(status) != 0) {
      return {};
   }
   Usage result{true, 0, usage.ru_maxrss};
   result.good = ::read(in.get(), &result.seconds, sizeof result.seconds) ==
                 static_cast<ssize_t>(sizeof result.seconds);
   return result;
}

struct Hostile {
   const char* name;
   std::function<std::string()> text;
   const char* finding; // empty: accepted
};

const char* const tooMany = "the file holds more than 200000 keys, values, lists and mappings";
const char* const tooDeep = "lists and mappings are nested deeper than 32";

std::string inClasses(const std::string& classes) {
   return framed(Frame::policy, "  classes:\n" + classes);
}

std::string inFilter(const std::string& head, const std::string& middle, const std::string& tail) {
   return framed(Frame::ipv4, "      " + head + middle + tail + "\n");
}

// 100 lists, each of eight times the one before.
std::string aliasBomb() {
   std::string text = "a0: &a0 [x, x, x, x, x, x, x, x, x]\n";
   for (int i = 1; i < 100; ++i) {
      text += fmt::format("a{0}: &a{0} [*a{1}, *a{1}, *a{1}, *a{1}, *a{1}, *a{1}, *a{1}, *a{1}]\n",
                          i, i - 1);
   }
   return text + "policies: *a99\n";
}

// 100 lists, each in the next one, without a line that is deep.
std::string aliasTower() {
   std::string text = "a0: &a0 []\n";
   for (int i = 1; i < 100; ++i) {
      text += fmt::format("a{0}: &a{0} [*a{1}]\n", i, i - 1);
   }
   return text + "policies: *a99\n";
}

void expectCheap(const Hostile& row) {
   const Usage usage = read(row.text, row.finding);
   EXPECT_TRUE(usage.good) << row.name;
   EXPECT_LT(usage.seconds, patience) << row.name;
   if (!sanitized) {
      EXPECT_LT(usage.kibibytes, 256 * 1024) << row.name;
   }
   if (::getenv("POSTCARD_SHOW_USAGE") != nullptr) {
      fmt::print("{:40} {:6.0f} ms {:4} MiB\n", row.name, usage.seconds * 1000,
                 usage.kibibytes / 1024);
   }
}

TEST(PolicyFileLimits, hostileYaml) {
   const Hostile rows[] = {
         {"list brackets", [] { return repeated("[", 10 * mebibyte); }, tooDeep},
         {"mapping braces", [] { return repeated("{a: ", 5 * mebibyte / 2); }, tooDeep},
         {"dashes", [] { return repeated("- ", 5 * mebibyte); }, tooDeep},
         {"question marks", [] { return repeated("? ", 5 * mebibyte); }, tooDeep},
         {"indentation",
          [] { return numbered(4000, [](std::size_t i) { return std::string(i, ' ') + "a:\n"; }); },
          tooDeep},
         {"alias bomb", aliasBomb, "with what its aliases stand for, the file holds more than"},
         {"alias tower", aliasTower, tooDeep},
         {"aliases of one word", [] { return "a: [&a b" + repeated(",*a", 4 * mebibyte) + "]"; },
          "with what its aliases stand for, the file holds more than"},
         {"aliases of a long number",
          [] {
             return "hardware: [&a " + repeated("9", 4 * mebibyte) + "]\n" +
                    inFilter("protocols: [{protocol: 6, icmp-types: [", repeated("*a,", 199900),
                             "]}]");
          },
          "expected a number from 0 to 255 for icmp-types"},
         {"aliases of a long prefix",
          [] {
             return "hardware: [&a " + repeated("9", 4 * mebibyte) + "/8]\n" +
                    inFilter("source: [", repeated("*a,", 199900), "]");
          },
          "expected an IPv4 prefix such as"},
         {"aliases of a long name",
          [] {
             return "hardware: [&a " + repeated("9", 4 * mebibyte) + "]\n" +
                    inFilter("protocols: [{protocol: 6, tcp-flags: [{mask: [",
                             repeated("*a,", 199900), "]}]}]");
          },
          "unknown TCP flag"},
         {"as many anchors as fit",
          [] {
             return "a: [" +
                    numbered(99900,
                             [](std::size_t i) { return fmt::format("&a{0} x,*a{0},", i); }) +
                    "]";
          },
          "unknown key 'a'"},
         {"one anchor as often as fits", [] { return "a: [" + repeated("&a b,*a,", 99900) + "]"; },
          "unknown key 'a'"},
         {"one plain scalar", [] { return "a: " + repeated("x", 15 * mebibyte); }, "unknown key"},
         {"one quoted scalar", [] { return "a: \"" + repeated("x", 15 * mebibyte) + "\""; },
          "unknown key"},
         {"one key", [] { return "? " + repeated("x", 15 * mebibyte); }, "unknown key"},
         {"one block scalar", [] { return "a: |\n" + repeated("\n", 15 * mebibyte) + " x"; },
          "unknown key"},
         {"many lines folded", [] { return "a: \"" + repeated(" \n", 7 * mebibyte) + "\""; },
          "unknown key"},
         {"escapes", [] { return "a: \"" + repeated("\\L", 7 * mebibyte) + "\""; }, "unknown key"},
         {"blank lines", [] { return repeated("\n", 15 * mebibyte) + "policies: []"; }, ""},
         {"one comment", [] { return "#" + repeated("#", 15 * mebibyte) + "\npolicies: []"; }, ""},
         {"list of numbers", [] { return "a: [" + repeated("1,", 7 * mebibyte) + "1]"; }, tooMany},
         {"anchors", [] { return "a: [" + repeated("&a b,", 2 * mebibyte) + "]"; }, tooMany},
         {"anchor name", [] { return "a: &" + repeated("x", 15 * mebibyte) + " b"; }, "anchor"},
         {"alias name", [] { return "a: *" + repeated("x", 15 * mebibyte); }, "alias"},
         {"tag", [] { return "a: !" + repeated("x", 15 * mebibyte) + " b"; }, "tag '!xxx"},
         {"tag directives",
          [] {
             return numbered(200000,
                             [](std::size_t i) { return fmt::format("%TAG !t{}! tag:x\n", i); }) +
                    "---\npolicies: []";
          },
          "directive"},
         {"tag directives of a second document",
          [] {
             return "policies: []\n...\n" +
                    numbered(200000,
                             [](std::size_t i) { return fmt::format("%TAG !t{}! tag:x\n", i); }) +
                    "---\na: 1";
          },
          "text after the end of the document"},
         {"one directive",
          [] { return "%" + repeated("x", 15 * mebibyte) + "\n---\npolicies: []"; }, "directive"},
         {"two bytes per character",
          [] { return "# " + repeated("ü", 7 * mebibyte) + "\npolicies: []"; }, ""},
         {"NUL bytes", [] { return std::string(16 * mebibyte, '\0'); }, "U+0000"},
         {"too many bytes", [] { return repeated(" ", 16 * mebibyte + 1); }, "longer than"},
   };
   for (const Hostile& row : rows) {
      expectCheap(row);
   }
}

TEST(PolicyFileLimits, hostilePolicies) {
   const Hostile rows[] = {
         {"a million classes", [] { return inClasses(repeated("  - {x: y}\n", 1000000)); },
          tooMany},
         {"a million duplicate keys", [] { return repeated("a: 1\n", 1000000); }, tooMany},
         {"as many duplicate keys as fit", [] { return repeated("a: 1\n", 99990); },
          "duplicate key 'a' (first at 1:1)"},
         {"as many unknown keys as fit",
          [] {
             return "hardware:\n" + numbered(99990, [](std::size_t i) {
                       return fmt::format(" tcp-flag{}: 1\n", i);
                    });
          },
          "unknown key 'tcp-flag0'"},
         {"empty policies", [] { return "policies:\n" + repeated("- {}\n", 199990); },
          "missing key 'interfaces' in a policy"},
         {"empty classes", [] { return inClasses(repeated("  - {}\n", 199980)); },
          "missing key 'name'"},
         {"misspelt classes", [] { return inClasses(repeated("  - {naem: 1}\n", 66000)); },
          "unknown key 'naem'"},
         {"classes",
          [] {
             return inClasses(numbered(
                   66000, [](std::size_t i) { return fmt::format("  - name: c{}\n", i); }));
          },
          ""},
         {"classes of a family",
          [] {
             return inClasses(numbered(39990, [](std::size_t i) {
                return fmt::format("  - {{name: c{}, ipv4: {{}}}}\n", i);
             }));
          },
          ""},
         {"interfaces",
          [] {
             return "policies: [{name: p, interfaces: {ipv4: [" +
                    numbered(199950,
                             [](std::size_t i) {
                                return fmt::format("Ethernet-of-a-long-name-{:030},", i);
                             }) +
                    "]}}]";
          },
          ""},
         {"prefixes",
          [] {
             return inFilter("source: [",
                             numbered(199950,
                                      [](std::size_t i) {
                                         return fmt::format("10.{}.{}.{}/32,", i >> 16U,
                                                            i >> 8U & 255U, i & 255U);
                                      }),
                             "]");
          },
          ""},
         {"bad prefixes",
          [] { return inFilter("source: [", repeated("10.0.0.0/33,", 199950), "]"); },
          "bad length"},
         {"no prefixes",
          [] { return inFilter("source: [", repeated("1:2:3:4:5:6:7,", 199950), "]"); },
          "expected an IPv4 prefix"},
         {"bad flags",
          [] {
             return inFilter("protocols: [{protocol: 6, tcp-flags: [{mask: [",
                             repeated("sinn,", 199960), "]}]}]");
          },
          "unknown TCP flag"},
         {"port ranges",
          [] {
             return inFilter(
                   "protocols: [{protocol: 6, ports: [{source: [",
                   numbered(60000, [](std::size_t i) { return fmt::format("{}-{},", i, i + 1); }),
                   "]}]}]");
          },
          ""},
         {"port entries",
          [] {
             return inFilter("protocols: [{protocol: 6, ports: [", repeated("{},", 199960), "]}]");
          },
          ""},
         {"names of a long definition",
          [] {
             return "definitions: {ports: {a: [" +
                    numbered(50000, [](std::size_t i) { return fmt::format("{},", i); }) + "]}}\n" +
                    inFilter("protocols: [{protocol: 6, ports: [",
                             repeated("{source: [a]},", 30000), "]}]");
          },
          "names of definitions stand for more than 200000 ports"},
         {"unknown names among many definitions",
          [] {
             return "definitions: {ports: {" +
                    numbered(60000,
                             [](std::size_t i) { return fmt::format("service-{}: [1],", i); }) +
                    "}}\n" +
                    inFilter("protocols: [{protocol: 6, ports: [{source: [",
                             repeated("servoce-x,", 19000), "]}]}]");
          },
          "or the name of a definition for source, found 'servoce-x'"},
         {"keys for both families and for one",
          [] {
             return inClasses(numbered(15000, [](std::size_t i) {
                return fmt::format("  - {{name: c{}, both: {{ip-ttl: 1}}, ipv4: {{ip-ttl: 1}}}}\n",
                                   i);
             }));
          },
          "key 'ip-ttl' stands in both and in ipv4"},
         {"rules",
          [] {
             return inFilter("protocols: [{protocol: 6, ports: [",
                             repeated("{source: [1-65534], destination: [1-65534]},", 9000), "]}]");
          },
          "adds 8100000 ipv4 rules"},
   };
   for (const Hostile& row : rows) {
      expectCheap(row);
   }
}

// The largest example is far from every limit.
TEST(PolicyFileLimits, largestExampleIsFarBelow) {
   LoadOptions options;
   options.maxBytes /= 50;
   options.maxNodes /= 8;
   options.maxRules /= 50;
   const LoadResult result =
         loadPolicyFile(POSTCARD_SOURCE_DIR "/examples/large-datacenter.yaml", options);
   EXPECT_TRUE(result.policyFile) << formatFindings(result);
}

TEST(PolicyFileLimits, limitsAreInclusive) {
   const std::string text = "{policies: []}";
   LoadOptions options;
   options.maxNodes = 3;
   EXPECT_TRUE(parsePolicyText(text, "F", options).policyFile);
   options.maxNodes = 2;
   EXPECT_EQ(findingsOf(parsePolicyText(text, "F", options)),
             "1:12: the file holds more than 2 keys, values, lists and mappings\n");
   EXPECT_EQ(findingsOf(parsePolicyText(repeated("[", 32) + repeated("]", 32), "F")),
             "1:1: expected a mapping for the file, found a list\n");
   EXPECT_EQ(findingsOf(parsePolicyText(repeated("[", 33) + repeated("]", 33), "F")),
             "1:33: lists and mappings are nested deeper than 32\n");
}

} // namespace
} // namespace Postcard::Policy::File
