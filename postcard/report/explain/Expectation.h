// `Expectation`: what is to happen to every packet that is explained, and whether it does. Relies
// on explanations, and on plain policy values for the names of classes.
#pragma once

#include "postcard/report/explain/Explanation.h"

#include <optional>
#include <string>
#include <string_view>

namespace Postcard::Report {

// Whether `text` is an expectation: "sampled" (an ACL samples the packet), "not-sampled" (none
// does) or "class=NAME" (in an ACL, a rule of the class NAME has the packet).
bool isExpectation(std::string_view text);

class Expectation {
 public:
   // `text` must be an expectation.
   explicit Expectation(std::string text);

   // What is wrong with the expectation itself, for a message: no policy of `scope` has a class of
   // that name. Absent when nothing is wrong.
   std::optional<std::string> mistake(const Scope& scope) const;

   // Judges each packet: sets `Explanation::expected` and `PacketExplanation::asExpected`. Returns
   // a line for each packet that does not meet the expectation, with a line feed, which says what
   // happens to it instead; the empty text when all meet it.
   std::string judge(Explanation& explanation) const;

 private:
   bool isMet(const PacketExplanation& packet) const;

   std::string text_;
   std::string className_; // of "class=NAME"; else empty
};

} // namespace Postcard::Report
