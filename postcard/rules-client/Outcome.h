// `Outcome`: the result of a request to a rules client, and the text that carries it through the
// status record. `textOf` writes that text and `outcomeOf` reads it; no other code knows its form.
// Relies on the standard library.
//
// The status record tells success or failure and has one text, so the kind of a failure travels as
// a prefix of the text.
#pragma once

#include "Pello/Types.h"

#include <string>
#include <string_view>

namespace Postcard::RulesClient {

struct Outcome {
   enum Kind : U8 {
      done,    // the request has been carried out
      full,    // there is no room now; the same request may succeed after others have been removed
      invalid, // the request can never succeed, however often it is repeated
      failed,  // any other reason; the same request may succeed later
   };
   Kind kind = done;
   // One line for people: what went wrong, without the prefix of `kind`. For `done` it is empty, or
   // a remark.
   std::string text;

   bool succeeded() const noexcept { return kind == done; }
   // Whether the same request can never succeed, so that repeating it is pointless.
   bool isPermanent() const noexcept { return kind == invalid; }

   friend bool operator==(const Outcome&, const Outcome&) = default;
};

// The text that stands for `outcome` in the status record:
//    done, failed   `outcome.text`
//    full           full: web-ipv4 needs 12 entries, 5 of 16 are free
//    invalid        invalid: web-ipv4 cannot be deleted: it is not programmed
std::string textOf(const Outcome& outcome);

// The outcome that a status record with this type (`succeeded`) and `text` stands for. A failure
// whose text has neither prefix is `failed`, so requests to a rules client that does not write the
// prefixes are repeated. `outcomeOf(outcome.succeeded(), textOf(outcome))` equals `outcome`, except
// for a `failed` outcome whose own text begins with one of the prefixes.
Outcome outcomeOf(bool succeeded, std::string_view text);

} // namespace Postcard::RulesClient
