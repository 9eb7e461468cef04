// A software TCAM with its two records, asked as a helper asks, and everything that is published of
// the answers: `ClientFixture`. `Line` stands between records and client: a `Conversation`, or the
// `FaultyLine` on which answers go wrong.
#pragma once

#include "postcard/rules-client/Conversation.h"
#include "postcard/rules-client/software/SoftwareTcam.h"
#include "support/AclRecords.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace RulesClientTest {

using Texts = std::vector<std::string>;

template <class Line>
class ClientFixture : public testing::Test {
 protected:
   using Later = std::function<void(std::function<void()>)>;
   using Event = OruPostcardTelemetry::PostcardTelemetryRulesClientSmEvent;
   using Config = OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig;
   using Status = OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus;
   using Tcam = Postcard::RulesClient::SoftwareTcam;

   ClientFixture() { make(10); }

   void make(std::size_t capacity, Later later = nullptr) {
      line_.reset(); // the records go on
      tcam_ = std::make_shared<Tcam>(capacity);
      line_ = std::make_unique<Line>(config_, status_, tcam_, std::move(later));
   }
   void makeDeferring(std::size_t capacity = 10) {
      make(capacity, [this](std::function<void()> work) { queue_.push_back(std::move(work)); });
   }
   void runQueue() {
      for (auto& work : std::exchange(queue_, {})) {
         work();
      }
   }

   // Posts a request as a helper does.
   void post(Event event,
             const Pello::Ptr<const OruPostcardTelemetry::PostcardTelemetryAclConfig>& acl) {
      config_->eventIs(event);
      config_->aclConfigIs(acl);
      config_->kickRequestInc(1);
   }
   // The same, and returns the answer's text.
   std::string ask(Event event, const AclRecords& acl) {
      post(event, acl.data());
      EXPECT_EQ(status_->kickResponse(), config_->kickRequest());
      EXPECT_EQ(status_->statusType() == OruPostcardTelemetry::statusSuccess,
                status_->status().empty());
      return status_->status().str();
   }
   std::string create(std::string_view key, std::size_t rules) {
      return ask(OruPostcardTelemetry::policyCreate, AclRecords{key}.rules(rules));
   }
   std::string update(std::string_view key, std::size_t rules) {
      return ask(OruPostcardTelemetry::policyUpdate, AclRecords{key}.rules(rules));
   }
   std::size_t entries(std::string_view key) const {
      const auto* acl = tcam_->acl(Pello::String{key});
      return acl == nullptr ? 0 : acl->entries().size();
   }

   // From now on, everything that is published of the status record, in order.
   const Texts& watch() {
      watching_ = status_->publisher()->subscribe([this](const Pello::Change& change) {
         seen_.push_back(change.attribute == Status::statusId
                               ? fmt::format("status '{}'", status_->status().view())
                         : change.attribute == Status::statusTypeId
                               ? fmt::format("type {}", stringValue(status_->statusType()))
                               : fmt::format("response {}", status_->kickResponse()));
      });
      return seen_;
   }

   Pello::Ptr<Config> config_{OruPostcardTelemetry::postcardTelemetryRulesClientSmConfigFactory()};
   Pello::Ptr<Status> status_{OruPostcardTelemetry::postcardTelemetryRulesClientSmStatusFactory()};
   std::shared_ptr<Tcam> tcam_;
   std::unique_ptr<Line> line_;
   std::vector<std::function<void()>> queue_;

 private:
   Texts seen_;
   Pello::Publisher::Subscription watching_;
};

} // namespace RulesClientTest
