// Looks at ring files: what is new each time, and what becomes of rings that change hands.
#include "Ringlog/FileReader.h"

#include "LastRecord.h"
#include "RingBytes.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/stat.h>
#include <system_error>

namespace Ringlog {
namespace {

using TestSupport::Bytes;
using TestSupport::RingBytes;
using TestSupport::RingFile;
using Texts = std::vector<std::string>;

constexpr std::size_t overwrittenAt = offsetof(RingHeader, overwritten);

class FileReaderTest : public testing::Test {
 protected:
   // Puts the bytes into the file that is there, or into a new one.
   void write(const std::vector<std::byte>& bytes) const {
      std::ofstream{file_.path(), std::ios::binary}.write(
            reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
   }
   void write(RingBytes& ring) const { write(ring.bytes()); }
   Texts look() {
      Texts texts;
      latest_ = reader_.look();
      for (const Record& record : latest_.records) {
         texts.push_back(record.site->format + (record.text.empty() ? "" : "=" + record.text));
      }
      return texts;
   }
   std::string refusal() {
      try {
         look();
         return "accepted";
      } catch (const std::exception& error) {
         return error.what();
      }
   }
   // A ring with three call sites whose records are their own names.
   static RingBytes ring() {
      RingBytes ring;
      ring.site(1, "a").site(2, "b").site(3, "c");
      return ring;
   }

   RingFile file_;
   FileReader reader_{file_.path()};
   FileReader::Look latest_;
};

TEST_F(FileReaderTest, newRecordsBuildOnThoseOfTheLookBefore) {
   RingBytes ring;
   ring.site(1, "{}", {{'s', "", ""}});
   ring.record(0, 1, 1500, Bytes{}.text("name").paddedTo8().bytes());
   write(ring);
   EXPECT_EQ(look(), (Texts{"{}=name"}));
   ring.recordAtOnce(0, 1, Bytes{}.reference(4, 2, "-1").bytes());
   write(ring);
   EXPECT_EQ(look(), (Texts{"{}=name-1"}));
   EXPECT_EQ(latest_.records.at(0).ticks, 1500U);
}

TEST_F(FileReaderTest, eachLookShowsWhatIsNew) {
   RingBytes ring = this->ring();
   ring.record(1, 1, 10).record(0, 2, 20);
   write(ring);
   EXPECT_EQ(look(), (Texts{"a=a", "b=b"}));
   EXPECT_EQ(reader_.facts().processId, 4711U);
   EXPECT_EQ(look(), Texts{});
   ring.record(1, 3, 30).record(0, 1, 25);
   write(ring);
   EXPECT_EQ(look(), (Texts{"a=a", "c=c"}));
   EXPECT_EQ(look(), Texts{});
   EXPECT_FALSE(latest_.replaced);
   EXPECT_EQ(latest_.missed, 0U);
}

TEST_F(FileReaderTest, callSitesMayComeLater) {
   RingBytes ring = this->ring();
   write(ring.record(0, 1, 10));
   EXPECT_EQ(look(), Texts{"a=a"});
   ring.site(4, "d{}", {{'u', "", ""}}).record(0, 4, 20, Bytes{}.number(U64{7}).bytes());
   write(ring);
   EXPECT_EQ(look(), Texts{"d{}=d7"});
}

TEST_F(FileReaderTest, timesFollowTheLatestClocks) {
   RingBytes ring = this->ring();
   write(ring.record(0, 1, 1500));
   look();
   EXPECT_DOUBLE_EQ(latest_.records.at(0).time, 5.5);
   write(ring.clocks({1000, 5'000'000'000}, {3000, 9'000'000'000}).record(0, 1, 2500));
   look();
   EXPECT_DOUBLE_EQ(latest_.records.at(0).time, 8);
}

TEST_F(FileReaderTest, recordsThatMadeRoomUnreadAreCounted) {
   RingBytes first = this->ring();
   write(first.record(0, 1, 10).record(1, 2, 20).put(overwrittenAt, U64{100}));
   EXPECT_EQ(look(), (Texts{"a=a", "b=b"}));
   EXPECT_EQ(latest_.missed, 0U); // they were gone before
   // Block 0 had seven more records before it was taken again; "a" had been read.
   RingBytes second = this->ring();
   write(second.record(0, 3, 30).claim(0, 3).record(1, 2, 20).put(overwrittenAt, U64{108}));
   EXPECT_EQ(look(), Texts{"c=c"});
   EXPECT_EQ(latest_.missed, 7U);
   EXPECT_EQ(look(), Texts{});
   EXPECT_EQ(latest_.missed, 0U);
}

TEST_F(FileReaderTest, aBlockThatIsBeingTakenIsNotCountedBeforeTheHeaderDoes) {
   RingBytes ring = this->ring();
   write(ring.record(0, 1, 10));
   look();
   write(ring.claim(0, 0));
   look();
   EXPECT_EQ(latest_.missed, 0U);
   write(ring.put(overwrittenAt, U64{3}));
   look();
   EXPECT_EQ(latest_.missed, 2U);
}

TEST_F(FileReaderTest, anotherRingInThePlace) {
   RingBytes ring = this->ring();
   write(ring.record(0, 1, 10));
   look();
   RingBytes other;
   other.site(1, "other").record(0, 1, 10).put(offsetof(RingHeader, processId), U32{4712});
   write(other);
   EXPECT_EQ(look(), Texts{"other=other"});
   EXPECT_TRUE(latest_.replaced);
   EXPECT_EQ(reader_.facts().processId, 4712U);
   EXPECT_EQ(look(), Texts{});
   EXPECT_FALSE(latest_.replaced);
}

TEST_F(FileReaderTest, aRingThatIsGoneOrBeingMadeAnewHasNothingNew) {
   RingBytes ring = this->ring();
   write(ring.record(0, 1, 10));
   look();
   const std::vector<std::byte> zeros(ring.bytes().size());
   for (const auto& bytes : {std::vector<std::byte>{}, std::vector<std::byte>(50), zeros}) {
      write(bytes);
      EXPECT_EQ(look(), Texts{});
      EXPECT_FALSE(latest_.replaced);
   }
   ::unlink(file_.path().c_str());
   EXPECT_EQ(look(), Texts{});
   write(ring.record(0, 2, 20));
   EXPECT_EQ(look(), Texts{"b=b"});
}

TEST_F(FileReaderTest, whatIsNoRingIsRefusedAtTheFirstLookAndLater) {
   const std::string foreign = "not a trace ring: the first bytes are not those of one";
   EXPECT_EQ(refusal(), file_.path() + ": No such file or directory");
   write(std::vector<std::byte>{});
   EXPECT_EQ(refusal(), "not a trace ring: only 0 bytes");
   write(std::vector<std::byte>(ringSize(2)));
   EXPECT_EQ(refusal(), foreign);
   RingBytes ring = this->ring();
   ring.bytes().resize(ringSize(1));
   write(ring);
   EXPECT_EQ(refusal(), "damaged trace ring: 2 blocks in 593920 bytes");
   ring.bytes().resize(ringSize(2));
   write(ring);
   EXPECT_EQ(refusal(), "accepted");
   write(std::vector<std::byte>(ringSize(2), std::byte{'x'}));
   EXPECT_EQ(refusal(), foreign);
}

TEST_F(FileReaderTest, onlyFilesAreRead) {
   const std::string folder = file_.path() + "-folder";
   const std::string pipe = file_.path() + "-pipe";
   std::filesystem::create_directory(folder);
   ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
   EXPECT_THROW(FileReader{folder}.look(), std::system_error);
   EXPECT_THROW(FileReader{pipe}.look(), std::system_error); // and does not wait for a writer
   EXPECT_THROW(FileReader{"/dev/zero"}.look(), DamagedRing);
   std::filesystem::remove(folder);
   std::filesystem::remove(pipe);
}

TEST_F(FileReaderTest, aHugeFileIsNotBelieved) {
   RingBytes ring = this->ring();
   constexpr U32 blocks = mostBlocks + 1;
   write(ring.put(offsetof(RingHeader, blockCount), blocks));
   std::filesystem::resize_file(file_.path(), ringSize(blocks)); // takes no room on the disk
   EXPECT_EQ(refusal(), "damaged trace ring: 65537 blocks in 4295561216 bytes");
}

TEST_F(FileReaderTest, damagedBlocksAreCountedOnceAndTheRestIsRead) {
   struct Row {
      std::function<void(RingBytes&)> damage;
      Texts left;
   };
   const std::size_t block = RingBytes::blockAt(0);
   const Row rows[] = {
         {[=](RingBytes& ring) { ring.put(block + 8, static_cast<U32>(blockCapacity + 1)); },
          {"c=c"}},
         {[=](RingBytes& ring) { ring.put(block + 8, U32{31}); }, {"a=a", "c=c"}},
         {[=](RingBytes& ring) { ring.put(block + 32, U32{0}); }, {"a=a", "c=c"}},
   };
   for (const Row& row : rows) {
      RingBytes ring = this->ring();
      row.damage(ring.record(0, 1, 10).record(0, 2, 20).record(1, 3, 30));
      write(ring);
      reader_ = FileReader{file_.path()};
      EXPECT_EQ(look(), row.left);
      EXPECT_EQ(reader_.damagedBlocks(), 1U);
      EXPECT_EQ(look(), Texts{});
      EXPECT_EQ(reader_.damagedBlocks(), 1U);
   }
}

TEST_F(FileReaderTest, damagedDescriptorsAreRefused) {
   RingBytes ring = this->ring();
   write(ring.record(0, 1, 10).put(headerSize, U32{3}));
   EXPECT_EQ(refusal(), "damaged trace ring: a descriptor of 3 bytes");
}

TEST_F(FileReaderTest, recordsOfUnknownCallSitesAreCounted) {
   RingBytes ring = this->ring();
   write(ring.record(0, 77, 10).record(0, 1, 20).record(0, 78, 30));
   EXPECT_EQ(look(), Texts{"a=a"});
   EXPECT_EQ(reader_.undescribed(), 2U);
}

} // namespace
} // namespace Ringlog
