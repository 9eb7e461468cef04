#include "postcard/cli/Explain.h"

#include "Kiv/Exception.h"
#include "postcard/cli/PolicyChoice.h"
#include "postcard/host/PolicyCompiler.h"
#include "postcard/packets/capture/CaptureFile.h"
#include "postcard/report/ExplainCapture.h"
#include "postcard/report/ExplainPacket.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace Postcard::Cli {

namespace {

using Packets::Packet;
using Policy::Family;
using Json = nlohmann::ordered_json;

// The version of the JSON output; raised when a key changes its meaning or goes.
constexpr int explainJsonSchema = 1;

// The command line.
struct Options {
   PolicyChoice choice;
   std::vector<std::string> packets; // either these,
   std::string capture;              // or this file
   std::string format = "text";
};

// The packets of the command line; absent when one of them cannot be read, which is then reported.
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

struct Compiled {
   std::vector<Report::ExplainedAcl> acls;
   Json refused = Json::array();
};

Compiled compile(const PolicyChoice& choice, const Policy::PolicyFile& policyFile) {
   const Host::PolicyCompiler compiler{policyFile};
   Compiled compiled;
   choice.forEach(policyFile, [&](const Policy::Policy& policy, Policy::Family family) {
      const Host::PolicyCompiler::Result result = compiler.compile(policy, family);
      if (result.acl != nullptr) {
         compiled.acls.emplace_back(policy, family, policyFile.hardware, *result.acl);
         return;
      }
      reportRefused(policy, family, result.message);
      compiled.refused.push_back(refusedJson(policy, family, result.message));
   });
   return compiled;
}

void printJson(const char* key, Json content, Json refused) {
   Json document{{"schema", explainJsonSchema}};
   document[key] = std::move(content);
   document["refused"] = std::move(refused);
   // The name of a capture need not be UTF-8.
   std::cout << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

// Returns what is wrong with the capture file, behind what could be read of it.
std::string explainCapture(const Options& options, Compiled& compiled) {
   Report::CaptureTotals totals{compiled.acls};
   std::string damage = totals.count(options.capture);
   if (options.format == "json") {
      printJson("capture", totals.json(), std::move(compiled.refused));
   } else {
      std::cout << totals.text();
   }
   return damage;
}

void explainPackets(const Options& options, const std::vector<Packets::Packet>& packets,
                    Compiled& compiled) {
   if (options.format == "json") {
      printJson("packets", explainPacketsJson(compiled.acls, packets), std::move(compiled.refused));
   } else {
      std::cout << explainPacketsText(compiled.acls, packets);
   }
}

int explain(const Options& options, const Policy::PolicyFile& policyFile,
            const std::vector<Packets::Packet>& packets) {
   Compiled compiled = compile(options.choice, policyFile);
   const int done = compiled.refused.empty() ? exitDone : exitRefused;
   if (options.capture.empty()) {
      explainPackets(options, packets, compiled);
      return done;
   }
   const std::string damage = explainCapture(options, compiled);
   if (!damage.empty()) {
      std::cerr << options.capture << ": " << damage << '\n';
      return exitUsage;
   }
   return done;
}

int run(const Options& options) {
   const auto packets = readPackets(options.packets);
   if (!packets) {
      return exitUsage;
   }
   try {
      return options.choice.run([&](const Policy::PolicyFile& policyFile) {
         return explain(options, policyFile, *packets);
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
   what->add_option("--pcap", options->capture, "all packets of a capture file")->type_name("FILE");
   what->require_option(1);
   declareFormat(parser, options->format);
   parser.footer(
         "A packet is PROTOCOL SOURCE > DESTINATION and any of flags=, checksum=, id=, dscp=,\n"
         "interface= and fragment; ends are ADDRESS:PORT, [IPV6-ADDRESS]:PORT, or without port.\n"
         "A class of a capture has candidates, which meet all of it but, perhaps, the sample "
         "bits;\n"
         "the share of these that is sampled is observed beside the share that the mask promises.\n"
         "Exit status: 0 done, 1 a policy was refused, 2 bad usage, policy file or capture,\n"
         "3 the helper module or standard output cannot be used.");
   return [options] { return run(*options); };
}

} // namespace

const Command explainCommand{"explain", "Say what happens to packets, and why", &declare};

} // namespace Postcard::Cli
