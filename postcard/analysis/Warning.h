// `Warning`: something in a policy that is legal and rarely wanted; `warningsOf` finds the warnings
// of a policy; as values, as text and as JSON. Relies on `Region` for what needs exact sets.
//
// No warning is a guess. "Can never match" and "are treated differently" are about every packet
// that can exist, in the order in which classes match. Where a limit keeps an answer back, the
// class is listed as not decided.
#pragma once

#include "postcard/analysis/PacketSet.h"
#include "postcard/analysis/Region.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Analysis {

// Codes are part of the JSON document: they are not renamed.
enum class WarningCode : U8 {
   shadowed, // a class, a protocol of it or a port range can never match
   overlap,  // two classes treat a common packet differently
   rate,     // another share is sampled than the sample bits suggest
   dscp,     // a DSCP that no rule will carry
   cost,     // a port range whose neighbour takes far fewer entries
   loop,     // a class samples the telemetry's own reports
   empty,    // a class, family or policy that makes no rule
};

// "shadowed", "overlap", …
std::string_view codeName(WarningCode code);

// What came first and is to blame.
struct Blamed {
   std::string what;          // "class 'web'", "range 1-10"
   Policy::Location location; // of it
};

struct Warning {
   WarningCode code = WarningCode::shadowed;
   std::string policy;                     // its name
   std::optional<Policy::Family> family;   // absent: the warning is about both, or about none
   std::string className;                  // empty: about the policy as a whole
   Policy::Location location;              // of what is warned about
   std::vector<Blamed> blamed;             // may be empty
   std::optional<Packets::Packet> witness; // a packet that shows it, where a packet can
   std::string text;                       // one line without a full stop
   // The entries that would be saved by leaving out what never matches, or by the cheaper range; 0
   // for warnings of other codes.
   U64 saves = 0;
};

// The warnings of one or more policies.
struct Warnings {
   std::vector<Warning> found; // by policy, family, class
   // There are more overlaps than `mostOverlaps` in a policy and family; those were not looked for,
   // because their number grows with the square of the number of classes.
   bool moreOverlaps = false;
   struct Undecided {
      std::string policy;
      Policy::Family family;
      std::string className;
   };
   // Classes whose shadows, overlaps or rates a limit kept back.
   std::vector<Undecided> notDecided;

   // Whether there is nothing to warn about, and nothing that is not known.
   bool none() const { return found.empty() && notDecided.empty(); }
   void add(Warnings other);
};

inline constexpr std::size_t mostOverlaps = 100;

// Shadows, overlaps and rates of one policy and family that the helper accepts. Throws nothing when
// a limit of `space` is reached. All sets made in `space` before are void afterwards.
Warnings warningsOf(PacketSpace& space, const Policy::Policy& policy,
                    const Circumstances& circumstances);

// Warnings that need no set and belong to no family: `dscp`, and `empty` for a policy. Those of its
// families and classes are among the ones above, and so is `cost`.
Warnings warningsOf(const Policy::Policy& policy);

// A line for each: "FILE:LINE:COLUMN: CODE: POLICY FAMILY: class 'NAME': TEXT: PACKET". Then a line
// for omitted overlaps, and one for each class that is not decided.
std::string text(const Warnings& warnings, std::string_view fileName);
// [{"code", "policy", "family", "class", "line", "column", "text", "blamed", "witness"}]; "family",
// "class" and "witness" are null where there is none.
nlohmann::ordered_json json(const Warnings& warnings);
// [{"policy", "family", "class"}]
nlohmann::ordered_json notDecidedJson(const Warnings& warnings);

} // namespace Postcard::Analysis
