#include "postcard/policy/file/SchemaValidator.h"

#include <algorithm>
#include <functional>
#include <map>
#include <regex.h>
#include <set>
#include <stdexcept>

namespace Postcard::Policy::File {

namespace {

using Json = nlohmann::json;

bool hasType(const Json& value, const std::string& type) {
   const std::map<std::string, bool> types = {
         {"object", value.is_object()}, {"array", value.is_array()},
         {"string", value.is_string()}, {"integer", value.is_number_integer()},
         {"number", value.is_number()}, {"boolean", value.is_boolean()}};
   return types.at(type);
}

bool hasOneType(const Json& value, const Json& types) {
   if (types.is_string()) {
      return hasType(value, types);
   }
   return std::any_of(types.begin(), types.end(),
                      [&](const Json& type) { return hasType(value, type); });
}

bool elementsDiffer(const Json& array) {
   for (std::size_t i = 0; i < array.size(); ++i) {
      for (std::size_t j = 0; j < i; ++j) {
         if (array[i] == array[j]) {
            return false;
         }
      }
   }
   return true;
}

// One rule of a schema against one value; an empty text when it is kept.
class Check {
 public:
   Check(const Json& value, const Json& schema, const Json& root, const std::string& place)
      : value_(value), schema_(schema), root_(root), place_(place) {}

   std::string keyword(const std::string& name, const Json& rule) const {
      static const std::set<std::string> remarks = {"$schema", "$id",     "title",
                                                    "$defs",   "default", "description"};
      if (remarks.contains(name)) {
         return "";
      }
      if (name == "$ref") {
         return schemaProblem(value_, resolved(schema_, root_), root_, place_);
      }
      if (name == "anyOf") {
         return anyOf(rule);
      }
      if (name == "properties" || name == "additionalProperties" || name == "required" ||
          name == "propertyNames") {
         return value_.is_object() ? objectKeyword(name, rule) : "";
      }
      if (name == "items") {
         return value_.is_array() ? items(rule) : "";
      }
      return keeps(name, rule) ? "" : place_ + ": " + name + " " + rule.dump();
   }

 private:
   bool keeps(const std::string& name, const Json& rule) const {
      const std::map<std::string, std::function<bool()>> rules = {
            {"type", [&] { return hasOneType(value_, rule); }},
            {"enum", [&] { return std::find(rule.begin(), rule.end(), value_) != rule.end(); }},
            {"minimum", [&] { return !value_.is_number() || value_ >= rule; }},
            {"maximum", [&] { return !value_.is_number() || value_ <= rule; }},
            {"minLength", [&] { return !value_.is_string() || length() >= rule; }},
            {"maxLength", [&] { return !value_.is_string() || length() <= rule; }},
            {"pattern", [&] { return !value_.is_string() || matches(rule); }},
            {"minItems", [&] { return !value_.is_array() || value_.size() >= rule; }},
            {"uniqueItems", [&] { return !value_.is_array() || elementsDiffer(value_); }}};
      const auto found = rules.find(name);
      if (found == rules.end()) {
         throw std::logic_error("unknown keyword " + name);
      }
      return found->second();
   }

   std::size_t length() const { return value_.get_ref<const std::string&>().size(); }

   bool matches(const Json& pattern) const {
      regex_t expression;
      if (::regcomp(&expression, pattern.get_ref<const std::string&>().c_str(),
                    REG_EXTENDED | REG_NOSUB) != 0) {
         throw std::logic_error("bad pattern " + pattern.dump());
      }
      const int result =
            ::regexec(&expression, value_.get_ref<const std::string&>().c_str(), 0, nullptr, 0);
      ::regfree(&expression);
      return result == 0;
   }

   std::string anyOf(const Json& choices) const {
      std::string problems;
      for (const Json& choice : choices) {
         const std::string problem = schemaProblem(value_, choice, root_, place_);
         if (problem.empty()) {
            return "";
         }
         problems += (problems.empty() ? "" : " and ") + problem;
      }
      return problems;
   }

   std::string items(const Json& rule) const {
      for (std::size_t i = 0; i < value_.size(); ++i) {
         const std::string place = place_ + "/" + std::to_string(i);
         if (std::string problem = schemaProblem(value_[i], rule, root_, place); !problem.empty()) {
            return problem;
         }
      }
      return "";
   }

   std::string objectKeyword(const std::string& name, const Json& rule) const {
      if (name == "required") {
         const auto missing = std::find_if(rule.begin(), rule.end(), [&](const Json& key) {
            return !value_.contains(key.get<std::string>());
         });
         return missing == rule.end() ? "" : place_ + ": missing " + missing->dump();
      }
      for (const auto& [key, value] : value_.items()) {
         if (std::string problem = keyKeyword(name, rule, key, value); !problem.empty()) {
            return problem;
         }
      }
      return "";
   }

   // One key of an object.
   std::string keyKeyword(const std::string& name, const Json& rule, const std::string& key,
                          const Json& value) const {
      const std::string place = place_ + "/" + key;
      if (name == "propertyNames") {
         return schemaProblem(key, rule, root_, place);
      }
      const bool known = schema_.value("properties", Json::object()).contains(key);
      if (name == "properties") {
         return known ? schemaProblem(value, rule.at(key), root_, place) : "";
      }
      if (known) {
         return "";
      }
      return rule == false ? place_ + ": unknown " + key : schemaProblem(value, rule, root_, place);
   }

   const Json& value_;
   const Json& schema_;
   const Json& root_;
   const std::string& place_;
};

} // namespace

const Json& resolved(const Json& schema, const Json& root) {
   if (!schema.contains("$ref")) {
      return schema;
   }
   const std::string reference = schema.at("$ref");
   return resolved(root.at(Json::json_pointer(reference.substr(1))), root);
}

std::string schemaProblem(const Json& value, const Json& schema, const Json& root,
                          const std::string& place) {
   if (schema == false) {
      return place + ": not allowed";
   }
   const Check check(value, schema, root, place);
   for (const auto& [name, rule] : schema.items()) {
      if (std::string problem = check.keyword(name, rule); !problem.empty()) {
         return problem;
      }
   }
   return "";
}

} // namespace Postcard::Policy::File
