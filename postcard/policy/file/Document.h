// A policy file as a tree of located nodes. Door: the constructor of `Document`. Relies on the
// event parser of LibYAML, which reads a text in one pass with bounded look-ahead; the tree is ours
// because the traps of YAML have to be closed while it grows: aliases, anchors, tags, merge keys,
// second documents and duplicate keys are refused, depth and number of nodes are bounded.

#pragma once

#include "postcard/policy/file/Findings.h"
#include "postcard/policy/file/PolicyFile.h"

#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <string_view>
#include <vector>

namespace Postcard::Policy::File {

enum class NodeKind : std::uint8_t {
   plain,    // a scalar without quotes: may be read as a number, a boolean or nothing
   quoted,   // a scalar that is text whatever it looks like (quotes or a block)
   sequence, // its children are the elements
   mapping,  // its children are key, value, key, value, …
   refused,  // an alias; already reported, so readers pass it over in silence
};

// One node. The nodes of a document lie in one array in the order of the file, every node followed
// by its descendants: children are found by stepping over subtrees, and a node takes 32 bytes.
struct Node {
   std::string_view text; // of a scalar, escapes resolved; owned by the document
   Location location;
   std::uint32_t size = 1; // nodes of the subtree, this one included
   NodeKind kind = NodeKind::plain;

   bool isScalar() const { return kind == NodeKind::plain || kind == NodeKind::quoted; }

   // Whether it is the absence of a value: an empty place, `~` or `null`.
   bool isNull() const;

   // Iterates the children; of a mapping, keys and values in turn.
   class Children {
    public:
      class Iterator {
       public:
         explicit Iterator(const Node* node) : node_(node) {}
         const Node& operator*() const { return *node_; }
         Iterator& operator++() {
            node_ += node_->size;
            return *this;
         }
         bool operator==(const Iterator&) const = default;

       private:
         const Node* node_;
      };

      explicit Children(const Node& parent) : parent_(&parent) {}
      Iterator begin() const { return Iterator(parent_ + 1); }
      Iterator end() const { return Iterator(parent_ + parent_->size); }

    private:
      const Node* parent_;
   };
   Children children() const { return Children(*this); }

   // The number of children; linear in it.
   std::size_t childCount() const;
};

class Document {
 public:
   // Nesting that a policy file may have; its own structure needs eleven levels.
   static constexpr std::size_t maxDepth = 32;

   // Reads `text`, which `checkText` has accepted, into a tree of at most `maxNodes` nodes. What is
   // wrong goes to `findings`. The document has no root when the text is not well formed, is past a
   // limit or holds nothing; that is a finding too.
   Document(std::string_view text, std::size_t maxNodes, Findings& findings);

   // The root, or null. Valid as long as the document.
   const Node* root() const { return nodes_.empty() ? nullptr : nodes_.data(); }

 private:
   std::pmr::monotonic_buffer_resource texts_; // what the nodes' texts point into
   std::vector<Node> nodes_;
};

} // namespace Postcard::Policy::File
