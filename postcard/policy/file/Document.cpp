#include "postcard/policy/file/Document.h"

#include "Pello/Utf8.h"

#include <fmt/format.h>
#include <yaml.h>

#include <cstring>
#include <functional>
#include <iterator>
#include <new>
#include <optional>
#include <unordered_map>

namespace Postcard::Policy::File {

namespace {

Location locationOf(const yaml_mark_t& mark) {
   return {static_cast<U32>(mark.line + 1), static_cast<U32>(mark.column + 1)};
}

// LibYAML ends anchors and tags with a zero byte, or gives null for none.
std::string_view viewOf(const yaml_char_t* text) {
   return text == nullptr ? std::string_view{} : reinterpret_cast<const char*>(text);
}

// LibYAML's parser. Not copied or moved, because its state holds pointers into itself.
class Parser {
 public:
   explicit Parser(std::string_view text) {
      if (yaml_parser_initialize(&parser_) == 0) {
         throw std::bad_alloc{};
      }
      yaml_parser_set_input_string(&parser_, reinterpret_cast<const unsigned char*>(text.data()),
                                   text.size());
      // Else LibYAML guesses the encoding from the first bytes.
      yaml_parser_set_encoding(&parser_, YAML_UTF8_ENCODING);
   }
   Parser(const Parser&) = delete;
   Parser& operator=(const Parser&) = delete;
   ~Parser() { yaml_parser_delete(&parser_); }

   // Whether there is another event; false when the text is not YAML.
   bool next(yaml_event_t& event) {
      if (yaml_parser_parse(&parser_, &event) != 0) {
         return true;
      }
      if (parser_.error == YAML_MEMORY_ERROR) {
         throw std::bad_alloc{};
      }
      return false;
   }

   // Why the last call of `next` returned false.
   Finding problem() const {
      std::string message = fmt::format("not YAML: {}", parser_.problem);
      if (parser_.context != nullptr) {
         const Location began = locationOf(parser_.context_mark);
         message +=
               fmt::format(" {} that begins at {}:{}", parser_.context, began.line, began.column);
      }
      return {locationOf(parser_.problem_mark), message};
   }

 private:
   yaml_parser_t parser_{};
};

// An event of the parser. Frees what LibYAML has allocated for it; an event that was never filled
// is all zero, which LibYAML takes for an empty one.
struct Event : yaml_event_t {
   Event() : yaml_event_t{} {}
   Event(const Event&) = delete;
   Event& operator=(const Event&) = delete;
   ~Event() { yaml_event_delete(this); }

   Location location() const { return locationOf(start_mark); }
};

// Returns the first line of `text` without its line break, and removes both from `text`.
std::string_view takeLine(std::string_view& text) {
   const std::size_t end = text.find_first_of("\r\n");
   const std::string_view line = text.substr(0, end);
   const std::size_t breakLength = text.substr(line.size()).starts_with("\r\n") ? 2 : 1;
   text.remove_prefix(std::min(text.size(), line.size() + breakLength));
   return line;
}

// The part of `text` that begins at `location`; empty when `text` ends before.
std::string_view textFrom(std::string_view text, Location location) {
   for (U32 line = 1; line < location.line; ++line) {
      takeLine(text);
   }
   for (U32 column = 1; column < location.column && !text.empty(); ++column) {
      text.remove_prefix(Pello::decodeUtf8(text).length);
   }
   return text;
}

// The place of the first character at or behind `location` that is neither blank nor comment.
std::optional<Location> somethingAfter(std::string_view text, Location location) {
   text = textFrom(text, location);
   while (!text.empty()) {
      const std::string_view line = takeLine(text);
      const std::size_t column = line.find_first_not_of(" \t");
      if (column != std::string_view::npos && line[column] != '#') {
         location.column += static_cast<U32>(column);
         return location;
      }
      location = {location.line + 1, 1};
   }
   return std::nullopt;
}

// Finds a directive other than %YAML. A policy file needs none, and LibYAML compares each tag
// directive with all those before it, which takes quadratic time. So they are refused before
// LibYAML runs. The search ends at the first line of content, because directives can only stand
// before it.
std::optional<Finding> findDirective(std::string_view text) {
   for (U32 line = 1; !text.empty(); ++line) {
      const std::string_view content = takeLine(text);
      if (content.starts_with('%') && !content.starts_with("%YAML ")) {
         return Finding{{line, 1}, fmt::format("directive {} is not accepted", inQuotes(content))};
      }
      const std::size_t first = content.find_first_not_of(" \t");
      if (first != std::string_view::npos && content[first] != '#' && content[first] != '%') {
         break;
      }
   }
   return std::nullopt;
}

// Fills a document from the events of one text.
class Builder {
 public:
   Builder(std::string_view text, std::size_t maxNodes, std::pmr::memory_resource& texts,
           std::vector<Node>& nodes, Findings& findings)
      : text_{text},
        maxNodes_{maxNodes},
        texts_{texts},
        nodes_{nodes},
        findings_{findings},
        parser_{text} {}

