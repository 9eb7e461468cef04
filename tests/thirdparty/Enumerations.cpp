// Enumerators by number and by name, and their texts.

#include "Check.h"
#include "Guesses.h"

#include <type_traits>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

using Event = PostcardTelemetryRulesClientSmEvent;
using StatusType = PostcardTelemetryRulesClientSmStatusType;

static_assert(sizeof(RuleAction::Action) == 1);
static_assert(sizeof(Event) == 1);
static_assert(sizeof(StatusType) == 1);

static_assert(static_cast<int>(RuleAction::sampleAction) == 0);
static_assert(static_cast<int>(RuleAction::policeAction) == 1);
static_assert(static_cast<int>(RuleAction::setDscpAction) == 2);
static_assert(static_cast<int>(statusSuccess) == 0);
static_assert(static_cast<int>(statusFailure) == 1);
static_assert(static_cast<int>(policyCreate) == 0);
static_assert(static_cast<int>(policyUpdate) == 1);
static_assert(static_cast<int>(policyDelete) == 2);
static_assert(static_cast<int>(policyIntfUpdate) == 3);

static_assert(std::is_same_v<decltype(RuleAction::ActionInstance(2u)), RuleAction::Action>);
static_assert(std::is_same_v<decltype(PostcardTelemetryRulesClientSmEventInstance(2u)), Event>);

void names() {
   CHECK_EQ(text(stringValue(RuleAction::sampleAction)), "sampleAction");
   CHECK_EQ(text(stringValue(RuleAction::policeAction)), "policeAction");
   CHECK_EQ(text(stringValue(RuleAction::setDscpAction)), "setDscpAction");
   CHECK_EQ(text(stringValue(statusSuccess)), "statusSuccess");
   CHECK_EQ(text(stringValue(statusFailure)), "statusFailure");
   CHECK_EQ(text(stringValue(policyCreate)), "policyCreate");
   CHECK_EQ(text(stringValue(policyUpdate)), "policyUpdate");
   CHECK_EQ(text(stringValue(policyDelete)), "policyDelete");
   CHECK_EQ(text(stringValue(policyIntfUpdate)), "policyIntfUpdate");
}

void byNumber() {
   // 0 is written as people write it; it must not be taken for a null text.
   CHECK(RuleAction::ActionInstance(0) == RuleAction::sampleAction);
   CHECK(RuleAction::ActionInstance(1) == RuleAction::policeAction);
   CHECK(RuleAction::ActionInstance(2) == RuleAction::setDscpAction);
   CHECK(PostcardTelemetryRulesClientSmStatusTypeInstance(0) == statusSuccess);
   CHECK(PostcardTelemetryRulesClientSmStatusTypeInstance(1) == statusFailure);
   CHECK(PostcardTelemetryRulesClientSmEventInstance(0) == policyCreate);
   CHECK(PostcardTelemetryRulesClientSmEventInstance(2) == policyDelete);
   CHECK(PostcardTelemetryRulesClientSmEventInstance(3) == policyIntfUpdate);
}

void byName() {
   CHECK(RuleAction::ActionInstance("policeAction") == RuleAction::policeAction);
   CHECK(RuleAction::ActionInstance("setDscpAction") == RuleAction::setDscpAction);
   CHECK(PostcardTelemetryRulesClientSmStatusTypeInstance("statusFailure") == statusFailure);
   CHECK(PostcardTelemetryRulesClientSmEventInstance("policyUpdate") == policyUpdate);
   Pello::String const name{"policyIntfUpdate"};
   CHECK(PostcardTelemetryRulesClientSmEventInstance(name) == policyIntfUpdate);
}

void byCharacterRange() {
   CHECK(fromName<Event>("policyDelete") == policyDelete);
   CHECK(fromName<StatusType>("statusFailure") == statusFailure);
   CHECK(fromName<RuleAction::Action>("setDscpAction") == RuleAction::setDscpAction);
   // The range need not be the whole of a longer text.
   CHECK(fromName<Event>(std::string_view{"policyUpdate, then more"}.substr(0, 12)) ==
         policyUpdate);
}

void streams() {
   CHECK_EQ(streamed(policyIntfUpdate), "policyIntfUpdate");
   CHECK_EQ(streamed(statusFailure), "statusFailure");
   CHECK_EQ(streamed(RuleAction::sampleAction), "sampleAction");
}

void enumerations() {
   names();
   byNumber();
   byName();
   byCharacterRange();
   streams();
}

const Subject subject{"enumerations", enumerations};

} // namespace
