// `Walk`: the model and the system side by side, one command after the other, and the end of the
// RapidCheck property at the first difference between the two.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/walk/LifecycleSystem.h"

#include <functional>

namespace LifecycleWalk {

using LifecycleModel::Model;

class Walk {
 public:
   // Makes a model wrong on purpose, behind every step that it took.
   using Fault = std::function<void(const Command&, Model&)>;

   explicit Walk(Fault fault = {}) : fault_{std::move(fault)} {}

   // Takes one step on both sides; one that would break a contract is left out.
   void step(const Command& command);

   Model model;
   U64 steps = 0;

 private:
   using Texts = std::pair<std::string, std::string>; // of the model, of the system

   bool legal(const Command& command, const Policy& policy) const;
   Texts both(const Command& command, Policy& policy);
   // Steps that are no operations of a policy.
   Texts aside(const Command& command, Policy& policy);
   // Texts with gaps, and a next key beyond them.
   void disturbHistory(const Command& command, const std::string& key);

   Fault fault_;
   std::vector<Policy> policies_ = LifecycleModel::newPolicies();
   // The latest answer, for repeating it.
   bool answered_ = false;
   bool success_ = false;
   std::string text_;
   System system_{model.client};
};

} // namespace LifecycleWalk
