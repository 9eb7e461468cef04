// `RuleColumns`: the rules of ACLs, column by column, as the page keeps them. Relies on
// `forEachRule` for the rules and where they come from, and on `AclTable` for what they do.
//
// A rule takes a byte or two in a page: neighbours differ in few columns, and a column whose
// numbers repeat or count up nearly vanishes when it is compressed. Addresses and sample bits are
// not among the columns, because all rules of a class share those of the class.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/host/RuleOrigin.h"
#include "postcard/report/page/Packed.h"

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Report {

class RuleColumns {
 public:
   // The columns, in the order in which a page holds them. `columnName` has their names.
   enum Column : U8 {
      classNumber, // place of the class among those of its ACL, from 0
      protocol,    // IP protocol number
      ports,       // 1: source ports are compared, 2: destination ports, 3: both
      // The block of source ports. What a rule does not compare is 0, here and below.
      sourceData,
      sourceMask,
      // The block of destination ports.
      destinationData,
      destinationMask,
      // The TCP flags; compared when the mask is not 0.
      flagsData,
      flagsMask,
      actions, // 1: a digest goes to the collector, 2: the DSCP is set, 3: both
      // The bits that are written into the DSCP. Mask 0: the packet keeps its DSCP.
      dscpData,
      dscpMask,
      // The place in the file that the rule comes from.
      line,
      column,
      entry, // number of the port entry there, from 1; 0 without one
      // The range of source ports that the block was cut from.
      sourceLow,
      sourceHigh,
      // The same of destination ports.
      destinationLow,
      destinationHigh,
   };
   static constexpr std::size_t columns = 19;

   // Appends the rules of an ACL in the order of matching. `table` must be that of `compiled.acl`.
   // Returns the names of those rules that differ from the name that is made of the class, family,
   // protocol, ports and flags, by the place of the rule in the ACL. Throws Host::OriginError.
   std::map<std::size_t, std::string> add(const Host::CompiledPolicy& compiled,
                                          const Classifier::AclTable& table);

   // All rules so far.
   std::size_t rules() const { return rules_; }
   // The numbers of a column. Valid until the next `add`.
   std::string_view bytes(Column which) const { return columns_.at(which).bytes(); }

 private:
   void addMatch(const OruPostcardTelemetry::RuleFilter& filter);
   void addOrigin(const Host::RuleOrigin& origin);
   void put(Column which, U32 number) { columns_.at(which).add(number); }

   std::array<PackedColumn, columns> columns_;
   std::size_t rules_ = 0;
};

// "class", "protocol", "ports", "sourceData", … as the page's script calls the column.
std::string_view columnName(RuleColumns::Column which);

} // namespace Postcard::Report
