// `FileChanges`: what differs between two policy files, as values, as text and as JSON: policies,
// interfaces, packets, entries, and what an agent does. Relies on the other headers of this room,
// and on `Analysis::differencesOf` for the packets.
#pragma once

#include "postcard/analysis/Difference.h"
#include "postcard/changes/AclPair.h"
#include "postcard/changes/AgentPlan.h"
#include "postcard/changes/EntryChanges.h"
#include "postcard/report/Refusal.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Postcard::Changes {

// What differs between the two versions of one ACL.
struct AclChange {
   std::string policy; // its name
   Policy::Family family = Policy::Family::ipv4;
   std::vector<std::string> interfacesAdded;
   std::vector<std::string> interfacesRemoved;
   Analysis::Differences packets; // on the interfaces of the policy
   EntryChanges entries;
   AgentStep agent;

   // Whether the versions are the same in every respect, so that an agent does nothing.
   bool none() const;
};

// A policy that one of the files lacks, or that differs.
struct PolicyChange {
   std::string name;
   std::optional<Policy::Location> before; // absent: the earlier file does not have it
   std::optional<Policy::Location> after;  // absent: the later file does not have it
};

// The names of the files, as messages show them.
struct FileNames {
   std::string before;
   std::string after;
};

struct FileChanges {
   FileNames files;
   std::vector<std::string> toggles;   // names of the feature toggles whose states differ
   std::vector<PolicyChange> policies; // those that go, by name, then those of the later file
   std::size_t samePolicies = 0;       // which are not in `policies`
   std::vector<AclChange> acls;        // those that differ, in the order of `aclPairs`
   // What the plug-in refuses has no ACL and is compared as one that takes no packet.
   std::vector<Report::Refusal> refusedBefore;
   std::vector<Report::Refusal> refusedAfter;
   // Why an agent that runs the earlier file would not take over the later one. Empty: it would.
   std::vector<std::string> agentRefuses;
   std::size_t requests = 0; // that the agent posts for all ACLs

   // Whether nothing differs, for certain.
   bool none() const { return toggles.empty() && policies.empty() && acls.empty(); }
};

// The two files. The references must outlive the values that are made of them.
struct BothFiles {
   const Policy::PolicyFile& before;
   const Policy::PolicyFile& after;
};

// What the plug-in made of the versions of a pair; null: the file does not have it, or the plug-in
// refused it.
struct BothAcls {
   const OruPostcardTelemetry::PostcardTelemetryAclConfig* before;
   const OruPostcardTelemetry::PostcardTelemetryAclConfig* after;
};

// Compares the two versions of one pair. Throws nothing when a limit of `space` is reached: the
// classes are listed as not decided.
AclChange aclChange(Analysis::PacketSpace& space, const BothFiles& files, const AclPair& pair,
                    const BothAcls& acls);

// Completes `changes`, which has its file names, refusals and ACLs: the toggles, the policies, the
// numbers of the requests, and why an agent would refuse.
void complete(FileChanges& changes, const BothFiles& files);

// A line for each feature toggle and policy that comes, goes or changes, lines for each ACL, and
// one for the agent. "no difference" when there is none.
std::string text(const FileChanges& changes);
// A whole document: {"schema", "same", "old", "new", "featureToggles", "policies", "samePolicies",
// "acls", "refused", "agent"}.
nlohmann::ordered_json json(const FileChanges& changes);

} // namespace Postcard::Changes
