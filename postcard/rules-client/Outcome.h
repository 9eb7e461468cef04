// `Outcome`: what became of a request to a rules client, and the text that carries it through the
// status record. `textOf` writes that text and `outcomeOf` reads it; nobody else knows its form.
// Relies on the standard library.
#pragma once

#include "Pello/Types.h"

#include <string>
#include <string_view>

namespace Postcard::RulesClient {

struct Outcome {
   enum Kind : U8 {
      done,    // the ACL is in force, or gone, as the request asked
      full,    // there is no room now; the same request may succeed when other ACLs have left
      invalid, // the request can never succeed, however often it is repeated
      failed,  // any other reason; the same request may succeed later
   };
   Kind kind = done;
   // For people, on one line: what went wrong, without the word for `kind`. For `done` the empty
   // text, or a remark.
   std::string text;

   bool succeeded() const noexcept { return kind == done; }
   // Whether repeating the request is pointless.
   bool isPermanent() const noexcept { return kind == invalid; }

   friend bool operator==(const Outcome&, const Outcome&) = default;
};

// The text of the status record:
//    done, failed   the outcome's own text
//    full           full: web-ipv4 needs 12 entries, 5 of 16 are free
//    invalid        invalid: web-ipv4 cannot be deleted: it is not programmed
std::string textOf(const Outcome& outcome);

// The outcome that a status record with this success and text tells. A failure whose text has
// neither of the two prefixes is `failed`, so rules clients that know nothing of them are repeated.
// `outcomeOf(outcome.succeeded(), textOf(outcome))` equals `outcome`, except for a `failed` outcome
// whose own text begins like one of the other two.
Outcome outcomeOf(bool succeeded, std::string_view text);

} // namespace Postcard::RulesClient
