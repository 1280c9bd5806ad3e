#include <gtest/gtest.h>

#include <string>

#include "util/CmJson.h"

namespace {

TEST(Json, ObjectsAndArraysNestAndPrint)
{
    json::Object doc;
    json::Array layers;
    json::Object layer;
    layer["fps"] = 30;
    layer["name"] = "720p";
    layers.push_back(layer);
    layers.push_back(json::Array());
    doc["layers"] = layers;
    doc["empty"] = json::Object();
    doc["ok"] = true;
    EXPECT_EQ(R"({"empty":{},"layers":[{"fps":30,"name":"720p"},[]],"ok":true})", json::Serialize(doc));
    EXPECT_EQ("{}", json::Serialize(json::Object()));
    EXPECT_EQ("[]", json::Serialize(json::Array()));

    // Back from text: equal under ==, and typed views of the parts.
    const json::Value parsed = json::Deserialize(json::Serialize(doc));
    EXPECT_TRUE(parsed == doc);
    const json::Array back(parsed["layers"]);
    ASSERT_EQ(2u, back.size());
    EXPECT_TRUE(json::Object(back[0]).HasKey("fps"));
    EXPECT_TRUE(json::Object(parsed["layers"]).empty());  // not an object: a view gives {}
    EXPECT_EQ(doc, parsed.get<json::Object>());
}

TEST(Json, BadTextGivesNullNeverThrows)
{
    const std::string deep(100000, '[');  // would exhaust the stack of a recursive parser
    const std::string kBad[] = {"", "{", R"({"a":})", "[1,]", "{'a':1}", R"({"a":1} trailing)", "nul",
                                std::string("\"\xff\""), deep, deep + std::string(100000, ']')};
    for (const auto& text : kBad) {
        SCOPED_TRACE(text.substr(0, 20));
        json::Value v;
        EXPECT_NO_THROW(v = json::Deserialize(text));
        EXPECT_TRUE(v.is_null());
        EXPECT_FALSE(v.is_discarded());
    }
    // Nesting within the limit is fine, and brackets inside strings do not count.
    const std::string nested = std::string(200, '[') + std::string(200, ']');
    EXPECT_TRUE(json::Deserialize(nested).is_array());
    EXPECT_TRUE(json::Deserialize("[\"" + std::string(1000, '[') + "\"]").is_array());
    // Invalid UTF-8 inside a value is printed with a replacement character instead of throwing.
    json::Object o;
    o["bad"] = std::string("\xff");
    EXPECT_EQ("{\"bad\":\"\xEF\xBF\xBD\"}", json::Serialize(o));
}

TEST(Json, GetChecksTypeAndRange)
{
    const json::Value v = json::Deserialize(
        R"({"i":42,"neg":-1,"big":4294967296,"f":1.5,"b":true,"s":"x","o":{"k":1},"a":[1]})");
    int i = 0;
    unsigned u = 7;
    int8_t small = 0;
    double d = 0;
    bool b = false;
    std::string s;
    json::Object o;
    json::Array a;
    EXPECT_TRUE(json::Get(v, "i", i) && i == 42);
    EXPECT_TRUE(json::Get(v, "i", d) && d == 42.0);
    EXPECT_TRUE(json::Get(v, "f", d) && d == 1.5);
    EXPECT_TRUE(json::Get(v, "b", b) && b);
    EXPECT_TRUE(json::Get(v, "s", s) && s == "x");
    EXPECT_TRUE(json::Get(v, "o", o) && o.HasKey("k"));
    EXPECT_TRUE(json::Get(v, "a", a) && a.size() == 1);

    const struct {
        const char* key;
        bool ok;
    } kMismatch[] = {{"neg", false}, {"big", false}, {"f", false}, {"b", false}, {"s", false}, {"missing", false}};
    for (const auto& c : kMismatch) {
        SCOPED_TRACE(c.key);
        EXPECT_EQ(c.ok, json::Get(v, c.key, u));
        EXPECT_EQ(7u, u);  // untouched on refusal
    }
    EXPECT_FALSE(json::Get(v, "i", b));        // a number is not a boolean
    EXPECT_FALSE(json::Get(v, "i", s));
    EXPECT_FALSE(json::Get(v, "big", small));  // out of range
    EXPECT_FALSE(json::Get(json::Value(5), "i", i));  // not an object at all
}

}  // namespace
