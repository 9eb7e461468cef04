// What the program says to words that it does not understand, to counts, and to files that are
// standard input.
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using TestSupport::program;
using TestSupport::ProgramResult;
using TestSupport::runProgram;

const std::string example = std::string{POSTCARD_SOURCE_DIR} + "/examples/web-tier.yaml";

ProgramResult run(std::vector<std::string> arguments) {
   arguments.insert(arguments.begin(), program);
   return runProgram(std::move(arguments));
}

// Runs a line of the shell in which $P is the program.
ProgramResult shell(const std::string& line) {
   return runProgram({"/bin/sh", "-c", "P='" + program + "'; " + line});
}

struct Mistake {
   std::vector<std::string> arguments;
   std::string err;
};

const std::string forCommands = "Run 'postcard --help' for the commands.\n";

std::string forCommand(const std::string& name) {
   return "Run 'postcard " + name + " --help' for what it takes.\n";
}

TEST(CommandLine, aMistakeIsNamedWithTheClosestWord) {
   const Mistake table[] = {
         {{}, "postcard: A subcommand is required\n" + forCommands},
         {{"chek"}, "postcard: unknown command 'chek'; did you mean 'check'?\n" + forCommands},
         {{"chek", "f.yaml", "--budget", "3"},
          "postcard: unknown command 'chek'; did you mean 'check'?\n" + forCommands},
         {{"trace-level"},
          "postcard: unknown command 'trace-level'; did you mean 'trace-levels'?\n" + forCommands},
         {{"frobnicate"}, "postcard: unknown command 'frobnicate'\n" + forCommands},
         {{"--verison"},
          "postcard: unknown option '--verison'; did you mean '--version'?\n" + forCommands},
         {{"check", "--budgt=3"},
          "postcard check: unknown option '--budgt'; did you mean '--budget'?\n" +
                forCommand("check")},
         {{"check", "--polcy", "web", example},
          "postcard check: unknown option '--polcy'; did you mean '--policy'?\n" +
                forCommand("check")},
         {{"explain", "--paket", "x", example},
          "postcard explain: unknown option '--paket'; did you mean '--packet'?\n" +
                forCommand("explain")},
         {{"check", "-x", example}, "postcard check: unknown option '-x'\n" + forCommand("check")},
         {{"check", example, "more"},
          "postcard check: unexpected argument 'more'\n" + forCommand("check")},
         {{"check"}, "postcard check: FILE is required\n" + forCommand("check")},
         {{"help", "chek"}, "postcard help: unknown command 'chek'; did you mean 'check'?\n"}};
   for (const auto& [arguments, err] : table) {
      const auto result = run(arguments);
      EXPECT_EQ(result.exitCode, 2) << err;
      EXPECT_EQ(result.err, err);
      EXPECT_EQ(result.out, "");
   }
}

TEST(CommandLine, controlBytesAreEscaped) {
   const std::string hostile = "\x1b[31m\x07\n\xe2\x80\xae\xff";
   for (const std::vector<std::string>& arguments :
        std::vector<std::vector<std::string>>{{hostile},
                                              {"check", "-" + hostile},
                                              {"check", example, hostile},
                                              {"check", example, "--budget", hostile},
                                              {"check", example, "--family", hostile},
                                              {"check", example, "--policy", hostile},
                                              {"types", hostile},
                                              {"help", hostile}}) {
      const auto result = run(arguments);
      EXPECT_EQ(result.exitCode, 2) << arguments.front();
      EXPECT_NE(result.err.find("\\u001b[31m\\u0007\\n\\u202e\\xff"), std::string::npos)
            << result.err;
      EXPECT_EQ(result.err.find('\x1b'), std::string::npos) << result.err;
   }
}

TEST(CommandLine, namesOfFilesAreEscapedInMessages) {
   const TestSupport::TemporaryFolder folder;
   const std::string twoClasses = "policies: [{ name: a, interfaces: { ipv4: [E] }, classes: [{ "
                                  "name: x, actions: [sample-all], "
                                  "ipv4: {} }, { name: y, actions: [sample-all], ipv4: {} }] }]";
   const struct {
      const char* command;
      std::string content;
      std::string rest; // behind the name of the file
   } rows[] = {{"check", "policies: 1", ":1:11: "},
               {"check", twoClasses, ":1:"}, // `y` is shadowed
               {"check --prove", twoClasses, ":1:"}};
   for (const auto& row : rows) {
      const std::string file = folder.write("\x1b[31m", row.content);
      const auto result = shell("$P " + std::string{row.command} + " '" + file + "' 2>&1");
      EXPECT_NE(result.out.find("\\u001b[31m" + row.rest), std::string::npos) << result.out;
      EXPECT_EQ(result.out.find('\x1b'), std::string::npos) << result.out;
   }
   for (const char* line :
        {"check $N", "agent $N", "agent --socket $N $F", "status --socket $N", "trace $N",
         "trace $F", "explain $F --pcap $N", "explain $F --pcap $F", "compile $F"}) {
      const std::string file = folder.write("\x1b[31m", "policies: 1");
      const auto result =
            shell("N='/nonexistent/\x1b[31m'; F='" + file + "'; exec $P " + std::string{line});
      EXPECT_TRUE(result.exitCode == 2 || result.exitCode == 3) << line;
      EXPECT_NE(result.err.find("\\u001b[31m"), std::string::npos) << line << result.err;
      EXPECT_EQ(result.err.find('\x1b'), std::string::npos) << line << result.err;
   }
}

