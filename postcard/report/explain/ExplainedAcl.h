// `ExplainedAcl`: the ACL of a policy in one family, together with the classes that it was made
// from. Relies on `AclTable` for what happens to a packet, which follows from the rules, and on
// `firstMiss` for the reason, which follows from the classes. The two are compared for every
// packet.
//
// `explain`, for a packet that is printed, asks every class. `decide`, for many packets, asks only
// those classes whose addresses and protocol the packet has, which a `RuleIndex` finds, and makes
// no texts.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/host/RuleOrigin.h"
#include "postcard/policy/Policy.h"
#include "postcard/report/explain/Miss.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace Postcard::Report {

// What an ACL does with one packet, and why.
struct Verdict {
   // The entry of the ACL that matches; null when none does. Owned by the ACL's table and valid as
   // long as the `ExplainedAcl` is.
   const Classifier::AclTable::Entry* entry = nullptr;
   // Index in `ExplainedAcl::classes` of the class that `entry` was made for; the number of classes
   // when `entry` is null.
   std::size_t matched = 0;
   // For each of `ExplainedAcl::classes`, the first field that the packet does not match. Absent
   // when it matches all fields: for the class at `matched`, and for later classes that would get
   // the packet if the class at `matched` did not exist.
   std::vector<std::optional<Miss>> misses;
};

// What an ACL does with one packet, without the reasons.
struct Decision {
   const Classifier::AclTable::Entry* entry = nullptr; // as in `Verdict`
   std::size_t matched = 0;                            // the same
};

class ExplainedAcl {
 public:
   // `acl` must be the ACL that `policy` compiled to in `family` on `hardware`. `policy` and
   // `hardware` are referred to and must outlive this object; `acl` is copied. Throws
   // Classifier::AclError when the ACL has a rule that a ternary memory cannot hold.
   ExplainedAcl(const Policy::Policy& policy, Policy::Family family,
                const Policy::Hardware& hardware,
                const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);

   const Policy::Policy& policy() const { return *policy_; }
   Policy::Family family() const { return family_; }
   const Classifier::AclTable& table() const { return table_; }
   // The classes that take part in the family, in the order of matching. The pointers lead into the
   // policy and are never null.
   const std::vector<const Policy::Class*>& classes() const { return classes_; }

   // Derives where each entry of `acl` comes from, which must be the ACL that this object was made
   // of, so that `originOf` knows it. Throws Host::OriginError when an entry does not agree with
   // the policy.
   void originsFrom(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);
   // Where an entry of `table` comes from; absent before `originsFrom`. It refers to the policy.
   std::optional<Host::RuleOrigin> originOf(const Classifier::AclTable::Entry& entry) const;

   // Whether the switch looks the packet up in this ACL: the families are equal, and the ACL is
   // attached to the packet's interface. A packet without interface counts as one that comes in
   // through an attached interface.
   bool concerns(const Packets::Packet& packet) const;
   // Looks the packet up and counts the hit in `table`. The packet must be of the ACL's family.
   // Throws std::logic_error when the matching rule was not made for the first class without a
   // miss: then the plug-in or this program has a defect.
   Verdict explain(const Packets::Packet& packet);
   // The same decision. Replaces the content of `almost` by the indexes in `classes` of the classes
   // before the matching one that only the sample match kept the packet out of, in order. Allocates
   // nothing once `almost` has grown.
   Decision decide(const Packets::Packet& packet, std::vector<std::size_t>& almost);

 private:
   // Addresses and protocol of each class, once for each protocol; fills `classOfMatch_`.
   std::vector<Classifier::RuleMatch> reachOfClasses();
   // Throws std::logic_error when `decision` holds a rule of another class than the one it names.
   void requireAgreement(const Decision& decision, const Packets::Packet& packet) const;
   // The place of an entry of the table in it.
   std::size_t placeOf(const Classifier::AclTable::Entry& entry) const;

   const Policy::Policy* policy_;
   Policy::Family family_;
   const Policy::Hardware* hardware_;
   Classifier::AclTable table_;
   std::vector<const Policy::Class*> classes_;
   std::vector<std::size_t> classOfEntry_; // by place in the table; the number of classes: none
   std::vector<Host::RuleOrigin> origins_; // by place in the table; empty before `originsFrom`
   // `reach_` holds a match for each protocol of each class; `classOfMatch_` names the class.
   std::vector<std::size_t> classOfMatch_;
   Classifier::RuleIndex reach_;
};

} // namespace Postcard::Report
