// `pageBegin` and `pageEnd`: the text of a page before and behind its data, with style and script.
// The build makes both from the files in `web/` (`cmake/PostcardPage.cmake`). Internal to this
// room.
#pragma once

#include <string_view>

namespace Postcard::Report {

extern const std::string_view pageBegin;
extern const std::string_view pageEnd;

} // namespace Postcard::Report
