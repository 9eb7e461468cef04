// What the reader makes of rings, whole, odd and damaged.
#include "Orlix/AddressFamily.h"
#include "Orlix/IntfId.h"
#include "Orlix/TypeModule.h"
#include "PolicyMap/TypeModule.h"
#include "RingBytes.h"
#include "support/RingReader.h"

#include <gtest/gtest.h>

#include <functional>

namespace Ringlog {
namespace {

using TestSupport::Bytes;
using TestSupport::KindOf;
using TestSupport::RingBytes;

std::vector<std::string> textsOf(const TestSupport::RingReader& reader) {
   std::vector<std::string> texts;
   for (const Record& record : reader.records()) {
      texts.push_back(record.text);
   }
   return texts;
}

std::string refusal(std::span<const std::byte> bytes) {
   try {
      TestSupport::RingReader{bytes};
      return "accepted";
   } catch (const DamagedRing& error) {
      return error.what();
   }
}

TEST(ReaderTest, readsSitesRecordsAndTimes) {
   RingBytes ring;
   ring.site(3, "x {} y", {{'u', "", ""}}).record(0, 3, 1500, Bytes{}.number(U64{9}).bytes());
   const TestSupport::RingReader reader{ring.bytes()};
   ASSERT_EQ(reader.records().size(), 1U);
   const Record& record = reader.records()[0];
   EXPECT_EQ(record.text, "x 9 y");
   EXPECT_EQ(record.ticks, 1500U);
   EXPECT_DOUBLE_EQ(record.time, 5.5);
   EXPECT_EQ(reader.processId(), 4711U);
   const Descriptor& site = reader.descriptors().at(3);
   EXPECT_EQ(record.site, &site);
   EXPECT_EQ(site.line, 7U);
   EXPECT_EQ(site.level, 5U);
   EXPECT_EQ(site.source + "|" + site.className + "|" + site.functionName, "Source||f");
   EXPECT_EQ(site.format, "x {} y");
}

TEST(ReaderTest, bytesNeedNotBeAligned) {
   RingBytes ring;
   ring.site(1, "{}", {{'u', "", ""}}).record(1, 1, 1500, Bytes{}.number(U64{9}).bytes());
   std::vector<std::byte> shifted(ring.bytes().size() + 1);
   std::ranges::copy(ring.bytes(), shifted.begin() + 1);
   EXPECT_EQ(textsOf(TestSupport::RingReader{std::span{shifted}.subspan(1)}),
             std::vector<std::string>{"9"});
}

TEST(ReaderTest, lostSitesAndBlocksAreToldAndTheirRecordsLeftOut) {
   RingBytes ring;
   ring.record(0, 77, 1).put(offsetof(RingHeader, lostDescriptors), U32{5});
   ring.put(offsetof(RingHeader, lostBlocks), U32{6});
   const TestSupport::RingReader reader{ring.bytes()};
   EXPECT_TRUE(reader.records().empty());
   EXPECT_EQ(reader.lostDescriptors(), 5U);
   EXPECT_EQ(reader.lostBlocks(), 6U);
}

TEST(ReaderTest, recordsAreSortedByTimeAndEqualTimesByClaim) {
   RingBytes ring;
   for (U32 number = 1; number <= 4; ++number) {
      ring.site(number, std::to_string(number));
   }
   // Block 0 was claimed after block 1.
   ring.record(1, 1, 10).record(1, 2, 30).record(0, 3, 30).record(0, 4, 40);
   ring.claim(0, 9).claim(1, 8);
   EXPECT_EQ(textsOf(TestSupport::RingReader{ring.bytes()}),
             (std::vector<std::string>{"1", "2", "3", "4"}));
}

TEST(ReaderTest, timesWhenTheClocksAreOfNoUse) {
   struct Row {
      RingBytes::Clock opened;
      RingBytes::Clock latest;
      U64 ticks;
      double expected;
   };
   const Row rows[] = {
         {{1000, 5'000'000'000}, {1000, 5'000'000'000}, 1000, 5.0},
         {{1000, 5'000'000'000}, {1000, 5'000'000'000}, 1'000'001'000, 6.0},
         {{1000, 5'000'000'000}, {2000, 4'000'000'000}, 1'000'001'000, 6.0}, // set back
         {{2000, 5'000'000'000}, {1000, 6'000'000'000}, 1'000'002'000, 6.0},
         {{1'000'000'000, 5'000'000'000},
          {2'000'000'000, 6'000'000'000},
          0,
          4.0}, // before the start
   };
   for (const Row& row : rows) {
      RingBytes ring;
      ring.clocks(row.opened, row.latest).site(1, "").record(0, 1, row.ticks);
      EXPECT_DOUBLE_EQ(TestSupport::RingReader{ring.bytes()}.records().at(0).time, row.expected);
   }
}

TEST(ReaderTest, refusesWhatIsNoRing) {
   struct Row {
      std::function<void(RingBytes&)> change;
      std::string message;
   };
   const std::size_t size = ringSize(RingBytes::blocks);
   const Row rows[] = {
         {[](RingBytes& ring) { ring.bytes().clear(); }, "not a trace ring: only 0 bytes"},
         {[](RingBytes& ring) { ring.bytes().resize(ringSize(0) - 1); },
          "not a trace ring: only 528383 bytes"},
         {[](RingBytes& ring) { ring.put(0, U64{1}); },
          "not a trace ring: the first bytes are not those of one"},
         {[](RingBytes& ring) { ring.put(0, ringMagic + 1); },
          "not a trace ring: the first bytes are not those of one"},
         {[](RingBytes& ring) { ring.bytes().resize(ringSize(0)); },
          "damaged trace ring: 2 blocks in 528384 bytes"},
         {[](RingBytes& ring) { ring.put(8, U32{0}); },
          "damaged trace ring: 0 blocks in " + std::to_string(size) + " bytes"},
         {[](RingBytes& ring) { ring.put(8, U32{0xffffffff}); },
          "damaged trace ring: 4294967295 blocks in " + std::to_string(size) + " bytes"},
         {[](RingBytes& ring) { ring.descriptorBytes(descriptorAreaSize + 1); },
          "damaged trace ring: its descriptors are longer than their area"},
   };
   for (const auto& [change, message] : rows) {
      RingBytes ring;
      change(ring);
      EXPECT_EQ(refusal(ring.bytes()), message);
   }
}

TEST(ReaderTest, refusesDamagedDescriptors) {
   const auto descriptor = [](const Bytes& body) {
      return RingBytes{}.descriptor(body.bytes()).bytes();
   };
   const auto begin = [] { return Bytes{}.number(U32{1}).number(U32{2}).number(U32{3}); };
   const std::string ends = "damaged trace ring: a descriptor ends too early";
   EXPECT_EQ(refusal(RingBytes{}.descriptorBytes(3).bytes()), ends);
   EXPECT_EQ(refusal(RingBytes{}.descriptorBytes(64).bytes()),
             "damaged trace ring: a descriptor of 0 bytes");
   EXPECT_EQ(refusal(RingBytes{}.descriptorBytes(64).put(headerSize, U32{65}).bytes()),
             "damaged trace ring: a descriptor of 65 bytes");
   EXPECT_EQ(refusal(descriptor(Bytes{})), ends);
   EXPECT_EQ(refusal(descriptor(begin().text("s"))), ends);
   EXPECT_EQ(refusal(descriptor(begin().number(U32{5}))), ends);
   EXPECT_EQ(refusal(descriptor(begin().number(U32{4097}))),
             "damaged trace ring: a descriptor has text of 4097 bytes");
   EXPECT_EQ(refusal(descriptor(begin().text("").text("").text("").text("").number(U32{257}))),
             "damaged trace ring: a descriptor of 257 arguments");
   EXPECT_EQ(refusal(descriptor(begin().text("").text("").text("").text("").number(U32{1}))), ends);
}

TEST(ReaderTest, aDescriptorDoesNotReachIntoTheNext) {
   RingBytes ring;
   ring.site(1, "first").site(2, "second");
   ring.put(headerSize, U32{16}); // it says that it ends before its texts
   EXPECT_EQ(refusal(ring.bytes()), "damaged trace ring: a descriptor ends too early");
}

TEST(ReaderTest, blocksThatCannotBeReadAreLeftOut) {
   const auto whole = [] {
      RingBytes ring;
      ring.site(1, "a").record(0, 1, 1).record(0, 1, 2).record(1, 1, 3);
      return ring;
   };
   struct Row {
      std::function<void(RingBytes&)> change;
      std::size_t left;
   };
   const std::size_t block = RingBytes::blockAt(0);
   const std::size_t first = block + sizeof(BlockHeader);
   const Row rows[] = {
         {[](RingBytes&) {}, 3},
         {[](RingBytes& bytes) { bytes.claim(0, 0); }, 1}, // being taken
         {[=](RingBytes& bytes) { bytes.put(block + 8, static_cast<U32>(blockCapacity + 1)); }, 1},
         {[=](RingBytes& bytes) { bytes.put(block + 8, U32{31}); }, 2}, // half a record
         {[=](RingBytes& bytes) { bytes.put(first, U32{0}); }, 1},
         {[=](RingBytes& bytes) { bytes.put(first, U32{15}); }, 1},
         {[=](RingBytes& bytes) { bytes.put(first, U32{33}); }, 1},
         {[=](RingBytes& bytes) { bytes.put(first + 16, U32{0xffffffff}); }, 2},
   };
   for (const Row& row : rows) {
      RingBytes bytes = whole();
      row.change(bytes);
      EXPECT_EQ(TestSupport::RingReader{bytes.bytes()}.records().size(), row.left);
   }
}

// The text of one record of a site with `kinds`.
std::string textOf(std::string_view format, const std::vector<KindOf>& kinds,
                   const Bytes& arguments = {}) {
   RingBytes ring;
   ring.site(1, format, kinds).record(0, 1, 1, arguments.bytes());
   return TestSupport::RingReader{ring.bytes()}.records().at(0).text;
}

TEST(ReaderTest, recordsThatCannotBeReadBecomeNotes) {
   const std::vector<KindOf> nested(40, KindOf{'(', "T", "n"});
   const Bytes none;
   const Bytes number = Bytes{}.number(U64{7});
   const Bytes text = Bytes{}.text("x").paddedTo8();
   struct Row {
      std::string_view format;
      std::vector<KindOf> kinds;
      Bytes arguments;
      std::string expected;
   };
   const Row rows[] = {
         {"{}", {{'u', "", ""}}, none, "<{}: the record ends too early>"},
         {"{}",
          {{'s', "", ""}},
          Bytes{}.number(U32{9}).raw("abcd"),
          "<{}: the record ends too early>"},
         {"{}",
          {{'s', "", ""}},
          Bytes{}.number(U32{0xffffffff}).number(U32{0}),
          "<{}: the record has text of 4294967295 bytes>"},
         {"{}", {{'?', "", ""}}, number, "<{}: an argument of an unknown kind>"},
         {"{}", {{')', "", ""}}, number, "<{}: an argument of an unknown kind>"},
         {"{}",
          {{'(', "T", ""}, {'i', "", "a"}, {')', "", ""}},
          number,
          "<{}: an attribute of an unknown kind>"},
         {"{}", {{'(', "T", ""}, {'u', "", "a"}}, number, "<{}: a value without an end>"},
         {"{}", {{'(', "T", ""}}, none, "<{}: a value without an end>"},
         {"{}", nested, none, "<{}: values nested too deeply>"},
         {"{}", {{'v', "No::Type", ""}}, number, "<{}: unknown type No::Type>"},
         {"{}",
          {{'v', "Pello::String", ""}},
          number,
          "<{}: type Pello::String is not one of plain bytes>"},
         {"{}",
          {{'v', "PolicyMap::PolicyMapSmKey", ""}},
          text,
          "<{}: type PolicyMap::PolicyMapSmKey is not one of plain bytes>"},
         {"{}",
          {{'v', "PolicyMap::PolicyMapAclHelper", ""}},
          text,
          "<{}: type PolicyMap::PolicyMapAclHelper is not one of plain bytes>"},
         {"{}",
          {{'v', "Orlix::IntfId", ""}},
          number,
          "<{}: type Orlix::IntfId is not one of plain bytes>"},
         {"{}", {{'v', "bool", ""}}, number, "<{}: type bool is not one of plain bytes>"},
         {"{} {}", {{'u', "", ""}}, number, "<{} {}: argument not found>"},
         {"{:x}", {{'s', "", ""}}, text, "<{:x}: invalid format specifier>"},
         {"{", {}, none, "<{: invalid format string>"},
   };
   for (const Row& row : rows) {
      EXPECT_EQ(textOf(row.format, row.kinds, row.arguments), row.expected);
   }
}

// The first record has its text at place 2, the second one at place 5; `text` is the third one's.
std::string textAfterTwo(const Bytes& text) {
   const std::vector<KindOf> kinds{{'s', "", ""}};
   RingBytes ring;
   ring.site(1, "{}", kinds);
   ring.record(0, 1, 1, Bytes{}.text("abcd").paddedTo8().bytes());
   ring.record(0, 1, 2, Bytes{}.reference(2, 2, "xy").bytes());
   ring.record(0, 1, 3, text.bytes());
   return TestSupport::RingReader{ring.bytes()}.records().at(2).text;
}

TEST(ReaderTest, textsThatReferToOthersArePutTogether) {
   struct Row {
      U32 common;
      U16 place;
      std::string rest;
      std::string expected;
   };
   const std::string longest(4094, 'z');
   const Row rows[] = {
         {0, 2, "", ""},
         {0, 2, "ef", "ef"},
         {3, 2, "", "abc"},
         {4, 2, "ef", "abcdef"},
         {1, 5, "e", "ae"},
         {2, 5, "e", "abe"},
         {4, 5, "", "abxy"},
         {2, 2, longest, "ab" + longest},
         {5, 2, "", "<{}: the record refers to a text that is too short>"},
         {5, 5, "", "<{}: the record refers to a text that is too short>"},
         {3, 2, longest, "<{}: the record has text of 4097 bytes>"},
         {8191, 2, "", "<{}: the record has text of 8191 bytes>"},
         {1, 6, "", "<{}: the record refers to a text that is not before it>"}, // itself
         {1, 8, "", "<{}: the record refers to a text that is not before it>"},
         {1, 65535, "", "<{}: the record refers to a text that is not before it>"},
         {1, 0, "", std::string(1, '\x01')}, // no text, but the header of the first record
   };
   for (const Row& row : rows) {
      EXPECT_EQ(textAfterTwo(Bytes{}.reference(row.common, row.place, row.rest)), row.expected)
            << row.common << " at " << row.place;
   }
   EXPECT_EQ(textAfterTwo(Bytes{}.number(0x80000000U | 9U).number(U16{2}).paddedTo8()),
             "<{}: the record ends too early>");
   EXPECT_EQ(textAfterTwo(Bytes{}.number(0x80000000U)), "<{}: the record ends too early>");
}

// Each text adds a character to the one before it.
TEST(ReaderTest, tooManyReferencesAreRefused) {
   RingBytes ring;
   ring.site(1, "{}", {{'s', "", ""}});
   ring.record(0, 1, 0, Bytes{}.text("a").paddedTo8().bytes());
   for (U16 i = 0; i < 20; ++i) {
      ring.record(0, 1, U64{i} + 1,
                  Bytes{}.reference(i + 1U, static_cast<U16>(2 + 3 * i), "b").bytes());
   }
   const std::vector<std::string> texts = textsOf(TestSupport::RingReader{ring.bytes()});
   for (std::size_t i = 0; i <= mostReferences; ++i) {
      EXPECT_EQ(texts.at(i), "a" + std::string(i, 'b'));
   }
   for (std::size_t i = mostReferences + 1; i <= 20; ++i) {
      EXPECT_EQ(texts.at(i), "<{}: the record refers to too many texts>");
   }
}

TEST(ReaderTest, aRecordMayHaveTheTicksOfTheOneBefore) {
   RingBytes ring;
   ring.site(1, "{}", {{'u', "", ""}});
   const auto number = [](U64 value) { return Bytes{}.number(value).bytes(); };
   ring.recordAtOnce(0, 1, number(0)).record(0, 1, 1500, number(1));
   ring.recordAtOnce(0, 1, number(2)).recordAtOnce(0, 1, number(3)).record(0, 1, 1600, number(4));
   const TestSupport::RingReader reader{ring.bytes()};
   const std::vector<U64> expected{0, 1500, 1500, 1500, 1600}; // the first one is damage
   ASSERT_EQ(reader.records().size(), expected.size());
   for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_EQ(reader.records()[i].ticks, expected[i]);
      EXPECT_EQ(reader.records()[i].text, std::to_string(i));
   }
}

TEST(ReaderTest, aRecordWithoutTicksEndsWhereItSays) {
   for (const U32 size : {0U, 7U, 9U}) {
      RingBytes ring;
      ring.site(1, "a").record(0, 1, 1).recordAtOnce(0, 1);
      ring.put(RingBytes::blockAt(0) + sizeof(BlockHeader) + 16, size | 0x80000000U);
      EXPECT_EQ(TestSupport::RingReader{ring.bytes()}.records().size(), 1U) << size;
   }
}

// Version 1 of the layout had neither references nor records without ticks.
TEST(ReaderTest, aRingOfTheFormerLayoutIsRead) {
   RingBytes ring;
   ring.put(0, U64{0x474f4c474e495201});
   ring.site(1, "{} {}", {{'s', "", ""}, {'u', "", ""}});
   ring.record(0, 1, 1500, Bytes{}.text("text").paddedTo8().number(U64{7}).bytes());
   EXPECT_EQ(textsOf(TestSupport::RingReader{ring.bytes()}), std::vector<std::string>{"text 7"});
}

TEST(ReaderTest, valuesOfOddBytesHaveATextAnyway) {
   const std::vector<KindOf> prefix{{'v', "Orlix::IpGenPrefix", ""}};
   Bytes odd;
   odd.number(U8{77}).number(U8{200}).raw(std::string(16, '\xff')).paddedTo8();
   EXPECT_EQ(textOf("<{}>", prefix, odd), "<>");
   Bytes longer;
   longer.number(U8{4}).number(U8{255}).raw(std::string(16, '\xff')).paddedTo8();
   EXPECT_EQ(textOf("{}", prefix, longer), "255.255.255.255/255");
   EXPECT_EQ(textOf("{}", {{'v', "Orlix::AddressFamily", ""}}, Bytes{}.number(U64{77})), "77");
}

TEST(ReaderTest, damagedFormatsFillNoMemory) {
   const std::vector<KindOf> number{{'u', "", ""}, {'u', "", ""}};
   const Bytes wide = Bytes{}.number(U64{7}).number(U64{2'000'000'000});
   const std::string refused = "a field wider than any trace asks for>";
   for (const std::string format : {"{:2000000000}", "{:.1025}", "{:{}}", "{:99999999999999999999}",
                                    "{:>1025}", "{0:{1}}", "{1025}"}) {
      EXPECT_EQ(textOf(format, number, wide), "<" + format + ": " + refused);
   }
   // As wide as is allowed, and large numbers that are no widths.
   EXPECT_EQ(textOf("{:1024}", number, wide), std::string(1023, ' ') + "7");
   EXPECT_EQ(textOf("{:{}}", number, Bytes{}.number(U64{7}).number(U64{1024})).size(), 1024U);
   EXPECT_EQ(textOf("{{2000{{{{}} {} {}", number, wide), "{2000{{} 7 2000000000");
}

TEST(ReaderTest, oneRecordMadeLongByRepetitionIsRefused) {
   std::string format;
   for (int i = 0; i < 1300; ++i) {
      format += "{0}";
   }
   std::vector<KindOf> kinds{{'(', std::string_view{format}, ""}};
   for (int i = 0; i < 3; ++i) {
      kinds.push_back({'s', "", "a"});
   }
   kinds.push_back({')', "", ""});
   Bytes arguments;
   for (int i = 0; i < 3; ++i) {
      arguments.text(std::string(4096, '\x01')).paddedTo8();
   }
   EXPECT_EQ(textOf(format, kinds, arguments), "<" + format + ": longer than any trace>");
}

TEST(ReaderTest, manyRecordsMadeLongAreLeftOut) {
   const std::string format(4096, 'x');
   RingBytes ring;
   ring.site(1, format);
   for (U64 ticks = 0; ticks < 2 * (blockCapacity / 16); ++ticks) {
      ring.record(ticks % 2, 1, ticks);
   }
   const TestSupport::RingReader reader{ring.bytes()};
   std::size_t characters = 0;
   for (const Record& record : reader.records()) {
      characters += record.text.size();
   }
   // 8190 records of 4096 characters would be 33 million: still a real ring's size.
   EXPECT_EQ(reader.records().size(), 2 * (blockCapacity / 16));
   EXPECT_LE(characters, 64 * ring.bytes().size() + format.size());
   EXPECT_EQ(reader.records().front().text, format);
}

TEST(ReaderTest, textIsLeftOutWhenARingHasTooMuchOfIt) {
   RecordText texts{100};
   Descriptor site;
   site.format = std::string(60, 'x');
   EXPECT_EQ(texts.format(site, {}), site.format);
   EXPECT_EQ(texts.format(site, {}), site.format);
   EXPECT_EQ(texts.format(site, {}), "<left out: too much text>");
}

// The types by which the records above are printed.
class Types : public testing::Environment {
   void SetUp() override {
      ASSERT_NE(Kiv::findType(Orlix::typeModule().types.at(0)->name), nullptr);
      ASSERT_NE(Kiv::findType(PolicyMap::typeModule().types.at(0)->name), nullptr);
   }
};
const auto* const types = testing::AddGlobalTestEnvironment(new Types);

} // namespace
} // namespace Ringlog
