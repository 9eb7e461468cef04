// `ExplainedAcl`: a compiled policy in one family that can say why it does what it does. Relies on
// the ternary table of the rules client for what happens, and on `firstMiss` for why.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/host/PolicyCompiler.h"
#include "postcard/report/ExplainClass.h"

#include <optional>
#include <vector>

namespace Postcard::Report {

// What becomes of a packet, and why.
struct Explanation {
   const Classifier::AclTable::Entry* entry = nullptr; // the one that matches; null: none does
   std::size_t matched =
         0; // index of its class in `ExplainedAcl::classes`; null entry: their number
   // Of every class, as in `ExplainedAcl::classes`, the first field that fails; absent: none does,
   // and the class has the packet, or would have it if the one before did not.
   std::vector<std::optional<Miss>> misses;
};

class ExplainedAcl {
 public:
   // `policy` and `hardware` must outlive this; `acl` need not.
   ExplainedAcl(const Policy::Policy& policy, Policy::Family family,
                const Policy::Hardware& hardware, const Host::PolicyCompiler::AclConfig& acl);

   const Policy::Policy& policy() const { return *policy_; }
   Policy::Family family() const { return family_; }
   const Classifier::AclTable& table() const { return table_; }
   const std::vector<const Policy::Class*>& classes() const { return classes_; }

   // Whether a packet like this one is looked up here at all.
   bool concerns(const Packets::Packet& packet) const;
   // The packet must be of the ACL's family. Counts the hit. Throws std::logic_error when rules and
   // reasons contradict each other, which would be a defect of this program.
   Explanation explain(const Packets::Packet& packet);

 private:
   const Policy::Policy* policy_;
   Policy::Family family_;
   const Policy::Hardware* hardware_;
   Classifier::AclTable table_;
   std::vector<const Policy::Class*> classes_; // in the order of matching
};

} // namespace Postcard::Report
