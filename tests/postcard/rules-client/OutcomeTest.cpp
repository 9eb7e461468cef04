// The text of an outcome, written and read.
#include "postcard/rules-client/Outcome.h"

#include <gtest/gtest.h>

namespace {

using Postcard::RulesClient::Outcome;
using Postcard::RulesClient::outcomeOf;
using Postcard::RulesClient::textOf;

TEST(Outcome, textOfEveryKindIsReadBack) {
   const struct {
      Outcome outcome;
      const char* text;
      bool isPermanent;
   } rows[] = {{{Outcome::done, ""}, "", false},
               {{Outcome::done, "in 3 ms"}, "in 3 ms", false},
               {{Outcome::full, "a needs 2 entries"}, "full: a needs 2 entries", false},
               {{Outcome::invalid, "unknown event 4"}, "invalid: unknown event 4", true},
               {{Outcome::failed, "busy"}, "busy", false},
               {{Outcome::failed, ""}, "", false}};
   for (const auto& row : rows) {
      EXPECT_EQ(textOf(row.outcome), row.text);
      EXPECT_EQ(outcomeOf(row.outcome.succeeded(), row.text) == row.outcome, true) << row.text;
      EXPECT_EQ(row.outcome.isPermanent(), row.isPermanent) << row.text;
   }
}

// Texts of rules clients that write them by themselves.
TEST(Outcome, readsWhatIsWrittenOtherwise) {
   const struct {
      bool succeeded;
      const char* text;
      Outcome outcome;
   } rows[] = {{false, "invalid:x", {Outcome::invalid, "x"}},
               {false, "invalid:", {Outcome::invalid, ""}},
               {false, "invalid", {Outcome::failed, "invalid"}},
               {false, " invalid: x", {Outcome::failed, " invalid: x"}},
               {false, "Full: x", {Outcome::failed, "Full: x"}},
               {true, "invalid: x", {Outcome::done, "invalid: x"}}};
   for (const auto& row : rows) {
      EXPECT_EQ(outcomeOf(row.succeeded, row.text) == row.outcome, true) << row.text;
   }
}

} // namespace
