// What once destroyed a file, stopped, stayed silent or misled, and what happens today: a row for
// each, through the real program. Rows that stand for something large run a small form of it;
// scripts/attack runs the large one.
//
// A row is a script of the shell with what it must print and how it must end. In it, $P is the
// program, $S the sources, $D a folder that lasts as long as the row and holds policy.yaml, $T the
// seconds that a user waits for a short answer.
// `agent OPTION...` starts an agent for that file, `ask COMMAND OPTION...` asks it.
#include "support/RunProgram.h"
#include "support/Sanitized.h"
#include "support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <regex>
#include <string>

namespace {

// Whether a row limits what a sanitizer needs: terabytes of address space, and descriptors for the
// pipe through which it looks at memory.
enum class Means : std::uint8_t { any, limited };

struct Row {
   const char* guards; // the name of the row
   const char* was;    // what the script showed before
   const char* script;
   int exitCode;
   const char* out; // a regular expression that must match all of standard output
   const char* err; // the same of standard error
   Means means = Means::any;
};

void PrintTo(const Row& row, std::ostream* out) {
   *out << row.guards;
}

constexpr const char* policy = "policies:\n"
                               "  - name: web\n"
                               "    interfaces: { ipv4: [Ethernet1] }\n"
                               "    classes: [{ name: all, actions: [sample-all], ipv4: {} }]\n";

// The agent of a row ends with its shell, by its number.
constexpr const char* functions = R"(
agent() {
   "$P" agent --socket "$D/s" "$@" "$D/policy.yaml" 2>>"$D/log" & agentProcess=$!
   trap 'kill $agentProcess $other 2>/dev/null; wait' EXIT
   until "$P" status --socket "$D/s" >"$D/waited" 2>&1; do
      kill -0 $agentProcess 2>/dev/null || { cat "$D/log"; exit 99; }
      sleep 0.02
   done
}
ask() { command=$1; shift; "$P" "$command" --socket "$D/s" "$@"; }
policies() { # COUNT: that many policies of two rules
   echo policies:
   for i in $(seq "$1"); do
      echo "  - { name: p$i, interfaces: { ipv4: [E] }, classes: [{ name: c, actions: [sample], ipv4: {} }] }"
   done
}
ports() { seq -s, 1 2 $((2 * $1 - 1)); } # COUNT: as many odd ports, none of which share a block
rules() { # SOURCES DESTINATIONS: a policy of as many rules as their product
   echo "policies: [{ name: big, interfaces: { ipv4: [E] }, classes: [{ name: c, actions: [sample]," \
      "ipv4: { protocols: [{ protocol: udp, ports: [{ source: [$(ports $1)], destination: [$(ports $2)] }] }] } }] }]"
}
sockets() { # N: opens as many connections, says nothing, and waits
   perl -MIO::Socket::UNIX -e '
      push @all, IO::Socket::UNIX->new(Peer => $ARGV[0]) or die for 1 .. $ARGV[1];
      open my $ready, ">", "$ARGV[2]"; close $ready; sleep 60' "$D/s" "$1" "$D/connected" & other=$!
   until [ -e "$D/connected" ]; do sleep 0.02; done
}
)";

// ---- Lost or stopped ----

