// `PolicyChoice`: the options with which a user says which policies of which file are meant, for
// the subcommands that compile them, and what is told to the user in the same way by all of these.
// Relies on the loader of policy files.
#pragma once

#include "postcard/policy/file/PolicyFile.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Postcard::Cli {

// Which policies of which file.
struct PolicyChoice {
   std::string file;
   std::vector<std::string> policies; // empty: all
   std::string family;                // "ipv4", "ipv6"; empty: both

   // Adds FILE, --policy and --family to the command line. `this` must outlive the parser.
   void declare(CLI::App& parser);
   // Loads the file and returns the exit code of `work`. What is wrong with the file, policies that
   // it does not have, and a helper module that `work` cannot use are reported on standard error
   // and end the command with the exit code of such a thing.
   int run(const std::function<int(const Policy::PolicyFile&)>& work) const;
   // Shows every chosen policy in every chosen family that has interfaces, in the order of the
   // file.
   void forEach(const Policy::PolicyFile& policyFile,
                const std::function<void(const Policy::Policy&, Policy::Family)>& visit) const;
};

// Adds --format to the command line, with the texts "text" and "json". `format` holds what is
// printed without it, and must outlive the parser.
void declareFormat(CLI::App& parser, std::string& format);

// "POLICY FAMILY: message" on standard error, for a policy that was refused.
void reportRefused(const Policy::Policy& policy, Policy::Family family, const std::string& message);
// The same as an element of the list "refused" in JSON output.
nlohmann::ordered_json refusedJson(const Policy::Policy& policy, Policy::Family family,
                                   const std::string& message);

} // namespace Postcard::Cli
