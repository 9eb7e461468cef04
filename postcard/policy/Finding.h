// `Finding`: one thing that is wrong with what a policy was read from, and `FindingCode`, which
// kind of thing it is. Relies on `Location`.
#pragma once

#include "postcard/policy/Location.h"

#include <span>
#include <string>
#include <string_view>

namespace Postcard::Policy {

// The kinds of findings. Programs tell findings apart by them: the texts of messages may change,
// the word that `codeName` gives for a kind does not.
enum class FindingCode : U8 {
   unreadable,        // the file cannot be opened or read, or is not of a kind that can be
   tooLarge,          // more bytes, nodes, levels or expansions than the limits allow
   encoding,          // not UTF-8 without a byte order mark
   character,         // a character that must not stand in the file
   syntax,            // not YAML, or not one document with content
   construct,         // YAML that a policy file must not use: tags, directives, merge keys, …
   alias,             // an alias that stands for nothing, or for itself
   duplicateKey,      // a key twice in a mapping
   unknownKey,        // a key that its mapping does not have
   missingKey,        // a required key is not there
   wrongValue,        // a value of the wrong kind, or out of its range
   unknownWord,       // a word that is none of those that may stand here
   unknownDefinition, // a name that no definition explains
   badName,           // a name that is empty, too long, or holds what cannot be seen
   badPrefix,         // a prefix that cannot be read
   wrongFamily,       // something of one address family in a filter of the other
   reversedRange,     // the low bound of a range is above the high one
   duplicate,         // an element twice in a list whose elements must differ
   duplicatePriority, // two classes of one priority
   outsideMask,       // bits outside their mask, so that nothing can match
   emptyMask,         // a mask that compares nothing
   badRate,           // a sampling rate that cannot be had
   conflict,          // keys that exclude each other
   noInterfaces,      // a policy, or a family that a class matches, without interfaces
   portEntries,       // more port entries than the feature toggle allows
   tooManyRules,      // more rules than the limit allows
   unexpected,        // the file does not come to what `expect` says
};

// The word of a kind, such as "unknown-key"; unique, and the same in every release. Valid for the
// life of the process.
std::string_view codeName(FindingCode code);

// All kinds, in the order of the enumerators.
std::span<const FindingCode> allFindingCodes();

struct Finding {
   Location location; // line 0: the file as a whole
   FindingCode code = FindingCode::unreadable;

   // One line of UTF-8 without a full stop at its end. Names what was found and, where there is
   // something to choose from, what was expected. Holds no character that cannot be seen.
   std::string message;
};

} // namespace Postcard::Policy
