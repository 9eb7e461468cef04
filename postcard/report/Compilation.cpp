#include "postcard/report/Compilation.h"

#include "postcard/json/EntityJson.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace Postcard::Report {

void Compilation::add(const OruPostcardTelemetry::PostcardTelemetryAclConfig& acl) {
   acls += 1;
   rules += acl.ruleByNames();
   tcamEntries += acl.ruleByIndexs();
}

std::string text(const Compilation& compilation) {
   return fmt::format("ACLs: {}, rules: {}, TCAM entries: {}\n", compilation.acls,
                      compilation.rules, compilation.tcamEntries);
}

// The document is about ACLs, and `postcard show` prints the same shape: they share a version.
nlohmann::ordered_json json(const Compilation& compilation, nlohmann::ordered_json acls) {
   return {{"schema", Json::aclJsonSchema},
           {"acls", std::move(acls)},
           {"refused", json(compilation.refused)},
           {"totals",
            {{"acls", compilation.acls},
             {"rules", compilation.rules},
             {"tcamEntries", compilation.tcamEntries}}}};
}

} // namespace Postcard::Report