const Row lost[] = {
      {"aRingFileThatIsAPolicyStays", "the policy was overwritten with a ring",
       R"sh(cp "$D/policy.yaml" "$D/copy"
          RINGLOG_FILE="$D/policy.yaml" "$P" check "$D/policy.yaml" 2>&1 >"$D/out"
          cmp "$D/policy.yaml" "$D/copy" && cat "$D/out")sh",
       0,
       "RINGLOG_FILE=.* ignored: the file holds something else than a trace ring and is left as it "
       "is; name another one, or a new one. Traces stay in memory\n[^]*\ntotal +2[^]*",
       ""},
      {"aRingIsItsOwnersAndNoLink", "the mode stayed what it was, and links were followed",
       R"sh(touch "$D/ring"; chmod 666 "$D/ring"; ln -s "$D/policy.yaml" "$D/link"
          RINGLOG_FILE="$D/ring" "$P" check "$D/policy.yaml" >"$D/out"; stat -c %a "$D/ring"
          RINGLOG_FILE="$D/link" "$P" check "$D/policy.yaml" >"$D/out"
          head -c 9 "$D/policy.yaml")sh",
       0, "600\npolicies:", "RINGLOG_FILE=.*/link ignored: it is a symbolic link, .*\n"},
      {"anOldRingOutlivesAFullDisk", "the old ring was cut before there was room for the new one",
       R"sh(RINGLOG_FILE="$D/ring" "$P" check "$D/policy.yaml" >"$D/out"; cp "$D/ring" "$D/copy"
          (ulimit -f 1000; RINGLOG_FILE="$D/ring" "$P" check "$D/policy.yaml" >"$D/out")
          cmp "$D/ring" "$D/copy" && echo kept)sh",
       0, "kept\n", "RINGLOG_FILE=.* ignored: File too large; the ring needs 1540 KiB, and .*\n"},
      {"aTruncatedRingEndsNobody", "SIGBUS ended the agent",
       R"sh(export RINGLOG_FILE="$D/ring"; agent; unset RINGLOG_FILE
          for i in 1 2 3; do
             truncate -s 0 "$D/ring"; policies $i >"$D/policy.yaml"; ask reload; ask status --wait | wc -l
          done
          kill $agentProcess; wait $agentProcess; echo "ended with $?"
          grep -c 'the ring was truncated' "$D/log")sh",
       0, "(\\d operations?\n\\d\n){3}ended with 0\n1\n", ""},
      {"aLargeShowHoldsNobodyUp", "show held the agent for 1.4 seconds, and longer with more rules",
       R"sh(rules 200 150 >"$D/policy.yaml"; agent --capacity 30000; ask status --wait >"$D/out"
          ask show | { head -c 100 >"$D/begun"; sleep 1; wc -l >"$D/lines"; } & shown=$!
          until [ -s "$D/begun" ]; do sleep 0.02; done
          timeout $T "$P" status --socket "$D/s" | grep -c programmed
          wait $shown; [ "$(cat "$D/lines")" -gt 300000 ] && echo whole)sh",
       0, "1\nwhole\n", ""},
      {"jsonOfManyRulesTakesLittleMemory", "100,000 rules took 563 MB",
       R"sh(rules 200 500 >"$D/policy.yaml"; ulimit -v 120000
          "$P" compile --format json "$D/policy.yaml" | tail -n 4)sh",
       0, " +\"rules\": 100000,\n +\"tcamEntries\": 100000\n  \\}\n\\}\n", "", Means::limited},
      {"shortMemorySaysWhatItWasDoing", "exit status 3 without a word",
       R"sh(rules 200 500 >"$D/policy.yaml"; status=127
          for limit in $(seq 28000 4000 120000); do # with the first, the libraries may not fit
             [ $status = 127 ] || grep -q "cannot be loaded" "$D/err" || break
             (ulimit -v $limit; exec "$P" compile --format json "$D/policy.yaml" >"$D/out" 2>"$D/err")
             status=$?
          done
          tail -n 1 "$D/out" | grep -c '^}'; cat "$D/err" >&2; exit $status)sh",
       3, "0\n",
       "postcard: out of memory while [a-z]+ policy .*; free memory or raise the limit of the "
       "process \\(ulimit -v\\).*\n",
       Means::limited},
      {"thousandsOfPoliciesAreProgrammed", "4,000 policies did not end in 46 seconds",
       R"sh(policies 1000 >"$D/policy.yaml"; agent
          ask status --wait --timeout 60 | grep -c ' programmed '; ask status | tail -n 1)sh",
       0, "1000\n2000 of 4096 entries used, 2096 free\n", ""},
      {"aCutFileDoesNotComeToWhatItSays", "a file that was cut passed with other totals",
       R"sh({ echo 'expect: { policies: 3 }'; policies 3; } >"$D/whole"
          "$P" check "$D/whole" | tail -n 1
          head -n 4 "$D/whole" >"$D/cut"; "$P" check "$D/cut")sh",
       2, "[^]*total +6[^]*",
       ".*/cut:1:21: expected 3 policies, found 2 \\(was the file cut while it was "
       "written\\?\\)\n"},
      {"anEmptyFileRemovesNothingUnasked", "every policy was removed",
       R"sh(agent; ask status --wait >"$D/out"; echo 'policies: []' >"$D/policy.yaml"
          ask reload; ask status | grep -c ' programmed '; ask reload --allow-empty)sh",
       0, "1\n1 operation\n",
       ".*: the file has no policies, so every policy would be removed; --allow-empty allows "
       "that\n"},
      {"aFileIsReadWhenItStandsStill", "a reload took the part that was written so far",
       R"sh(agent; policies 9 >"$D/all"; : >"$D/policy.yaml"
          while read -r line; do echo "$line"; sleep 0.05; done <"$D/all" >>"$D/policy.yaml" & other=$!
          sleep 0.1; ask reload; ask status --wait | grep -c ' programmed ')sh",
       0, "\\d+ operations\n9\n", ""},
      {"anUnreadStandardErrorStopsNobody", "the agent stood still after some thousand lines",
       R"sh(mkfifo "$D/log"; sleep 60 <"$D/log" & other=$!
          rules 60 50 >"$D/policy.yaml"; export FMTRACE='OruPostcardTelemetry*/0-9'; agent
          unset FMTRACE; ask status --wait | grep -c ' programmed ')sh",
       0, "1\n", ""},
      {"anExpressionIsBounded", "SIGSEGV, and 5 GB of memory",
       R"sh(RINGLOG_FILE="$D/ring" "$P" check "$D/policy.yaml" >"$D/out"
          deep=$(printf '%15000s' | tr ' ' '(')
          "$P" trace --grep "$deep" "$D/ring" 2>&1 | tail -c 200; "$P" trace --grep \
             '((((((((((x{0,10}){0,10}){0,10}){0,10}){0,10}){0,10}){0,10}){0,10}){0,10}){0,10})' "$D/ring")sh",
       2, "[^]*not a regular expression[^]*",
       "postcard trace: --grep: .*: not a regular expression: a repetition of more than "
       "1000.*\nRun "
       "'postcard trace --help' .*\n"},
      {"fewDescriptorsAreAMessage", "abort without a message",
       R"sh(exec 3>&- 4>&- 5>&- 6>&- 7>&-; ulimit -n 5; "$P" agent --socket "$D/s" "$D/policy.yaml")sh",
       3, "",
       "postcard: this command needs \\d+ file descriptors, and \\d are free; raise the limit "
       ".*\n",
       Means::limited},
      {"countsAreWholeNumbers", "-1 became a number of 309 digits, and 4k was taken",
       R"sh(for count in -1 4k 99999999999999999999; do
             "$P" check "$D/policy.yaml" --budget "$count" || "$P" agent "$D/policy.yaml" --capacity "$count"
          done)sh",
       2, "",
       "(postcard (check|agent): --(budget|capacity): '(-1|4k|9+)' is no whole number from 0 to "
       "4294967295\nRun .*\n){6}"},
      {"namesHoldNoHiddenCharacters", "U+202E and U+200B were taken",
       R"sh(sed -i "s/name: web/name: \"we\\\\u202eb\"/" "$D/policy.yaml"; "$P" check "$D/policy.yaml"
          printf 'policies: [{ name: "a\342\200\213", interfaces: { ipv4: [E] }, classes: [] }]' | "$P" check -)sh",
       2, "",
       ".*policy.yaml:2:11: name 'we\\\\u202eb' holds .*\n<stdin>:1:20: name 'a\\\\u200b' holds "
       ".*\n"},
      {"controlBytesAreEscaped", "they were echoed to the terminal",
       R"sh(esc=$(printf '\033[31m'); "$P" "$esc"; cp "$D/policy.yaml" "$D/$esc"; "$P" check "$D/$esc/x"
          echo 'a: b' >"$D/$esc"; "$P" check "$D/$esc"; RINGLOG_FILE="$D/$esc/x" "$P" check "$D/policy.yaml" --policy "$esc")sh",
       2, "", "[^\x1b]*unknown command '\\\\u001b\\[31m'[^\x1b]*"},
      {"aSecondAgentKeepsItsSocket", "the first agent removed it when it ended",
       R"sh(agent; first=$agentProcess; rm "$D/s" "$D/s.lock"; agent
          kill $first; wait $first; ask status | grep -c web)sh",
       0, "1\n", ""},
      {"silentClientsLockNobodyOut", "nobody else was served for 30 seconds",
       R"sh(agent; sockets 40; timeout 8 "$P" status --socket "$D/s" | grep -c web)sh", 0, "1\n",
       ""},
      {"whatIsInstalledIsSaidBefore", "apt-get ran without a word",
       R"sh(mkdir "$D/bin" "$D/fmt"; printf '#define FMT_VERSION 100200\n' >"$D/fmt/base.h"
          mkdir "$D/include"; mv "$D/fmt" "$D/include"
          printf '#!/bin/sh\nexit 1\n' >"$D/bin/dpkg-query"; printf '#!/bin/sh\necho 0\n' >"$D/bin/id"
          printf '#!/bin/sh\necho "  Candidate: 1"\n' >"$D/bin/apt-cache"
          printf '#!/bin/sh\necho "apt-get $1" >&3\n' >"$D/bin/apt-get"
          chmod +x "$D"/bin/*; unset POSTCARD_SKIP_INSTALL
          PATH="$D/bin:$PATH" POSTCARD_FMT_INCLUDE="$D/include" "$S/scripts/install-dependencies" run 3>&1)sh",
       0,
       "==> installing with apt-get what is missing, [^]*libre2-dev: regular[^]*\n==> updating the "
       "package lists\napt-get update\napt-get install\n",
       ""},
};

// ---- Silent or misleading ----

const Row silent[] = {
      {"aRefusalNamesEveryClassAndItsPlace", "a message without class and line",
       R"sh(printf '%s\n' 'policies: [{ name: a, interfaces: { ipv4: [E] }, classes: [' \
             '{ name: x, actions: [drop], ipv4: {} },' '{ name: y, actions: [drop], ipv4: {} }]}]' >"$D/p"
          "$P" compile "$D/p"; "$P" check --format json "$D/p" | grep -E '"(class|line)"')sh",
       0, R"sh( +"class": "x",\n +"line": 2,\n +"class": "y",\n +"line": 3,\n)sh",
       "(a ipv4: Unsupported action\\(s\\): 'drop', in configuration\n +.*/p:2:\\d+: class 'x': "
       ".*\n "
       "+.*/p:3:\\d+: class 'y': .*\n(ACLs: 0, .*\n)?){2}"},
      {"aRefusedReloadIsSeen", "SIGHUP with a refused file left no trace in the status",
       R"sh(agent; echo 'policies: [' >"$D/policy.yaml"; kill -HUP $agentProcess
          until ask status | grep 'reload refused'; do sleep 0.05; done
          ask status --format json | grep -c '"code": "syntax"'
          echo "exit $(ask reload >"$D/out" 2>&1; echo $?)"
          grep ^ExecReload "$S/packaging/postcard-agent.service")sh",
       0,
       "reload refused at .*Z, the policies are those of the file before:\n1\nexit "
       "2\nExecReload=.* reload.*\n",
       ""},
      {"aStartIsAsARestart", "an agent started with a file that a reload would refuse",
       R"sh(sed -i 's/sample-all/drop/' "$D/policy.yaml"; "$P" agent --socket "$D/s" "$D/policy.yaml"
          echo $?; agent --partial; ask status | grep -c ' unsupported ')sh",
       0, "1\n1\n",
       "web ipv4: [^]*Nothing is programmed. --partial programs the other policies.\n"},
      {"noAclHasAReason", "no ACL is asked about this packet, whatever the reason",
       R"sh("$P" explain "$D/policy.yaml" --packet 'tcp 10.0.0.1:1 > 10.0.0.2:2 interface=Ehternet1'
          "$P" explain "$D/policy.yaml" --packet 'tcp [::1]:1 > [::2]:2'
          "$P" explain "$D/policy.yaml" --packet 'tcp 10.0.0.1:1 > 10.0.0.2:2' --expect not-sampled)sh",
       1,
       "tcp .* \\(left out and taken for 0: .*\\)\n *no ACL is asked about this packet: policy "
       "'web' is not attached to interface 'Ehternet1'; did you mean 'Ethernet1'\\?\n"
       "tcp .*\n *no ACL is asked about this packet: policy 'web' has no interfaces for ipv6\n"
       "tcp [^]*",
       "not as expected \\(not-sampled\\): tcp 10.0.0.1:1 > 10.0.0.2:2: class 'all' of ACL "
       "web-ipv4 samples it\n"},
      {"aMistypedCommandIsNamed", "A subcommand is required",
       R"sh("$P" chek; "$P" help check | head -n 1; "$P" check --budgt 3 "$D/policy.yaml")sh", 2,
       "Say[^]*|Print[^]*|.*\n",
       "postcard: unknown command 'chek'; did you mean 'check'\\?\n.*\npostcard check: unknown "
       "option "
       "'--budgt'; did you mean '--budget'\\?\n.*\n"},
      {"aMinusIsStandardInput", "a file named - was looked for",
       R"sh(for file in - /dev/stdin; do "$P" check $file <"$D/policy.yaml" | grep ^total; done)sh",
       0, "(total +2.*\n){2}", ""},
      {"findingsHaveADocument", "nothing on standard output",
       R"sh(echo 'policies: 1' >"$D/p"; "$P" compile --format json "$D/p" | tr -d '\n'
          agent; cp "$D/p" "$D/policy.yaml"; ask reload --format json | tr -d '\n '
          "$P" compile --format json "$S/examples/web-tier.yaml" 2>"$D/log" | grep -m 1 -A 2 '"policy"')sh",
       0,
       R"sh(\{.*"findings": \[.*"line": 1,.*"column": 11,.*"code": "wrong-value",.*"text": .*\})sh"
       R"sh(\{"schema":2,"accepted":false,.*"findings":\[\{"file":.*"line":1,.*"code":.*"text":.*\}\],.*\})sh"
       R"sh( +"policy": "web-tier",\n +"family": "ipv4",\n +"class": ".*",\n)sh",
       ".*/p:1:11: .*\n"},
      {"aStatusSaysEverything", "no header, no capacity, empty texts, no way to wait",
       R"sh(agent; ask status --wait --history | sed 's/[0-9T:-]*Z/TIME/')sh", 0,
       "POLICY +FAMILY STATE +REQUEST +ENTRIES  SINCE\nweb +ipv4 +programmed +1 +2  TIME\n +1 "
       "+TIME  "
       "programmed\n\n2 of 4096 entries used, 4094 free\n",
       ""},
      {"twentyServicesAreAShortFile", "a generator was needed",
       R"sh(file="$S/examples/twenty-services.yaml"; [ $(wc -l <"$file") -lt 150 ] && echo short
          grep -Ec '(both|definitions|rate|expect):' "$file" | grep -c '[1-9]'
          "$P" compile --format json "$file" 2>"$D/log" | grep '"class"' | sort -u | wc -l)sh",
       0, "short\n1\n(2\\d|[3-9]\\d)\n", ""},
      {"aRateThatCannotBeIsRefused", "a mask was taken for the rate that it seemed to be",
       R"sh(sed 's/ipv4: {} }/ipv4: { sample: { rate: 200 } } }/; s/sample-all/sample/' "$D/policy.yaml" |
             "$P" check -)sh",
       2, "", "<stdin>:4:\\d+: .*128.*256.*\n"},
      {"aListHasALinePerEntry", "there was no list",
       R"sh("$P" compile --format list "$D/policy.yaml")sh", 0,
       "web-ipv4\n +0  all-ipv4-tcp +tcp any > any +sample +from 4:23\n +1  all-ipv4-udp +udp any "
       "> any "
       "+sample +from 4:23\n",
       "ACLs: 1, rules: 2, TCAM entries: 2\n"},
      {"progressIsSaid", "silence for minutes",
       R"sh({ sleep 1.5; cat "$D/policy.yaml"; } | "$P" check --progress - | grep -c ^total)sh", 0,
       "1\n", "(reading policy file .*, \\d s\n)+"},
      {"theFirstStartSaysWhatToDo", "No such file or directory, and nothing else",
       R"sh(XDG_RUNTIME_DIR="$D/none" "$P" agent "$D/policy.yaml")sh", 3, "",
       ".*/none/postcard.sock.lock: No such file or directory; make the folder \\(mkdir -m 0750 "
       ".*/none\\), or choose another socket with --socket PATH\n"},
      {"whatSurprisesIsWrittenDown", "nowhere to be read",
       R"sh(for words in 'power of two' 'without a checksum' 'write it aside and rename' 'checksum offload' \
             'a DSCP that no rule carries'; do
             tr '\n' ' ' <"$S/README.md" | grep -c "$words"
          done)sh",
       0, "(1\n){5}", ""},
};

