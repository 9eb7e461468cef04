// `Page`: everything that a reader may ask about the policies of a file, as a value; `html`: the
// same as one file for a browser. Relies on costs, warnings, totals of a capture, and
// `RuleColumns`.
//
// The file holds a document of JSON, the columns of the rules, and a script that draws them. The
// script looks packets up itself, so it needs rules and classes and not only what is shown of them.
// `web/` has the script; `web/page.html` is what the file is made from.
#pragma once

#include "postcard/advice/Advice.h"
#include "postcard/analysis/Warning.h"
#include "postcard/report/Cost.h"
#include "postcard/report/explain/CaptureTotals.h"
#include "postcard/report/explain/NoAcl.h"
#include "postcard/report/page/RuleColumns.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Postcard::Report {

// An ACL on the page, beside its costs and its rules.
struct PageAcl {
   std::string key;                        // such as "web-ipv4"
   const Policy::Policy* policy = nullptr; // what it was compiled from; never null
   Policy::Family family = Policy::Family::ipv4;
   std::map<std::size_t, std::string> oddNames; // as `RuleColumns::add` returns them
};

// Refers to the policy file, which must outlive it.
class Page {
 public:
   // `program` is the name of the program with its version. `fileName` names the policy file as
   // messages do. `scope` holds the policies of `file` whose ACLs will be added, refused ones
   // included.
   Page(std::string program, std::string fileName, const Policy::PolicyFile& file, Scope scope);

   // Adds an ACL: what it costs, its warnings and its rules. `table` must be that of
   // `compiled.acl`; neither is kept. The ACLs of a policy must be added one after the other.
   // All sets made in `space` before are void afterwards. Throws Host::OriginError.
   void add(Analysis::PacketSpace& space, const Host::CompiledPolicy& compiled,
            const Classifier::AclTable& table);
   // Sets the policies that the plug-in refused.
   void refusedIs(std::vector<Refusal> refused) { cost_.refused = std::move(refused); }
   // Adds what a capture tells. `totals.acls` must be those that were added, in their order.
   void captureIs(CaptureTotals totals);

   // What the ACLs cost.
   const Cost& cost() const { return cost_; }

   // The document of the page without the rules:
   //    {"schema", "program", "file", "tcpFlags", "explainSchema", "scope", "cost", "warnings",
   //     "moreOverlaps", "notDecided", "advice", "capture", "acls", "rules", "columns"}
   // "cost", "warnings", "moreOverlaps", "notDecided" and "advice" are what `postcard check
   // --format json` prints; "capture" is what `postcard explain` says of a capture, without its
   // list of rules, or null. "acls" are those of "cost", with their classes as filters. "rules" is
   // the number of entries, "columns" has {"name", "bytes"} of each column.
   nlohmann::ordered_json document() const;
   // The document, the columns behind it, and before both the size of the document in four bytes,
   // the lowest first.
   std::string data() const;

 private:
   // The columns by name, with that of hits behind the others when there is a capture.
   std::vector<std::pair<std::string_view, std::string_view>> columns() const;

   std::string program_;
   std::string fileName_;
   const Policy::PolicyFile* file_; // never null
   Scope scope_;
   Cost cost_;
   Analysis::Warnings warnings_;
   std::vector<Advice::Advice> merges_; // what can be merged in the ACLs
   std::vector<PageAcl> acls_;          // in the order of `cost_.acls`
   RuleColumns rules_;                  // of all ACLs
   std::optional<CaptureTotals> capture_;
   PackedColumn hits_; // of each rule; empty without a capture
};

// The page as the text of an HTML file. It needs nothing but itself: no request leaves it, and its
// content security policy forbids any. Throws std::bad_alloc.
std::string html(const Page& page);

} // namespace Postcard::Report
