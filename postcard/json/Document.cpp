#include "postcard/json/Document.h"

#include <nlohmann/json.hpp>

namespace Postcard::Json {

std::string documentText(const nlohmann::ordered_json& document) {
   return document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

} // namespace Postcard::Json
