// `postcard report`: a page for the browser with everything that is known about the policies of a
// file.
#include "Pello/VisibleCharacters.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/PolicyChoice.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/packets/capture/CaptureFile.h"
#include "postcard/report/page/Page.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace Postcard::Cli {

namespace {

struct Options {
   PolicyChoice choice;
   std::string capture; // path; empty: none
   std::string output;  // path; empty: standard output
};

// The page, and what went wrong with the capture after its first frames; empty: nothing.
struct Made {
   Report::Page page;
   std::string damage = {};
};

// Reads the capture and adds what it tells to the page. `acls` are those of the page.
void addCapture(const Options& options, std::vector<Report::ExplainedAcl>& acls,
                Report::Scope scope, Made& made) {
   Report::CaptureCounter counter{acls, std::move(scope)};
   workIs("reading capture " + Pello::escaped(options.capture));
   made.damage =
         Packets::readCapture(options.capture, [&](const auto& frame) { counter.count(frame); });
   Report::CaptureTotals totals = counter.totals();
   totals.file = options.capture;
   made.page.captureIs(std::move(totals));
}

Made makePage(const Options& options, const Policy::PolicyFile& policyFile) {
   const Report::Scope scope = options.choice.scope(policyFile);
   Made made{{"postcard " POSTCARD_VERSION, options.choice.fileName(), policyFile, scope}};
   Analysis::PacketSpace space;
   std::vector<Report::ExplainedAcl> acls; // only for a capture, because they take memory
   made.page.refusedIs(
         options.choice.compile(policyFile, [&](const Policy::Policy& policy, Policy::Family family,
                                                const Host::PolicyCompiler::Result& result) {
            const Host::CompiledPolicy compiled{policy, family, policyFile.hardware.tcpFlags,
                                                *result.acl};
            if (options.capture.empty()) {
               made.page.add(space, compiled, Classifier::AclTable{*result.acl});
            } else {
               acls.emplace_back(policy, family, policyFile.hardware, *result.acl);
               made.page.add(space, compiled, acls.back().table());
            }
         }));
   if (!options.capture.empty()) {
      addCapture(options, acls, scope, made);
   }
   return made;
}

// Whether the page was written to its place; else says why not.
bool write(const Options& options, const std::string& page) {
   if (options.output.empty() || options.output == "-") {
      std::cout << page; // `main` finds write errors
      return true;
   }
   errno = 0;
   std::ofstream file{options.output, std::ios::binary | std::ios::trunc};
   file << page;
   file.close();
   if (!file) {
      messages() << Pello::escaped(options.output)
                 << ": the page cannot be written: " << std::generic_category().message(errno)
                 << '\n';
      return false;
   }
   return true;
}

int run(const Options& options, const Policy::PolicyFile& policyFile) {
   const Made made = makePage(options, policyFile);
   workIs("writing the page");
   if (!write(options, html(made.page))) {
      return exitEnvironment;
   }
   if (!made.damage.empty()) {
      messages() << Pello::escaped(options.capture + ": " + made.damage) << '\n';
      return exitUsage;
   }
   return made.page.cost().refused.empty() ? exitDone : exitRefused;
}

// What is wrong with the options, for a message; absent when nothing is.
std::optional<std::string> mistake(const Options& options) {
   if (options.choice.readsStandardInput() && isStandardInput(options.capture)) {
      return "standard input can be read once, as policy file or as capture";
   }
   std::error_code none; // files that are not there are not the same
   for (const std::string& input : {options.choice.fileName(), options.capture}) {
      if (std::filesystem::equivalent(input, options.output, none)) {
         return fmt::format("--output: the page would replace {}", quotedWord(input));
      }
   }
   return std::nullopt;
}

int run(const Options& options) {
   if (const auto what = mistake(options)) {
      messages() << "postcard report: " << *what << '\n';
      return exitUsage;
   }
   try {
      return options.choice.run(Format{}, [&](const Policy::PolicyFile& policyFile) {
         return run(options, policyFile);
      });
   } catch (const Packets::CaptureError& error) {
      messages() << Pello::escaped(error.what()) << '\n';
      return exitUsage;
   }
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->choice.declare(parser);
   parser.add_option("--pcap", options->capture,
                     "a capture file whose packets are counted rule by rule; - is standard input")
         ->type_name("FILE");
   parser.add_option("-o,--output", options->output,
                     "where the page is written; - or left out: standard output")
         ->type_name("FILE");
   parser.footer(
         "Makes one HTML file, which a browser shows without asking anybody for more: a map\n"
         "of the TCAM entries, costs and sampling rates, warnings, all rules, and the way of a\n"
         "packet through the classes. With --pcap also hits and observed rates.\n"
         "Exit status: 0 done, 1 a policy was refused, 2 bad usage, policy file or capture,\n"
         "3 the helper module cannot be used or the page not be written.");
   return [options] { return run(*options); };
}

} // namespace

const Command reportCommand{"report", "Make a page that shows the policies of a file", &declare};

} // namespace Postcard::Cli