TEST(CommandLine, helpPrintsWhatTheOptionPrints) {
   EXPECT_EQ(run({"help"}).out, run({"--help"}).out);
   for (const char* command : {"compile", "check", "explain", "agent", "show", "status", "reload",
                               "trace-levels", "trace", "types", "help"}) {
      const auto help = run({"help", command});
      EXPECT_EQ(help.exitCode, 0) << help.err;
      EXPECT_EQ(help.out, run({command, "--help"}).out) << command;
      EXPECT_NE(help.out.find("Usage: postcard " + std::string{command}), std::string::npos);
   }
}

TEST(CommandLine, aCountIsOfDigitsAndBounded) {
   for (const char* option : {"--budget", "--capacity"}) {
      const bool budget = option == std::string_view{"--budget"};
      const std::string command = budget ? "check" : "agent";
      for (const char* count : {"-1", "4k", "1e3", "0x10", "010", "+1", "", " 1", "1.5",
                                "4294967296", "99999999999999999999"}) {
         const auto result = run({command, "/nonexistent.yaml", option, count});
         EXPECT_EQ(result.exitCode, 2) << option << ' ' << count;
         EXPECT_EQ(result.err, "postcard " + command + ": " + option + ": '" + count +
                                     "' is no whole number from 0 to 4294967295\n" +
                                     forCommand(command));
      }
      for (const char* count : {"0", "7", "4294967295"}) {
         const auto result = run({command, "/nonexistent.yaml", option, count});
         EXPECT_EQ(result.err, "/nonexistent.yaml: cannot open: No such file or directory\n");
      }
   }
}

TEST(CommandLine, aMinusIsStandardInput) {
   // The same but for the name of the file before each warning.
   const auto expected = [](const std::string& name) {
      std::string text = run({"check", example}).out;
      for (std::size_t at = text.find(example); at != std::string::npos; at = text.find(example)) {
         text.replace(at, example.size(), name);
      }
      return text;
   };
   EXPECT_EQ(shell("$P check - < " + example).out, expected("<stdin>"));
   EXPECT_EQ(shell("$P check /dev/stdin < " + example).out, expected("/dev/stdin"));
   EXPECT_EQ(shell("cat " + example + " | $P check -").out, expected("<stdin>"));
   EXPECT_EQ(shell("cat " + example + " | $P check /dev/stdin").out, expected("/dev/stdin"));
   const std::string compiled = run({"compile", example}).out;
   for (const char* line : {"$P compile - < ", "$P compile /dev/stdin < "}) {
      EXPECT_EQ(shell(line + example).out, compiled) << line;
   }
   for (const char* line : {" | $P compile -", " | $P compile /dev/stdin"}) {
      const auto result = shell("cat " + example + line);
      EXPECT_EQ(result.out, compiled) << result.err;
   }
   EXPECT_EQ(shell("echo 'policies: [}' | $P check -").exitCode, 2);
   EXPECT_EQ(shell("$P compile --policy no - < " + example).err,
             "<stdin>: there is no policy 'no'\n");
}

TEST(CommandLine, anAgentNeedsAFileThatItCanReadAgain) {
   const auto result = shell("$P agent - < " + example);
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_EQ(result.err, "postcard agent: an agent reads its policy file again at each reload, so "
                         "it cannot be standard input; write a file and name it\n");
}

TEST(CommandLine, standardInputIsReadOnce) {
   EXPECT_EQ(shell("$P explain - --pcap - < " + example).err,
             "postcard explain: standard input can be read once, as policy file or as capture\n");
}

TEST(CommandLine, aRingComesThroughAPipe) {
   const TestSupport::TemporaryFolder folder;
   const std::string ring = folder.path("ring");
   runProgram({program, "check", example}, {"RINGLOG_FILE=" + ring});
   const std::string expected = run({"trace", ring}).out;
   ASSERT_NE(expected, "");
   EXPECT_EQ(shell("$P trace - < " + ring).out, expected);
   EXPECT_EQ(shell("cat " + ring + " | $P trace -").out, expected);
   EXPECT_EQ(shell("cat " + ring + " | $P trace /dev/stdin").out, expected);
   EXPECT_EQ(shell("cat " + ring + " | $P trace --follow -").exitCode, 2);
   const auto empty = shell("$P trace - < /dev/null");
   EXPECT_EQ(empty.exitCode, 2);
   EXPECT_EQ(empty.err, "/dev/stdin: not a trace ring: only 0 bytes\n");
}

// The header of a capture of Ethernet frames, without any frame, in octal for the shell.
const std::string emptyCapture =
      R"(printf '\324\303\262\241\2\0\4\0\0\0\0\0\0\0\0\0\0\0\4\0\1\0\0\0')";

TEST(CommandLine, aCaptureComesThroughAPipe) {
   for (const char* name : {"-", "/dev/stdin"}) {
      const auto result = shell(emptyCapture + " | $P explain " + example + " --pcap " + name);
      EXPECT_EQ(result.exitCode, 0) << result.err;
      EXPECT_NE(result.out.find(std::string{name}), std::string::npos) << result.out;
   }
}

// A capture that comes slowly holds the program long enough.
TEST(CommandLine, progressIsSaidOnRequest) {
   const std::string slow = "(sleep 3.5; " + emptyCapture + ") | $P explain --pcap - " + example;
   const auto silent = shell(slow);
   EXPECT_EQ(silent.err, "");
   const auto asked = shell(slow + " --progress");
   EXPECT_NE(asked.err.find("opening capture -, 2 s\n"), std::string::npos) << asked.err;
   EXPECT_EQ(asked.out, silent.out);
}

} // namespace
