// Headers of every kind: a program in the kernel reads them as the decoder of captures does.
#include "ComparedAcl.h"
#include "FixedFrames.h"

#include <gtest/gtest.h>

namespace {

using namespace RulesClientTest;
using Orlix::AddressFamily;

// Rules 0: TCP to port 443; 1: TCP with any port; 2: TCP; 3: fragments' and extensions' protocols.
AclRecords threeRules(AddressFamily family) {
   AclRecords acl{"a", family == AddressFamily::ipv4 ? Acl::AclType::ipv4 : Acl::AclType::ipv6};
   RuleFilter& https = *acl.rule()->ruleFilter();
   https.dportDataMaskIs({443, 0xffff});
   https.dportDataMaskValidIs(true);
   acl.rule()->ruleFilter()->sportDataMaskValidIs(true);
   acl.rule();
   acl.rule(60);
   acl.rule(50);
   return acl;
}

constexpr std::size_t none = ~std::size_t{0};

struct HeaderCase {
   const char* name;
   Bytes frame;
   std::size_t rule; // or `none`
};

const Bytes empty8 = bytesOf("06 00 000000000000"); // an extension header of 8 bytes before TCP

std::vector<HeaderCase> headerCases4() {
   Bytes options = joined({macs, type4, head4(24), bytesOf("01010101"), tcp443});
   options[14] = 0x46;
   Bytes shortLength = joined({macs, type4, head4(3), tcp443});
   Bytes noLength = joined({macs, type4, head4(20), tcp443});
   noLength[16] = noLength[17] = 0;
   Bytes badLength = joined({macs, type4, head4(0), tcp443});
   badLength[17] = 19;
   Bytes version = joined({macs, type4, head4(20), tcp443});
   version[14] = 0x55;
   Bytes smallHeader = joined({macs, type4, head4(20), tcp443});
   smallHeader[14] = 0x44;
   Bytes cutOptions = joined({macs, type4, head4(20)});
   cutOptions[14] = 0x4f;
   return {
         {"plain", joined({macs, type4, head4(20), tcp443}), 0},
         {"VLAN", joined({macs, tag, type4, head4(20), tcp443}), 0},
         {"QinQ", joined({macs, bytesOf("88a80001 81000002"), type4, head4(20), tcp443}), 0},
         {"100 tags", joined({macs, repeated(tag, 100), type4, head4(20), tcp443}), 0},
         {"cut in a tag", joined({macs, bytesOf("8100 00")}), none},
         {"no type behind a tag", joined({macs, tag}), none},
         {"other type", joined({macs, bytesOf("0806"), head4(20), tcp443}), none},
         {"other family", joined({macs, type6, head4(20), tcp443}), none},
         {"options", options, 0},
         {"header cut off", joined({macs, type4, Bytes(19, 0x45)}), none},
         {"options cut off", cutOptions, none},
         {"other version", version, none},
         {"header too small", smallHeader, none},
         {"length shorter than the header", badLength, none},
         {"length ends in the ports", shortLength, 1},
         {"length left out", noLength, 0},
         {"padding is no TCP header", joined({macs, type4, head4(0), tcp443}), 2},
         {"TCP header cut off behind the ports",
          joined({macs, type4, head4(4), bytesOf("040101bb")}), 0},
         {"one port", joined({macs, type4, head4(2), bytesOf("0401")}), 1},
         {"half a port", joined({macs, type4, head4(1), bytesOf("04")}), 2},
         {"first fragment", joined({macs, type4, head4(20, "2000"), tcp443}), 0},
         {"later fragment", joined({macs, type4, head4(20, "0001"), tcp443}), 2},
         {"later fragment, flags set", joined({macs, type4, head4(20, "6001"), tcp443}), 2},
   };
}

std::vector<HeaderCase> headerCases6() {
   const Bytes hopByHop = empty8;
   const Bytes ah = bytesOf("06 01 0000 00000001 00000002"); // 12 bytes: words of four, less two
   const Bytes first = bytesOf("06 00 0001 00000007");
   const Bytes later = bytesOf("06 00 0008 00000007");
   const Bytes laterOptions = bytesOf("3c 00 0008 00000007");
   const auto with = [&](U8 next, const Bytes& payload) {
      return joined({macs, type6, head6(next, payload.size()), payload});
   };
   std::vector<HeaderCase> cases{
         {"plain", with(6, tcp443), 0},
         {"tags", joined({macs, tag, tag, type6, head6(6, 20), tcp443}), 0},
         {"AH", with(51, joined({ah, tcp443})), 0},
         {"first fragment", with(44, joined({first, tcp443})), 0},
         {"later fragment", with(44, joined({later, tcp443})), 2},
         {"options of a later fragment are payload", with(44, joined({laterOptions, tcp443})), 3},
         {"ESP is payload", with(50, joined({hopByHop, tcp443})), 4},
         {"cut in an extension", with(0, bytesOf("06000000 000000")), none},
         {"extension larger than the packet", with(0, bytesOf("06010000 00000000")), none},
         {"nothing behind an extension", with(0, hopByHop), 2},
         {"length left out", joined({macs, type6, head6(6, 0), tcp443}), 0},
         {"length ends in the ports", joined({macs, type6, head6(6, 3), tcp443}), 1},
         {"length ends in an extension", joined({macs, type6, head6(0, 7), hopByHop, tcp443}),
          none},
         {"header cut off", joined({macs, type6, Bytes(39, 0x60)}), none},
         {"other family", joined({macs, type4, head6(6, 20), tcp443}), none},
   };
   for (const U8 kind : Bytes{0, 43, 60, 135, 139, 140}) {
      cases.push_back({"extension", with(kind, joined({hopByHop, tcp443})), 0});
   }
   // The longer one does not fit into the first part of a frame's memory.
   for (const int extensions : {50, 700}) {
      Bytes chain = tcp443;
      U8 next = 6;
      for (int i = 0; i < extensions; ++i) {
         chain = joined({Bytes{next, 0}, Bytes(6, 0), chain});
         next = 60;
      }
      cases.push_back({"many extensions", with(60, chain), 0});
      chain.resize(chain.size() - 19);
      cases.push_back({"many extensions, cut", with(60, chain), 2});
   }
   return cases;
}

class Headers : public KernelTest, public testing::WithParamInterface<AddressFamily> {};

TEST_P(Headers, areReadAsByTheDecoderOfCaptures) {
   const Dispatcher dispatcher;
   const AclRecords acl = threeRules(GetParam());
   const AclTable table{*acl};
   const AclProgram program{table, dispatcher.maps(), {.slot = 0, .version = 1}};
   std::vector<AclProgram::Counter> expected(table.entries().size());
   for (const auto& [name, frame, rule] :
        GetParam() == AddressFamily::ipv4 ? headerCases4() : headerCases6()) {
      run(program.descriptor(), frame);
      if (rule != none) {
         expected.at(rule).packets += 1;
         expected.at(rule).bytes += frame.size();
      }
      EXPECT_EQ(program.counters(), expected) << name;
      const auto decoded = decodeFrame(LinkType::ethernet, frame);
      const Packet* packet = std::get_if<Packet>(&decoded);
      const AclTable::Entry* entry = packet == nullptr ? nullptr : table.lookup(*packet);
      EXPECT_EQ(entry == nullptr ? none : entry->index, rule) << name;
   }
}
INSTANTIATE_TEST_SUITE_P(Kernel, Headers,
                         testing::Values(AddressFamily::ipv4, AddressFamily::ipv6));

} // namespace