class NothingLost : public testing::TestWithParam<Row> {};

std::string nameOf(const testing::TestParamInfo<Row>& row) {
   return row.param.guards;
}

INSTANTIATE_TEST_SUITE_P(Lost, NothingLost, testing::ValuesIn(lost), nameOf);
INSTANTIATE_TEST_SUITE_P(Silent, NothingLost, testing::ValuesIn(silent), nameOf);

bool matches(const std::string& text, const char* expression) {
   return std::regex_match(text, std::regex{expression});
}

TEST_P(NothingLost, isAsItMustBe) {
   const Row& row = GetParam();
   if (TestSupport::sanitized && row.means == Means::limited) {
      GTEST_SKIP() << "the sanitizer needs what this row limits";
   }
   const TestSupport::TemporaryFolder folder;
   folder.write("policy.yaml", policy);
   const auto absolute = [](const char* path) { return std::filesystem::absolute(path).string(); };
   const auto result = TestSupport::runProgram(
         {"/bin/sh", "-c", std::string{functions} + row.script},
         {"P=" + absolute(POSTCARD_BIN_DIR "/postcard"), "S=" + absolute(POSTCARD_SOURCE_DIR),
          "D=" + folder.path(""), fmt::format("T={}", TestSupport::patience)});
   const std::string story = fmt::format("It was: {}\nstandard output:\n{}\nstandard error:\n{}",
                                         row.was, result.out, result.err);
   EXPECT_EQ(result.signal, 0) << story;
   EXPECT_EQ(result.exitCode, row.exitCode) << story;
   EXPECT_TRUE(matches(result.out, row.out)) << row.out << "\n" << story;
   EXPECT_TRUE(matches(result.err, row.err)) << row.err << "\n" << story;
}

} // namespace
