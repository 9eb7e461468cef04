// `ExplainedAcl`: the ACL of a policy in one family, together with the classes that it was made
// from, so that it can say why it treats a packet as it does. Relies on `AclTable` for what happens
// to a packet and on `firstMiss` for the reason.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/policy/Policy.h"
#include "postcard/report/Miss.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace Postcard::Report {

// What an ACL does with one packet, and why.
struct Verdict {
   // The entry of the ACL that matches, owned by the ACL's table; null when none does.
   const Classifier::AclTable::Entry* entry = nullptr;
   // Index in `ExplainedAcl::classes` of the class that `entry` was made for; the number of classes
   // when `entry` is null.
   std::size_t matched = 0;
   // For each of `ExplainedAcl::classes` the first field that fails. Absent when none fails: the
   // class at `matched` has the packet, and a class behind it would have it if `matched` did not.
   std::vector<std::optional<Miss>> misses;
};

class ExplainedAcl {
 public:
   // `acl` must be what `policy` compiled to in `family` on `hardware`. `policy` and `hardware` are
   // referred to and must outlive this object; `acl` is copied.
   ExplainedAcl(const Policy::Policy& policy, Policy::Family family,
                const Policy::Hardware& hardware,
                const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);

   const Policy::Policy& policy() const { return *policy_; }
   Policy::Family family() const { return family_; }
   const Classifier::AclTable& table() const { return table_; }
   // The classes that take part in the family, in the order of matching; never null.
   const std::vector<const Policy::Class*>& classes() const { return classes_; }

   // Whether the switch looks such a packet up in this ACL: the families are the same, and the ACL
   // is attached to the packet's interface. A packet without interface may come through any.
   bool concerns(const Packets::Packet& packet) const;
   // Looks the packet up and counts the hit in `table`. The packet must be of the ACL's family.
   // Throws std::logic_error when the matching rule belongs to another class than the first one
   // without a miss: either the plug-in or this program has a defect then.
   Verdict explain(const Packets::Packet& packet);

 private:
   const Policy::Policy* policy_;
   Policy::Family family_;
   const Policy::Hardware* hardware_;
   Classifier::AclTable table_;
   std::vector<const Policy::Class*> classes_;
};

} // namespace Postcard::Report
