// A program with a rules client of its own: consumer POLICY.yaml. It ends with 0 when every policy
// is programmed, 1 when one is not, 2 for bad usage or a bad file, 3 when the plug-in cannot be
// used.
//
// A rules client programs ACLs into something: a switch's hardware, a kernel, or, here, a table on
// standard output. The program does what every host of the plug-in does:
//
//  1. It makes the two records: the request, which the plug-in writes, and the answer, which the
//     rules client writes.
//  2. It lets a rules client listen to the request.
//  3. It opens the plug-in, and makes a helper that posts its requests in the request record.
//  4. It lets the helper create each policy and commit it. The commit changes the counter in the
//     request record, and the rules client acts on that.
//  5. It hands the answer to the helper, which records in the ACL that it is programmed.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "postcard/host/PluginHost.h"
#include "postcard/policy/FeatureToggles.h"
#include "postcard/policy/PolicyBuilder.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/rules-client/Conversation.h"

#include <exception>
#include <iostream>
#include <memory>
#include <string>

namespace {

using Postcard::RulesClient::AclConfig;
using Postcard::RulesClient::Conversation;
using Postcard::RulesClient::Outcome;
using Postcard::RulesClient::Reply;

using Request = OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig;
using Answer = OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus;

// Prints what it is asked to do. Refuses an ACL of more than `room` rules.
class PrintingRulesClient final : public Postcard::RulesClient::RulesClient {
 public:
   explicit PrintingRulesClient(std::size_t room) : room_{room} {}

   void program(const AclConfig& acl, Reply reply) override {
      const std::size_t rules = acl.ruleByIndexs(); // the size of the collection `ruleByIndex`
      std::cout << "program " << acl.aclConfigKey() << ": " << rules << " rules\n";
      if (rules <= room_) {
         reply({});
      } else {
         reply({Outcome::full, "there is room for " + std::to_string(room_) + " rules"});
      }
   }

   void remove(const Pello::String& key, Reply reply) override {
      std::cout << "remove " << key << '\n';
      reply({});
   }

   void interfacesChanged(const AclConfig& acl, Reply reply) override {
      std::cout << "interfaces of " << acl.aclConfigKey() << '\n';
      reply({});
   }

 private:
   std::size_t room_;
};

// Creates and commits the policy in one address family. Returns whether it is programmed; prints
// the reason when it is not. A policy without rules is programmed at once: the helper posts no
// request for it, and must not be given an answer then.
bool program(const Postcard::Host::HelperHandle& helper, const Request& request,
             const Answer& answer, const Postcard::Policy::Policy& policy,
             Postcard::Policy::Family family) {
   const auto record = Postcard::Policy::buildPolicy(policy);
   const auto option = Postcard::Policy::matchOptionOf(family);
   Kiv::String message = helper->createPolicy(record, option);
   if (message.empty()) {
      const auto requestsBefore = request.kickRequest();
      // The rules client replies inside this call, so the answer is there when it returns.
      helper->commitPolicy(record, option);
      if (request.kickRequest() != requestsBefore) {
         message = helper.updatePolicyStatus(answer.statusType(), answer.status());
      }
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
   // Before the helper reads them, which it does once.
   Postcard::Policy::applyFeatureToggles(loaded.policyFile->featureToggles);

   const auto request = OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory();
   const auto answer = OruPostcardTelemetry::postcardTelemetryRulesClientSmStatusFactory();
   const Conversation conversation{request, answer, std::make_shared<PrintingRulesClient>(1000)};

   const Postcard::Host::PluginHost plugin{Postcard::Host::PluginHost::defaultModule()};
   const auto helper = plugin.makeHelper(
         request, Postcard::Policy::buildHwCapability(loaded.policyFile->hardware));
   bool done = true;
   for (const auto& policy : loaded.policyFile->policies) {
      for (const auto family : {Postcard::Policy::Family::ipv4, Postcard::Policy::Family::ipv6}) {
         // The helper ends the process for a family without interfaces.
         if (!policy.interfaces(family).empty()) {
            done = program(helper, *request, *answer, policy, family) && done;
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