   // Whether the tree is complete.
   bool run() {
      for (;;) {
         Event event;
         if (!parser_.next(event)) {
            reportProblem();
            return false;
         }
         if (event.type == YAML_DOCUMENT_END_EVENT) {
            // The rest is not parsed: anything but comments is refused anyway, and nobody has
            // looked for directives there.
            return endDocument(event);
         }
         if (event.type == YAML_STREAM_END_EVENT) {
            return refuse({1, 1}, "the file holds nothing (expected a mapping)");
         }
         if (!accept(event)) {
            return false;
         }
      }
   }

 private:
   // Adds a finding. Returns false, so that a caller can return the result of the call.
   bool refuse(Location location, std::string message) {
      findings_.add(location, std::move(message));
      return false;
   }

   // Reports the error of the parser. A prefix such as ::/0 without quotes is a common mistake, for
   // which LibYAML's message alone gives no help.
   void reportProblem() {
      Finding problem = parser_.problem();
      const bool noContent = problem.message.find("expected node content") != std::string::npos;
      if (noContent && textFrom(text_, problem.location).starts_with(':')) {
         problem.message += "; a value that begins with ':' needs quotes";
      }
      refuse(problem.location, std::move(problem.message));
   }

   bool endDocument(const Event& event) {
      const auto rest = somethingAfter(text_, locationOf(event.end_mark));
      return !rest || refuse(*rest, "text after the end of the document (expected one document)");
   }

   // Takes one event. Returns false when a limit is exceeded, which ends the reading.
   bool accept(const Event& event) {
      switch (event.type) {
      case YAML_SCALAR_EVENT:
         return scalar(event);
      case YAML_ALIAS_EVENT:
         return alias(event);
      case YAML_SEQUENCE_START_EVENT: {
         const auto& start = event.data.sequence_start;
         return open(event, NodeKind::sequence, viewOf(start.anchor), viewOf(start.tag));
      }
      case YAML_MAPPING_START_EVENT: {
         const auto& start = event.data.mapping_start;
         return open(event, NodeKind::mapping, viewOf(start.anchor), viewOf(start.tag));
      }
      case YAML_SEQUENCE_END_EVENT:
      case YAML_MAPPING_END_EVENT:
         close();
         return true;
      default:
         return true;
      }
   }

   bool scalar(const Event& event) {
      const auto& data = event.data.scalar;
      checkProperties(event, viewOf(data.anchor), viewOf(data.tag));
      const bool plain = data.style == YAML_PLAIN_SCALAR_STYLE;
      const std::string_view text{reinterpret_cast<const char*>(data.value), data.length};
      return add({keep(text), event.location(), 1, plain ? NodeKind::plain : NodeKind::quoted});
   }

   bool alias(const Event& event) {
      // `inQuotes` shows fewer than 100 characters, so a name of megabytes need not be copied.
      const std::string_view anchor = viewOf(event.data.alias.anchor);
      findings_.add(event.location(),
                    fmt::format("alias {} is not accepted; write the value out",
                                inQuotes(fmt::format("*{}", anchor.substr(0, 100)))));
      return add({{}, event.location(), 1, NodeKind::refused});
   }

