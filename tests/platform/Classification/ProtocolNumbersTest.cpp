// Protocol numbers and TCP flags, against those of the system's headers.
#include "Classification/ProtocolNumbers.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <netinet/tcp.h>

namespace Classification {
namespace {

static_assert(protocolIcmp == IPPROTO_ICMP && protocolTcp == IPPROTO_TCP);
static_assert(protocolUdp == IPPROTO_UDP && protocolIcmpV6 == IPPROTO_ICMPV6);

TEST(ProtocolNumbers, words) {
   EXPECT_EQ(protocolWord(1), "icmp");
   EXPECT_EQ(protocolWord(6), "tcp");
   EXPECT_EQ(protocolWord(17), "udp");
   EXPECT_EQ(protocolWord(58), "icmpv6");
   for (const U8 other : {U8{0}, U8{2}, U8{41}, U8{132}, U8{255}}) {
      EXPECT_EQ(protocolWord(other), "") << int{other};
   }
}

TEST(ProtocolNumbers, tcpFlagsFromTheLowestBit) {
   const NamedNumber expected[] = {{"fin", TH_FIN},  {"syn", TH_SYN}, {"rst", TH_RST},
                                   {"psh", TH_PUSH}, {"ack", TH_ACK}, {"urg", TH_URG},
                                   {"ece", 1 << 6},  {"cwr", 1 << 7}};
   ASSERT_EQ(tcpFlagWords.size(), std::size(expected));
   for (std::size_t bit = 0; bit < tcpFlagWords.size(); ++bit) {
      EXPECT_EQ(tcpFlagWords[bit], expected[bit]);
      EXPECT_EQ(tcpFlagWords[bit].number, 1U << bit);
   }
}

} // namespace
} // namespace Classification
