// Any text as a policy file: findings, or a file whose policies can be built and, as long as they
// make few rules, go through a helper's whole life in both families. Whatever a user writes in a
// file, the process goes on.
#include "postcard/policy/file/PolicyFile.h"

#include "../Require.h"
#include "FeatureToggle/FeatureToggle.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/Helper.h"
#include "postcard/policy/PolicyBuilder.h"
#include "postcard/policy/file/PolicyFileFrames.h"

#include <fcntl.h>

namespace {

using Fuzz::require;
using Postcard::Policy::Family;
using Helper = OruPostcardTelemetry::OruPostcardPolicyAclHelper;

#ifdef FUZZ_WITHOUT_TCP_CONTROL
constexpr bool tcpControl = false;
#else
constexpr bool tcpControl = true;
#endif
constexpr const char* toggle = "FeaturePostcardTelemetryTcpControl";

// What is made of a file with more rules takes too long to try many files.
constexpr std::uint64_t fewRules = 200;

// Made once: it asks a file what is declared.
const Postcard::Policy::File::LoadOptions& options() {
   static const Postcard::Policy::File::LoadOptions options = [] {
      Postcard::Policy::File::LoadOptions made;
      made.toggles = {{toggle, tcpControl}};
      return made;
   }();
   return options;
}

void checkFindings(const Postcard::Policy::File::LoadResult& result, std::string_view text) {
   require(result.policyFile.has_value() == result.findings.empty(),
           "a file is accepted exactly when there is no finding");
   const std::string all = formatFindings(result);
   for (const Postcard::Policy::Finding& finding : result.findings) {
      require(!finding.message.empty() && finding.message.find('\n') == std::string::npos,
              "a message is one line", all);
      require(finding.location.line == 0 ||
                    Postcard::Policy::File::isWithin(finding.location, text),
              "a finding lies in the file", all);
   }
}

U32 nowhere() {
   static const int file = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
   return static_cast<U32>(file);
}

// The rules client's answer, if there is a request that it has to answer.
void answer(Helper& helper, U32 requestsBefore) {
   if (helper.clientConfig()->kickRequest() != requestsBefore) {
      helper.updatePolicyStatus(OruPostcardTelemetry::statusSuccess, "programmed");
   }
}

// As the agent does it. What the helper refuses with a message is fine.
void live(Helper& helper, const Postcard::Policy::Policy& policy, Family family) {
   const PolicyMap::PolicyMapAclHelper::PolicyDataPtr data = buildPolicy(policy);
   const auto matchOption = Postcard::Policy::matchOptionOf(family);
   const bool created = helper.createPolicy(data, matchOption).empty();
   helper.showPostcardAcl(nowhere());
   if (created) {
      const U32 requests = helper.clientConfig()->kickRequest();
      helper.commitPolicy(data, matchOption);
      answer(helper, requests);
      const Orlix::IntfId intf{"another"};
      const L3::VrfName vrf{"default"};
      helper.addIntfToPolicy(data, intf, intf, vrf, matchOption);
      helper.removeIntfFromPolicy(data, intf, intf, vrf, matchOption);
   }
   require(helper.recreatePolicy(data, matchOption).empty() == created,
           "a policy is made anew exactly when it was made", policy.name.text);
   helper.showPostcardAcl(nowhere());
}

// `visit(policy, family)` for every family of every policy to which interfaces are attached.
template <class Visit>
void forEachAttached(const Postcard::Policy::PolicyFile& file, Visit visit) {
   for (const Postcard::Policy::Policy& policy : file.policies) {
      for (const Family family : {Family::ipv4, Family::ipv6}) {
         if (!policy.interfaces(family).empty()) {
            visit(policy, family);
         }
      }
   }
}

void compile(const Postcard::Policy::PolicyFile& file) {
   const auto requests = OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory();
   const Pello::Ptr<Helper> helper{new Helper{requests, buildHwCapability(file.hardware)}};
   helper->hwInit();
   forEachAttached(file, [&](const Postcard::Policy::Policy& policy, Family family) {
      live(*helper, policy, family);
   });
   forEachAttached(file, [&](const Postcard::Policy::Policy& policy, Family family) {
      helper->deletePolicy(buildPolicy(policy), Postcard::Policy::matchOptionOf(family));
   });
   require(helper->aclConfigColls() == 0, "deleted policies are gone");
}

// The process's toggles stand; a file that wants others has them after a restart.
bool wantsOtherToggles(const Postcard::Policy::PolicyFile& file) {
   return file.featureToggles.at(toggle) != tcpControl;
}

// Names of interfaces are kept for ever; an hour of new ones would be taken for a leak.
bool enoughNames() {
   constexpr std::size_t enough = 500'000;
   static std::size_t files = 0;
   return ++files > enough;
}

void renameInterfaces(Postcard::Policy::PolicyFile& file) {
   for (Postcard::Policy::Policy& policy : file.policies) {
      for (auto* names : {&policy.ipv4Interfaces, &policy.ipv6Interfaces}) {
         for (std::size_t i = 0; i < names->size(); ++i) {
            (*names)[i].text = std::to_string(i);
         }
      }
   }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
   FeatureToggle::toggleOverrideIs(toggle, tcpControl);
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   const std::string_view text{reinterpret_cast<const char*>(data), size};
   Postcard::Policy::File::LoadOptions limits = options();
   const Postcard::Policy::File::LoadResult result = parsePolicyText(text, "file", limits);
   checkFindings(result, text);
   if (!result.policyFile || wantsOtherToggles(*result.policyFile)) {
      return 0;
   }
   limits.maxRules = fewRules;
   Postcard::Policy::PolicyFile file = *result.policyFile;
   if (enoughNames()) {
      renameInterfaces(file);
   }
   if (parsePolicyText(text, "file", limits).policyFile) {
      compile(file);
   } else {
      for (const Postcard::Policy::Policy& policy : file.policies) {
         buildPolicy(policy);
      }
   }
   return 0;
}
