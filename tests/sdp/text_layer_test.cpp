// The line layer: splitting, tokenizing, numbers, line policies, print order and failure texts.
#include <sstream>

#include "sdp/description.h"
#include "test_util.h"

using namespace sdp;
using sdp_test::crlf;
using sdp_test::invalid_argument_text;

namespace {

const std::string kMinimal = crlf({"v=0", "o=- 1 2 IN IP4 10.0.0.1", "s=-", "t=0 0"});

TEST(LineType, LettersAndNames)
{
    const std::string letters = "vosiuepcbzkatrm";
    for (unsigned v = 1; v <= 15; ++v) {
        auto type = static_cast<line_type>(v);
        EXPECT_EQ(line_type_to_char(type), letters[v - 1]);
        EXPECT_EQ(char_to_line_type(letters[v - 1]), type);
    }
    EXPECT_EQ(line_type_to_char(line_type::invalid), '?');
    EXPECT_EQ(line_type_to_char(static_cast<line_type>(16)), '?');
    for (char c : std::string("dfghjlnqwxyZAV=\n ")) EXPECT_EQ(char_to_line_type(c), line_type::invalid) << c;
    EXPECT_EQ(string_to_line_type(""), line_type::invalid);
    EXPECT_EQ(string_to_line_type("media"), line_type::media_description);

    std::ostringstream os;
    os << line_type::session_information << "|" << line_type::invalid << "|" << static_cast<line_type>(16);
    EXPECT_EQ(os.str(), "SESSION_INFORMATION|INVALID|");
}

TEST(SplitLines, AnyMixOfLineEndsBelongsToTheLineBefore)
{
    EXPECT_TRUE(split_sdp_lines("").empty());
    EXPECT_EQ(split_sdp_lines("a=1\r\n\n\rb=2"), (std::vector<std::string>{"a=1\r\n\n\r", "b=2"}));
    EXPECT_EQ(split_sdp_lines("a=1\rb=2\nc=3\r\n"), (std::vector<std::string>{"a=1\r", "b=2\n", "c=3\r\n"}));
    EXPECT_EQ(split_sdp_lines("\r\nv=0"), (std::vector<std::string>{"\r\n", "v=0"}));
}

TEST(SplitTypeValue, OnlyTheCharacterBeforeTheEqualsSignCounts)
{
    struct Case {
        const char* line;
        const char* type;
        const char* value;
    } cases[] = {
        {"a=foo:bar\r\n", "a", "foo:bar"},
        {"xa=foo", "a", "foo"},  // tolerated prefix
        {"=foo", "", ""},
        {"nothing", "", ""},
        {"m=a=b\n", "m", "a=b"},
        {"s=\r\n", "s", ""},
    };
    for (const auto& c : cases) {
        auto [type, value] = split_sdp_line_type_value(c.line);
        EXPECT_EQ(type, c.type) << c.line;
        EXPECT_EQ(value, c.value) << c.line;
    }
}

TEST(Tokenize, RunsOfDelimitersCountAsOneAndALimitKeepsTheRest)
{
    using V = std::vector<std::string>;
    EXPECT_EQ(tokenize("  a  b c ", ' '), (V{"a", "b", "c"}));
    EXPECT_EQ(tokenize("", ' '), V{});
    EXPECT_EQ(tokenize("::", ':'), V{});
    EXPECT_EQ(tokenize_max("name:a:b", ':', 2), (V{"name", "a:b"}));
    EXPECT_EQ(tokenize_max("name::a", ':', 2), (V{"name", "a"}));
    EXPECT_EQ(tokenize_max("name:", ':', 2), (V{"name"}));
    EXPECT_EQ(tokenize_max("a b  c d", ' ', 3), (V{"a", "b", "c d"}));
    EXPECT_EQ(tokenize_max("abc", ' ', 1), (V{"abc"}));
}

TEST(Numbers, StrictDecimalWithLabelledFailures)
{
    EXPECT_EQ(string_to_numeric("0", "x"), 0u);
    EXPECT_EQ(string_to_numeric("4294967295", "x"), 4294967295u);
    EXPECT_EQ(string_to_numeric_u16("65535", "x"), 65535u);
    struct Case {
        const char* text;
        bool u16;
        const char* error;
    } cases[] = {
        {"", false, "invalid non-numeric value found in lbl ()"},
        {"12a", false, "invalid non-numeric value found in lbl (12a)"},
        {"12 ", false, "invalid non-numeric value found in lbl (12 )"},
        {"abc", false, "invalid non-numeric value found in lbl (abc)"},
        {"4294967296", false, "out of range numeric value found in lbl (4294967296)"},
        {"99999999999999999999999", false, "out of range numeric value found in lbl (99999999999999999999999)"},
        {"65536", true, "out of range numeric value found in lbl (65536)"},
    };
    // A NUL inside is a character left over (what() stops at it).
    EXPECT_EQ(invalid_argument_text([] { string_to_numeric(std::string("5\0x", 3), "lbl"); }),
              "invalid non-numeric value found in lbl (5");
    for (const auto& c : cases) {
        auto text = invalid_argument_text([&] {
            if (c.u16) string_to_numeric_u16(c.text, "lbl");
            else string_to_numeric(c.text, "lbl");
        });
        EXPECT_EQ(text, c.error) << c.text;
    }
    EXPECT_DOUBLE_EQ(string_to_double("1.5", "d"), 1.5);
    testing::internal::CaptureStdout();
    EXPECT_EQ(invalid_argument_text([] { string_to_double("1.5x", "d"); }), "invalid non-numeric value found in d (1.5x)");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[string_to_double] invalid number\n");
}

TEST(Lines, CreateChecksTypeAndCounts)
{
    struct Case {
        std::function<void()> fn;
        const char* error;
    } cases[] = {
        {[] { origin_line::create("s=- 1 2 IN IP4 x\r\n"); },
         "found invalid line type SESSION_NAME expected ORIGIN\ns=- 1 2 IN IP4 x\r\n"},
        {[] { origin_line::create("o=- 1 2 IN IP4\r\n"); },
         "invalid number of values found (5) in parsed line expected minimum of 6 and maximum of 6 with delimiter ' '\no=- 1 2 IN IP4\r\n"},
        {[] { timing_line::create("t=0 0 0"); },
         "invalid number of values found (3) in parsed line expected minimum of 2 and maximum of 2 with delimiter ' '\nt=0 0 0"},
        {[] { attribute_line::create("a="); },
         "invalid number of values found (0) in parsed line expected minimum of 1 and maximum of 2 with delimiter ':'\na="},
        {[] { session_name_line::create("s=\r\n"); }, "invalid line found, expected data after the '='\ns=\r\n"},
        {[] { bandwidth_line::create("b=AS"); }, "found invalid bandwidth line value, expected 2 ':' delimited values found 1\nb=AS"},
        {[] { bandwidth_line::create("b=AS:64000x"); }, "invalid non-numeric value found in bandwidth value (64000x)"},
        {[] { media_description_line::create("m=audio 5000"); },
         "found invalid media description value, expected >= 3 ' ' delimited values found 2\nm=audio 5000"},
        {[] { version_line::create("v=x"); }, "invalid non-numeric value found in version number (x)"},
        {[] { connection_line({"IN", "IP4"}); }, "invalid number of values while constructing line type CONNECTION object"},
        {[] { attribute_line::create(std::string_view("a=crypto:1 AES_CM_128_HMAC_SHA1_80 inline:ab\0cd", 47)); },
         "NUL character in ATTRIBUTE line"},
    };
    for (const auto& c : cases) EXPECT_EQ(invalid_argument_text(c.fn), c.error);
}

TEST(Lines, PrintForms)
{
    struct Case {
        const char* in;
        const char* out;
    } cases[] = {
        {"a=x:", "a=x\r\n"},
        {"a=x::y", "a=x:y\r\n"},
        {"a=fmtp:96 a=b;c=d", "a=fmtp:96 a=b;c=d\r\n"},
        {"k=prompt", "k=prompt\r\n"},
        {"k=base64:a:b", "k=base64:a:b\r\n"},
        {"o=-  1 2 IN IP4 x", "o=- 1 2 IN IP4 x\r\n"},
    };
    for (const auto& c : cases) {
        description_lines d;
        d.add_line(c.in);
        EXPECT_EQ(d.as_sdp(), c.out) << c.in;
    }
    // Three values: the format list deliberately becomes "*".
    auto m = media_description_line::create("m=application 9 UDP/BFCP");
    EXPECT_EQ(m.get_formats(), std::vector<std::string>{"*"});
    EXPECT_EQ(m.as_sdp(), "m=application 9 UDP/BFCP *\r\n");
    EXPECT_EQ(bandwidth_line::create("b=TIAS:64000").as_sdp(), "b=TIAS:64000\r\n");
    // A leading empty value leaves its delimiter on the next one.
    EXPECT_EQ(attribute_line(std::vector<std::string>{"", "v"}).get_value(), ":v");
}

TEST(Description, PolicyStepTexts)
{
    struct Case {
        const char* text;
        const char* error;
    } cases[] = {
        {"v=0\r\ns=a\r\ns=b\r\n", "attempted to add a second SESSION_NAME line, maximum 1 allowed"},
        {"v=0\r\nv=0\r\n", "attempted to add a second VERSION line, maximum 1 allowed"},
        {"v=0\r\nZ=1\r\n", "invalid sdp line 'Z=1\r\n'"},
        {"v=0\r\ny=1\r\n", "invalid sdp line 'y=1\r\n'"},
        {"v=0\r\nno equals\r\n", "invalid sdp line 'no equals\r\n'"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(invalid_argument_text([&] { session_lines l(c.text); }), c.error) << c.text;

    EXPECT_EQ(invalid_argument_text([] { media_lines l("m=audio 1 RTP/AVP 0\r\no=- 1 2 IN IP4 x\r\n"); }),
              "attempted to add a ORIGIN line, not allowed");
    EXPECT_EQ(invalid_argument_text([] { media_lines l("m=audio 1 RTP/AVP 0\r\nm=audio 2 RTP/AVP 0\r\n"); }),
              "attempted to add a second MEDIA_DESCRIPTION line, maximum 1 allowed");
    EXPECT_EQ(invalid_argument_text([] { media_description::create("m=audio 1 RTP/AVP 0\r\nm=video 2 RTP/AVP 0"); }),
              "attempted to add a second MEDIA_DESCRIPTION line, maximum 1 allowed");
}

TEST(Description, ReplaceAndClear)
{
    session_lines l;
    l.add_line(session_name_line("a"), false);
    l.add_line(session_name_line("b"), true);
    ASSERT_EQ(l.session_name_lines.size(), 1u);
    EXPECT_EQ(l.session_name_lines[0].get_value(), "b");
    // replace under a multiple policy drops every line of the type
    l.add_line(attribute_line("x"), false);
    l.add_line(attribute_line("y"), false);
    l.add_line(attribute_line("z"), true);
    ASSERT_EQ(l.attribute_lines.size(), 1u);
    EXPECT_EQ(l.attribute_lines[0].get_name(), "z");
    EXPECT_EQ(invalid_argument_text([&] { l.add_line(media_description_line("audio", "1", "RTP/AVP", {}), true); }),
              "attempted to add a MEDIA_DESCRIPTION line, not allowed");

    EXPECT_EQ(invalid_argument_text([&] { l.clear_lines(line_type::timing); }),
              "attempted to clear required lines of type TIMING");
    EXPECT_EQ(invalid_argument_text([&] { l.clear_lines(line_type::version); }),
              "attempted to clear required lines of type VERSION");
    l.clear_lines(line_type::attribute);
    EXPECT_TRUE(l.attribute_lines.empty());
    l.clear_lines(line_type::invalid);
    l.clear_lines(static_cast<line_type>(99));

    media_lines m;
    m.add_line(media_description_line("audio", "1", "RTP/AVP", {"0"}), false);
    m.update_line(media_description_line("video", "2", "RTP/AVP", {"96"}));
    ASSERT_EQ(m.media_description_lines.size(), 1u);
    EXPECT_EQ(m.media_description_lines[0].get_media_type(), "video");
}

TEST(Description, MissingRequiredLinesAreAllReportedInStorageOrder)
{
    EXPECT_EQ(invalid_argument_text([] { session_description::create(""); }),
              "missing required line type VERSION\nmissing required line type ORIGIN\n"
              "missing required line type SESSION_NAME\nmissing required line type TIMING\n");
    EXPECT_EQ(invalid_argument_text([] { session_description::create("v=0\r\ns=x\r\n"); }),
              "missing required line type ORIGIN\nmissing required line type TIMING\n");
    // A blank first line is a token without '='.
    EXPECT_EQ(invalid_argument_text([] { session_description::create("\r\n" + kMinimal); }), "invalid sdp line '\r\n'");
    std::string errors;
    EXPECT_TRUE(session_description::create(kMinimal).is_valid(errors));
    EXPECT_TRUE(errors.empty());
}

TEST(Description, ParsePrintKeepsUnknownAttributesAndUsesTheFixedOrder)
{
    // Lines arrive out of order, with every kind of line end; printing sorts by type only.
    const std::string in =
        "v=0\n"
        "o=alice 1 2 IN IP4 10.0.0.1\r"
        "s=talk\r\n\r\n"
        "a=tool:x\n"
        "t=0 0\n"
        "r=7d 1h 0 25h\n"
        "z=2882844526 -1h\n"
        "k=prompt\n"
        "b=AS:64\n"
        "c=IN IP4 10.0.0.1\n"
        "e=a@b.c\n"
        "p=+1 555\n"
        "u=http://x\n"
        "i=info\n"
        "a=zzz-unknown\n"
        "m=audio 5000 RTP/AVP 0\n"
        "a=x-custom:1\n"
        "c=IN IP4 10.0.0.2\n"
        "i=media info\n";
    auto d = session_description::create(in);
    const std::string expected = crlf({"v=0", "o=alice 1 2 IN IP4 10.0.0.1", "s=talk", "i=info", "u=http://x", "e=a@b.c",
                                       "p=+1 555", "c=IN IP4 10.0.0.1", "b=AS:64", "t=0 0", "z=2882844526 -1h",
                                       "r=7d 1h 0 25h", "k=prompt", "a=tool:x", "a=zzz-unknown",
                                       "m=audio 5000 RTP/AVP 0", "i=media info", "c=IN IP4 10.0.0.2", "a=x-custom:1"});
    EXPECT_EQ(d.as_sdp(), expected);
    EXPECT_EQ(session_description::create(expected).as_sdp(), expected);

    ASSERT_NE(d.get_information(), nullptr);
    EXPECT_EQ(d.get_information()->get_value(), "info");
    ASSERT_NE(d.get_connection(), nullptr);
    EXPECT_EQ(d.get_connection()->get_address(), "10.0.0.1");
    EXPECT_NE(d.get_uri(), nullptr);
    EXPECT_NE(d.get_encryption_key(), nullptr);
    ASSERT_EQ(d.get_media_descriptions().size(), 1u);
    const auto& m = d.get_media_descriptions()[0];
    ASSERT_NE(m.get_information(), nullptr);
    EXPECT_EQ(m.get_information()->get_value(), "media info");
    EXPECT_EQ(m.get_encryption_key(), nullptr);
}

TEST(Description, SectionsAndEquality)
{
    auto none = session_description::create(kMinimal);
    EXPECT_TRUE(none.get_media_descriptions().empty());

    auto two = session_description::create(kMinimal + "m=audio 1 RTP/AVP 0\r\nm=video 2 RTP/AVP 96\r\na=x\r\n");
    ASSERT_EQ(two.get_media_descriptions().size(), 2u);
    EXPECT_EQ(two.get_media_descriptions()[1].attribute_lines.size(), 1u);
    // Equality looks at the session lines only.
    EXPECT_EQ(none, two);
    EXPECT_FALSE(none == session_description::create(kMinimal + "a=x\r\n"));

    description_lines a, b;
    a.add_line("a=x");
    b.set_line_policy(line_type::attribute, policy_required_single);
    b.add_line("a=x");
    EXPECT_EQ(a, b);  // policies are not compared
}

}  // namespace
