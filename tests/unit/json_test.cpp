#include <gtest/gtest.h>

#include "platform/cjsonobject.h"

using neb::CJsonObject;

namespace {

CJsonObject Parsed(const std::string& text) {
    CJsonObject doc;
    EXPECT_TRUE(doc.Parse(text)) << text;
    return doc;
}

TEST(Json, RejectsInvalidTextWithItsPosition) {
    const struct {
        std::string text;
        int line;
        int column;
    } kCases[] = {
        {"", 1, 1},
        {"\xEF\xBB\xBF[1,x]", 1, 4},
        {"{\n  \"a\": nope\n}", 2, 9},
        {"{\"a\":\n[1", 2, 3},
        {"{}\n\n ]", 3, 2},
        {std::string("[1,\0]", 5), 1, 4},
        {std::string("{}\0", 3), 1, 3},
        {"[\"\xC3(\"]", 1, 4},
        {std::string(65, '[') + std::string(65, ']'), 1, 65},
        {"\n" + std::string(1 << 20, '['), 2, 65},
    };
    for (const auto& c : kCases) {
        CJsonObject doc = Parsed("[\"old\"]");
        EXPECT_FALSE(doc.Parse(c.text)) << c.text.substr(0, 80);
        EXPECT_EQ(doc.ErrorPosition().line, c.line) << c.text.substr(0, 80);
        EXPECT_EQ(doc.ErrorPosition().column, c.column) << c.text.substr(0, 80);
        EXPECT_EQ(doc.ToString(), "");
    }
}

TEST(Json, AcceptsTextAtTheLimits) {
    const std::string deep = std::string(64, '[') + std::string(64, ']');
    EXPECT_EQ(Parsed(deep).ToString(), deep);
    EXPECT_EQ(Parsed("\xEF\xBB\xBF {\"a\":\"\\u0000\xC3\xA9\"}")["a"].ToString(),
              "\"\\u0000\xC3\xA9\"");
    EXPECT_EQ(Parsed("{\"a\":1,\"b\":{},\"a\":{\"c\":2}}").ToString(),
              "{\"a\":{\"c\":2},\"b\":{}}");
}

TEST(Json, AHandleSeesLaterChanges) {
    CJsonObject doc = Parsed("{\"a\":1}");
    const CJsonObject a = doc["a"];
    for (int i = 0; i < 100; ++i) {
        doc.Replace("filler" + std::to_string(i), i);  // moves every member
    }
    doc.Replace("a", 7);
    EXPECT_EQ(a.ToString(), "7");
}

}  // namespace
