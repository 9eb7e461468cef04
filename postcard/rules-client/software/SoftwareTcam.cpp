#include "postcard/rules-client/software/SoftwareTcam.h"

#include <fmt/format.h>

#include <numeric>
#include <utility>

namespace Postcard::RulesClient {

namespace {

using OruPostcardTelemetry::PostcardTelemetryAclConfig;

constexpr U16 kickRequestAttribute = 133;

} // namespace

SoftwareTcam::SoftwareTcam(Pello::Ptr<Config> config, Pello::Ptr<Status> status, Options options)
   : config_{std::move(config)},
     status_{std::move(status)},
     capacity_{options.capacity},
     later_{std::move(options.later)},
     self_{std::make_shared<SoftwareTcam*>(this)},
     subscription_{config_->publisher()->subscribe([this](const Pello::Change& change) {
        if (change.attribute == kickRequestAttribute) {
           requested();
        }
     })} {}

SoftwareTcam::~SoftwareTcam() {
   *self_ = nullptr;
}

std::size_t SoftwareTcam::used() const {
   return std::transform_reduce(acls_.begin(), acls_.end(), std::size_t{0}, std::plus{},
                                [](const auto& acl) { return acl.second.entries().size(); });
}

const Classifier::AclTable* SoftwareTcam::acl(const Pello::String& key) const {
   const auto found = acls_.find(key);
   return found == acls_.end() ? nullptr : &found->second;
}

std::vector<SoftwareTcam::Verdict> SoftwareTcam::classify(const Packets::Packet& packet) {
   std::vector<Verdict> verdicts;
   for (auto& [key, table] : acls_) {
      if (!table.attachedTo(packet.intf)) {
         continue;
      }
      if (const Classifier::AclTable::Entry* entry = table.hit(packet)) {
         verdicts.push_back(
               {key, entry->index, entry->rule, entry->sampled, entry->dscpAfter(packet.dscp)});
      }
   }
   return verdicts;
}

void SoftwareTcam::inject(const InjectedFailure& failure, std::size_t count) {
   failures_.insert(failures_.end(), count, failure);
}

void SoftwareTcam::releaseAnswers() {
   for (Answer& answer : std::exchange(held_, {})) {
      send(std::move(answer));
   }
}

// ---- Requests ----

void SoftwareTcam::requested() {
   requests_ += 1;
   const U32 request = config_->kickRequest();
   if (failures_.empty()) {
      send(act(request));
      return;
   }
   const InjectedFailure failure = std::move(failures_.front());
   failures_.pop_front();
   actWrongly(failure, request);
}

void SoftwareTcam::actWrongly(const InjectedFailure& failure, U32 request) {
   switch (failure.kind) {
   case InjectedFailure::refuse:
      send({request, failure.text, false});
      return;
   case InjectedFailure::late:
      held_.push_back(act(request));
      return;
   case InjectedFailure::never:
      return;
   case InjectedFailure::twice: {
      const Answer answer = act(request);
      send(answer);
      send(answer);
      return;
   }
   case InjectedFailure::gone: {
      Answer answer = act(request);
      send({request - 1, failure.text, false});
      send(std::move(answer));
      return;
   }
   }
}

SoftwareTcam::Answer SoftwareTcam::act(U32 request) {
   std::string text = perform();
   const bool success = text.empty();
   return {request, std::move(text), success};
}

// Returns the empty text, or what went wrong; then nothing has changed.
std::string SoftwareTcam::perform() {
   const auto event = config_->event();
   if (event > OruPostcardTelemetry::policyIntfUpdate) {
      return fmt::format("invalid: unknown event {}", static_cast<unsigned>(event));
   }
   if (config_->aclConfig() == nullptr) {
      return fmt::format("invalid: {} without an ACL", stringValue(event));
   }
   switch (event) {
   case OruPostcardTelemetry::policyCreate:
   case OruPostcardTelemetry::policyUpdate:
      return program(*config_);
   case OruPostcardTelemetry::policyDelete:
      return remove(config_->aclConfig()->aclConfigKey());
   case OruPostcardTelemetry::policyIntfUpdate:
      break;
   }
   return updateInterfaces(*config_->aclConfig());
}

// Creation and update do the same: after a creation that did not fit, the policy's next version
// comes as an update, and a restarted agent creates what is held already.
std::string SoftwareTcam::program(const Config& request) {
   try {
      return hold(Classifier::AclTable{*request.aclConfig()});
   } catch (const Classifier::AclError& error) {
      return fmt::format("invalid: {}", error.what());
   }
}

std::string SoftwareTcam::hold(Classifier::AclTable table) {
   const Classifier::AclTable* old = acl(table.key());
   const std::size_t free = available() + (old == nullptr ? 0 : old->entries().size());
   const std::size_t needed = table.entries().size();
   if (needed > free) {
      return fmt::format("full: {} needs {} entries, {} of {} are free", table.key().view(), needed,
                         free, capacity_);
   }
   const Pello::String key = table.key();
   acls_.insert_or_assign(key, std::move(table));
   return {};
}

std::string SoftwareTcam::remove(const Pello::String& key) {
   if (acls_.erase(key) == 0) {
      return fmt::format("invalid: {} cannot be deleted: it is not programmed", key.view());
   }
   return {};
}

std::string SoftwareTcam::updateInterfaces(const PostcardTelemetryAclConfig& acl) {
   const auto found = acls_.find(acl.aclConfigKey());
   if (found == acls_.end()) {
      return fmt::format("invalid: the interfaces of {} cannot be updated: it is not programmed",
                         acl.aclConfigKey().view());
   }
   found->second.interfacesFrom(acl);
   return {};
}

// ---- Answers ----

void SoftwareTcam::send(Answer answer) {
   if (!later_) {
      write(answer);
      return;
   }
   later_([self = self_, answer = std::move(answer)] {
      if (SoftwareTcam* const client = *self) {
         client->write(answer);
      }
   });
}

// Whoever hears of the counter may post the next request at once, or even let this client go. So
// the counter is written last, and nothing of this object is touched afterwards.
void SoftwareTcam::write(const Answer& answer) {
   const Pello::Ptr<Status> status = status_;
   const U32 request = answer.request;
   const bool again = status->kickResponse() == request;
   status->statusIs(Pello::String{answer.text});
   status->statusTypeIs(answer.success ? OruPostcardTelemetry::statusSuccess
                                       : OruPostcardTelemetry::statusFailure);
   if (again) {
      // An equal value would be published to nobody: an answer that is repeated shows as the one
      // before and then itself.
      status->kickResponseIs(request - 1);
   }
   status->kickResponseIs(request);
}

} // namespace Postcard::RulesClient
