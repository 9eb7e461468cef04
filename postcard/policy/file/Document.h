// `Document`: a policy file as a tree of located nodes. Relies on the event parser of LibYAML,
// which reads a text in one pass with bounded look-ahead.
//
// The tree is ours because the traps of YAML have to be closed while it grows: tags, directives,
// merge keys, second documents and duplicate keys are refused; depth and number of nodes are
// bounded. An alias becomes a copy of what it stands for, which counts against both bounds, so that
// a few aliases of aliases cannot expand to more than the file could hold without them.
#pragma once

#include "postcard/policy/Location.h"
#include "postcard/policy/file/Findings.h"

#include <cstddef>
#include <memory_resource>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

enum class NodeKind : U8 {
   plain,    // a scalar without quotes: may be read as a number, a boolean or nothing
   quoted,   // a scalar that is text whatever it looks like (quotes or a block)
   sequence, // its children are the elements
   mapping,  // its children are key, value, key, value, …
   refused,  // an alias of nothing; its finding is made, so readers skip it without another one
};

// One node. The nodes of a document lie in one array in the order of the file, every node followed
// by its descendants. So children are found by stepping over subtrees, and a node takes 32 bytes.
struct Node {
   std::string_view text; // of a scalar, escapes resolved; owned by the document; else empty
   Location location;     // where the node begins; of a copy, the place of the alias
   U32 size = 1;          // number of nodes in the subtree, this one included
   NodeKind kind = NodeKind::plain;
   bool copied = false; // an alias stands here; the original is elsewhere in the file

   bool isScalar() const { return kind == NodeKind::plain || kind == NodeKind::quoted; }

   // Whether the node stands for no value: it is empty, `~` or `null`, without quotes.
   bool isNull() const;

   // The children for range-for; of a mapping, keys and values in turn.
   class Children {
    public:
      class Iterator {
       public:
         explicit Iterator(const Node* node) : node_{node} {}
         const Node& operator*() const { return *node_; }
         Iterator& operator++() {
            node_ += node_->size;
            return *this;
         }
         bool operator==(const Iterator&) const = default;

       private:
         const Node* node_;
      };

      explicit Children(const Node& parent) : parent_{&parent} {}
      Iterator begin() const { return Iterator{parent_ + 1}; }
      Iterator end() const { return Iterator{parent_ + parent_->size}; }

    private:
      const Node* parent_;
   };
   // The children; none for a scalar. Requires a node inside its document, not a copy of one,
   // because the children are the nodes that follow in memory.
   Children children() const { return Children{*this}; }

   // The number of children; a mapping has two for each key. Takes linear time.
   std::size_t childCount() const;
};

// The tree of one text. Owns the nodes and their texts.
class Document {
 public:
   // How deep lists and mappings may be nested; what a policy file means has eleven levels.
   static constexpr std::size_t maxDepth = 32;

   // The longest name of an anchor, in bytes.
   static constexpr std::size_t maxAnchor = 255;

   // Reads `text`, which `checkText` has accepted, into a tree of at most `maxNodes` nodes. What is
   // wrong goes to `findings`. The document has no root when the text is not well formed, exceeds a
   // limit, holds nothing, or holds a second document or a directive other than %YAML; each of
   // these is a finding. Aliases, tags and keys that are refused are findings as well, but leave
   // the tree whole, so that one reading reports everything. The nodes do not refer to
   // `text`. Throws std::bad_alloc only.
   Document(std::string_view text, std::size_t maxNodes, Findings& findings);

   // The root, or null when there is no tree. Valid as long as the document.
   const Node* root() const { return nodes_.empty() ? nullptr : nodes_.data(); }

 private:
   std::pmr::monotonic_buffer_resource texts_; // holds the texts of the nodes
   std::vector<Node> nodes_;
};

} // namespace Postcard::Policy::File
