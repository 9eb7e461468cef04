// `differencesOf`: which packets two versions of a policy treat otherwise in one family, as values,
// as text and as JSON. Relies on `Residues` for what each class gets, and on `inWords`.
//
// What an ACL does with a packet follows from the first class that takes it. So two versions are
// compared by intersecting what the classes of one get with what the classes of the other get.
// Classes that get the same packets in both versions drop out first, most of them without any
// diagram: the same class, behind the same classes that have packets in common with it, gets the
// same packets.
#pragma once

#include "postcard/analysis/PacketSet.h"
#include "postcard/policy/SampleRate.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Analysis {

// One version of a policy in one family.
struct Version {
   const Policy::Policy* policy = nullptr; // null: there is no ACL, which takes no packet
   bool tcpFlags = true;                   // whether the hardware matches TCP flags
};

// What happens to packets. Without a class they are not sampled.
struct Treatment {
   std::string className;     // of the first class that takes them; empty: none does
   Policy::Location location; // of the class; the default without a class
   Policy::SamplingRate rate; // of the class; 0 when it does not sample

   bool sampled() const { return rate.oneIn != 0; }
};

// What differs. The first that applies, in this order.
enum class Difference : U8 {
   sampling,  // sampled before and not after, or the reverse
   rate,      // sampled in both, by classes of different rates
   className, // another class, or none, with the same effect
};

// "sampling", "rate" or "class". Part of the JSON document.
std::string_view codeName(Difference difference);

// The packets whose first class was one and is another, or the same with another rate.
struct TreatedOtherwise {
   Difference difference = Difference::sampling;
   Treatment before;
   Treatment after;
   Packets::Packet witness;        // one of them
   std::vector<std::string> words; // all of them, as `inWords` writes them; empty: too many words
};

struct Differences {
   std::vector<TreatedOtherwise> found;
   // A class about which a limit kept the answer back: beside what is in `found`, there may be
   // more.
   struct Undecided {
      bool after; // the class is one of the later version
      std::string className;
   };
   std::vector<Undecided> notDecided;

   // Whether it is certain that every packet is treated alike.
   bool none() const { return found.empty() && notDecided.empty(); }
};

// Compares two versions of a policy in `family`; the helper must accept both. Throws nothing when a
// limit of `space` is reached. All sets made in `space` before are void afterwards.
Differences differencesOf(PacketSpace& space, Policy::Family family, const Version& before,
                          const Version& after);

// Two to six indented lines for each difference: the treatments, then `words`, then the witness;
// and a line for each class that is not decided. Empty when there is none.
std::string text(const Differences& differences);
// [{"difference", "old", "new", "words", "witness"}]; "old" and "new" are {"class", "line",
// "column", "sampled", "oneIn", "field"}, or null without a class; "words" is null when there are
// too many.
nlohmann::ordered_json json(const Differences& differences);
// [{"version": "old" or "new", "class"}]
nlohmann::ordered_json notDecidedJson(const Differences& differences);

} // namespace Postcard::Analysis
