// `postcard check`: what the policies of a file cost in TCAM entries, whether that fits into a
// budget, which packets they sample, and what is probably not wanted in them; with --prove, that
// the rules do what the filters mean.
#include "Pello/VisibleCharacters.h"
#include "postcard/advice/Advice.h"
#include "postcard/analysis/Proof.h"
#include "postcard/analysis/Warning.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Count.h"
#include "postcard/cli/shared/Format.h"
#include "postcard/cli/shared/PolicyChoice.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/report/Cost.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

namespace Postcard::Cli {

namespace {

struct Options {
   PolicyChoice choice;
   std::optional<std::size_t> budget; // TCAM entries; absent: not asked
   bool strict = false;               // a warning fails the check
   bool prove = false;
   Format format;
};

// All answers of one check.
struct CheckResult {
   std::string fileName;
   Report::Cost cost;
   Analysis::Warnings warnings;
   std::vector<Advice::Advice> advice;
   std::optional<std::vector<Analysis::Proof>> proofs; // absent: not asked
};

bool proven(const CheckResult& result) {
   return !result.proofs || std::ranges::all_of(*result.proofs, [](const Analysis::Proof& proof) {
      return proof.verdict == Analysis::Verdict::proven;
   });
}

std::string text(const CheckResult& result) {
   constexpr std::size_t mostAdvice = 10;
   std::string all = text(result.cost) + text(result.warnings, result.fileName) +
                     text(result.advice, result.fileName, mostAdvice);
   if (result.proofs) {
      for (const Analysis::Proof& proof : *result.proofs) {
         all += text(proof, result.fileName);
      }
   }
   return all;
}

// The document of the costs, with members for what else is known. "proofs" is null when no proof
// was asked for.
nlohmann::ordered_json json(const CheckResult& result) {
   nlohmann::ordered_json document = json(result.cost);
   document["warnings"] = json(result.warnings);
   document["moreOverlaps"] = result.warnings.moreOverlaps;
   document["notDecided"] = notDecidedJson(result.warnings);
   document["advice"] = json(result.advice);
   document["proofs"] = nullptr;
   if (result.proofs) {
      document["proofs"] = nlohmann::ordered_json::array();
      for (const Analysis::Proof& proof : *result.proofs) {
         document["proofs"].push_back(json(proof));
      }
   }
   return document;
}

CheckResult answers(const Options& options, const Policy::PolicyFile& policyFile) {
   CheckResult result;
   result.fileName = options.choice.fileName();
   result.cost.budget = options.budget;
   if (options.prove) {
      result.proofs.emplace();
   }
   workIs("preparing the analysis of policy file " + Pello::escaped(result.fileName));
   Analysis::PacketSpace space;
   const Policy::Policy* latest = nullptr;
   std::vector<Advice::Advice> merges;
   result.cost.refused =
         options.choice.compile(policyFile, [&](const Policy::Policy& policy, Policy::Family family,
                                                const Host::PolicyCompiler::Result& compiled) {
            const Analysis::Circumstances circumstances{
                  family, policyFile.hardware.tcpFlags,
                  policyFile.collector ? &*policyFile.collector : nullptr};
            result.cost.add(Report::costOf(policy, family, *compiled.acl));
            workIs(fmt::format("analysing policy {}, {}, of {}", quotedWord(policy.name.text),
                               Policy::familyName(family), Pello::escaped(result.fileName)));
            if (latest != &policy) {
               result.warnings.add(Analysis::warningsOf(policy));
               latest = &policy;
            }
            result.warnings.add(Analysis::warningsOf(space, policy, circumstances));
            std::ranges::move(Advice::mergesOf(policy, family, circumstances.tcpFlags),
                              std::back_inserter(merges));
            if (result.proofs) {
               result.proofs->push_back(
                     Analysis::prove(space, policy, circumstances, *compiled.acl));
            }
         });
   result.advice = Advice::adviceOf(std::move(merges), result.warnings);
   return result;
}

int run(const Options& options, const Policy::PolicyFile& policyFile) {
   const CheckResult result = answers(options, policyFile);
   options.format.print(result);
   const bool passed = result.cost.fits() && result.cost.refused.empty() && proven(result) &&
                       (!options.strict || result.warnings.none());
   return passed ? exitDone : exitRefused;
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->choice.declare(parser);
   addCount(parser, "--budget", options->budget, "TCAM entries that the hardware has");
   parser.add_flag("--strict", options->strict, "fail when there is a warning");
   parser.add_flag("--prove", options->prove,
                   "prove for every packet that the rules do what the filters mean");
   options->format.declare(parser);
   parser.footer("Prints the TCAM entries of every policy, family and class, the share of packets\n"
                 "that each class samples, and warnings.\n"
                 "Exit status: 0 done, 1 a policy was refused, the entries exceed the budget,\n"
                 "--strict found a warning or --prove no proof, 2 bad usage or policy file, 3 the\n"
                 "helper module or standard output cannot be used.");
   return [options] {
      return options->choice.run(options->format, [&](const Policy::PolicyFile& policyFile) {
         return run(*options, policyFile);
      });
   };
}

} // namespace

const Command checkCommand{"check", "Check a policy file and print what it costs", &declare};

} // namespace Postcard::Cli
