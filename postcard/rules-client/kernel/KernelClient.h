// `KernelClient`: a rules client whose hardware is the Linux kernel of this machine. Packets that
// come in at the interfaces of a policy are counted, sampled and marked where they arrive, and go
// on in any case. Relies on `Dispatcher`, `AclProgram` and `Interface`.
//
// **Interfaces** of a policy are interfaces of this machine, by name. One that does not exist is
// waited for. When interfaces come, go or are renamed, `interfacesMayHaveChanged` follows.
//
// **Several ACLs** of one family at an interface are all asked, in the order of their keys. Each
// counts and samples as if it were alone; of several that set the DSCP, the last one wins.
//
// **Replacement.** A new version is loaded and filled beside the old one and takes its place in one
// step. It begins with counters of 0. When it cannot be loaded, the old one stays in force.
//
// **Limits.** At most 256 ACLs, 32 of a family at an interface, 8,192 pairs of an ACL and an
// interface, and 256 MiB for the compiled form of an ACL. What exceeds one is refused as `full`.
#pragma once

#include "postcard/classifier/AclTable.h"
#include "postcard/rules-client/ClientModule.h"
#include "postcard/rules-client/kernel/AclProgram.h"
#include "postcard/rules-client/kernel/Dispatcher.h"
#include "postcard/rules-client/kernel/Interface.h"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Postcard::RulesClient {

class KernelClient : public ModuleClient {
 public:
   // Loads the dispatcher. Throws KernelError, which says what is missing.
   explicit KernelClient(ClientOptions options = {});
   ~KernelClient() override;

   // See `RulesClient` for the contracts.
   void program(const AclConfig& acl, Reply reply) override;
   void remove(const Pello::String& key, Reply reply) override;
   void interfacesChanged(const AclConfig& acl, Reply reply) override;
   std::vector<Watched> watched() override;
   std::vector<AclCounters> counters() const override;

   // Attaches to interfaces that have come, and forgets those that have gone. What cannot be
   // attached is said, and tried again at the next call.
   void interfacesMayHaveChanged();

   // An ACL in force.
   struct Held {
      Orlix::AddressFamily family;
      U32 slot;
      std::vector<Classifier::AclTable::Entry> entries; // `hits` is not used
      std::vector<std::string> interfaces;              // names, as the policy has them
      std::unique_ptr<AclProgram> program;              // never null; place by place as `entries`
   };
   using Acls = std::map<Pello::String, Held>;
   // By key of the ACL. Valid until the next request.
   const Acls& acls() const noexcept { return acls_; }
   // The mode in which the interface is attached; absent when it is not.
   std::optional<Attachment::Mode> attached(const std::string& interface) const;
   // Interfaces of ACLs that do not exist, or are not attached. Ascending, each once.
   std::vector<std::string> waiting() const;
   const Dispatcher& dispatcher() const noexcept { return dispatcher_; }

 private:
   using ChainKey = std::pair<U32, U32>; // interface, start
   using Chain = std::vector<U32>;       // slots, in the order of the keys of the ACLs
   using Chains = std::map<ChainKey, Chain>;
   using Stale = std::vector<std::pair<U32, U32>>; // hops: interface, from

   Outcome hold(const AclConfig& acl);
   Outcome drop(const Pello::String& key);
   Outcome moveTo(const AclConfig& acl);
   U32 freeSlot() const;
   Chains wantedChains() const;
   void requireRoom(const Chains& chains) const;
   void attachAll(const std::vector<std::string>& interfaces);
   void attachAllOrNone(const std::vector<std::string>& interfaces);
   void connect();
   void setChain(const ChainKey& key, const Chain& chain, Stale& stale);
   void detachUnused();
   template <class Undo>
   void connectOr(const Undo& undo);
   void takeInterfaces(Held& held, const std::vector<std::string>& interfaces);
   bool isAttached(const std::string& interface) const;
   const char* stateOf(const std::string& interface) const;
   void sayMissing(const std::vector<std::string>& interfaces) const;

   ClientOptions options_;
   Dispatcher dispatcher_;
   InterfaceWatch watch_;
   U32 version_ = 0;                                     // of the ACL that was loaded last
   std::map<U32, std::unique_ptr<Attachment>> attached_; // by index of the interface
   Chains chains_;                                       // in force; none is empty
   Acls acls_;
   std::map<std::string, std::string> refusals_; // by interface, why it could not be attached last
};

} // namespace Postcard::RulesClient
