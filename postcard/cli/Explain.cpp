// `postcard explain`: which rule a packet hits, what happens to the packet, and why other classes
// do not match it.
#include "Kiv/Exception.h"
#include "Pello/VisibleCharacters.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/Format.h"
#include "postcard/cli/PolicyChoice.h"
#include "postcard/cli/Work.h"
#include "postcard/packets/capture/CaptureFile.h"
#include "postcard/report/CaptureTotals.h"
#include "postcard/report/Explanation.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>
#include <optional>

namespace Postcard::Cli {

namespace {

// Either `packets` or `capture` is given.
struct Options {
   PolicyChoice choice;
   std::vector<std::string> packets; // as `Packets::parsePacket` reads them
   std::string capture;              // path; empty: not given
   Format format;
};

// The packets of the command line. Absent when one of them cannot be read; standard error then says
// which and where.
std::optional<std::vector<Packets::Packet>> readPackets(const std::vector<std::string>& texts) {
   std::vector<Packets::Packet> packets;
   for (const std::string& text : texts) {
      try {
         packets.push_back(Packets::parsePacket(text));
      } catch (const Kiv::ParseError& error) {
         // Below the text, a mark where reading ended.
         std::cerr << fmt::format("--packet: {}\n   {}\n   {:>{}}\n", error.reason(), text, '^',
                                  error.position() + 1);
         return std::nullopt;
      }
   }
   return packets;
}

// The chosen policies: their ACLs, and those that the plug-in refused.
struct Compiled {
   std::vector<Report::ExplainedAcl> acls; // refer to the policy file, which must outlive them
   std::vector<Report::Refusal> refused;
};

Compiled compile(const PolicyChoice& choice, const Policy::PolicyFile& policyFile) {
   Compiled compiled;
   compiled.refused =
         choice.compile(policyFile, [&](const Policy::Policy& policy, Policy::Family family,
                                        const Host::PolicyCompiler::Result& result) {
            compiled.acls.emplace_back(policy, family, policyFile.hardware, *result.acl);
         });
   return compiled;
}

int explainPackets(const Options& options, const std::vector<Packets::Packet>& packets,
                   Compiled compiled) {
   Report::Explanation explanation;
   for (const Packets::Packet& packet : packets) {
      explanation.packets.push_back(explainPacket(compiled.acls, packet));
   }
   explanation.refused = std::move(compiled.refused);
   options.format.print(explanation);
   return explanation.refused.empty() ? exitDone : exitRefused;
}

int explainCapture(const Options& options, Compiled compiled) {
   Report::CaptureCounter counter{compiled.acls};
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
   // A capture that was cut off is common; what could be read of it is worth printing.
   options.format.print(totals);
   if (!damage.empty()) {
      std::cerr << options.capture << ": " << damage << '\n';
      return exitUsage;
   }
   return totals.refused.empty() ? exitDone : exitRefused;
}

int run(const Options& options) {
   if (options.choice.readsStandardInput() && isStandardInput(options.capture)) {
      std::cerr << "postcard explain: standard input can be read once, as policy file or as "
                   "capture\n";
      return exitUsage;
   }
   // Before the policy file is compiled: a mistyped packet should be reported at once.
   const auto packets = readPackets(options.packets);
   if (!packets) {
      return exitUsage;
   }
   try {
      return options.choice.run(options.format, [&](const Policy::PolicyFile& policyFile) {
         Compiled compiled = compile(options.choice, policyFile);
         return options.capture.empty() ? explainPackets(options, *packets, std::move(compiled))
                                        : explainCapture(options, std::move(compiled));
      });
   } catch (const Packets::CaptureError& error) {
      std::cerr << error.what() << '\n';
      return exitUsage;
   }
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->choice.declare(parser);
   auto* const what = parser.add_option_group("what");
   what->add_option("--packet", options->packets,
                    "a packet, such as 'tcp 10.1.2.3:1025 > 192.0.2.1:443 flags=syn'; may be given "
                    "several times")
         ->type_name("TEXT")
         ->expected(1)
         ->take_all();
   what->add_option("--pcap", options->capture,
                    "all packets of a capture file; - is standard input")
         ->type_name("FILE");
   what->require_option(1);
   options->format.declare(parser);
   parser.footer(
         "A packet is PROTOCOL SOURCE > DESTINATION and any of flags=, checksum=, id=, dscp=,\n"
         "interface= and fragment. SOURCE and DESTINATION are ADDRESS:PORT, [IPV6-ADDRESS]:PORT,\n"
         "or an address without port.\n"
         "For a capture, the candidates of a class are the packets that reach the class and meet\n"
         "everything in it except, perhaps, the sample match. \"observed\" is the share of them\n"
         "that was sampled, \"expected\" the share that the sample mask promises.\n"
         "Exit status: 0 done, 1 a policy was refused, 2 bad usage, policy file or capture,\n"
         "3 the helper module or standard output cannot be used.");
   return [options] { return run(*options); };
}

} // namespace

const Command explainCommand{"explain", "Say what happens to packets, and why", &declare};

} // namespace Postcard::Cli
