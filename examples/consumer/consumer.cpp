// A program with a rules client of its own: consumer POLICY.yaml
//
// A rules client programs ACLs into something: a switch's hardware, a kernel, or, here, a table on
// standard output. The program does what every host of the plug-in does:
//
//  1. It makes the two records: the request, which the plug-in writes, and the answer, which the
//     rules client writes.
//  2. It lets a rules client listen to the request.
//  3. It opens the plug-in, and makes a helper that knows the request.
//  4. It lets the helper create each policy and commit it. The commit changes the request's
//  counter,
//     and the rules client acts on that.
//  5. It hands the answer to the helper, which records in the ACL that it is programmed.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "postcard/host/PluginHost.h"
#include "postcard/policy/PolicyBuilder.h"
#include "postcard/policy/file/PolicyFile.h"

#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

namespace {

using Request = OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig;
using Answer = OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus;

// Prints what it is asked to do, and answers each request at once. It has room for so many rules in
// one ACL, and refuses an ACL that needs more.
class PrintingRulesClient {
 public:
   PrintingRulesClient(Pello::Ptr<Request> request, Pello::Ptr<Answer> answer, std::size_t room)
      : request_{request},
        answer_{answer},
        room_{room},
        subscription_{request->publisher()->subscribe([this](const Pello::Change&) {
           // The counter is written last. Earlier changes belong to a request that is not complete.
           if (request_->kickRequest() != seen_) {
              seen_ = request_->kickRequest();
              act();
           }
        })} {}

 private:
   void act() {
      const auto acl = request_->aclConfig();
      const std::size_t rules = acl->ruleByIndexs(); // how many there are
      const std::string name = stringValue(request_->event());
      std::cout << name << ' ' << acl->aclConfigKey() << ": " << rules << " rules\n";
      const bool fits = rules <= room_;
      answer_->statusIs(fits ? "" : "the table has room for " + std::to_string(room_) + " rules");
      answer_->statusTypeIs(fits ? OruPostcardTelemetry::statusSuccess
                                 : OruPostcardTelemetry::statusFailure);
      // The counter tells the host that the answer is complete, so it comes last.
      answer_->kickResponseIs(request_->kickRequest());
   }

   Pello::Ptr<Request> request_;
   Pello::Ptr<Answer> answer_;
   std::size_t room_;
   U32 seen_ = 0; // the counter of the latest request
   Pello::Publisher::Subscription subscription_;
};

// Creates and commits the policy in one address family. Returns whether it is programmed.
bool program(const Postcard::Host::HelperHandle& helper, const Answer& answer,
             const Postcard::Policy::Policy& policy, Postcard::Policy::Family family) {
   const auto record = Postcard::Policy::buildPolicy(policy);
   const auto option = Postcard::Policy::matchOptionOf(family);
   Kiv::String message = helper->createPolicy(record, option);
   if (message.empty()) {
      helper->commitPolicy(record, option);
      message = helper.updatePolicyStatus(answer.statusType(), answer.status());
   }
   if (!message.empty()) {
      std::cout << policy.name.text << ": " << message << '\n';
   }
   return message.empty();
}

int run(const std::string& file) {
   const auto loaded = Postcard::Policy::File::loadPolicyFile(file);
   if (!loaded.policyFile) {
      std::cerr << formatFindings(loaded);
      return 2;
   }
   Postcard::Policy::applyFeatureToggles(loaded.policyFile->featureToggles);

   const auto request = OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory();
   const auto answer = OruPostcardTelemetry::postcardTelemetryRulesClientSmStatusFactory();
   const PrintingRulesClient client{request, answer, 1000};

   const Postcard::Host::PluginHost plugin{Postcard::Host::PluginHost::defaultModule()};
   const auto helper = plugin.makeHelper(
         request, Postcard::Policy::buildHwCapability(loaded.policyFile->hardware));
   bool done = true;
   for (const auto& policy : loaded.policyFile->policies) {
      for (const auto family : {Postcard::Policy::Family::ipv4, Postcard::Policy::Family::ipv6}) {
         if (!policy.interfaces(family).empty()) {
            done = program(helper, *answer, policy, family) && done;
         }
      }
   }
   return done ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
   if (argc != 2) {
      std::cerr << "usage: consumer POLICY.yaml\n";
      return 2;
   }
   try {
      return run(argv[1]);
   } catch (const std::exception& error) {
      std::cerr << "consumer: " << error.what() << '\n';
      return 3;
   }
}
