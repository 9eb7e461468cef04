#include "postcard/policy/RefusedClasses.h"

#include "Classification/ProtocolNumbers.h"
#include "postcard/policy/Classes.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace Postcard::Policy {

namespace {

// Collects what is unsupported in one class.
class KeyCollector {
 public:
   explicit KeyCollector(bool tcpFlags) : tcpFlags_{tcpFlags} {}

   std::vector<UnsupportedKey> collect(const Class& item, const Filter& filter) {
      collectAddresses(filter);
      collectPacketMatches(filter);
      for (const ProtocolMatch& match : filter.protocols) {
         collectProtocol(match);
      }
      for (const Action& action : item.actions) {
         collectAction(action);
      }
      return std::move(keys_);
   }

 private:
   void add(std::string_view path, Location location) {
      UnsupportedKey& key = keys_.emplace_back();
      key.path = path;
      key.location = location;
   }

   template <class Value>
   void addIf(const std::optional<Value>& value, std::string_view path) {
      if (value) {
         add(path, value->location);
      }
   }

   // Adds the first element of `list` behind those that rules can express.
   template <class Element>
   void addBeyond(std::size_t supported, const std::vector<Element>& list, std::string_view path) {
      if (list.size() > supported) {
         add(path, list[supported].location);
      }
   }

   void addFlag(bool set, std::string_view path, Location location) {
      if (set) {
         add(path, location);
      }
   }

   void collectAddresses(const Filter& filter) {
      addBeyond(1, filter.source, "source");
      addBeyond(0, filter.sourceExcept, "source-except");
      addIf(filter.sourcePrefixSet, "source-prefix-set");
      addBeyond(1, filter.destination, "destination");
      addBeyond(0, filter.destinationExcept, "destination-except");
      addIf(filter.destinationPrefixSet, "destination-prefix-set");
   }

   void collectPacketMatches(const Filter& filter) {
      addIf(filter.payloadLength, "payload-length");
      addFlag(filter.fragments, "fragments", filter.fragmentsLocation);
      addIf(filter.ipTtl, "ip-ttl");
      addFlag(filter.ipOptions, "ip-options", filter.ipOptionsLocation);
      addFlag(filter.protocol, "protocol", filter.protocolLocation);
      addFlag(filter.protocolNeighbor, "protocol-neighbor", filter.protocolNeighborLocation);
   }

   void collectProtocol(const ProtocolMatch& match) {
      const bool single = match.low == match.high;
      const bool isTcp = single && match.low == Classification::protocolTcp;
      const bool isUdp = single && match.low == Classification::protocolUdp;
      addFlag(!isTcp && !isUdp, "protocols/protocol", match.location);
      addBeyond(0, match.icmpTypes, "protocols/icmp-types");
      if (tcpFlags_ && !isTcp) { // else the helper uses the flags, or ignores them
         addBeyond(0, match.tcpFlags, "protocols/tcp-flags");
      }
      for (const PortEntry& entry : match.ports) {
         addIf(entry.sourceSet, "protocols/ports/source-set");
         addIf(entry.destinationSet, "protocols/ports/destination-set");
      }
   }

   void collectAction(const Action& action) {
      switch (action.kind) {
      case ActionKind::sample:
      case ActionKind::sampleAll:
      case ActionKind::setDscp:
         return;
      default:
         add(fmt::format("actions/{}", actionName(action.kind)), action.location);
      }
   }

   bool tcpFlags_;
   std::vector<UnsupportedKey> keys_;
};

} // namespace

std::vector<RefusedClass> refusedClasses(const Policy& policy, Family family,
                                         const Hardware& hardware) {
   std::vector<RefusedClass> refused;
   for (const Class* item : classesInOrder(policy, family)) {
      auto keys = KeyCollector{hardware.tcpFlags}.collect(*item, *item->filter(family));
      if (!keys.empty()) {
         refused.push_back({item, std::move(keys)});
      }
   }
   return refused;
}

} // namespace Postcard::Policy