   bool open(const Event& event, NodeKind kind, std::string_view anchor, std::string_view tag) {
      checkProperties(event, anchor, tag);
      if (open_.size() == Document::maxDepth) {
         return refuse(event.location(), fmt::format("lists and mappings are nested deeper than {}",
                                                     Document::maxDepth));
      }
      open_.push_back(nodes_.size());
      return add({{}, event.location(), 1, kind});
   }

   // The size of a list or mapping is known only when it ends.
   void close() {
      nodes_[open_.back()].size = static_cast<U32>(nodes_.size() - open_.back());
      open_.pop_back();
   }

   bool add(const Node& node) {
      if (nodes_.size() == maxNodes_) {
         return refuse(node.location,
                       fmt::format("the file holds more than {} keys, values, lists and mappings",
                                   maxNodes_));
      }
      nodes_.push_back(node);
      return true;
   }

   // Anchors are refused even when no alias follows, because they have no other use. The node
   // itself stays, so that its content is checked.
   void checkProperties(const Event& event, std::string_view anchor, std::string_view tag) {
      if (!anchor.empty()) {
         findings_.add(event.location(), fmt::format("anchor {} is not accepted",
                                                     inQuotes(fmt::format("&{}", anchor))));
      }
      if (!tag.empty()) {
         findings_.add(event.location(), fmt::format("tag {} is not accepted", inQuotes(tag)));
      }
   }

   // Copies `text`, because LibYAML frees it with the event.
   std::string_view keep(std::string_view text) {
      if (text.empty()) {
         return {};
      }
      auto* copy = static_cast<char*>(texts_.allocate(text.size(), 1));
      std::memcpy(copy, text.data(), text.size());
      return {copy, text.size()};
   }

   std::string_view text_;
   std::size_t maxNodes_;
   std::pmr::memory_resource& texts_;
   std::vector<Node>& nodes_;
   Findings& findings_;
   Parser parser_;
   std::vector<std::size_t>
         open_; // positions in `nodes_` of lists and mappings that have not ended
};

// Keys are equal when their texts are, quoted or not.
void checkKey(const Node& key, std::unordered_map<std::string_view, Location>& seen,
              Findings& findings) {
   if (!key.isScalar()) {
      findings.add(key.location, key.kind == NodeKind::refused
                                       ? "a key cannot be an alias"
                                       : "a key cannot be a list or a mapping");
   } else if (key.kind == NodeKind::plain && key.text == "<<") {
      findings.add(key.location, "merge key '<<' is not accepted; write the keys out");
   } else if (const auto [first, inserted] = seen.try_emplace(key.text, key.location); !inserted) {
      findings.add(key.location, duplicate("key", inQuotes(key.text), first->second));
   }
}

void checkKeys(const Node& mapping, Findings& findings) {
   std::unordered_map<std::string_view, Location> seen;
   bool isKey = true;
   for (const Node& child : mapping.children()) {
      if (isKey) {
         checkKey(child, seen, findings);
      }
      isKey = !isKey;
   }
}

} // namespace

// The words of the core schema (YAML 1.2.2, section 10.3.2).
bool Node::isNull() const {
   return kind == NodeKind::plain &&
          (text.empty() || text == "~" || text == "null" || text == "Null" || text == "NULL");
}

std::size_t Node::childCount() const {
   std::size_t count = 0;
   for ([[maybe_unused]] const Node& child : children()) {
      ++count;
   }
   return count;
}

Document::Document(std::string_view text, std::size_t maxNodes, Findings& findings) {
   if (auto directive = findDirective(text)) {
      findings.add(directive->location, std::move(directive->message));
      return;
   }
   if (!Builder{text, maxNodes, texts_, nodes_, findings}.run()) {
      nodes_.clear(); // lists and mappings that have not ended have no size
      return;
   }
   for (const Node& node : nodes_) {
      if (node.kind == NodeKind::mapping) {
         checkKeys(node, findings);
      }
   }
}

} // namespace Postcard::Policy::File
