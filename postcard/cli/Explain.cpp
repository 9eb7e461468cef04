// `postcard explain`: which rule a packet hits, what happens to the packet, and why other classes
// do not match it.
#include "Kiv/Exception.h"
#include "Pello/VisibleCharacters.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Count.h"
#include "postcard/cli/shared/Format.h"
#include "postcard/cli/shared/PolicyChoice.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/packets/FrameText.h"
#include "postcard/packets/capture/CaptureFile.h"
#include "postcard/report/explain/CaptureTotals.h"
#include "postcard/report/explain/Expectation.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <optional>
#include <stdexcept>
#include <variant>

namespace Postcard::Cli {

namespace {

// One of `packets`, `frames` and `capture` is given.
struct Options {
   PolicyChoice choice;
   std::vector<std::string> packets; // as `Packets::parsePacketAndZeros` reads them
   std::vector<std::string> frames;  // Ethernet frames as `Packets::parseFrame` reads them
   std::string capture;              // path; empty: not given
   std::optional<std::size_t> frame; // of `capture`, counted from 1; absent: all of them, in totals
   std::string expected;             // as `Report::isExpectation` says; empty: not given
   Format format;
};

// One packet that is asked about.
struct Question {
   std::variant<Packets::Packet, Packets::Undecodable> frame;
   std::vector<std::string_view> zeros = {}; // as in `ParsedPacket`
};

// The command line cannot be carried out; the text says why and ends with a line feed.
class UsageError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Returns `read(text)`. Throws UsageError when that throws Kiv::ParseError; `option` is where the
// text comes from.
template <class Read>
auto readText(const char* option, const std::string& text, const Read& read) {
   try {
      return read(text);
   } catch (const Kiv::ParseError& error) {
      // Below the text, a mark where reading ended.
      const std::size_t mark = Pello::escaped(text.substr(0, error.position())).size() + 1;
      throw UsageError{fmt::format("{}: {}\n   {}\n   {:>{}}\n", option, error.reason(),
                                   Pello::escaped(text), '^', mark)};
   }
}

// The packets of --packet and --hex. Throws UsageError.
std::vector<Question> readQuestions(const Options& options) {
   std::vector<Question> questions;
   for (const std::string& text : options.packets) {
      Packets::ParsedPacket parsed = readText("--packet", text, Packets::parsePacketAndZeros);
      questions.push_back({parsed.packet, std::move(parsed.zeros)});
   }
   for (const std::string& text : options.frames) {
      const std::vector<U8> bytes = readText("--hex", text, Packets::parseFrame);
      questions.push_back({decodeFrame(Packets::LinkType::ethernet, bytes)});
   }
   return questions;
}

// The chosen policies: their ACLs, and those that the plug-in refused.
struct Compiled {
   Report::Scope scope;                    // refers to the policy file, as `acls` do
   std::vector<Report::ExplainedAcl> acls; // refer to the policy file, which must outlive them
   std::vector<Report::Refusal> refused;
};

// `withOrigins`: each rule is to say where it comes from, which a capture is not counted by.
Compiled compile(const PolicyChoice& choice, const Policy::PolicyFile& policyFile,
                 bool withOrigins) {
   Compiled compiled;
   compiled.scope = choice.scope(policyFile);
   compiled.refused =
         choice.compile(policyFile, [&](const Policy::Policy& policy, Policy::Family family,
                                        const Host::PolicyCompiler::Result& result) {
            compiled.acls.emplace_back(policy, family, policyFile.hardware, *result.acl);
            if (withOrigins) {
               compiled.acls.back().originsFrom(*result.acl);
            }
         });
   return compiled;
}

Report::PacketExplanation answer(Compiled& compiled, const Question& question) {
   if (const auto* reason = std::get_if<Packets::Undecodable>(&question.frame)) {
      return Report::explainUndecodable(*reason);
   }
   Report::PacketExplanation explanation = Report::explainPacket(
         compiled.acls, compiled.scope, std::get<Packets::Packet>(question.frame));
   explanation.zeros.assign(question.zeros.begin(), question.zeros.end());
   return explanation;
}

int explainPackets(const Options& options, const std::vector<Question>& questions,
                   Compiled compiled) {
   Report::Explanation explanation;
   for (const Question& question : questions) {
      explanation.packets.push_back(answer(compiled, question));
   }
   explanation.refused = std::move(compiled.refused);
   std::string failures;
   if (!options.expected.empty()) {
      failures = Report::Expectation{options.expected}.judge(explanation);
   }
   messages() << failures;
   options.format.print(explanation);
   return failures.empty() && explanation.refused.empty() ? exitDone : exitRefused;
}

int explainCapture(const Options& options, Compiled compiled) {
   Report::CaptureCounter counter{compiled.acls, std::move(compiled.scope)};
   workIs("opening capture " + Pello::escaped(options.capture));
   std::size_t frames = 0;
   const std::string damage = Packets::readCapture(options.capture, [&](const auto& frame) {
      if (frames++ % 8192 == 0) {
         workIs(fmt::format("counting the packets of capture {}, {} so far",
                            Pello::escaped(options.capture), frames - 1));
      }
      counter.count(frame);
   });
   Report::CaptureTotals totals = counter.totals();
   totals.file = options.capture;
   totals.refused = std::move(compiled.refused);
   // A capture file that was cut off is common; what could be read of it is worth printing.
   options.format.print(totals);
   if (!damage.empty()) {
      messages() << Pello::escaped(options.capture + ": " + damage) << '\n';
      return exitUsage;
   }
   return totals.refused.empty() ? exitDone : exitRefused;
}

// Throws UsageError when the expectation names a class that no chosen policy has.
void requireMeetable(const Options& options, const Policy::PolicyFile& policyFile) {
   if (options.expected.empty()) {
      return;
   }
   const Report::Expectation expectation{options.expected};
   if (const auto mistake = expectation.mistake(options.choice.scope(policyFile))) {
      throw UsageError{fmt::format("--expect: {}\n", *mistake)};
   }
}

// `questions` are those of the command line.
int explain(const Options& options, std::vector<Question> questions,
            const Policy::PolicyFile& policyFile) {
   requireMeetable(options, policyFile);
   if (options.frame) {
      workIs(fmt::format("reading frame {} of capture {}", *options.frame,
                         Pello::escaped(options.capture)));
      questions.push_back({Packets::readFrame(options.capture, *options.frame)});
   }
   Compiled compiled = compile(options.choice, policyFile, !questions.empty());
   return questions.empty() ? explainCapture(options, std::move(compiled))
                            : explainPackets(options, questions, std::move(compiled));
}

// What the parser of the command line cannot check. Throws UsageError.
void requireSense(const Options& options) {
   if (options.choice.readsStandardInput() && isStandardInput(options.capture)) {
      throw UsageError{"postcard explain: standard input can be read once, as policy file or as "
                       "capture\n"};
   }
   if (options.frame == 0U) {
      throw UsageError{"postcard explain: --frame: the first frame has the number 1\n"};
   }
   const bool whole = options.packets.empty() && options.frames.empty() && !options.frame;
   if (!options.expected.empty() && whole) {
      throw UsageError{"postcard explain: --expect is about single packets; choose one of the "
                       "capture with --frame N\n"};
   }
}

int run(const Options& options) {
   try {
      requireSense(options);
      // Before the policy file is compiled: a mistyped packet should be reported at once.
      const std::vector<Question> questions = readQuestions(options);
      return options.choice.run(options.format, [&](const Policy::PolicyFile& policyFile) {
         return explain(options, questions, policyFile);
      });
   } catch (const UsageError& error) {
      messages() << error.what();
   } catch (const Packets::CaptureError& error) {
      messages() << Pello::escaped(error.what()) << '\n';
   }
   return exitUsage;
}

// What is wrong with `text` as an expectation, in the form that the parser of the command line
// expects of a check: empty when nothing is wrong.
std::string checkExpectation(const std::string& text) {
   return Report::isExpectation(text)
                ? ""
                : fmt::format("{} is not sampled, not-sampled or class=NAME", quotedWord(text));
}

void declarePackets(CLI::App& parser, Options& options) {
   auto* const what = parser.add_option_group("what");
   what->add_option("--packet", options.packets,
                    "a packet, such as 'tcp 10.1.2.3:1025 > 192.0.2.1:443 flags=syn'; may be given "
                    "several times")
         ->type_name("TEXT")
         ->expected(1)
         ->allow_extra_args(false)
         ->take_all();
   what->add_option("--hex", options.frames,
                    "an Ethernet frame in hexadecimal digits; may be given several times")
         ->type_name("BYTES")
         ->expected(1)
         ->allow_extra_args(false)
         ->take_all();
   auto* const capture = what->add_option("--pcap", options.capture,
                                          "all packets of a capture file; - is standard input")
                               ->type_name("FILE");
   what->require_option(1);
   addCount(parser, "--frame", options.frame,
            "only this frame of the capture, counted from 1, explained as a packet")
         ->needs(capture);
   parser.add_option("--expect", options.expected,
                     "fail unless this happens to every packet: sampled, not-sampled or class=NAME")
         ->type_name("WHAT")
         ->check(checkExpectation);
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->choice.declareWithSocket(parser);
   declarePackets(parser, *options);
   options->format.declare(parser);
   parser.footer(
         "A packet is PROTOCOL SOURCE > DESTINATION and any of flags=, checksum=, id=, dscp=,\n"
         "interface=, fragment and cut. SOURCE and DESTINATION are ADDRESS:PORT,\n"
         "[IPV6-ADDRESS]:PORT, or an address without port. What is left out counts as 0, and is\n"
         "listed behind the packet.\n"
         "For a capture, the candidates of a class are the packets that reach the class and meet\n"
         "everything in it except, perhaps, the sample match. \"observed\" is the share of them\n"
         "that was sampled, \"expected\" the share that the sample mask promises.\n"
         "Exit status: 0 done, 1 a policy was refused or --expect was not met, 2 bad usage,\n"
         "policy file or capture, 3 the helper module or standard output cannot be used.");
   return [options] { return run(*options); };
}

} // namespace

const Command explainCommand{"explain", "Say what happens to packets, and why", &declare};

} // namespace Postcard::Cli
