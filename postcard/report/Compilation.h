// `Compilation`: the totals of the ACLs that a policy file became, as a value, as text and as JSON,
// and `CompilationWriter`, which writes the JSON with the ACLs themselves. Relies on the data model
// for the ACLs, and on `forEachRule` for the origins of their rules.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"
#include "postcard/host/RuleOrigin.h"
#include "postcard/json/Writer.h"
#include "postcard/report/Refusal.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Postcard::Report {

struct Compilation {
   std::size_t acls = 0;
   std::size_t rules = 0;        // rules with different names; one rule may have several indexes
   std::size_t tcamEntries = 0;  // indexes in the order of matching; each takes a hardware entry
   std::vector<Refusal> refused; // policies and families without an ACL; not counted above

   // Counts `acl` in. Keeps no reference to it.
   void add(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl);
};

// "ACLs: N, rules: N, TCAM entries: N" and a line end.
std::string text(const Compilation& compilation);

// Writes an ACL as `Json::entityJson` describes it, straight from the objects: beside them, it
// takes about 100 bytes for each rule. Each rule of `ruleByName` begins with four more members:
// "policy", "family" and "class", for which the rule was made, and "origin"; see `writeOrigin`. A
// rule that stands at several indexes has the origin of the first, which is the one that packets
// meet. Throws OriginError before anything of the ACL is written.
void writeAcl(const Host::CompiledPolicy& compiled, Json::Writer& writer);

// The same for who has no policy beside the ACL: "origin" is null. Policy, family and class are
// read from the names that the helper gives ACLs and rules.
void writeAcl(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl, Json::Writer& writer);

// A whole document: {"schema", "acls", "refused", "totals"}. Each ACL is written when it is added
// and may go afterwards. The document is cut, and no parser takes it for whole, until `finish`.
class CompilationWriter {
 public:
   // Begins the document. `sink` receives its text; see `Json::Writer::Sink`.
   explicit CompilationWriter(Json::Writer::Sink sink);

   // Writes an ACL with the origins of its rules, as `writeAcl` does.
   void add(const Host::CompiledPolicy& compiled);
   // Writes what follows the ACLs, and ends the document. Call it once, after the last `add`.
   void finish(const Compilation& compilation);

 private:
   Json::Writer writer_;
};

} // namespace Postcard::Report
