// The text of a JSON document, whatever bytes its strings hold.
#include "postcard/json/Document.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using Postcard::Json::documentText;

TEST(Document, indentedByTwoWithALineEnd) {
   EXPECT_EQ(documentText({{"b", 1}, {"a", {{"list", {1, 2}}}}}), "{\n"
                                                                  "  \"b\": 1,\n"
                                                                  "  \"a\": {\n"
                                                                  "    \"list\": [\n"
                                                                  "      1,\n"
                                                                  "      2\n"
                                                                  "    ]\n"
                                                                  "  }\n"
                                                                  "}\n");
   EXPECT_EQ(documentText(nullptr), "null\n");
}

TEST(Document, bytesThatAreNotUtf8AreReplaced) {
   EXPECT_EQ(documentText("caf\xc3\xa9"), "\"caf\xc3\xa9\"\n");
   EXPECT_EQ(documentText("a\xff\xc3z"), "\"a\xef\xbf\xbd\xef\xbf\xbdz\"\n");
}

} // namespace
