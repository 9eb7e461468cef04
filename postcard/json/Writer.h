// `Writer`: writes a JSON document piece by piece, so that memory does not grow with the document.
// Relies on `ValueVisitor`, whose calls are the pieces: `visitEntity` can write straight into a
// Writer.
#pragma once

#include "Kiv/ValueVisitor.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

namespace Postcard::Json {

// The document looks as `documentText` prints it: two blanks for each level, and U+FFFD in place of
// bytes that are not UTF-8. The calls must make one value: `member` before each value in an object
// and nowhere else, and an end for each beginning.
//
// A document that was not completed with `finish` lacks at least its last closing bracket, so no
// parser takes it for whole.
class Writer final : public Kiv::ValueVisitor {
 public:
   // Receives the text in pieces of up to `pieceSize` bytes. The view is valid during the call
   // only. What the sink throws reaches the caller of the function that filled the piece.
   using Sink = std::function<void(std::string_view)>;
   static constexpr std::size_t pieceSize = std::size_t{64} * 1024;

   explicit Writer(Sink sink);
   // Discards what the sink has not received: after an exception the text shall stay incomplete.
   ~Writer() override;
   Writer(const Writer&) = delete;
   Writer& operator=(const Writer&) = delete;

   void null() override;
   void boolean(bool value) override;
   void number(U64 value) override;
   // JSON has no infinities and no NaN; null stands for them.
   void real(double value) override;
   void text(std::string_view value) override;
   void beginObject() override;
   void member(std::string_view name) override;
   void endObject() override;
   void beginList() override;
   void endList() override;
   // Writes a value that stands in memory.
   void value(const nlohmann::ordered_json& value);

   // Ends the document with a line feed and gives the sink the rest. Call it once, after the value.
   void finish();

 private:
   void put(std::string_view text);
   void put(char character);
   void putQuoted(std::string_view text);
   void newLine();
   void beginElement();
   void beginValue();
   void begin(char bracket);
   void end(char bracket);
   void flush();

   Sink sink_;
   std::unique_ptr<char[]> piece_; // `pieceSize` bytes, of which the first `used_` are waiting
   std::size_t used_ = 0;
   std::size_t depth_ = 0;    // containers that have begun and not ended
   bool empty_ = true;        // the innermost of them has no element yet
   bool afterMember_ = false; // `member` has been called, and its value comes next
};

} // namespace Postcard::Json
