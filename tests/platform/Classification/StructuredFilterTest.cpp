// The filters of a class and their parts.
#include "Classification/StructuredFilter.h"

#include <gtest/gtest.h>

namespace Classification {
namespace {

std::string textOf(const Kiv::Entity& entity) {
   return entity.typeData().entityText(entity);
}

TEST(StructuredFilterTest, aNewOneAsksForNothing) {
   const Pello::Ptr<StructuredFilter> filter{new StructuredFilter{3}};
   EXPECT_EQ(textOf(*filter),
             "Classification::StructuredFilter(id=3, source={}, sourceExcept={}, "
             "sourcePrefixSet=\"\", destination={}, destinationExcept={}, "
             "destinationPrefixSet=\"\", payloadLength={}, fragments=null, ipTtl={}, "
             "ipOptions=false, protocol=false, protocolNeighbor=false, protoField={}, "
             "tcpUdpCheckSumOrIpId=null)");
}

TEST(StructuredFilterTest, prefixesAreASetInOrder) {
   const Pello::Ptr<StructuredFilter> filter{new StructuredFilter{0}};
   for (const char* prefix : {"192.0.2.0/24", "10.0.0.0/8", "10.0.0.0/8"}) {
      filter->sourceIs(Orlix::IpGenPrefix{prefix});
   }
   std::vector<std::string> sources;
   for (const auto& at : filter->source()) {
      sources.push_back(at.stringValue());
   }
   EXPECT_EQ(sources, (std::vector<std::string>{"10.0.0.0/8", "192.0.2.0/24"}));
   filter->sourceDel(Orlix::IpGenPrefix{"10.0.0.0/8"});
   EXPECT_FALSE(filter->sourceHas(Orlix::IpGenPrefix{"10.0.0.0/8"}));
   EXPECT_EQ(filter->sources(), 1U);
}

TEST(StructuredFilterTest, fragmentsAreMadeOnceAndCanBeTakenAway) {
   const Pello::Ptr<StructuredFilter> filter{new StructuredFilter{0}};
   const auto fragments = filter->fragmentsIs();
   EXPECT_EQ(filter->fragmentsIs(), fragments);
   EXPECT_EQ(textOf(*fragments), "Classification::FragmentsMatch()");
   EXPECT_EQ(filter->fragmentsDel(), fragments);
   EXPECT_EQ(filter->fragments(), nullptr);
}

TEST(StructuredFilterTest, theSampleMatchStartsAtZero) {
   const Pello::Ptr<StructuredFilter> filter{new StructuredFilter{0}};
   const auto sample = filter->tcpUdpCheckSumOrIpIdIs("key");
   EXPECT_EQ(textOf(*sample),
             "Classification::TcpUdpCheckSumOrIpId(name=\"key\", data=0, mask=0, version=0)");
   sample->maskIs(0xff);
   EXPECT_EQ(filter->tcpUdpCheckSumOrIpIdIs("key"), sample);
   EXPECT_EQ(sample->mask(), 0xffU);
   EXPECT_NE(filter->tcpUdpCheckSumOrIpIdIs("other"), sample);
   EXPECT_EQ(filter->tcpUdpCheckSumOrIpId()->mask(), 0U);
}

TEST(ProtoFieldTest, portEntriesAreMadeByNumberAndWalkedInOrder) {
   const Pello::Ptr<StructuredFilter> filter{new StructuredFilter{0}};
   const auto tcp = filter->protoFieldIs(NumericalRange{6, 6});
   EXPECT_EQ(filter->protoFieldIs(NumericalRange{6, 6}), tcp);
   EXPECT_EQ(tcp->range(), (NumericalRange{6, 6}));
   const auto second = tcp->portIs(2);
   tcp->portIs(1)->dportIs(NumericalRange{80, 90});
   EXPECT_EQ(tcp->portIs(2), second);
   EXPECT_EQ(textOf(*tcp->port(1)), "Classification::PortField(id=1, sport={}, "
                                    "dport={Classification::NumericalRange(low=80, high=90)}, "
                                    "sportFieldSet=\"\", dportFieldSet=\"\")");
   std::vector<U32> ids;
   for (const auto& at : tcp->port()) {
      ids.push_back(at->id());
   }
   EXPECT_EQ(ids, (std::vector<U32>{1, 2}));
   EXPECT_EQ(tcp->port(3), nullptr);
}

TEST(ProtoFieldTest, flagsAndTypesAreSets) {
   const Pello::Ptr<ProtoField> field{new ProtoField{NumericalRange{1, 6}}};
   field->tcpFlagIs(TcpFlagAndMask{2, 2});
   field->tcpFlagIs(TcpFlagAndMask{2, 2});
   field->icmpTypeIs(8);
   EXPECT_EQ(field->tcpFlags(), 1U);
   EXPECT_TRUE(field->icmpTypeHas(8));
   field->icmpTypeDelAll();
   EXPECT_EQ(field->icmpTypes(), 0U);
}

TEST(StructuredFilterTest, copyTakesEverythingThatCanBeSet) {
   const Pello::Ptr<StructuredFilter> from{new StructuredFilter{1}};
   from->sourceIs(Orlix::IpGenPrefix{"10.0.0.0/8"});
   from->fragmentsIs();
   from->tcpUdpCheckSumOrIpIdIs("key")->dataIs(7);
   from->protoFieldIs(NumericalRange{6, 6})->portIs(1)->sportFieldSetIs("set");
   const Pello::Ptr<StructuredFilter> to{new StructuredFilter{2}};
   to->typeData().copy(*to, *from);
   EXPECT_EQ(to->id(), 2U);
   std::string expected = textOf(*from);
   expected.replace(expected.find("id=1"), 4, "id=2");
   EXPECT_EQ(textOf(*to), expected);
   EXPECT_NE(to->tcpUdpCheckSumOrIpId(), from->tcpUdpCheckSumOrIpId());
}

} // namespace
} // namespace Classification
