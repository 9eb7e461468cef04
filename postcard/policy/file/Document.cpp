#include "postcard/policy/file/Document.h"

#include "postcard/policy/file/Text.h"

#include <fmt/format.h>
#include <yaml.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <new>
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
      return {locationOf(parser_.problem_mark), FindingCode::syntax, message};
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
            return refuse({1, 1}, FindingCode::syntax,
                          "the file holds nothing (expected a mapping)");
         }
         if (!accept(event)) {
            return false;
         }
      }
   }

 private:
   // A list or mapping that has not ended.
   struct Open {
      std::size_t position = 0; // in `nodes_`
      std::size_t height = 1;   // levels of lists and mappings so far, this one included
      std::string_view anchor;  // empty: none
   };

   // What an alias of a name stands for.
   struct Anchor {
      std::size_t position = 0; // in `nodes_`
      std::size_t height = 0;   // levels of lists and mappings; 0: a scalar
      bool open = false;        // it has not ended, so its size and height are not known
   };

   // Adds a finding. Returns false, so that a caller can return the result of the call.
   bool refuse(Location location, FindingCode code, std::string message) {
      findings_.add(location, code, std::move(message));
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
      refuse(problem.location, problem.code, std::move(problem.message));
   }

   bool endDocument(const Event& event) {
      const auto rest = somethingAfter(text_, locationOf(event.end_mark));
      return !rest || refuse(*rest, FindingCode::syntax,
                             "text after the end of the document (expected one document)");
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
      checkTag(event, viewOf(data.tag));
      takeAnchor(event, viewOf(data.anchor), false);
      const bool plain = data.style == YAML_PLAIN_SCALAR_STYLE;
      const std::string_view text{reinterpret_cast<const char*>(data.value), data.length};
      return add({keep(text), event.location(), 1, plain ? NodeKind::plain : NodeKind::quoted});
   }

   // Adds a copy of what the alias stands for, or a refused node. `inQuotes` shows fewer than 100
   // characters, so a name of megabytes need not be copied.
   bool alias(const Event& event) {
      const std::string_view name = viewOf(event.data.alias.anchor);
      const auto found = anchors_.find(name);
      if (found != anchors_.end() && !found->second.open) {
         return addCopy(found->second, event.location());
      }
      const std::string quoted = inQuotes(fmt::format("*{}", name.substr(0, 100)));
      findings_.add(
            event.location(), FindingCode::alias,
            found == anchors_.end()
                  ? fmt::format("alias {} has no anchor before it", quoted)
                  : fmt::format("alias {} stands inside the value that it refers to", quoted));
      return add({{}, event.location(), 1, NodeKind::refused});
   }

   // The copy counts against the limits as if it were written out, so that aliases of aliases
   // cannot multiply without bound.
   bool addCopy(const Anchor& anchor, Location location) {
      if (open_.size() + anchor.height > Document::maxDepth) {
         return refuseDepth(location);
      }
      const std::size_t size = nodes_[anchor.position].size;
      if (size > maxNodes_ - nodes_.size()) {
         return refuse(location, FindingCode::tooLarge,
                       fmt::format("with what its aliases stand for, the file holds more than {} "
                                   "keys, values, lists and mappings",
                                   maxNodes_));
      }
      for (std::size_t i = 0; i < size; ++i) {
         Node copy = nodes_[anchor.position + i];
         copy.location = location;
         copy.copied = true;
         nodes_.push_back(copy);
      }
      raiseHeight(anchor.height);
      return true;
   }

   bool open(const Event& event, NodeKind kind, std::string_view anchor, std::string_view tag) {
      checkTag(event, tag);
      if (open_.size() == Document::maxDepth) {
         return refuseDepth(event.location());
      }
      open_.push_back({nodes_.size(), 1, takeAnchor(event, anchor, true)});
      return add({{}, event.location(), 1, kind});
   }

   bool refuseDepth(Location location) {
      return refuse(
            location, FindingCode::tooLarge,
            fmt::format("lists and mappings are nested deeper than {}", Document::maxDepth));
   }

   // The size and the height of a list or mapping are known only when it ends.
   void close() {
      const Open ended = open_.back();
      open_.pop_back();
      nodes_[ended.position].size = static_cast<U32>(nodes_.size() - ended.position);
      // An anchor of the same name inside has replaced this one.
      if (const auto found = anchors_.find(ended.anchor);
          found != anchors_.end() && found->second.position == ended.position) {
         found->second = {ended.position, ended.height, false};
      }
      raiseHeight(ended.height);
   }

   // Makes the innermost open list or mapping at least one level higher than a child of `height`.
   void raiseHeight(std::size_t height) {
      if (!open_.empty()) {
         open_.back().height = std::max(open_.back().height, height + 1);
      }
   }

   // Remembers `name`, if it is not empty, as the anchor of the next node, which is a list or
   // mapping that is still `open`, or a scalar. Returns a copy of the name. A name that is used
   // again stands for the later node from then on (YAML 1.2.2, section 7.1).
   std::string_view takeAnchor(const Event& event, std::string_view name, bool open) {
      if (name.empty()) {
         return {};
      }
      if (name.size() > Document::maxAnchor) {
         findings_.add(event.location(), FindingCode::alias,
                       fmt::format("anchor {} is {} bytes long (expected 1 to {})",
                                   inQuotes(fmt::format("&{}", name.substr(0, 100))), name.size(),
                                   Document::maxAnchor));
         return {};
      }
      const std::string_view kept = keep(name);
      anchors_.insert_or_assign(kept, Anchor{nodes_.size(), 0, open});
      return kept;
   }

   bool add(const Node& node) {
      if (nodes_.size() == maxNodes_) {
         return refuse(node.location, FindingCode::tooLarge,
                       fmt::format("the file holds more than {} keys, values, lists and mappings",
                                   maxNodes_));
      }
      nodes_.push_back(node);
      return true;
   }

   // The node itself stays, so that its content is checked.
   void checkTag(const Event& event, std::string_view tag) {
      if (!tag.empty()) {
         findings_.add(event.location(), FindingCode::construct,
                       fmt::format("tag {} is not accepted", inQuotes(tag)));
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
   std::vector<Open> open_;                               // from the outermost to the innermost
   std::unordered_map<std::string_view, Anchor> anchors_; // by names that `texts_` holds
};

// Keys are equal when their texts are, quoted or not.
void checkKey(const Node& key, std::unordered_map<std::string_view, Location>& seen,
              Findings& findings) {
   if (key.copied || key.kind == NodeKind::refused) {
      findings.add(key.location, FindingCode::construct, "a key cannot be an alias");
   } else if (!key.isScalar()) {
      findings.add(key.location, FindingCode::construct, "a key cannot be a list or a mapping");
   } else if (key.kind == NodeKind::plain && key.text == "<<") {
      findings.add(key.location, FindingCode::construct,
                   "merge key '<<' is not accepted; write the keys out");
   } else if (const auto [first, inserted] = seen.try_emplace(key.text, key.location); !inserted) {
      findings.add(key.location, FindingCode::duplicateKey,
                   duplicate("key", inQuotes(key.text), first->second));
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
      findings.add(directive->location, directive->code, std::move(directive->message));
      return;
   }
   if (!Builder{text, maxNodes, texts_, nodes_, findings}.run()) {
      nodes_.clear(); // lists and mappings that have not ended have no size
      return;
   }
   for (const Node& node : nodes_) {
      // A copy has the keys of its original, which has been checked.
      if (node.kind == NodeKind::mapping && !node.copied) {
         checkKeys(node, findings);
      }
   }
}

} // namespace Postcard::Policy::File
