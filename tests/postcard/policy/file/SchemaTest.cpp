// The published schema and the loader know the same keys and words, and the schema accepts what the
// loader accepts.

#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Keys.h"
#include "postcard/policy/file/PolicyFileFrames.h"
#include "postcard/policy/file/SchemaValidator.h"
#include "postcard/policy/file/Text.h"
#include "postcard/policy/file/Values.h"
#include "support/Examples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Postcard::Policy::File {
namespace {

using Json = nlohmann::json;

const Json& schema() {
   static const Json parsed =
         Json::parse(std::ifstream(POSTCARD_SOURCE_DIR "/share/postcard-policy.schema.json"));
   return parsed;
}

const Json& definition(const std::string& name) {
   return schema().at("$defs").at(name);
}

std::set<std::string> asSet(const std::vector<std::string_view>& words) {
   return {words.begin(), words.end()};
}

std::set<std::string> keysOf(const Json& object) {
   std::set<std::string> keys;
   for (const auto& [key, value] : object.items()) {
      keys.insert(key);
   }
   return keys;
}

// The mapping inside a value's schema: itself, the elements of a list, one of several choices.
// Null when the value holds no mapping.
const Json* mappingIn(const Json& value) {
   const Json& part = resolved(value, schema());
   if (part.contains("properties")) {
      return &part;
   }
   if (part.contains("items")) {
      return mappingIn(part.at("items"));
   }
   if (part.contains("anyOf")) {
      for (const Json& choice : part.at("anyOf")) {
         if (const Json* mapping = mappingIn(choice)) {
            return mapping;
         }
      }
   }
   return nullptr;
}

// Compares a mapping of the schema with the loader's table, and all mappings in it.
void compare(const Json& mapping, Shape shape, const std::string& place) {
   std::set<std::string> keys;
   std::set<std::string> required;
   for (const KeyRow& row : shapeOf(shape).keys) {
      keys.insert(std::string(row.name));
      if (row.required) {
         required.insert(std::string(row.name));
      }
   }
   if (shape == Shape::toggles) {
      for (const auto& [name, on] : LoadOptions().toggles) {
         keys.insert(name);
      }
   }
   EXPECT_EQ(keysOf(mapping.at("properties")), keys) << place;
   EXPECT_EQ(mapping.value("required", std::set<std::string>()), required) << place;
   EXPECT_EQ(mapping.at("additionalProperties"), false) << place;
   for (const KeyRow& row : shapeOf(shape).keys) {
      const std::string key(row.name);
      const Json* inside = mappingIn(mapping.at("properties").at(key));
      ASSERT_EQ(inside != nullptr, row.inside != Shape::none) << place << "/" << key;
      if (inside != nullptr) {
         compare(*inside, row.inside, place + "/" + key);
      }
   }
}

TEST(PolicyFileSchema, keysAreThoseOfTheLoader) {
   compare(schema(), Shape::file, "");
}

TEST(PolicyFileSchema, everyKeyIsDescribed) {
   std::vector<const Json*> open = {&schema()};
   for (const auto& [name, part] : schema().at("$defs").items()) {
      open.push_back(&part);
   }
   for (const Json* part : open) {
      const Json properties = part->value("properties", Json::object());
      for (const auto& [key, value] : properties.items()) {
         const bool described =
               value.contains("description") || resolved(value, schema()).contains("description");
         EXPECT_TRUE(described || key == "ipv4" || key == "ipv6") << key;
      }
   }
}

TEST(PolicyFileSchema, wordsAreThoseOfTheLoader) {
   std::set<std::string> actions = definition("actionWord").at("enum");
   EXPECT_FALSE(actions.contains("set-dscp"));
   actions.insert("set-dscp");
   EXPECT_EQ(actions, asSet(wordsOf(actionWords())));
   const std::set<std::string> flags = definition("tcpFlagList").at("items").at("enum");
   EXPECT_EQ(flags, asSet(wordsOf(tcpFlagWords())));
   const Json& protocol = definition("protocol").at("properties").at("protocol");
   const std::set<std::string> protocols = protocol.at("anyOf").at(0).at("enum");
   EXPECT_EQ(protocols, asSet(wordsOf(protocolWords())));
   const Json& field = definition("ipv4Sample").at("properties").at("field");
   const std::set<std::string> fields = field.at("enum");
   EXPECT_EQ(fields, asSet(wordsOf(sampleFieldWords())));
}

TEST(PolicyFileSchema, defaultsAreThoseOfTheLoader) {
   const Json& flags = definition("hardware").at("properties").at("tcp-flags");
   EXPECT_EQ(flags.at("default"), Hardware().tcpFlags);
   for (const auto& [name, on] : LoadOptions().toggles) {
      EXPECT_EQ(definition("toggles").at("properties").at(name).at("default"), on);
   }
}

// A scalar as the core schema reads it.
Json scalar(const Node& node) {
   const std::string text(node.text);
   if (node.kind == NodeKind::quoted) {
      return text;
   }
   if (node.isNull()) {
      return nullptr;
   }
   if (text == "true" || text == "false") {
      return text == "true";
   }
   if (const auto number = parseNumber(node.text)) {
      return *number;
   }
   return text;
}

Json asJson(const Node& node) {
   if (node.isScalar()) {
      return scalar(node);
   }
   Json json = node.kind == NodeKind::mapping ? Json::object() : Json::array();
   const Node* key = nullptr;
   for (const Node& child : node.children()) {
      if (node.kind == NodeKind::sequence) {
         json.push_back(asJson(child));
      } else if (key == nullptr) {
         key = &child;
      } else {
         json[std::string(key->text)] = asJson(child);
         key = nullptr;
      }
   }
   return json;
}

// What the schema says about a text that is good YAML.
std::string problemOf(std::string_view text) {
   Findings findings(1);
   const Document document(text, LoadOptions().maxNodes, findings);
   EXPECT_TRUE(findings.empty()) << text;
   return schemaProblem(asJson(*document.root()), schema(), schema());
}

TEST(PolicyFileSchema, examplesAreAccepted) {
   for (const auto& path : TestSupport::examplePolicies()) {
      const auto text = readPolicyText(path, LoadOptions().maxBytes);
      EXPECT_EQ(problemOf(std::get<std::string>(text)), "") << path;
   }
}

// JSON is YAML: the same file through the other door.
TEST(PolicyFileSchema, examplesAreAcceptedAsJson) {
   for (const auto& path : TestSupport::examplePolicies()) {
      const auto text = readPolicyText(path, LoadOptions().maxBytes);
      Findings findings(1);
      const Document document(std::get<std::string>(text), LoadOptions().maxNodes, findings);
      const LoadResult result = parsePolicyText(asJson(*document.root()).dump(2), "F");
      EXPECT_TRUE(result.policyFile) << path << "\n" << formatFindings(result);
   }
}

struct Row {
   Frame frame;
   const char* text;
};

struct AcceptedBySchema {
   const char* name;
   Frame frame;
   Literal text;
   Literal dump;
};

// clang-format off
const AcceptedBySchema schemaPolicies[] = {
#include "postcard/policy/file/AcceptedPolicies.inc"
};
// clang-format on

// A schema cannot tell the names 1, 1.0 and 0x1 apart, which the loader takes as they are written.
TEST(PolicyFileSchema, acceptsWhatTheLoaderAccepts) {
   for (const AcceptedBySchema& row : schemaPolicies) {
      if (std::string_view{row.name} == "names that look like something else") {
         continue;
      }
      EXPECT_EQ(problemOf(framed(row.frame, row.text.view)), "") << row.name;
   }
}

// Both sides refuse these; the schema cannot say everything that the loader can, so the table is of
// what an editor should catch.
TEST(PolicyFileSchema, refusesWhatTheLoaderRefuses) {
   const Row rows[] = {
         {Frame::file, "hardware: {}"},
         {Frame::file, "polices: []"},
         {Frame::file, "policies: {}"},
         {Frame::file, "policies: []\nhardware: {tcp-flags: yes}"},
         {Frame::file, "policies: []\nfeature-toggles: {Other: true}"},
         {Frame::file, "policies: [{name: p}]"},
         {Frame::file, "policies: [{name: '', interfaces: {ipv4: [e]}}]"},
         {Frame::file, "policies: [{name: p, interfaces: {ipv4: [e, e]}}]"},
         {Frame::klass, "    priority: 4294967296"},
         {Frame::klass, "    priority: '5'"},
         {Frame::klass, "    actions: [sampel]"},
         {Frame::klass, "    actions: [set-dscp]"},
         {Frame::klass, "    actions: [{set-dscp: 64}]"},
         {Frame::klass, "    actions: [drop, drop]"},
         {Frame::klass, "    ipv4:"},
         {Frame::ipv4, "      source: ['2001:db8::/32']"},
         {Frame::ipv6, "      source: [10.0.0.0/8]"},
         {Frame::ipv4, "      source: [10.0.0.0]"},
         {Frame::ipv4, "      source: 10.0.0.0/8"},
         {Frame::ipv4, "      ip-ttl: 256"},
         {Frame::ipv4, "      fragments: 1"},
         {Frame::ipv4, "      sample: {data: 0, mask: 0}"},
         {Frame::ipv4, "      sample: {data: 0, mask: 65536}"},
         {Frame::ipv6, "      sample: {data: 0, mask: 1, field: ip-id}"},
         {Frame::ipv4, "      sample: {rate: 3}"},
         {Frame::ipv4, "      sample: {rate: 1}"},
         {Frame::ipv4, "      sample: {rate: 131072}"},
         {Frame::ipv4, "      sample: {rate: 256, data: 1, mask: 255}"},
         {Frame::ipv4, "      sample: {rate: 256, data: 1}"},
         {Frame::ipv4, "      sample: {data: 1}"},
         {Frame::ipv4, "      sample: {}"},
         {Frame::ipv4, "      source: ['-a']"},
         {Frame::ipv4, "      source: [a b]"},
         {Frame::klass, "    both: {source: [10.0.0.0/8]}"},
         {Frame::klass, "    both: {sample: {rate: 2, field: ip-id}}"},
         {Frame::file, "policies: []\nexpect: {policies: -1}"},
         {Frame::file, "policies: []\nexpect: {rule: 1}"},
         {Frame::file, "policies: []\ncollector: {}"},
         {Frame::file, "policies: []\ncollector: {address: 1.2.3.4/32}"},
         {Frame::file, "policies: []\ncollector: {address: 1.2.3.4, port: 0}"},
         {Frame::file, "policies: []\ndefinitions: {a: 10.0.0.0/8}"},
         {Frame::file, "policies: []\ndefinitions: {prefixes: {1a: 10.0.0.0/8}}"},
         {Frame::file, "policies: []\ndefinitions: {prefixes: {a: 10.0.0.0}}"},
         {Frame::file, "policies: []\ndefinitions: {prefixes: {a: [10.0.0.0/8]}}"},
         {Frame::file, "policies: []\ndefinitions: {ports: {a: 80}}"},
         {Frame::file, "policies: []\ndefinitions: {ports: {a: []}}"},
         {Frame::file, "policies: []\ndefinitions: {ports: {a: [65536]}}"},
         {Frame::ipv4, "      protocols: [{protocol: tpc}]"},
         {Frame::ipv4, "      protocols: [{protocol: 256}]"},
         {Frame::ipv4, "      protocols: [{protocol: tcp, ports: [{source: [80-]}]}]"},
         {Frame::ipv4, "      protocols: [{protocol: tcp, ports: [{source: [65536]}]}]"},
         {Frame::ipv4, "      protocols: [{protocol: tcp, tcp-flags: [{flags: 0, mask: 0}]}]"},
         {Frame::ipv4, "      protocols: [{protocol: tcp, tcp-flags: [{flags: [], mask: []}]}]"},
         {Frame::ipv4, "      protocols: [{protocol: icmp, icmp-types: [256]}]"},
   };
   for (const Row& row : rows) {
      const std::string text = framed(row.frame, row.text);
      EXPECT_NE(problemOf(text), "") << text;
      EXPECT_FALSE(parsePolicyText(text, "F").policyFile) << text;
   }
}

} // namespace
} // namespace Postcard::Policy::File
