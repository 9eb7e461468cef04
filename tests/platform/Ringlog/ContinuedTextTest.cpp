// Texts that continue others: a reader and the text trace get the same whole texts as ever, and the
// ring gets fewer bytes.
#include "LastRecord.h"
#include "Pello/ThreadSafety.h"
#include "Ringlog/Trace.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <thread>

namespace Ringlog {
namespace {

const Pello::TraceSource traceSource{"ContinuedTextTest"};

// Traces `text`, which begins with `common` bytes of the text at `earlier`, and returns what the
// ring and the text trace have of it, which must be the same.
std::string traced(std::string_view text, std::size_t common, const TextMark& earlier,
                   TextMark& own) {
   TestSupport::TraceCapture capture;
   RINGLOG_TRACE(5, "<{}>", (ContinuedText{text, common, earlier, own}));
   EXPECT_EQ(capture.traces().at(0).text, TestSupport::lastRecord().text);
   return TestSupport::lastRecord().text;
}

// The bytes that the latest record of this thread takes.
template <class Trace>
std::size_t bytesOf(Trace trace) {
   const std::byte* before = Detail::writer.next;
   trace();
   return static_cast<std::size_t>(Detail::writer.next - before);
}

// Goes on to a new block.
void leaveBlock() {
   const TextMark mark{Detail::writer.claim, 0, 0};
   while (Detail::writer.claim == mark.claim) {
      RINGLOG_TRACE(9, "{}", std::string(1000, '.'));
   }
}

TEST(ContinuedTextTest, namesThatGrowReadWhole) {
   TextMark mark;
   EXPECT_EQ(traced("web", 0, mark, mark), "<web>");
   EXPECT_EQ(traced("web-tcp", 3, mark, mark), "<web-tcp>");
   EXPECT_EQ(traced("web-tcp", 7, mark, mark), "<web-tcp>");
   EXPECT_EQ(traced("web-udp-SportData-80", 4, mark, mark), "<web-udp-SportData-80>");
   EXPECT_EQ(traced("", 0, mark, mark), "<>");
   EXPECT_EQ(traced("x", 0, mark, mark), "<x>");
}

TEST(ContinuedTextTest, aTextMayHaveSeveralContinuations) {
   leaveBlock();
   TextMark begin;
   traced("a common beginning", 0, begin, begin);
   for (const std::string end : {"", "1", "-12345", " and more than sixteen characters"}) {
      TextMark own;
      EXPECT_EQ(traced("a common" + end, 8, begin, own), "<a common" + end + ">");
      EXPECT_EQ(traced("a common" + end + "!", 8 + end.size(), own, own), "<a common" + end + "!>");
   }
}

TEST(ContinuedTextTest, aReferenceTakesEightBytesAndTheRest) {
   leaveBlock();
   const SharedMoment moment;
   const std::string name(60, 'n');
   TextMark mark;
   const auto trace = [&](const std::string& text, std::size_t common) {
      return bytesOf([&] { RINGLOG_TRACE(5, "{}", (ContinuedText{text, common, mark, mark})); });
   };
   RINGLOG_TRACE(9, "the moment's ticks are in the ring");
   EXPECT_EQ(trace(name, 0), shortHeaderSize + padded(sizeof(U32) + 60));
   EXPECT_EQ(trace(name, 60), shortHeaderSize + 8);
   EXPECT_EQ(trace(name + "-1", 60), shortHeaderSize + 8);
   EXPECT_EQ(trace(name + "-1-34", 62), shortHeaderSize + padded(textReferenceSize + 3));
   EXPECT_EQ(TestSupport::lastRecord().text, name + "-1-34");
}

TEST(ContinuedTextTest, inAnotherBlockTheTextIsWritten) {
   leaveBlock();
   TextMark mark;
   traced("before", 0, mark, mark);
   leaveBlock();
   const U64 claim = mark.claim;
   EXPECT_EQ(traced("before and after", 6, mark, mark), "<before and after>");
   EXPECT_NE(mark.claim, claim);
}

// Every size of what is left in the block occurs, so that a text also finds no room as a reference
// and then has to be written whole into the next block.
TEST(ContinuedTextTest, aTextAtTheEndOfABlockMovesToTheNextAsAWhole) {
   const std::string name(100, 'n');
   std::vector<std::string> expected;
   for (std::size_t left = 0; left < 200; left += 8) {
      leaveBlock();
      TextMark mark;
      RINGLOG_TRACE(5, "<{}>", (ContinuedText{name, 0, mark, mark}));
      while (Detail::writer.end - Detail::writer.next >= 600) {
         RINGLOG_TRACE(9, "{}", std::string(300, '.'));
      }
      const auto room = static_cast<std::size_t>(Detail::writer.end - Detail::writer.next);
      RINGLOG_TRACE(9, "{}", std::string(room - left - sizeof(RecordHeader) - 4, '.'));
      ASSERT_EQ(static_cast<std::size_t>(Detail::writer.end - Detail::writer.next), left);
      for (const std::string end : {"", "-1", "-12345678901234567890"}) {
         TextMark own;
         EXPECT_EQ(traced(name + end, 100, mark, own), "<" + name + end + ">") << left;
      }
   }
}

TEST(ContinuedTextTest, anotherThreadWritesTheTextItself) {
   Pello::threadSafeIs(true);
   TextMark mark;
   traced("mine", 0, mark, mark);
   std::string theirs;
   std::thread{[&] { theirs = traced("mine too", 4, mark, mark); }}.join();
   EXPECT_EQ(theirs, "<mine too>");
   EXPECT_EQ(traced("mine too, again", 8, mark, mark), "<mine too, again>");
   Pello::threadSafeIs(false);
}

TEST(ContinuedTextTest, aTextThatIsCutIsNotContinued) {
   leaveBlock();
   const std::string longest(longestText, 'x');
   TextMark mark;
   EXPECT_EQ(traced(longest, 0, mark, mark), "<" + longest + ">");
   for (const std::string end : {"y", "yz"}) { // the text trace has all of it
      const std::string text = longest + end;
      RINGLOG_TRACE(5, "<{}>", (ContinuedText{text, text.size() - 1, mark, mark}));
      EXPECT_EQ(TestSupport::lastRecord().text, "<" + longest + ">");
      EXPECT_EQ(mark.claim, 0U);
   }
}

TEST(ContinuedTextTest, aLongRowOfContinuationsIsRead) {
   leaveBlock();
   TextMark mark;
   std::string text = "x";
   traced(text, 0, mark, mark);
   for (unsigned i = 0; i < 5 * mostReferences; ++i) {
      text += static_cast<char>('a' + i % 26);
      EXPECT_EQ(traced(text, text.size() - 1, mark, mark), "<" + text + ">");
      EXPECT_LE(mark.references, mostReferences);
   }
}

TEST(ContinuedTextTest, ticksStandOncePerMoment) {
   leaveBlock();
   const auto trace = [] { RINGLOG_TRACE(9, "{}", 7); };
   trace();
   EXPECT_EQ(bytesOf(trace), sizeof(RecordHeader) + 8);
   const SharedMoment moment;
   EXPECT_EQ(bytesOf(trace), sizeof(RecordHeader) + 8);
   EXPECT_EQ(bytesOf(trace), shortHeaderSize + 8);
   const TestSupport::RingReader reader = TestSupport::readRing();
   const auto& records = reader.records();
   EXPECT_EQ(records.at(records.size() - 1).ticks, records.at(records.size() - 2).ticks);
   EXPECT_LT(records.at(records.size() - 3).ticks, records.back().ticks);
   leaveBlock(); // the first record of a block has them again
   RINGLOG_TRACE(9, "last");
   EXPECT_EQ(TestSupport::readRing().records().back().ticks, records.back().ticks);
}

} // namespace
} // namespace Ringlog
