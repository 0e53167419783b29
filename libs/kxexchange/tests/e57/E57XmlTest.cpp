// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>

#include "e57/E57Field.h"
#include "e57/E57Node.h"
#include "kxexchange/Errors.h"

namespace {

using namespace kxexchange;
using Type = E57Node::Type;

E57Document Parse(const std::string& inside, const std::string& attributes = {}) {
    return ParseE57Xml("<?xml version=\"1.0\" encoding=\"UTF-8\"?><e57Root type=\"Structure\" " + attributes +
                           ">" + inside + "</e57Root>",
                       "x.e57");
}

std::string XmlRefusal(const std::string& xml) {
    try {
        ParseE57Xml(xml, "x.e57");
    } catch (const SourceFormatException& e) {
        EXPECT_EQ(e.Context().file, "x.e57");
        return e.Context().record + ": " + e.Context().detail;
    }
    return "was not refused";
}

TEST(E57Xml, EveryTypeIsRead) {
    const E57Document document = Parse(
        "<a type=\"Integer\" minimum=\"-5\" maximum=\"9223372036854775807\">-3</a>"
        "<b type=\"ScaledInteger\" minimum=\"0\" maximum=\"9\" scale=\"1.0e-001\" offset=\"2\">5</b>"
        "<c type=\"Float\" precision=\"single\" minimum=\"-1\" maximum=\"+1\"> 2.5e-1\n</c>"
        "<d type=\"String\"><![CDATA[ a <b> ]]>&amp;<![CDATA[c]]></d>"
        "<e type=\"Blob\" fileOffset=\"48\" length=\"7\"/>"
        "<f type=\"Vector\"><vectorChild type=\"Integer\"/></f>"
        "<g type=\"CompressedVector\" fileOffset=\"1\" recordCount=\"18446744073709551615\"/>");
    const E57Node& root = document.root;
    ASSERT_EQ(root.children.size(), 7U);
    EXPECT_EQ(root.Find("a")->integer, -3);
    EXPECT_EQ(root.Find("a")->minimum, -5);
    EXPECT_EQ(root.Find("a")->maximum, INT64_MAX);
    EXPECT_EQ(root.Find("b")->Number(), 5 * 0.1 + 2);
    EXPECT_TRUE(root.Find("c")->single);
    EXPECT_EQ(root.Find("c")->real, 0.25);
    EXPECT_EQ(root.Find("c")->realMaximum, 1.0);
    EXPECT_EQ(root.Find("d")->text, " a <b> &c");
    EXPECT_EQ(root.Find("e")->fileOffset, 48U);
    EXPECT_EQ(root.Find("e")->count, 7U);
    EXPECT_EQ(root.Find("f")->children.at(0).integer, 0);
    EXPECT_EQ(root.Find("g")->count, ~uint64_t{0});
    EXPECT_EQ(root.Find("h"), nullptr);
    EXPECT_EQ(root.Find("d")->Number(), std::nullopt);
}

TEST(E57Xml, ExtensionsAreKnownByPrefixAndSkippedWhereTheyAreNoType) {
    const E57Document document = Parse(
        "<ex:known type=\"Integer\">4</ex:known><ex:odd type=\"Matrix\"><deep type=\"Nothing\"/></ex:odd>",
        "xmlns:ex=\"urn:example\"");
    ASSERT_EQ(document.extensions.size(), 1U);
    EXPECT_EQ(document.extensions[0].first, "ex");
    EXPECT_EQ(document.extensions[0].second, "urn:example");
    EXPECT_EQ(document.root.Find("ex:known")->integer, 4);
    EXPECT_EQ(document.root.Find("ex:odd"), nullptr);
    EXPECT_EQ(document.skipped, std::vector<std::string>{"ex:odd"});
}

TEST(E57Xml, WhatCannotBeIsRefusedByElement) {
    const std::string head = "<e57Root type=\"Structure\">";
    EXPECT_NE(XmlRefusal("").find("XML"), std::string::npos);
    EXPECT_NE(XmlRefusal("<e57Root type=\"Structure\"").find("at its byte"), std::string::npos);
    EXPECT_EQ(XmlRefusal("<root type=\"Structure\"/>"), "XML element /root: expected the element e57Root");
    EXPECT_EQ(XmlRefusal("<e57Root type=\"Vector\"/>"), "XML element /e57Root: expected a Structure");
    EXPECT_EQ(XmlRefusal(head + "<a type=\"Matrix\"/></e57Root>"),
              "XML element /e57Root/a: found the type 'Matrix', which is none");
    EXPECT_EQ(XmlRefusal(head + "<a type=\"Integer\">1,5</a></e57Root>"),
              "XML element /e57Root/a: value: found '1,5', expected a number");
    EXPECT_EQ(XmlRefusal(head + "<a type=\"Integer\" minimum=\"2\" maximum=\"1\"/></e57Root>"),
              "XML element /e57Root/a: the minimum is above the maximum");
    EXPECT_NE(XmlRefusal(head + "<a type=\"Blob\" fileOffset=\"-1\"/></e57Root>").find("fileOffset"),
              std::string::npos);
    EXPECT_NE(XmlRefusal(head + "<a type=\"Integer\">9223372036854775808</a></e57Root>").find("number"),
              std::string::npos);
    std::string deep;
    for (int i = 0; i < 100; ++i)
        deep += "<a type=\"Structure\">";
    for (int i = 0; i < 100; ++i)
        deep += "</a>";
    EXPECT_NE(XmlRefusal(head + deep + "</e57Root>").find("nested deeper than 64"), std::string::npos);
}

TEST(E57Xml, EntitiesAreNotFollowed) {
    const std::string xml =
        "<?xml version=\"1.0\"?><!DOCTYPE e57Root [<!ENTITY x SYSTEM \"file:///etc/hostname\">"
        "<!ENTITY y \"yyyyyyyyyy\">]><e57Root type=\"Structure\"><a type=\"String\">&x;&y;</a></e57Root>";
    EXPECT_EQ(ParseE57Xml(xml, "x.e57").root.Find("a")->text, "&x;&y;");
}

TEST(E57Xml, WrittenDocumentsComeBack) {
    E57Document document;
    document.root = E57Node::Structure("e57Root");
    document.extensions.emplace_back("kx", "urn:example:kx");
    document.root.Add(E57Node::Float("tenth", 0.1));
    document.root.Add(E57Node::Float("tiny", 5e-324));
    document.root.Add(E57Node::Float("huge", -1.7976931348623157e308));
    document.root.Add(E57Node::Integer("least", INT64_MIN));
    document.root.Add(E57Node::String("text", " <Ü> ]]> \n& \x01 \U0001F600"));
    document.root.Add(E57Node::String("kx:own", ""));
    E57Node scaled = E57Node::Integer("scaled", -7);
    scaled.type = Type::ScaledInteger;
    scaled.minimum = -8;
    scaled.maximum = 8;
    scaled.scale = 1.0 / 3;
    scaled.offset = -1e-9;
    document.root.Add(E57Node::Structure("inner")).Add(scaled);
    const char* const before = std::setlocale(LC_ALL, nullptr);
    const std::string saved = before ? before : "C";
    std::setlocale(LC_ALL, "de_DE.UTF-8");  // decimal commas, where the machine has it
    const std::string xml = FormatE57Xml(document);
    const E57Document back = ParseE57Xml(xml, "x.e57");
    std::setlocale(LC_ALL, saved.c_str());
    EXPECT_EQ(back.extensions, document.extensions);
    EXPECT_EQ(back.root.Find("tenth")->real, 0.1);
    EXPECT_EQ(back.root.Find("tiny")->real, 5e-324);
    EXPECT_EQ(back.root.Find("huge")->real, -1.7976931348623157e308);
    EXPECT_EQ(back.root.Find("least")->integer, INT64_MIN);
    EXPECT_EQ(back.root.Find("text")->text, " <Ü> ]]> \n&  \U0001F600");  // XML has no control characters
    EXPECT_EQ(back.root.Find("kx:own")->text, "");
    const E57Node* const inner = back.root.Find("inner")->Find("scaled");
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(inner->Number(), scaled.Number());
    EXPECT_EQ(inner->minimum, -8);
}

TEST(E57Field, PrototypesAreFlattenedInOrder) {
    const E57Document document = Parse(
        "<points type=\"CompressedVector\"><prototype type=\"Structure\">"
        "<x type=\"Float\" precision=\"single\"/><ex:n type=\"Structure\"><z type=\"ScaledInteger\" "
        "minimum=\"-1\" "
        "maximum=\"2\" scale=\"0.5\"/><t type=\"String\"/></ex:n><r type=\"Integer\" minimum=\"4\" "
        "maximum=\"4\"/>"
        "</prototype></points>");
    const auto fields = FieldsOfPrototype(*document.root.Find("points"), "x.e57", "points of scan 1");
    ASSERT_EQ(fields.size(), 4U);
    EXPECT_EQ(fields[0].name, "x");
    EXPECT_EQ(fields[0].Bits(), 32U);
    EXPECT_EQ(fields[1].name, "ex:n/z");
    EXPECT_EQ(fields[1].Bits(), 2U);
    EXPECT_EQ(fields[2].kind, E57Field::Kind::String);
    EXPECT_EQ(fields[3].Bits(), 0U);
}

TEST(E57Field, BitsAreTheFewestThatHoldTheRange) {
    const auto bits = [](int64_t least, int64_t most) { return E57Field::Whole("f", least, most).Bits(); };
    EXPECT_EQ(bits(7, 7), 0U);
    EXPECT_EQ(bits(0, 1), 1U);
    EXPECT_EQ(bits(0, 2), 2U);
    EXPECT_EQ(bits(-666, 666), 11U);
    EXPECT_EQ(bits(-8388608, 8388607), 24U);
    EXPECT_EQ(bits(0, INT64_MAX), 63U);
    EXPECT_EQ(bits(INT64_MIN, INT64_MAX), 64U);
}

TEST(E57Field, UnknownCodecsAreRefused) {
    const auto fields = [](const std::string& codec) {
        const E57Document document = Parse(
            "<points type=\"CompressedVector\"><prototype type=\"Structure\"><x type=\"Float\"/></prototype>"
            "<codecs type=\"Vector\"><vectorChild type=\"Structure\"><inputs type=\"Vector\"/>" +
            codec + "</vectorChild></codecs></points>");
        return FieldsOfPrototype(*document.root.Find("points"), "x.e57", "points of scan 1").size();
    };
    EXPECT_EQ(fields("<bitPackCodec type=\"Structure\"/>"), 1U);
    EXPECT_THROW(fields("<zipCodec type=\"Structure\"/>"), SourceFormatException);
}

// A decimal scale gives the very double that a text with these digits gives.
TEST(E57Field, DecimalScalesGiveTheNearestDouble) {
    const E57Scaling micro(E57Field::Scaled("f", -8388608, 8388607, 9.9999999999999995e-007));
    EXPECT_EQ(micro.Value(-2903764), -2.903764);
    EXPECT_EQ(micro.Value(3), 3e-6);
    EXPECT_EQ(micro.Raw(-2.903764), -2903764);
    const E57Scaling other(E57Field::Scaled("f", 0, 9, 3.0518509475997192e-005, 1));
    EXPECT_EQ(other.Value(5), 5 * 3.0518509475997192e-005 + 1);
    EXPECT_EQ(other.Raw(other.Value(5)), 5);
    EXPECT_EQ(micro.Raw(std::nan("")), 0);
    EXPECT_GT(micro.Raw(1e300), int64_t{1} << 62);
    EXPECT_LT(micro.Raw(-1e300), -(int64_t{1} << 62));
}

}  // namespace
