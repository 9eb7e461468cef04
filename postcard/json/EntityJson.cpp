#include "postcard/json/EntityJson.h"

#include "Kiv/TypeData.h"
#include "Kiv/ValueVisitor.h"

#include <nlohmann/json.hpp>

#include <string>
#include <utility>
#include <vector>

namespace Postcard::Json {

namespace {

using Json = nlohmann::ordered_json;

// Builds a JSON document from the values that reflection shows one by one.
class JsonBuilder : public Kiv::ValueVisitor {
 public:
   void null() override { place(nullptr); }
   void boolean(bool value) override { place(value); }
   void number(U64 value) override { place(value); }
   void real(double value) override { place(value); }
   void text(std::string_view value) override { place(value); }
   void beginObject() override { open_.push_back(&place(Json::object())); }
   void member(std::string_view name) override { member_ = name; }
   void endObject() override { open_.pop_back(); }
   void beginList() override { open_.push_back(&place(Json::array())); }
   void endList() override { open_.pop_back(); }

   Json take() { return std::move(document_); }

 private:
   // Adds the value to the innermost open container, or makes it the document. The reference is
   // valid until the next value of the same container is placed.
   Json& place(Json value) {
      if (open_.empty()) {
         document_ = std::move(value);
         return document_;
      }
      Json& container = *open_.back();
      if (container.is_array()) {
         container.push_back(std::move(value));
         return container.back();
      }
      // Names of members are attributes of a type or keys of a collection, so no two are equal. The
      // object's own insertion would compare each new name with all others, in quadratic time.
      auto& members = container.get_ref<Json::object_t&>();
      return members.emplace_back(std::move(member_), std::move(value)).second;
   }

   Json document_;
   std::vector<Json*> open_; // containers that have begun and not ended, innermost last
   std::string member_;      // name of the member whose value comes next
};

} // namespace

Json entityJson(const Kiv::Entity& entity) {
   return writtenJson([&](Kiv::ValueVisitor& visitor) { visitEntity(entity, visitor); });
}

Json writtenJson(const std::function<void(Kiv::ValueVisitor& visitor)>& write) {
   JsonBuilder builder;
   write(builder);
   return builder.take();
}

} // namespace Postcard::Json
