// Matches that the hardware cannot express, and the message that names them.

#include "Bench.h"
#include "Check.h"

#include <functional>
#include <string>

using namespace OruPostcardTelemetry;
using namespace thirdparty;

namespace {

// The answer to a policy whose one class was prepared by the caller.
std::string answer(const std::function<void(const Class&)>& prepare, bool tcpFlags = true) {
   const Bench bench{tcpFlags};
   const Pello::Ptr<PolicyData> policy{attachedPolicy("p1")};
   prepare(addClass(policy, ipv4(), 1, "web"));
   return text(bench.helper->createPolicy(policy, ipv4()));
}

void acceptable() {
   CHECK_EQ(answer([](const Class&) {}), "");
   CHECK_EQ(answer([](const Class& web) {
               addSource(web, "10.0.0.0/8");
               addDestination(web, "192.168.1.0/24");
               addProtocols(web, 6, 6);
               addProtocols(web, 17, 17);
            }),
            "");
}

void filterWide() {
   CHECK_EQ(answer([](const Class& web) {
               addSource(web, "10.0.0.0/8");
               addSource(web, "172.16.0.0/12");
               addFragments(web);
            }),
            "Unsupported match(es): 'Source Prefix List', 'Fragments', in configuration");
   CHECK_EQ(answer([](const Class& web) {
               addIpOptions(web);
               addDestination(web, "10.0.0.0/8");
               addDestination(web, "172.16.0.0/12");
            }),
            "Unsupported match(es): 'Destination Prefix List', 'IP Options', in configuration");
}

void protocolRanges() {
   std::string const message{"Unsupported match(es): 'IP Protocol', in configuration"};
   CHECK_EQ(answer([](const Class& web) { addProtocols(web, 1, 1); }), message);
   CHECK_EQ(answer([](const Class& web) { addProtocols(web, 6, 17); }), message);
   // Only the first field with a fault is named.
   CHECK_EQ(answer([](const Class& web) {
               addProtocols(web, 1, 1);
               addIcmpType(addProtocols(web, 2, 2), 8);
            }),
            message);
   CHECK_EQ(answer([](const Class& web) { addIcmpType(addProtocols(web, 1, 1), 8); }),
            "Unsupported match(es): 'IP Protocol', 'ICMP Types', in configuration");
}

void tcpFlagsOfUdp() {
   const auto prepare = [](const Class& web) { addTcpFlags(addProtocols(web, 17, 17), 2, 18); };
   CHECK_EQ(answer(prepare, true), "Unsupported match(es): 'TCP Flag', in configuration");
   CHECK_EQ(answer(prepare, false), "");
}

void portSets() {
   CHECK_EQ(answer([](const Class& web) {
               auto const tcp = addProtocols(web, 6, 6);
               nameSourcePortSet(tcp, 0);
               nameDestinationPortSet(tcp, 0);
               nameSourcePortSet(tcp, 1);
            }),
            "Unsupported match(es): 'Sport Field Set', 'Dport Field Set', in configuration");
   CHECK_EQ(answer([](const Class& web) {
               auto const tcp = addProtocols(web, 6, 6);
               addSourcePorts(tcp, 0, 80, 80);
               nameDestinationPortSet(tcp, 1);
            }),
            "Unsupported match(es): 'Dport Field Set', in configuration");
}

// With a faulty match the actions are not looked at.
void matchBeforeAction() {
   CHECK_EQ(answer([](const Class& web) {
               addFragments(web);
               addAction(web, 1);
            }),
            "Unsupported match(es): 'Fragments', in configuration");
}

void unsupportedMatches() {
   acceptable();
   filterWide();
   protocolRanges();
   tcpFlagsOfUdp();
   portSets();
   matchBeforeAction();
}

const Subject subject{"unsupported matches", unsupportedMatches};

} // namespace
