#include "postcard/rules-client/kernel/KernelClient.h"

#include "postcard/rules-client/kernel/AclImage.h"
#include "postcard/rules-client/kernel/KernelError.h"
#include "postcard/rules-client/kernel/KernelLayout.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>

namespace Postcard::RulesClient {

namespace {

// A limit of this client is reached.
class Full : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

std::vector<std::string> namesOf(const std::vector<Orlix::IntfId>& interfaces) {
   std::vector<std::string> names;
   names.reserve(interfaces.size());
   for (const Orlix::IntfId& intf : interfaces) {
      names.push_back(intf.stringValue().str());
   }
   return names;
}

// Runs the work of a request and turns what it throws into its outcome.
template <class Work>
Outcome outcomeOf(const Work& work) {
   try {
      return work();
   } catch (const Classifier::AclError& error) {
      return {Outcome::invalid, error.what()};
   } catch (const ImageTooLarge& error) {
      return {Outcome::full, error.what()};
   } catch (const Full& error) {
      return {Outcome::full, error.what()};
   } catch (const KernelError& error) {
      return {error.isRoom() ? Outcome::full : Outcome::failed, error.what()};
   } catch (const ForeignProgram& error) {
      return {Outcome::failed, error.what()};
   }
}

} // namespace

KernelClient::KernelClient(ClientOptions options) : options_{std::move(options)} {}

KernelClient::~KernelClient() = default;

// ---- Requests ----

void KernelClient::program(const AclConfig& acl, Reply reply) {
   Outcome outcome = outcomeOf([&] { return hold(acl); });
   reply(std::move(outcome)); // last: the reply may destroy this object
}

void KernelClient::remove(const Pello::String& key, Reply reply) {
   Outcome outcome = outcomeOf([&] { return drop(key); });
   reply(std::move(outcome));
}

void KernelClient::interfacesChanged(const AclConfig& acl, Reply reply) {
   Outcome outcome = outcomeOf([&] { return moveTo(acl); });
   reply(std::move(outcome));
}

// Makes the chains of the ACLs. When that fails, calls `undo`, which makes the ACLs what they
// were, and makes their chains again as far as possible.
template <class Undo>
void KernelClient::connectOr(const Undo& undo) {
   try {
      connect();
   } catch (...) {
      undo();
      try {
         connect();
      } catch (const std::runtime_error& error) {
         options_.say(error.what());
      }
      throw;
   }
}

Outcome KernelClient::hold(const AclConfig& acl) {
   const Classifier::AclTable table{acl};
   const auto old = acls_.find(table.key());
   const U32 slot = old == acls_.end() ? freeSlot() : old->second.slot;
   Held held{
         table.family(), slot, table.entries(), namesOf(table.interfaces()),
         std::make_unique<AclProgram>(table, dispatcher_.maps(),
                                      AclProgram::Place{slot, ++version_, options_.sampleBytes})};
   const std::vector<std::string> interfaces = held.interfaces;
   const bool isNew = old == acls_.end();
   // What can fail comes first, while the old version is in force.
   attachAllOrNone(interfaces);
   if (isNew) {
      dispatcher_.put(slot, *held.program);
      const auto added = acls_.emplace(table.key(), std::move(held)).first;
      connectOr([&] { acls_.erase(added); });
   } else {
      takeInterfaces(old->second, interfaces);
      dispatcher_.put(slot, *held.program);
      old->second = std::move(held);
   }
   sayMissing(interfaces);
   return {};
}

void KernelClient::takeInterfaces(Held& held, const std::vector<std::string>& interfaces) {
   const std::vector<std::string> before = std::exchange(held.interfaces, interfaces);
   connectOr([&] { held.interfaces = before; });
}

Outcome KernelClient::drop(const Pello::String& key) {
   const auto found = acls_.find(key);
   if (found == acls_.end()) {
      return {Outcome::invalid,
              fmt::format("{} cannot be deleted: it is not programmed", key.view())};
   }
   // Destroyed last: packets may be inside until `connect` has waited for them.
   auto removed = acls_.extract(found);
   connectOr([&] { acls_.insert(std::move(removed)); });
   dispatcher_.clear(removed.mapped().slot);
   return {};
}

Outcome KernelClient::moveTo(const AclConfig& acl) {
   const auto found = acls_.find(acl.aclConfigKey());
   if (found == acls_.end()) {
      return {Outcome::invalid,
              fmt::format("the interfaces of {} cannot be updated: it is not programmed",
                          acl.aclConfigKey().view())};
   }
   std::vector<Orlix::IntfId> wanted;
   for (const auto& intf : acl.policyIntf()) {
      wanted.push_back(intf);
   }
   const std::vector<std::string> interfaces = namesOf(wanted);
   attachAllOrNone(interfaces);
   takeInterfaces(found->second, interfaces);
   sayMissing(interfaces);
   return {};
}

U32 KernelClient::freeSlot() const {
   std::array<bool, postcardMostAcls> used{};
   for (const auto& [key, held] : acls_) {
      used.at(held.slot) = true;
   }
   const auto* free = std::ranges::find(used, false);
   if (free == used.end()) {
      throw Full{fmt::format("{} ACLs are programmed, which is the most", used.size())};
   }
   return static_cast<U32>(free - used.begin());
}

void KernelClient::sayMissing(const std::vector<std::string>& interfaces) const {
   std::vector<std::string> missing;
   std::ranges::copy_if(interfaces, std::back_inserter(missing),
                        [this](const std::string& name) { return !isAttached(name); });
   if (!missing.empty()) {
      options_.say(fmt::format("waiting for interfaces: {}", fmt::join(missing, ", ")));
   }
}

// ---- Counters ----

const char* KernelClient::stateOf(const std::string& interface) const {
   const auto found = attached_.find(interfaceIndex(interface));
   if (found == attached_.end()) {
      return "waiting";
   }
   return found->second->mode() == Attachment::Mode::native ? "native" : "generic";
}

std::vector<AclCounters> KernelClient::counters() const {
   std::vector<AclCounters> all;
   for (const auto& [key, held] : acls_) {
      const AclProgram::Totals totals = held.program->totals();
      AclCounters acl{key.str(), totals.samples, totals.lostSamples, {}, {}};
      for (const std::string& name : held.interfaces) {
         acl.interfaces.push_back({name, stateOf(name)});
      }
      for (std::size_t place = 0; place < held.entries.size(); ++place) {
         const Classifier::AclTable::Entry& entry = held.entries[place];
         const AclProgram::Counter counter = held.program->counter(place);
         acl.rules.push_back(
               {entry.index, entry.rule.str(), entry.sampled, counter.packets, counter.bytes});
      }
      all.push_back(std::move(acl));
   }
   return all;
}

// ---- Interfaces ----

std::optional<Attachment::Mode> KernelClient::attached(const std::string& interface) const {
   const auto found = attached_.find(interfaceIndex(interface));
   return found == attached_.end() ? std::nullopt : std::optional{found->second->mode()};
}

bool KernelClient::isAttached(const std::string& interface) const {
   return attached_.contains(interfaceIndex(interface));
}

std::vector<std::string> KernelClient::waiting() const {
   std::set<std::string> names;
   for (const auto& [key, held] : acls_) {
      names.insert(held.interfaces.begin(), held.interfaces.end());
   }
   std::erase_if(names, [this](const std::string& name) { return isAttached(name); });
   return {names.begin(), names.end()};
}

// Attachments that no chain uses go with the next `detachUnused`.
void KernelClient::attachAll(const std::vector<std::string>& interfaces) {
   for (const std::string& name : interfaces) {
      const U32 index = interfaceIndex(name);
      if (index != 0 && !attached_.contains(index)) {
         attached_.emplace(index,
                           std::make_unique<Attachment>(dispatcher_.descriptor(), index, name));
      }
   }
}

void KernelClient::attachAllOrNone(const std::vector<std::string>& interfaces) {
   try {
      attachAll(interfaces);
   } catch (...) {
      detachUnused();
      throw;
   }
}

KernelClient::Chains KernelClient::wantedChains() const {
   Chains chains;
   for (const auto& [key, held] : acls_) {
      for (const std::string& name : held.interfaces) {
         if (const U32 index = interfaceIndex(name); attached_.contains(index)) {
            chains[{index, Dispatcher::start(held.family)}].push_back(held.slot);
         }
      }
   }
   return chains;
}

void KernelClient::requireRoom(const Chains& chains) const {
   std::size_t attachments = 0;
   for (const auto& [key, chain] : chains) {
      attachments += chain.size();
      if (chain.size() > postcardMostAclsOfInterface) {
         throw Full{fmt::format("interface {} would have {} ACLs of one family, {} are the most",
                                key.first, chain.size(), +postcardMostAclsOfInterface)};
      }
   }
   // A replaced way may stay for a moment beside the new one.
   if (attachments > postcardMostAttachments / 2) {
      throw Full{fmt::format("ACLs would be at {} interfaces together, {} are the most",
                             attachments, postcardMostAttachments / 2)};
   }
}

// Makes the chains in force what the ACLs want.
void KernelClient::connect() {
   const Chains wanted = wantedChains();
   requireRoom(wanted);
   Stale stale;
   const Chains before = chains_;
   for (const auto& [key, chain] : before) {
      if (!wanted.contains(key)) {
         setChain(key, {}, stale);
      }
   }
   for (const auto& [key, chain] : wanted) {
      setChain(key, chain, stale);
   }
   if (!stale.empty()) {
      dispatcher_.waitForPackets();
      for (const auto& [interface, from] : stale) {
         dispatcher_.dropHop(interface, from);
      }
   }
   detachUnused();
}

// From the last hop to the first, so that a packet that takes a new hop finds the rest of the way.
// ACLs that stay keep their order. Hops of ACLs that leave the chain must stay while packets may be
// inside them; they are added to `stale`.
void KernelClient::setChain(const ChainKey& key, const Chain& chain, Stale& stale) {
   const auto& [interface, start] = key;
   const Chain before = chains_[key];
   chains_[key] = chain;
   if (before == chain) {
      return;
   }
   for (std::size_t i = chain.size(); i > 0; --i) {
      dispatcher_.setHop(interface, i == 1 ? start : chain[i - 2], chain[i - 1]);
   }
   dispatcher_.dropHop(interface, chain.empty() ? start : chain.back());
   for (const U32 slot : before) {
      if (std::ranges::find(chain, slot) == chain.end()) {
         stale.emplace_back(interface, slot);
      }
   }
   if (chain.empty()) {
      chains_.erase(key);
   }
}

void KernelClient::detachUnused() {
   std::erase_if(attached_, [this](const auto& each) {
      return std::ranges::none_of(
            chains_, [&](const auto& chain) { return chain.first.first == each.first; });
   });
}

std::vector<ModuleClient::Watched> KernelClient::watched() {
   return {{watch_.descriptor(), [this] {
               watch_.read();
               interfacesMayHaveChanged();
            }}};
}

void KernelClient::interfacesMayHaveChanged() {
   std::erase_if(attached_, [](const auto& each) { return !each.second->isAlive(); });
   for (const std::string& name : waiting()) {
      try {
         attachAll({name});
         if (isAttached(name)) {
            refusals_.erase(name);
            options_.say(fmt::format("attached to interface {}", name));
         }
      } catch (const std::runtime_error& error) {
         // Events of interfaces are many; the same reason is said once.
         if (std::exchange(refusals_[name], error.what()) != error.what()) {
            options_.say(error.what());
         }
      }
   }
   connect();
}

} // namespace Postcard::RulesClient
