#include "postcard/json/EntityJson.h"

#include "Kiv/TypeData.h"
#include "Kiv/ValueVisitor.h"

#include <string>
#include <utility>
#include <vector>

namespace Postcard::Json {

namespace {

using Json = nlohmann::ordered_json;

// Builds a document from what it is shown.
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
   // Where the value now stands; valid until the next one of the same container is placed.
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
      // Members are different by what they are; looking for an equal one would cost the square of
      // their number.
      auto& members = container.get_ref<Json::object_t&>();
      return members.emplace_back(std::move(member_), std::move(value)).second;
   }

   Json document_;
   std::vector<Json*> open_;
   std::string member_;
};

} // namespace

Json entityJson(const Kiv::Entity& entity) {
   JsonBuilder builder;
   visitEntity(entity, builder);
   return builder.take();
}

} // namespace Postcard::Json
