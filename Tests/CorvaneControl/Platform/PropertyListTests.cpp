#include "CorvaneControl/Platform/PropertyList.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/Platform/Text.h"
#include "Support/Repeated.h"

namespace {

using CorvaneControl::PropertyList::strings;
namespace Text = CorvaneControl::Text;
using CorvaneTests::repeated;

using Members = std::map<std::string, std::string>;

const auto named = [](const auto& row) { return std::string(row.param.name); };

const std::string corpus = CORVANE_SOURCE_DIR "/Tests/Fuzz/Corpus/PropertyList/";

std::string fileOfCorpus(const std::string& name) {
  std::ifstream file(corpus + name, std::ios::binary);
  EXPECT_TRUE(file) << name;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// What may come out of any bytes at all.
void expectUTF8(const std::optional<Members>& members) {
  if (!members) return;
  for (const auto& [key, value] : *members) {
    EXPECT_EQ(Text::repaired(key), key);
    EXPECT_EQ(Text::repaired(value), value);
  }
}

/// Turns some bytes into others, drops some, doubles some.
std::string mutated(std::string bytes, std::mt19937& random) {
  for (std::size_t count = 1 + random() % 4; count > 0 && !bytes.empty(); --count) {
    const std::size_t place = random() % bytes.size();
    switch (random() % 5) {
      case 0:
        bytes[place] = static_cast<char>(random());
        break;
      case 1:
        bytes[place] = static_cast<char>(bytes[place] ^ (1 << random() % 8));
        break;
      case 2:
        bytes.erase(place, 1 + random() % 4);
        break;
      case 3:
        bytes.insert(place, bytes.substr(random() % bytes.size(), 1 + random() % 8));
        break;
      default:
        bytes[place] = "\x00\xFF\x7F\x80\x0F"[random() % 5];
    }
  }
  return bytes;
}

// ---- The XML form -------------------------------------------------------------------------------

const std::string header =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n";

std::string document(const std::string& value) {
  return header + "<plist version=\"1.0\">\n" + value + "\n</plist>\n";
}
std::string dictionary(const std::string& members) {
  return document("<dict>\n" + members + "\n</dict>");
}

struct XMLCase {
  const char* name;
  std::string bytes;
  std::optional<Members> members;
};
const std::string member = "<key>a</key><string>b</string>";
const Members aIsB = {{"a", "b"}};

const XMLCase xmlCases[] = {
    {"asApplicationsHaveIt",
     dictionary("\t<key>CFBundleIdentifier</key>\n\t<string>example.corvane</string>\n"
                "\t<key>CFBundleShortVersionString</key>\n\t<string>1.2.3</string>\n"
                "\t<key>LSUIElement</key>\n\t<true/>\n"),
     Members{{"CFBundleIdentifier", "example.corvane"}, {"CFBundleShortVersionString", "1.2.3"}}},
    {"emptyDictionary", dictionary(""), Members{}},
    {"emptyDictionaryAsOneTag", document("<dict/>"), Members{}},
    {"withoutHeader", "<plist><dict>" + member + "</dict></plist>", aIsB},
    {"withoutDocumentType", "<?xml version=\"1.0\"?><plist><dict>" + member + "</dict></plist>",
     aIsB},
    {"withoutOuterTag", "<dict>" + member + "</dict>", aIsB},
    {"withOldDocumentType",
     "<?xml version=\"1.0\"?><!DOCTYPE plist SYSTEM \"file://localhost/PropertyList.dtd\">"
     "<plist version=\"0.9\"><dict>" +
         member + "</dict></plist>",
     aIsB},
    {"withByteOrderMark", "\xEF\xBB\xBF" + dictionary(member), aIsB},
    {"withLineFeedBeforeTheDeclaration", "\n" + dictionary(member), aIsB},
    {"withWhiteSpaceBeforeTheDeclaration", " \t\r\n \n" + dictionary(member), aIsB},
    {"withByteOrderMarkAndLineFeed", "\xEF\xBB\xBF\n" + dictionary(member), aIsB},
    {"withOldMacLineEnds", "<plist>\r<dict>\r" + member + "\r</dict>\r</plist>\r", aIsB},
    {"withCarriageReturns", "<plist>\r\n<dict>\r\n" + member + "\r\n</dict>\r\n</plist>\r\n", aIsB},

    {"emptyString", dictionary("<key>a</key><string></string><key>b</key><string/>"),
     Members{{"a", ""}, {"b", ""}}},
    {"emptyKey", dictionary("<key></key><string>a</string>"), Members{{"", "a"}}},
    {"emptyKeyAsOneTag", dictionary("<key/><string>a</string>"), Members{{"", "a"}}},
    {"spacesInStrings", dictionary("<key> a </key><string>\n b\t</string>"),
     Members{{" a ", "\n b\t"}}},
    {"unicode", dictionary("<key>caf\u00E9</key><string>\U0001F600\u0301</string>"),
     Members{{"caf\u00E9", "\U0001F600\u0301"}}},
    {"fiveEntities", dictionary("<key>a</key><string>&lt;&amp;&gt;&quot;&apos;</string>"),
     Members{{"a", "<&>\"'"}}},
    {"entityInAKey", dictionary("<key>a&amp;b</key><string>c</string>"), Members{{"a&b", "c"}}},
    {"numericEntities", dictionary("<key>a</key><string>&#65;&#x1F600;&#13;</string>"),
     Members{{"a", "A\U0001F600\r"}}},
    {"characterData", dictionary("<key>a</key><string>x<![CDATA[<b>&amp;]]>y</string>"),
     Members{{"a", "x<b>&amp;y"}}},
    {"comments",
     "<!-- a -->" +
         dictionary("<!-- <key>x</key> --><key>a<!-- c --></key><!-- d -->"
                    "<string>b<!-- e -->c</string>")
             .substr(header.size()) +
         "<!-- f -->",
     Members{{"a", "bc"}}},
    {"hyphensInComments",
     dictionary("<!----------><key>a</key><!-- b -- c ---><string><!-- -- -->b<!--->--></string>"),
     aIsB},
    {"commentInCharacterData", dictionary("<key>a</key><string><![CDATA[<!-- b -->]]></string>"),
     Members{{"a", "<!-- b -->"}}},
    {"characterDataInAComment", dictionary("<!-- <![CDATA[ -->" + member + "<!-- ]]> -->"), aIsB},
    {"commentInAnInstruction", dictionary("<?x <!-- ?>" + member + "<?x --> ?>"), aIsB},
    {"instructions", dictionary("<?x y?><key>a</key><?x?><string>b<?z?></string>"), aIsB},
    {"attributes", dictionary("<key x=\"y\">a</key><string z='&lt;'>b</string>"), aIsB},

    {"otherTypesAreLeftOut",
     dictionary("<key>1</key><integer>1</integer><key>2</key><real>1.5</real>"
                "<key>3</key><true/><key>4</key><false></false>"
                "<key>5</key><date>2025-01-02T03:04:05Z</date><key>6</key><data>AAAA</data>" +
                member),
     aIsB},
    {"malformedScalarsAreLeftOut",
     dictionary(
         "<key>1</key><integer>one</integer><key>2</key><integer/><key>3</key><real>1,5</real>"
         "<key>4</key><true>no</true><key>5</key><false>\n</false>"
         "<key>6</key><date>yesterday</date><key>7</key><data>A*&amp;=A</data>" +
         member),
     aIsB},
    {"nestedDictionariesAreLeftOut",
     dictionary("<key>x</key><dict><key>a</key><string>inner</string>"
                "<key>b</key><dict><key>c</key><string>d</string></dict></dict>" +
                member),
     aIsB},
    {"nestedArraysAreLeftOut",
     dictionary("<key>x</key><array><string>inner</string><array/><dict><key>a</key>"
                "<string>inner</string></dict><true/></array>" +
                member),
     aIsB},
    {"keyOfANestedDictionaryIsForgotten",
     dictionary("<key>a</key><dict><key>x</key><true/></dict><key>c</key><string>d</string>"),
     Members{{"c", "d"}}},
    {"lastOfTheSameKeyCounts",
     dictionary("<key>a</key><string>1</string><key>a</key><string>2</string>"),
     Members{{"a", "2"}}},
    {"lastOfTheSameKeyCountsThoughItIsNoString",
     dictionary("<key>a</key><string>1</string><key>a</key><true/>"), Members{}},
    {"lastOfTheSameKeyCountsThoughItHasKeysOfItsOwn",
     dictionary("<key>a</key><string>1</string>"
                "<key>a</key><dict><key>b</key><string>2</string></dict>"),
     Members{}},
    {"keysOfTheSameTextInOtherFormsAreTwo",
     dictionary("<key>\u00E9</key><string>1</string><key>e\u0301</key><string>2</string>"),
     Members{{"\u00E9", "1"}, {"e\u0301", "2"}}},

    {"latin1",
     "<?xml version=\"1.0\" "
     "encoding=\"ISO-8859-1\"?><dict><key>a</key><string>\xE9</string></dict>",
     Members{{"a", "\u00E9"}}},
    {"latin1BehindALineFeed",
     "\n<?xml version=\"1.0\" "
     "encoding=\"ISO-8859-1\"?><dict><key>a</key><string>\xE9</string></dict>",
     Members{{"a", "\u00E9"}}},
    {"utf8ThatSaysAnotherEncoding",
     "\xEF\xBB\xBF<?xml version=\"1.0\" "
     "encoding=\"UTF-16\"?><dict><key>a</key><string>\u00E9</string></dict>",
     Members{{"a", "\u00E9"}}},
    {"unknownEncoding", "<?xml version=\"1.0\" encoding=\"X-NONE\"?><dict>" + member + "</dict>",
     std::nullopt},

    {"nothing", "", std::nullopt},
    {"spaces", " \n", std::nullopt},
    {"text", "a = b;", std::nullopt},
    {"oldStyle", "{ a = b; }", std::nullopt},
    {"json", "{\"a\":\"b\"}", std::nullopt},
    {"headerOnly", header, std::nullopt},
    {"emptyOuterTag", header + "<plist/>", std::nullopt},
    {"rootIsAnArray", document("<array>" + member + "</array>"), std::nullopt},
    {"rootIsAString", document("<string>a</string>"), std::nullopt},
    {"rootIsAStringWithoutOuterTag", "<string>a</string>", std::nullopt},
    {"rootIsAKey", "<key>a</key>", std::nullopt},
    {"rootIsUnknown", "<html><dict>" + member + "</dict></html>", std::nullopt},
    {"twoRoots", document("<dict/><dict/>"), std::nullopt},
    {"twoDocuments", "<dict/><dict/>", std::nullopt},
    {"outerTagWithin", document("<plist><dict/></plist>"), std::nullopt},
    {"outerTagAsAValue", dictionary("<key>a</key><plist><dict/></plist>"), std::nullopt},
    {"outerTagInAnArray", dictionary("<key>a</key><array><plist/></array>"), std::nullopt},
    {"keyWithoutValue", dictionary("<key>a</key>"), std::nullopt},
    {"lastKeyWithoutValue", dictionary(member + "<key>c</key>"), std::nullopt},
    {"keyWithoutValueInANestedDictionary",
     dictionary("<key>x</key><dict><key>a</key></dict>" + member), std::nullopt},
    {"twoKeys", dictionary("<key>a</key><key>b</key><string>c</string>"), std::nullopt},
    {"valueWithoutKey", dictionary("<string>b</string>"), std::nullopt},
    {"twoValues", dictionary(member + "<string>c</string>"), std::nullopt},
    {"keyInAnArray", dictionary("<key>a</key><array><key>b</key></array>"), std::nullopt},
    {"textInADictionary", dictionary(member + "x"), std::nullopt},
    {"textInAnArray", dictionary("<key>a</key><array>x</array>"), std::nullopt},
    {"textInTheOuterTag", document("<dict/>x"), std::nullopt},
    {"tagInAString", dictionary("<key>a</key><string>b<true/></string>"), std::nullopt},
    {"tagInAKey", dictionary("<key>a<true/></key><string>b</string>"), std::nullopt},
    {"tagInANumber", dictionary("<key>a</key><integer><dict/></integer>"), std::nullopt},
    {"unknownTag", dictionary("<key>a</key><text>b</text>"), std::nullopt},
    {"commentInATag", "<di<!-- a -->ct>" + member + "</dict>", std::nullopt},
    {"commentInAnEntity", dictionary("<key>a</key><string>&am<!-- b -->p;</string>"), std::nullopt},
    {"commentWithoutEnd", "<dict>" + member + "<!-- a </dict>", std::nullopt},
    {"commentThatEndsAsItBegins", dictionary(member + "<!-->"), std::nullopt},
    {"characterDataWithoutEnd", dictionary("<key>a</key><string><![CDATA[b</string>"),
     std::nullopt},
    {"instructionWithoutEnd", dictionary(member) + "<?x", std::nullopt},
    {"tagInUpperCase", dictionary("<key>a</key><STRING>b</STRING>"), std::nullopt},
    {"endsThatCross", dictionary("<key>a<string></key>b</string>"), std::nullopt},
    {"textBehindTheEnd", dictionary(member) + "x", std::nullopt},
    {"undeclaredEntity", dictionary("<key>a</key><string>&b;</string>"), std::nullopt},
    {"undeclaredEntityWithoutDocumentType", "<dict><key>a</key><string>&b;</string></dict>",
     std::nullopt},
    {"bareAmpersand", dictionary("<key>a</key><string>b & c</string>"), std::nullopt},
    {"noUTF8", dictionary("<key>a</key><string>\xFF</string>"), std::nullopt},
    {"surrogate", dictionary("<key>a</key><string>&#xD800;</string>"), std::nullopt},
    {"aNul", dictionary("<key>a</key><string>" + std::string(1, '\0') + "</string>"), std::nullopt},
    {"entityOfNul", dictionary("<key>a</key><string>&#0;</string>"), std::nullopt},

    {"declaredEntity",
     "<!DOCTYPE plist [<!ENTITY e \"b\">]><dict><key>a</key><string>&e;</string></dict>",
     std::nullopt},
    {"declaredEntityThatIsNotUsed",
     "<!DOCTYPE plist [<!ENTITY e \"b\">]><dict>" + member + "</dict>", std::nullopt},
    {"entityOfAFile",
     "<!DOCTYPE plist [<!ENTITY e SYSTEM \"file:///etc/hostname\">]>"
     "<dict><key>a</key><string>&e;</string></dict>",
     std::nullopt},
    {"entityForDocumentTypes",
     "<!DOCTYPE plist [<!ENTITY % e SYSTEM \"file:///etc/hostname\"> %e;]><dict>" + member +
         "</dict>",
     std::nullopt},
    {"undeclaredEntityForDocumentTypes",
     "<!DOCTYPE plist SYSTEM \"x\" [%e; <!ENTITY f "
     "\"b\">]><dict><key>a</key><string>&f;</string></dict>",
     std::nullopt},
};

class PropertyListXML : public testing::TestWithParam<XMLCase> {};
TEST_P(PropertyListXML, givesItsStringsOrNothing) {
  EXPECT_EQ(strings(GetParam().bytes), GetParam().members);
}
INSTANTIATE_TEST_SUITE_P(PropertyList, PropertyListXML, testing::ValuesIn(xmlCases), named);

/// UTF-16 with its byte-order mark.
std::string inUTF16(std::u16string_view text, bool littleEndian) {
  std::string bytes;
  for (const char16_t unit : u"\uFEFF" + std::u16string(text)) {
    const char high = static_cast<char>(unit >> 8U);
    const char low = static_cast<char>(unit & 0xFFU);
    bytes += littleEndian ? low : high;
    bytes += littleEndian ? high : low;
  }
  return bytes;
}

TEST(PropertyListXML, isReadInUTF16) {
  for (const bool littleEndian : {false, true}) {
    const std::string bytes = inUTF16(u"<dict><key>a</key><string>b</string></dict>", littleEndian);
    EXPECT_EQ(strings(bytes), aIsB);
    EXPECT_EQ(strings(bytes.substr(2)), aIsB);  // without the mark
    EXPECT_EQ(strings(bytes.substr(0, bytes.size() - 1)), std::nullopt);
    EXPECT_EQ(strings(bytes + '\n'), std::nullopt);
    EXPECT_EQ(strings(inUTF16(u"<dict><key>\u00E9</key><string>\u20AC\U0001F426</string></dict>",
                              littleEndian)),
              (Members{{"\u00E9", "\u20AC\U0001F426"}}));
    EXPECT_EQ(strings(inUTF16(u"", littleEndian)), std::nullopt);
  }
}

TEST(PropertyListXML, isReadInUTF16WhateverItsDeclarationSays) {
  for (const std::u16string said : {u"UTF-16", u"utf-8", u"UTF-16LE", u"ISO-8859-1", u"X-NONE"}) {
    for (const bool littleEndian : {false, true}) {
      const std::u16string text = u"\r\n<?xml version=\"1.0\" encoding=\"" + said +
                                  u"\"?><!-- -- --><dict><key>a</key><string>b</string></dict>";
      EXPECT_EQ(strings(inUTF16(text, littleEndian)), aIsB);
    }
  }
}

TEST(PropertyListXML, cutAnywhereIsNothing) {
  const std::string whole = dictionary(member + "<key>c</key><array><true/></array>");
  ASSERT_TRUE(strings(whole));
  const std::size_t end = whole.rfind('>');
  for (std::size_t size = 0; size <= end; ++size) {
    EXPECT_EQ(strings(whole.substr(0, size)), std::nullopt) << size;
  }
}

TEST(PropertyListXML, isReadUpTo512Levels) {
  const auto nested = [](std::size_t arrays) {
    return dictionary("<key>x</key>" + repeated("<array>", arrays) + repeated("</array>", arrays) +
                      member);
  };
  EXPECT_EQ(strings(nested(511)), aIsB);
  EXPECT_EQ(strings(nested(512)), std::nullopt);
  EXPECT_EQ(strings(nested(100'000)), std::nullopt);
  EXPECT_EQ(strings(dictionary("<key>x</key>" + repeated("<array>", 100'000))), std::nullopt);
  const std::string deep = repeated("<dict><key>x</key>", 511);
  EXPECT_EQ(
      strings(dictionary("<key>x</key>" + deep + "<true/>" + repeated("</dict>", 511) + member)),
      aIsB);
  EXPECT_EQ(strings(repeated("<dict><key>x</key>", 100'000)), std::nullopt);
  EXPECT_EQ(strings(repeated("<a>", 100'000)), std::nullopt);
  EXPECT_EQ(
      strings(repeated("<!-- <dict> -->", 100'000) + dictionary(member).substr(header.size())),
      aIsB);
}

TEST(PropertyListXML, expandsNoBillionLaughs) {
  std::string bytes = "<!DOCTYPE plist [<!ENTITY a0 \"ha\">";
  for (int level = 1; level < 30; ++level) {
    const std::string before = "&a" + std::to_string(level - 1) + ";";
    bytes += "<!ENTITY a" + std::to_string(level) + " \"" + repeated(before, 10) + "\">";
  }
  bytes += "]><dict><key>a</key><string>&a29;</string></dict>";
  EXPECT_EQ(strings(bytes), std::nullopt);
}

TEST(PropertyListXML, isReadInMegabytes) {
  const std::string text = repeated("long &amp; ", 500'000);
  const auto members = strings(dictionary("<key>a</key><string>" + text + "</string>"));
  ASSERT_TRUE(members);
  EXPECT_EQ(members->at("a"), repeated("long & ", 500'000));
  std::string many;
  for (int index = 0; index < 50'000; ++index) {
    many += "<key>" + std::to_string(index) + "</key><string>x</string>";
  }
  EXPECT_EQ(strings(dictionary(many))->size(), 50'000U);
  EXPECT_EQ(strings(repeated("&", 1'000'000)), std::nullopt);
  EXPECT_EQ(strings(repeated("<", 1'000'000)), std::nullopt);
  EXPECT_EQ(strings("<dict a=\"" + repeated("x", 1'000'000)), std::nullopt);
}

TEST(PropertyListXML, survivesMutations) {
  std::mt19937 random(1);
  const std::string whole = dictionary(member +
                                       "<key>c&amp;</key><array><integer>1</integer><dict/></array>"
                                       "<!-- d --><key>e</key><string><![CDATA[f]]></string>");
  for (int round = 0; round < 20'000; ++round) expectUTF8(strings(mutated(whole, random)));
}

// ---- The binary form ----------------------------------------------------------------------------

std::string bigEndian(std::uint64_t number, std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t place = size; place > 0; number >>= 8U) {
    bytes[--place] = static_cast<char>(number & 0xFFU);
  }
  return bytes;
}

char marker(int type, std::uint64_t low) {
  return static_cast<char>(type * 16 + static_cast<int>(low));
}

/// A marker with its count, which stands in the marker or in an integer of `width` bytes.
std::string counted(int type, std::uint64_t count, std::size_t width = 0) {
  if (width == 0 && count < 15) return {marker(type, count)};
  if (width == 0) width = 4;
  const std::uint64_t exponent = width == 1 ? 0 : width == 2 ? 1 : width == 4 ? 2 : 3;
  return std::string{marker(type, 15), marker(1, exponent)} + bigEndian(count, width);
}

std::string ascii(std::string_view text) { return counted(5, text.size()) + std::string(text); }

std::string utf16(std::u16string_view text) {
  std::string bytes = counted(6, text.size());
  for (const char16_t unit : text) bytes += bigEndian(unit, 2);
  return bytes;
}

/// A binary property list, object by object, any part of which can be set wrong.
struct Binary {
  std::vector<std::string> objects{};
  std::size_t offsetSize = 2;
  std::size_t referenceSize = 1;
  std::string magic = "bplist00";
  // What the trailer says, when it is not what it should be.
  std::optional<std::uint64_t> offsetSizeSaid{};
  std::optional<std::uint64_t> referenceSizeSaid{};
  std::optional<std::uint64_t> countSaid{};
  std::optional<std::uint64_t> tableSaid{};
  std::uint64_t top = 0;
  std::map<std::size_t, std::uint64_t> offsetsSaid{};  ///< By the object's number.

  std::string dictionary(const std::vector<std::uint64_t>& keys,
                         const std::vector<std::uint64_t>& values) const {
    return counted(13, keys.size()) + references(keys) + references(values);
  }
  std::string array(const std::vector<std::uint64_t>& members) const {
    return counted(10, members.size()) + references(members);
  }
  std::string references(const std::vector<std::uint64_t>& numbers) const {
    std::string bytes;
    for (const std::uint64_t number : numbers) bytes += bigEndian(number, referenceSize);
    return bytes;
  }

  std::string bytes() const {
    std::string result = magic;
    std::string table;
    for (std::size_t number = 0; number < objects.size(); ++number) {
      const auto said = offsetsSaid.find(number);
      table += bigEndian(said == offsetsSaid.end() ? result.size() : said->second, offsetSize);
      result += objects[number];
    }
    const std::size_t tableStart = result.size();
    return result + table + std::string(6, '\0') +
           bigEndian(offsetSizeSaid.value_or(offsetSize), 1) +
           bigEndian(referenceSizeSaid.value_or(referenceSize), 1) +
           bigEndian(countSaid.value_or(objects.size()), 8) + bigEndian(top, 8) +
           bigEndian(tableSaid.value_or(tableStart), 8);
  }
};

/// {"a": "b"}, of which each case changes something.
Binary simple() {
  Binary list;
  list.objects = {list.dictionary({1}, {2}), ascii("a"), ascii("b")};
  return list;
}

/// One member "a" whose value is the given object.
Binary withValue(const std::string& value) {
  Binary list = simple();
  list.objects[2] = value;
  return list;
}
Binary withRoot(const std::string& root) {
  Binary list = simple();
  list.objects[0] = root;
  return list;
}

struct BinaryCase {
  const char* name;
  std::string bytes;
  std::optional<Members> members;
};

template <class Change>
std::string changed(Change change) {
  Binary list = simple();
  change(list);
  return list.bytes();
}

const std::uint64_t most = std::numeric_limits<std::uint64_t>::max();

const BinaryCase binaryCases[] = {
    {"simple", simple().bytes(), aIsB},
    {"emptyDictionary", withRoot("\xD0").bytes(), Members{}},
    {"emptyString", withValue(ascii("")).bytes(), Members{{"a", ""}}},
    {"stringOf14", withValue(ascii(repeated("x", 14))).bytes(), Members{{"a", repeated("x", 14)}}},
    {"stringOf15", withValue(ascii(repeated("x", 15))).bytes(), Members{{"a", repeated("x", 15)}}},
    {"countOfOneByte", withValue(counted(5, 200, 1) + repeated("x", 200)).bytes(),
     Members{{"a", repeated("x", 200)}}},
    {"countOfTwoBytes", withValue(counted(5, 300, 2) + repeated("x", 300)).bytes(),
     Members{{"a", repeated("x", 300)}}},
    {"countOfFourBytes", withValue(counted(5, 1, 4) + "x").bytes(), Members{{"a", "x"}}},
    {"countOfEightBytes", withValue(counted(6, 1, 8) + bigEndian(0x20AC, 2)).bytes(),
     Members{{"a", "\u20AC"}}},
    {"countOfADictionary", withRoot(counted(13, 1, 8) + "\x01\x02").bytes(), aIsB},
    {"utf16", withValue(utf16(u"caf\u00E9 \u20AC")).bytes(), Members{{"a", "caf\u00E9 \u20AC"}}},
    {"utf16Key", changed([](Binary& list) { list.objects[1] = utf16(u"\u00E9"); }),
     Members{{"\u00E9", "b"}}},
    {"utf16OfNothing", withValue(utf16(u"")).bytes(), Members{{"a", ""}}},
    {"utf16WithPairs", withValue(utf16(u"x\U0001F600\U0010FFFFy")).bytes(),
     Members{{"a", "x\U0001F600\U0010FFFFy"}}},
    {"utf16WithANul", withValue(utf16(std::u16string_view(u"x\0y", 3))).bytes(),
     Members{{"a", std::string("x\0y", 3)}}},
    {"loneHighSurrogate", withValue(counted(6, 2) + "\xD8\x3D" + std::string("\0x", 2)).bytes(),
     Members{{"a", "\uFFFDx"}}},
    {"loneHighSurrogateAtTheEnd", withValue(counted(6, 1) + "\xD8\x3D").bytes(),
     Members{{"a", "\uFFFD"}}},
    {"loneLowSurrogate", withValue(counted(6, 1) + "\xDE\x01").bytes(), Members{{"a", "\uFFFD"}}},
    {"surrogatesInTheWrongOrder", withValue(counted(6, 2) + "\xDE\x01\xD8\x3D").bytes(),
     Members{{"a", "\uFFFD\uFFFD"}}},
    {"twoHighSurrogatesAndALow", withValue(counted(6, 3) + "\xD8\x3D\xD8\x3D\xDE\x01").bytes(),
     Members{{"a", "\uFFFD\U0001F601"}}},
    {"asciiThatIsNone", withValue(ascii("x\xFFy")).bytes(), Members{{"a", "x\uFFFDy"}}},
    {"versionsOfTheFormat", changed([](Binary& list) { list.magic = "bplist01"; }), aIsB},

    {"null", withValue(std::string(1, '\0')).bytes(), Members{}},
    {"false", withValue("\x08").bytes(), Members{}},
    {"true", withValue("\x09").bytes(), Members{}},
    {"integer", withValue("\x10\x05").bytes(), Members{}},
    {"real", withValue("\x22\x3F\x80\x01\x01").bytes(), Members{}},
    {"date", withValue("\x33" + repeated("x", 8)).bytes(), Members{}},
    {"data", withValue("\x42xy").bytes(), Members{}},
    {"identifier", withValue("\x80\x01").bytes(), Members{}},
    {"array", withValue(Binary().array({1, 1})).bytes(), Members{}},
    {"set", withValue("\xC1\x01").bytes(), Members{}},
    {"dictionary", withValue(Binary().dictionary({1}, {1})).bytes(), Members{}},
    {"unknownType", withValue("\xF0").bytes(), Members{}},
    {"fillThatSaysThatACountFollows", withValue("\x0F").bytes(), Members{}},
    {"integerThatSaysThatACountFollows", withValue("\x1F").bytes(), Members{}},
    {"integerOf16Bytes", withValue("\x14" + repeated("x", 16)).bytes(), Members{}},
    {"integerOfTooManyBytes", withValue("\x1E").bytes(), Members{}},
    {"realThatSaysThatACountFollows", withValue("\x2F").bytes(), Members{}},
    {"dateOfAnotherSize", withValue("\x30").bytes(), Members{}},
    {"dateThatSaysThatACountFollows", withValue("\x3F").bytes(), Members{}},
    {"dataWhoseCountIsNoInteger", withValue("\x4F\x20").bytes(), Members{}},
    {"dataThatReachesTheTable", withValue("\x4E").bytes(), Members{}},
    {"dataOfTheLargestCount", withValue(counted(4, most, 8)).bytes(), Members{}},
    {"identifierOf16Bytes", withValue("\x8F" + repeated("x", 16)).bytes(), Members{}},
    {"itself", withRoot(Binary().dictionary({1}, {0})).bytes(), Members{}},
    {"itselfAndAString", withRoot(Binary().dictionary({2, 1}, {0, 2})).bytes(), aIsB},
    {"itsOwnKey", withRoot(Binary().dictionary({0}, {1})).bytes(), std::nullopt},
    {"theSameStringTwice", withRoot(Binary().dictionary({1, 2}, {1, 1})).bytes(),
     Members{{"a", "a"}, {"b", "a"}}},
    {"lastOfTheSameKeyCounts", withRoot(Binary().dictionary({1, 1}, {1, 2})).bytes(), aIsB},
    {"lastOfTheSameKeyCountsThoughItIsNoString",
     withRoot(Binary().dictionary({1, 1}, {2, 0})).bytes(), Members{}},

    {"anotherTop", changed([](Binary& list) {
       std::swap(list.objects[0], list.objects[2]);
       list.objects[2] = list.dictionary({1}, {0});
       list.top = 2;
     }),
     aIsB},
    {"topIsAString", changed([](Binary& list) { list.top = 1; }), std::nullopt},
    {"topIsAnArray", withRoot(Binary().array({1, 2})).bytes(), std::nullopt},
    {"topIsAnArrayThatReadsLikeADictionary", withRoot("\xA1\x01\x02").bytes(), std::nullopt},
    {"topIsNone", changed([](Binary& list) { list.top = 3; }), std::nullopt},
    {"topIsTheLargestNumber", changed([](Binary& list) { list.top = most; }), std::nullopt},
    {"keyIsAnInteger", changed([](Binary& list) { list.objects[1] = "\x10\x05"; }), std::nullopt},
    {"keyIsNone", withRoot(Binary().dictionary({3}, {2})).bytes(), std::nullopt},
    {"valueIsNone", withRoot(Binary().dictionary({1}, {3})).bytes(), std::nullopt},
    {"valueIsTheLargestNumber", withRoot(Binary().dictionary({1}, {255})).bytes(), std::nullopt},

    {"magicOnly", "bplist00", std::nullopt},
    {"magicAndATrailerOfZeros", "bplist00" + std::string(32, '\0'), std::nullopt},
    {"anotherMagic", changed([](Binary& list) { list.magic = "bplist10"; }), std::nullopt},
    {"offsetsOfNoByte", changed([](Binary& list) { list.offsetSizeSaid = 0; }), std::nullopt},
    {"offsetsOf9Bytes", changed([](Binary& list) { list.offsetSizeSaid = 9; }), std::nullopt},
    {"offsetsOf255Bytes", changed([](Binary& list) { list.offsetSizeSaid = 255; }), std::nullopt},
    {"referencesOfNoByte", changed([](Binary& list) { list.referenceSizeSaid = 0; }), std::nullopt},
    {"referencesOf9Bytes", changed([](Binary& list) { list.referenceSizeSaid = 9; }), std::nullopt},
    {"referencesLongerThanWritten", changed([](Binary& list) { list.referenceSizeSaid = 8; }),
     std::nullopt},
    {"noObjects", changed([](Binary& list) { list.countSaid = 0; }), std::nullopt},
    {"fewerObjects", changed([](Binary& list) { list.countSaid = 2; }), std::nullopt},
    {"oneObjectMore", changed([](Binary& list) { list.countSaid = 4; }), std::nullopt},
    {"objectsThatOverflow", changed([](Binary& list) { list.countSaid = most; }), std::nullopt},
    {"objectsThatOverflowToFew", changed([](Binary& list) { list.countSaid = (1ULL << 63U) + 3; }),
     std::nullopt},
    {"tableInTheHeader", changed([](Binary& list) { list.tableSaid = 7; }), std::nullopt},
    {"tableBehindTheHeader", changed([](Binary& list) { list.tableSaid = 8; }), std::nullopt},
    {"tableInTheTrailer", changed([](Binary& list) { list.tableSaid = 8 + 7 + 6 + 1; }),
     std::nullopt},
    {"tableBeyondTheFile", changed([](Binary& list) { list.tableSaid = 10'000; }), std::nullopt},
    {"tableAtTheLargestNumber", changed([](Binary& list) { list.tableSaid = most; }), std::nullopt},
    {"objectInTheHeader", changed([](Binary& list) { list.offsetsSaid[2] = 7; }), std::nullopt},
    {"objectAtTheStart", changed([](Binary& list) { list.offsetsSaid[0] = 0; }), std::nullopt},
    {"objectInTheTable", changed([](Binary& list) { list.offsetsSaid[2] = 8 + 7; }), std::nullopt},
    {"objectBeyondTheFile", changed([](Binary& list) { list.offsetsSaid[2] = 60'000; }),
     std::nullopt},
    {"objectAtTheLargestNumber", changed([](Binary& list) {
       list.offsetSize = 8;
       list.offsetsSaid[1] = most;
     }),
     std::nullopt},
    {"objectsInOnePlace", changed([](Binary& list) { list.offsetsSaid[2] = 8 + 3; }),
     Members{{"a", "a"}}},

    {"stringThatReachesTheTable", withValue(counted(5, 2) + "b").bytes(), std::nullopt},
    {"stringOfTheLargestCount", withValue(counted(5, most, 8) + "b").bytes(), std::nullopt},
    {"utf16OfTheLargestCount", withValue(counted(6, most, 8) + "bb").bytes(), std::nullopt},
    {"utf16WhoseBytesOverflow", withValue(counted(6, (1ULL << 63U) + 1, 8) + "bb").bytes(),
     std::nullopt},
    {"utf16OfHalfAUnit", withValue(counted(6, 1) + "b").bytes(), std::nullopt},
    {"countThatIsNoInteger",
     withValue("\x5F\x20\x01"
               "b")
         .bytes(),
     std::nullopt},
    {"countOf16Bytes",
     withValue("\x5F\x14" + std::string(15, '\0') +
               "\x01"
               "b")
         .bytes(),
     std::nullopt},
    {"countThatIsMissing", withValue("\x5F").bytes(), std::nullopt},
    {"countThatIsCut", withValue(std::string("\x5F\x12\0\0", 4)).bytes(), std::nullopt},
    {"keyThatReachesTheTable", changed([](Binary& list) {
       std::swap(list.objects[1], list.objects[2]);
       list.objects[0] = list.dictionary({2}, {1});
       list.objects[2] = counted(5, 14) + "a";
     }),
     std::nullopt},
    {"dictionaryThatReachesTheTable", withRoot(counted(13, 4) + "\x01\x02").bytes(), std::nullopt},
    {"dictionaryOfTheLargestCount", withRoot(counted(13, most, 8) + "\x01\x02").bytes(),
     std::nullopt},
    {"dictionaryWhoseReferencesOverflow",
     withRoot(counted(13, (1ULL << 63U) + 1, 8) + "\x01\x02").bytes(), std::nullopt},
};

class PropertyListBinary : public testing::TestWithParam<BinaryCase> {};
TEST_P(PropertyListBinary, givesItsStringsOrNothing) {
  EXPECT_EQ(strings(GetParam().bytes), GetParam().members);
}
INSTANTIATE_TEST_SUITE_P(PropertyList, PropertyListBinary, testing::ValuesIn(binaryCases), named);

TEST(PropertyListBinary, isReadWithNumbersOfAnySize) {
  for (std::size_t offsetSize = 1; offsetSize <= 8; ++offsetSize) {
    for (std::size_t referenceSize = 1; referenceSize <= 8; ++referenceSize) {
      Binary list{.offsetSize = offsetSize, .referenceSize = referenceSize};
      list.objects = {ascii("a"), list.dictionary({0, 2}, {2, 3}), ascii("b"), utf16(u"\u00E9")};
      list.top = 1;
      EXPECT_EQ(strings(list.bytes()), (Members{{"a", "b"}, {"b", "\u00E9"}}));
    }
  }
}

TEST(PropertyListBinary, isReadWithManyMembers) {
  Binary list{.offsetSize = 3, .referenceSize = 2};
  std::vector<std::uint64_t> keys;
  std::vector<std::uint64_t> values;
  Members expected;
  list.objects.emplace_back();
  for (int index = 0; index < 5000; ++index) {
    const std::string key = "key " + std::to_string(index);
    const std::string value = repeated("v", static_cast<std::size_t>(index % 40));
    expected[key] = value;
    keys.push_back(list.objects.size());
    list.objects.push_back(ascii(key));
    values.push_back(list.objects.size());
    list.objects.push_back(ascii(value));
  }
  list.objects[0] = list.dictionary(keys, values);
  EXPECT_EQ(strings(list.bytes()), expected);
}

TEST(PropertyListBinary, cutAnywhereIsNothing) {
  Binary list = simple();
  list.objects.push_back(list.array({1, 2}));
  list.objects.push_back(utf16(u"\u00E9"));
  const std::string whole = list.bytes();
  ASSERT_TRUE(strings(whole));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(strings(whole.substr(0, size)), std::nullopt) << size;
    EXPECT_EQ(strings(whole.substr(whole.size() - size)), std::nullopt) << size;
  }
}

TEST(PropertyListBinary, refusesMoreThan16MiBOfText) {
  // One string of a megabyte, named again and again: a small file must not become a big table.
  const auto shared = [](std::size_t size) {
    constexpr std::size_t members = 16;
    Binary list{.offsetSize = 4};
    std::vector<std::uint64_t> keys;
    list.objects = {"", ascii(repeated("x", size))};
    for (std::size_t index = 0; index < members; ++index) {
      keys.push_back(list.objects.size());
      list.objects.push_back(ascii(std::string(1, static_cast<char>('a' + index))));
    }
    list.objects[0] = list.dictionary(keys, std::vector<std::uint64_t>(members, 1));
    return list.bytes();
  };
  constexpr std::size_t mebibyte = 1'048'576;
  const auto members = strings(shared(mebibyte - 1));  // and one byte for each key
  ASSERT_TRUE(members);
  EXPECT_EQ(members->size(), 16U);
  EXPECT_EQ(strings(shared(mebibyte)), std::nullopt);
}

TEST(PropertyListBinary, refusesOffsetsOf9BytesThoughTheyAreThere) {
  Binary list = simple();
  list.offsetSize = 8;
  EXPECT_EQ(strings(list.bytes()), aIsB);
  list.offsetSize = 9;
  EXPECT_EQ(strings(list.bytes()), std::nullopt);
}

TEST(PropertyListBinary, readsNoCountFromTheTable) {
  // A string whose count would have to follow, right before a table that begins like an integer.
  Binary list{.offsetSize = 1};
  list.objects = {ascii("fillers"), list.dictionary({2}, {3}), ascii("a"), "\x5F"};
  list.offsetsSaid[0] = 0x10;
  list.top = 1;
  EXPECT_EQ(strings(list.bytes()), std::nullopt);
}

TEST(PropertyListBinary, isNotLedInCircles) {
  // 100,000 arrays, each within the one before, and the last within the first.
  Binary list{.offsetSize = 4, .referenceSize = 4};
  const std::size_t depth = 100'000;
  list.objects = {list.dictionary({1, 2}, {2, 3}), ascii("a"), ascii("b")};
  for (std::size_t number = 3; number < depth; ++number) {
    list.objects.push_back(list.array({number + 1}));
  }
  list.objects.push_back(list.array({0}));
  EXPECT_EQ(strings(list.bytes()), aIsB);
}

TEST(PropertyListBinary, survivesEveryByteInEveryPlace) {
  const std::string whole = simple().bytes();
  for (std::size_t place = 0; place < whole.size(); ++place) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string bytes = whole;
      bytes[place] = static_cast<char>(byte);
      expectUTF8(strings(bytes));
    }
  }
}

TEST(PropertyListBinary, survivesMutations) {
  Binary list = simple();
  list.objects[0] = list.dictionary({1, 3, 4}, {2, 4, 5});
  list.objects.push_back(utf16(u"\u00E9\U0001F600"));
  list.objects.push_back(ascii(repeated("long ", 20)));
  list.objects.push_back(list.array({0, 1, 2}));
  const std::string whole = list.bytes();
  ASSERT_TRUE(strings(whole));
  std::mt19937 random(2);
  for (int round = 0; round < 100'000; ++round) expectUTF8(strings(mutated(whole, random)));
}

// ---- Files of other writers ---------------------------------------------------------------------

TEST(PropertyListFile, isReadInBothForms) {
  const Members expected = {{"CFBundleDisplayName", "Corvane \u2013 D\u00E9v \U0001F426"},
                            {"CFBundleIdentifier", "example.corvane.dev"},
                            {"CFBundleShortVersionString", "1.2.3 (long enough & <odd>)"},
                            {"CFBundleVersion", "123"},
                            {"Empty", ""}};
  EXPECT_EQ(strings(fileOfCorpus("y_information.xml")), expected);
  EXPECT_EQ(strings(fileOfCorpus("y_information.binary")), expected);
}

TEST(PropertyListFile, isTheSameInEveryShapeThatApplicationsHave) {
  const Members expected = {{"BuildMachineOSBuild", "24A335"},
                            {"CFBundleDevelopmentRegion", "en"},
                            {"CFBundleDisplayName", "Corvane D\u00E9v \U0001F426"},
                            {"CFBundleExecutable", "Corvane"},
                            {"CFBundleIdentifier", "example.corvane.dev"},
                            {"CFBundleInfoDictionaryVersion", "6.0"},
                            {"CFBundleName", "Corvane"},
                            {"CFBundlePackageType", "APPL"},
                            {"CFBundleShortVersionString", "1.4.2"},
                            {"CFBundleVersion", "1402"},
                            {"LSMinimumSystemVersion", "13.0"},
                            {"NSHumanReadableCopyright", "Copyright \u00A9 2026 Ada & <friends>"}};
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("y_application")) continue;
    EXPECT_EQ(strings(fileOfCorpus(name)), expected) << name;
    ++files;
  }
  EXPECT_GE(files, 12U);
}

TEST(PropertyListFile, isReadOrRefusedAsItsNameSays) {
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
    const std::string name = entry.path().filename();
    EXPECT_TRUE(name.starts_with("y_") || name.starts_with("n_")) << name;
    EXPECT_EQ(strings(fileOfCorpus(name)).has_value(), name.starts_with("y_")) << name;
    ++files;
  }
  EXPECT_GE(files, 20U);
}

}  // namespace
