#include "postcard/cli/Check.h"

#include "postcard/cli/PolicyChoice.h"
#include "postcard/host/PolicyCompiler.h"
#include "postcard/host/RuleNames.h"
#include "postcard/policy/Classes.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

namespace Postcard::Cli {

namespace {

using Policy::Family;
using Json = nlohmann::ordered_json;

// The version of the JSON output; raised when a key changes its meaning or goes.
constexpr int checkJsonSchema = 1;

// The command line.
struct Options {
   PolicyChoice choice;
   std::optional<std::size_t> budget; // TCAM entries; absent: not asked
   std::string format = "text";
};

struct ClassCost {
   std::string name;
   std::size_t entries;
};

// What one policy costs in one family.
struct AclCost {
   const Policy::Policy* policy;
   Policy::Family family;
   std::vector<ClassCost> classes; // in the order of matching
   std::size_t entries = 0;        // their sum
};

struct Costs {
   std::vector<AclCost> acls;
   Json refused = Json::array();
   std::size_t entries = 0; // of all ACLs
};

AclCost costOf(const Policy::Policy& policy, Policy::Family family,
               const Host::PolicyCompiler::AclConfig& acl) {
   AclCost cost{&policy, family, {}, acl.ruleByIndexs()};
   std::map<std::string_view, std::size_t> entries;
   for (const auto& rule : acl.ruleByIndex()) {
      entries[Host::classOfRule(rule.value()->name().view(), family)] += 1;
   }
   for (const Policy::Class* each : Policy::classesInOrder(policy, family)) {
      cost.classes.push_back({each->name.text, entries[each->name.text]});
   }
   return cost;
}

Costs costsOf(const PolicyChoice& choice, const Policy::PolicyFile& policyFile) {
   const Host::PolicyCompiler compiler{policyFile};
   Costs costs;
   choice.forEach(policyFile, [&](const Policy::Policy& policy, Policy::Family family) {
      const Host::PolicyCompiler::Result result = compiler.compile(policy, family);
      if (result.acl == nullptr) {
         reportRefused(policy, family, result.message);
         costs.refused.push_back(refusedJson(policy, family, result.message));
         return;
      }
      costs.acls.push_back(costOf(policy, family, *result.acl));
      costs.entries += costs.acls.back().entries;
   });
   return costs;
}

// ---- Output ----

std::size_t widestName(const Costs& costs) {
   std::size_t width = 5; // "total"
   for (const AclCost& acl : costs.acls) {
      width = std::max(width, acl.policy->name.text.size() + 5);
      for (const ClassCost& each : acl.classes) {
         width = std::max(width, each.name.size() + 3);
      }
   }
   return width;
}

void printText(const Costs& costs, const std::optional<std::size_t>& budget) {
   const std::size_t width = widestName(costs);
   const auto line = [width](const std::string& name, std::size_t entries) {
      std::cout << fmt::format("{:<{}}  {:>9}\n", name, width, entries);
   };
   for (const AclCost& acl : costs.acls) {
      line(fmt::format("{} {}", acl.policy->name.text, familyName(acl.family)), acl.entries);
      for (const ClassCost& each : acl.classes) {
         line("   " + each.name, each.entries);
      }
   }
   line("total", costs.entries);
   if (budget && costs.entries <= *budget) {
      std::cout << fmt::format("fits into {} entries, {} left\n", *budget, *budget - costs.entries);
   } else if (budget) {
      std::cout << fmt::format("does not fit into {} entries, {} too many\n", *budget,
                               costs.entries - *budget);
   }
}

Json budgetJson(const Costs& costs, const std::optional<std::size_t>& budget) {
   if (!budget) {
      return nullptr;
   }
   const bool fits = costs.entries <= *budget;
   return {{"entries", *budget},
           {"fits", fits},
           {"left", fits ? *budget - costs.entries : 0},
           {"tooMany", fits ? 0 : costs.entries - *budget}};
}

void printJson(const Costs& costs, const std::optional<std::size_t>& budget) {
   Json acls = Json::array();
   for (const AclCost& acl : costs.acls) {
      Json classes = Json::array();
      for (const ClassCost& each : acl.classes) {
         classes.push_back({{"class", each.name}, {"entries", each.entries}});
      }
      acls.push_back({{"policy", acl.policy->name.text},
                      {"family", familyName(acl.family)},
                      {"entries", acl.entries},
                      {"classes", std::move(classes)}});
   }
   const Json document{{"schema", checkJsonSchema},
                       {"acls", std::move(acls)},
                       {"refused", costs.refused},
                       {"totals", {{"entries", costs.entries}}},
                       {"budget", budgetJson(costs, budget)}};
   std::cout << document.dump(2) << '\n';
}

int run(const Options& options, const Policy::PolicyFile& policyFile) {
   const Costs costs = costsOf(options.choice, policyFile);
   options.format == "json" ? printJson(costs, options.budget) : printText(costs, options.budget);
   const bool over = options.budget && costs.entries > *options.budget;
   return over || !costs.refused.empty() ? exitRefused : exitDone;
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   options->choice.declare(parser);
   parser.add_option("--budget", options->budget, "TCAM entries that there are")
         ->type_name("N")
         ->check(CLI::NonNegativeNumber);
   declareFormat(parser, options->format);
   parser.footer("Prints the TCAM entries of every policy, family and class.\n"
                 "Exit status: 0 done, 1 a policy was refused or the budget does not suffice,\n"
                 "2 bad usage or policy file, 3 the helper module or standard output cannot\n"
                 "be used.");
   return [options] {
      return options->choice.run(
            [&](const Policy::PolicyFile& policyFile) { return run(*options, policyFile); });
   };
}

} // namespace

const Command checkCommand{"check", "Check a policy file and print what it costs", &declare};

} // namespace Postcard::Cli
