#include "CorvaneControl/ControlProtocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <span>
#include <unordered_set>

namespace CorvaneControl {
namespace {

constexpr auto named = [](const auto& info) { return std::string(info.param.name); };

using Members = std::map<std::string, std::string>;

std::string object(const Members& members) {
  std::string text = "{";
  for (const auto& [key, value] : members) {
    text += (text.size() > 1 ? ",\"" : "\"") + key + "\":" + value;
  }
  return text + "}";
}

/// The record that a text decodes to, written again; nothing when it does not decode.
template <class Record>
std::optional<std::string> recoded(const std::string& text) {
  const auto record = ControlCoding::decode<Record>(text);
  if (!record) return std::nullopt;
  std::string line = ControlCoding::line(*record);
  EXPECT_TRUE(line.ends_with('\n'));
  line.pop_back();
  return line;
}

const std::string id = R"("0A1B2C3D-0000-4000-8000-00000000000F")";
const std::string attention = R"({"agent":"claude","kind":"done","since":"2025-01-02T03:04:05Z"})";
const std::string workspace =
    R"({"active":true,"id":)" + id + R"(,"name":"Mail","section":"Work","windows":2})";
const std::string card = R"({"action":"run","complete":true,"lines":[],"subject":"ls"})";
const std::string pane = R"({"pane":)" + id + R"(,"tab":)" + id + "}";

/// What a field takes: values that are read and written back as they are, and one of every other
/// kind, each of which fails the whole record.
struct FieldCase {
  std::string key;
  bool required;
  std::vector<std::string> good;
  std::vector<std::string> bad;
};

const std::vector<std::string> notStrings = {"true", "1", "1.5", "[]", "{}", "[\"a\"]"};
const std::vector<std::string> notBooleans = {"0", "1", "\"true\"", "[]", "{}", "1.0"};
const std::vector<std::string> notIntegers = {"true", "false", "\"1\"", "[]",  "{}",
                                              "1.5",  "1e400", "[1]",   "1e30"};
const std::vector<std::string> notObjects = {"true", "1", "\"a\"", "[]", "[{}]"};
const std::vector<std::string> notArrays = {"true", "1", "\"a\"", "{}"};

std::vector<std::string> notOneOf(std::initializer_list<const char*> others) {
  std::vector<std::string> values = notStrings;
  for (const char* const other : others) values.push_back("\"" + std::string(other) + "\"");
  return values;
}

std::vector<std::string> with(std::vector<std::string> values,
                              std::initializer_list<std::string> others) {
  values.insert(values.end(), others);
  return values;
}

const std::vector<std::string> notIdentifiers =
    notOneOf({"", "x", "0A1B2C3D-0000-4000-8000-00000000000",
              "0A1B2C3D-0000-4000-8000-00000000000F0", "0A1B2C3D00004000800000000000000F",
              "{0A1B2C3D-0000-4000-8000-00000000000F}", "0A1B2C3D-0000-4000-8000-00000000000G"});
const std::vector<std::string> notDates =
    notOneOf({"", "2025-01-02", "2025-01-02T03:04:05", "2025-01-02T03:04:05.5Z",
              "2025-02-29T03:04:05Z", "2025-01-02 03:04:05Z", "2025-01-02T24:00:00Z"});

template <class Record>
void checkFields(const std::vector<FieldCase>& fields) {
  // Every field of the record has a row, and every row a field.
  std::vector<std::string> keys;
  std::apply([&](const auto&... field) { (keys.emplace_back(field.key), ...); }, Record::fields);
  ASSERT_EQ(keys.size(), fields.size());

  Members all;
  Members required;
  for (const FieldCase& field : fields) {
    EXPECT_NE(std::ranges::find(keys, field.key), keys.end()) << field.key;
    all[field.key] = field.good.front();
    if (field.required) required[field.key] = field.good.front();
  }
  EXPECT_EQ(recoded<Record>(object(all)), object(all));
  EXPECT_EQ(recoded<Record>(object(required)), object(required));

  Members unknown = all;
  unknown["aUnknown"] = "{\"x\":[1]}";
  unknown["zUnknown"] = "null";
  EXPECT_EQ(recoded<Record>(object(unknown)), object(all));

  for (const FieldCase& field : fields) {
    SCOPED_TRACE(field.key);
    Members without = all;
    without.erase(field.key);
    Members null = all;
    null[field.key] = "null";
    const auto absent = field.required ? std::nullopt : std::optional(object(without));
    EXPECT_EQ(recoded<Record>(object(without)), absent);
    EXPECT_EQ(recoded<Record>(object(null)), absent);
    for (const std::string& value : field.good) {
      Members members = all;
      members[field.key] = value;
      EXPECT_EQ(recoded<Record>(object(members)), object(members)) << value;
    }
    for (const std::string& value : field.bad) {
      Members members = all;
      members[field.key] = value;
      EXPECT_EQ(recoded<Record>(object(members)), std::nullopt) << value;
      const auto failed = ControlCoding::decode<Record>(object(members));
      if (value != "1e400") {  // that one is no JSON
        EXPECT_TRUE(failed.failure().description.starts_with(field.key)) << value;
      }
    }
  }
  for (const char* const text : {"", "null", "[]", "1", "\"a\"", "{", "{}x"}) {
    EXPECT_EQ(recoded<Record>(text), std::nullopt) << text;
  }
}

TEST(ControlProtocol, everyFieldOfARequest) {
  checkFields<ControlRequest>({
      {"command",
       true,
       {"\"notify\"", "\"list\"", "\"current\"", "\"switch\"", "\"launch\"", "\"stop\"",
        "\"subscribe\""},
       notOneOf({"", "Notify", "notify ", "switchTo", "help"})},
      {"workspace", false, {"\"Mail\"", "\"\"", "\"a/b\"", "\"-\""}, notStrings},
      {"agent", false, {"\"claude\"", "\"\""}, notStrings},
      {"cwd", false, {"\"/tmp/w\""}, notStrings},
      {"kind",
       false,
       {"\"needs-input\"", "\"done\""},
       notOneOf({"", "needsInput", "needs_input", "Done"})},
      {"message", false, {"\"Hello\\nthere\""}, notStrings},
      {"session", false, {"\"s-1\""}, notStrings},
      {"process",
       false,
       {"4711", "0", "-1", "2147483647", "-2147483648"},
       with(notIntegers, {"2147483648", "-2147483649"})},
      {"cmux", false, {pane}, with(notObjects, {"{}", R"({"tab":)" + id + "}"})},
      {"activity",
       false,
       {"\"started\"", "\"working\"", "\"ended\""},
       notOneOf({"", "Started", "idle"})},
      {"task", false, {"\"Do it\""}, notStrings},
      {"permission", false, {card}, with(notObjects, {"{}", R"({"action":"run"})"})},
      {"toolCall", false, {"\"1f\""}, notStrings},
  });
}

TEST(ControlProtocol, everyFieldOfAResponse) {
  checkFields<ControlResponse>({
      {"ok", true, {"true", "false"}, notBooleans},
      {"error", false, {"\"boom\"", "\"\""}, notStrings},
      {"paused", false, {"true", "false"}, notBooleans},
      {"workspace", false, {workspace}, with(notObjects, {"{}"})},
      {"workspaces",
       false,
       {"[]", "[" + workspace + "," + workspace + "]"},
       with(notArrays, {"[null]", "[{}]", "[1]"})},
      {"decision", false, {"\"allowed\"", "\"denied\""}, notOneOf({"", "allow", "Allowed"})},
      {"choices",
       false,
       {"[]", "[[]]", "[[0],[1,2]]", "[[-1]]"},
       with(notArrays, {"[1]", "[[\"0\"]]", "[[true]]", "[[0.5]]", "[null]", "[[null]]"})},
      {"approval", false, {"\"auto\"", "\"manual\""}, notOneOf({"", "automatic", "Auto"})},
  });
}

TEST(ControlProtocol, everyFieldOfAnEvent) {
  checkFields<ControlEvent>({
      {"event",
       true,
       {"\"workspace\"", "\"paused\"", "\"attention\""},
       notOneOf({"", "other", "Workspace"})},
      {"workspace", false, {workspace}, with(notObjects, {"{}"})},
  });
}

TEST(ControlProtocol, everyFieldOfAWorkspaceSummary) {
  checkFields<WorkspaceSummary>({
      {"id", true, {id}, notIdentifiers},
      {"name", true, {"\"Mail\"", "\"\"", "\"⌥é😀\""}, notStrings},
      {"section", true, {"\"Work\""}, notStrings},
      {"active", true, {"true", "false"}, notBooleans},
      {"shortcut", false, {"\"⌥1\"", "\"\""}, notStrings},
      {"windows",
       true,
       {"2", "0", "-1", "9223372036854775807", "-9223372036854775808"},
       with(notIntegers, {"9223372036854775808", "-9223372036854775809", "18446744073709551616"})},
      {"project", false, {"\"/tmp/w\""}, notStrings},
      {"attention", false, {attention}, with(notObjects, {"{}"})},
  });
}

TEST(ControlProtocol, everyFieldOfAnAttention) {
  checkFields<Attention>({
      {"agent", true, {"\"claude\"", "\"\""}, notStrings},
      {"kind", true, {"\"needs-input\"", "\"done\""}, notOneOf({"", "needsInput"})},
      {"message", false, {"\"Hello\""}, notStrings},
      {"since", true, {"\"2025-01-02T03:04:05Z\"", "\"2024-02-29T23:59:59Z\""}, notDates},
      {"session", false, {"\"s\""}, notStrings},
      {"folder", false, {"\"/tmp\""}, notStrings},
  });
}

TEST(ControlProtocol, everyFieldOfACmuxPane) {
  checkFields<CmuxPane>(
      {{"tab", true, {id}, notIdentifiers}, {"pane", true, {id}, notIdentifiers}});
}

TEST(ControlProtocol, everyFieldOfAPermissionCard) {
  checkFields<AgentPermission>({
      {"action",
       true,
       {"\"run\"", "\"edit\"", "\"write\"", "\"fetch\"", "\"search\"", "\"tool\"", "\"ask\"",
        "\"plan\""},
       notOneOf({"", "Run", "use"})},
      {"subject", true, {"\"ls\"", "\"\""}, notStrings},
      {"note", false, {"\"Lists\""}, notStrings},
      {"lines",
       true,
       {"[]", R"([{"kind":"plain","text":"a"},{"kind":"added","text":""}])"},
       with(notArrays, {"[{}]", "[\"a\"]"})},
      {"folder", false, {"\"~/w\""}, notStrings},
      {"complete", true, {"true", "false"}, notBooleans},
      {"questions",
       false,
       {"[]", R"([{"header":"","multiSelect":false,"options":[],"text":"?"}])"},
       with(notArrays, {"[{}]", "[1]"})},
  });
}

TEST(ControlProtocol, everyFieldOfACardsLine) {
  checkFields<AgentPermission::Line>({
      {"text", true, {"\"a\"", "\"\""}, notStrings},
      {"kind", true, {"\"plain\"", "\"added\"", "\"removed\""}, notOneOf({"", "Plain"})},
  });
}

TEST(ControlProtocol, everyFieldOfAQuestion) {
  checkFields<AgentPermission::Question>({
      {"header", true, {"\"Database\"", "\"\""}, notStrings},
      {"text", true, {"\"Which?\""}, notStrings},
      {"options", true, {"[]", R"([{"label":"A","recommended":true}])"}, with(notArrays, {"[{}]"})},
      {"multiSelect", true, {"true", "false"}, notBooleans},
  });
}

TEST(ControlProtocol, everyFieldOfAnOption) {
  checkFields<AgentPermission::Question::Option>({
      {"label", true, {"\"A\""}, notStrings},
      {"detail", false, {"\"More\"", "\"\""}, notStrings},
      {"recommended", true, {"true", "false"}, notBooleans},
  });
}

TEST(ControlProtocol, anIntegerMayBeWrittenInAnyWay) {
  const std::string start = R"({"command":"notify","process":)";
  for (const char* const number : {"3", "3.0", "3e0", "30e-1", "0.3E1"}) {
    EXPECT_EQ(recoded<ControlRequest>(start + number + "}"), start + "3}") << number;
  }
}

TEST(ControlProtocol, identifiersAreReadInEitherCaseAndWrittenInUpperCase) {
  const std::string lower =
      R"({"pane":"0a1b2c3d-0000-4000-8000-00000000000f","tab":"0a1B2c3D-0000-4000-8000-00000000000F"})";
  EXPECT_EQ(recoded<CmuxPane>(lower), pane);
}

TEST(ControlProtocol, datesAreReadWithAnOffsetAndWrittenInUTC) {
  const std::string start = R"({"agent":"a","kind":"done","since":")";
  EXPECT_EQ(recoded<Attention>(start + "2025-01-01T00:30:00+01:00\"}"),
            start + "2024-12-31T23:30:00Z\"}");
  EXPECT_EQ(recoded<Attention>(start + "2024-12-31T23:30:00-00:30\"}"),
            start + "2025-01-01T00:00:00Z\"}");
}

TEST(ControlProtocol, theHostOfAnAttentionStaysOffTheWire) {
  Attention mark{.agent = "claude", .host = TmuxHost{"/dev/pts/1", 7}};
  const std::string line = ControlCoding::line(mark);
  EXPECT_EQ(line,
            "{\"agent\":\"claude\",\"kind\":\"needs-input\",\"since\":\"1970-01-01T00:00:00Z\"}\n");
  const auto read = ControlCoding::decode<Attention>(
      R"({"agent":"claude","kind":"needs-input","since":"1970-01-01T00:00:00Z","host":{"tty":"x"}})");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->host, std::nullopt);
  EXPECT_EQ(ControlCoding::line(*read), line);
  EXPECT_NE(*read, mark);
}

struct LineCase {
  const char* name;
  std::string line;
  std::string expected;
};
const LineCase lineCases[] = {
    {"aRequestWithOnlyACommand", ControlCoding::line(ControlRequest{}), "{\"command\":\"list\"}\n"},
    {"keysInByteOrder",
     ControlCoding::line(ControlRequest{.command = ControlRequest::Command::notify,
                                        .agent = "claude",
                                        .cwd = "/tmp/w",
                                        .kind = AttentionKind::needsInput,
                                        .process = 4711,
                                        .cmux = CmuxPane{},
                                        .activity = AgentActivity::working,
                                        .task = "t",
                                        .toolCall = "c"}),
     "{\"activity\":\"working\",\"agent\":\"claude\",\"cmux\":{\"pane\":\"00000000-0000-0000-0000-"
     "000000000000\",\"tab\":\"00000000-0000-0000-0000-000000000000\"},\"command\":\"notify\","
     "\"cwd\":\"/tmp/"
     "w\",\"kind\":\"needs-input\",\"process\":4711,\"task\":\"t\",\"toolCall\":\"c\"}"
     "\n"},
    {"theDocumentedExample",
     ControlCoding::line(ControlRequest{.command = ControlRequest::Command::notify,
                                        .agent = "claude",
                                        .cwd = "/tmp/w",
                                        .kind = AttentionKind::needsInput,
                                        .process = 4711}),
     "{\"agent\":\"claude\",\"command\":\"notify\",\"cwd\":\"/tmp/w\",\"kind\":\"needs-input\","
     "\"process\":4711}\n"},
    {"aFailure", ControlCoding::line(ControlResponse::failure("boom")),
     "{\"error\":\"boom\",\"ok\":false}\n"},
    {"lineBreaksNeverStandRaw", ControlCoding::line(ControlResponse::failure("a\nb\x01\x7F\"\\")),
     "{\"error\":\"a\\nb\\u0001\x7F\\\"\\\\\",\"ok\":false}\n"},
    {"aCardWithoutNoteFolderAndQuestions", ControlCoding::line(AgentPermission{}),
     "{\"action\":\"run\",\"complete\":true,\"lines\":[],\"subject\":\"\"}\n"},
    {"anOptionWithoutDetail",
     ControlCoding::line(AgentPermission::Question::Option{.label = "A", .recommended = true}),
     "{\"label\":\"A\",\"recommended\":true}\n"},
};
class WrittenLine : public testing::TestWithParam<LineCase> {};
TEST_P(WrittenLine, isCompactAndSorted) { EXPECT_EQ(GetParam().line, GetParam().expected); }
INSTANTIATE_TEST_SUITE_P(ControlProtocol, WrittenLine, testing::ValuesIn(lineCases), named);

TEST(ControlProtocol, failuresSayWhereAndWhat) {
  const auto description = [](const char* text) {
    return ControlCoding::decode<ControlResponse>(text).failure().description;
  };
  EXPECT_EQ(description(R"({"error":"x"})"), "ok: missing");
  EXPECT_EQ(description(R"([])"), "not an object");
  EXPECT_EQ(description(R"({"ok":true,"workspaces":[{"id":1}]})"), "workspaces[0].id: not a UUID");
  EXPECT_EQ(description(R"({"ok":true,"choices":[[0],[1,true]]})"),
            "choices[1][1]: not an integer of 64 bits");
  EXPECT_EQ(description(R"({"ok":true,"decision":"yes"})"),
            "decision: not one of \"allowed\", \"denied\"");
  const auto failed = ControlCoding::decode<ControlResponse>("{\"ok\":tru}");
  EXPECT_TRUE(failed.failure().description.starts_with("not JSON: "));
  EXPECT_EQ(failed.failure().offset, 6U);
}

TEST(ControlProtocol, aLongListOfWrongElementsFailsAtTheFirst) {
  std::string text = R"({"ok":true,"workspaces":[1)";
  for (int count = 0; count < 1'000'000; ++count) text += ",1";
  EXPECT_EQ(ControlCoding::decode<ControlResponse>(text + "]}").failure().description,
            "workspaces[0]: not an object");
}

Environment environmentOf(std::map<std::string, std::string, std::less<>> values) {
  return [values = std::move(values)](std::string_view name) -> std::optional<std::string> {
    const auto found = values.find(name);
    if (found == values.end()) return std::nullopt;
    return found->second;
  };
}

TEST(ControlProtocol, aCmuxPaneNeedsBothIdentifiers) {
  const std::string tab = "00000000-0000-0000-0000-0000000000AB";
  const std::string surface = "00000000-0000-0000-0000-0000000000cd";
  const auto both = CmuxPane::fromEnvironment(
      environmentOf({{"CMUX_WORKSPACE_ID", tab}, {"CMUX_SURFACE_ID", surface}}));
  ASSERT_TRUE(both);
  EXPECT_EQ(both->tab.text(), tab);
  EXPECT_EQ(both->pane.text(), "00000000-0000-0000-0000-0000000000CD");
  EXPECT_FALSE(CmuxPane::fromEnvironment(environmentOf({})));
  EXPECT_FALSE(CmuxPane::fromEnvironment(environmentOf({{"CMUX_WORKSPACE_ID", tab}})));
  EXPECT_FALSE(CmuxPane::fromEnvironment(environmentOf({{"CMUX_SURFACE_ID", surface}})));
  EXPECT_FALSE(CmuxPane::fromEnvironment(
      environmentOf({{"CMUX_WORKSPACE_ID", tab}, {"CMUX_SURFACE_ID", surface + " "}})));
  EXPECT_FALSE(CmuxPane::fromEnvironment(
      environmentOf({{"CMUX_WORKSPACE_ID", ""}, {"CMUX_SURFACE_ID", surface}})));
}

struct PhraseCase {
  const char* name;
  std::string agent;
  AttentionKind kind;
  std::string phrase;
};
const PhraseCase phraseCases[] = {
    {"asks", "claude", AttentionKind::needsInput, "Claude asks for you"},
    {"isDone", "claude", AttentionKind::done, "Claude is done"},
    {"onlyTheFirstCharacterChanges", "myAGENT", AttentionKind::done, "MyAGENT is done"},
    {"beyondASCII", "été", AttentionKind::done, "Été is done"},
    {"emptyAsks", "", AttentionKind::needsInput, " asks for you"},
    {"emptyIsDone", "", AttentionKind::done, " is done"},
};
class Phrase : public testing::TestWithParam<PhraseCase> {};
TEST_P(Phrase, namesTheAgent) {
  EXPECT_EQ((Attention{.agent = GetParam().agent, .kind = GetParam().kind}.phrase()),
            GetParam().phrase);
}
INSTANTIATE_TEST_SUITE_P(ControlProtocol, Phrase, testing::ValuesIn(phraseCases), named);

TEST(ControlProtocol, waitingPutsThoseThatNeedInputFirstThenTheOldest) {
  const auto workspaceID = [](std::uint8_t number) {
    UUID identifier;
    identifier.bytes[15] = number;
    return identifier;
  };
  const UUID a = workspaceID(1), b = workspaceID(2), c = workspaceID(3), d = workspaceID(4);
  const auto mark = [](AttentionKind kind, std::int64_t seconds) {
    return Attention{.kind = kind, .since = Date{seconds}};
  };
  using Kind = AttentionKind;
  const std::unordered_map<UUID, Attention> two = {{a, mark(Kind::done, 10)},
                                                   {b, mark(Kind::needsInput, 11)}};
  EXPECT_EQ(Attention::waiting({a, b, c}, two), (std::vector{b, a}));
  EXPECT_EQ(Attention::waiting({}, two), std::vector<UUID>{});
  EXPECT_EQ(Attention::waiting({c, d}, two), std::vector<UUID>{});
  EXPECT_EQ(Attention::waiting({a, b, a, b}, two), (std::vector{b, b, a, a}));

  const std::unordered_map<UUID, Attention> equal = {{a, mark(Kind::needsInput, 5)},
                                                     {b, mark(Kind::needsInput, 5)},
                                                     {c, mark(Kind::needsInput, 4)},
                                                     {d, mark(Kind::done, 1)}};
  EXPECT_EQ(Attention::waiting({d, b, a, c}, equal), (std::vector{c, b, a, d}));
  EXPECT_EQ(Attention::waiting({a, b}, equal), (std::vector{a, b}));
}

TEST(ControlProtocol, waitingOrdersMarksOfTheSameSecond) {
  UUID a;
  UUID b;
  b.bytes[15] = 1;
  const std::unordered_map<UUID, Attention> marks = {{a, Attention{.since = Date{5, 2}}},
                                                     {b, Attention{.since = Date{5, 1}}}};
  EXPECT_EQ(Attention::waiting({a, b}, marks), (std::vector{b, a}));
}

TEST(ControlProtocol, recordsHashByEveryField) {
  const Attention mark{.agent = "claude",
                       .kind = AttentionKind::done,
                       .message = "m",
                       .since = Date{5, 1},
                       .session = "s",
                       .folder = "/f",
                       .host = CmuxHost{1, {}}};
  const auto changed = [&](auto member, auto value) {
    Attention other = mark;
    other.*member = value;
    return other;
  };
  std::unordered_set<Attention> marks = {mark,
                                         mark,
                                         changed(&Attention::agent, "codex"),
                                         changed(&Attention::kind, AttentionKind::needsInput),
                                         changed(&Attention::message, std::nullopt),
                                         changed(&Attention::since, Date{5, 2}),
                                         changed(&Attention::session, "t"),
                                         changed(&Attention::folder, ""),
                                         changed(&Attention::host, CmuxHost{2, {}}),
                                         changed(&Attention::host, TmuxHost{"", 1})};
  EXPECT_EQ(marks.size(), 9U);
  std::unordered_set<std::size_t> hashes;
  for (const Attention& each : marks) hashes.insert(std::hash<Attention>()(each));
  EXPECT_EQ(hashes.size(), marks.size());

  const CmuxPane here{UUID{{1}}, UUID{{2}}};
  EXPECT_EQ(std::hash<CmuxPane>()(here), std::hash<CmuxPane>()(CmuxPane{UUID{{1}}, UUID{{2}}}));
  EXPECT_NE(std::hash<CmuxPane>()(here), std::hash<CmuxPane>()(CmuxPane{UUID{{2}}, UUID{{1}}}));
  EXPECT_NE(std::hash<AgentHost>()(CmuxHost{}), std::hash<AgentHost>()(ApplicationHost{}));
  EXPECT_NE(std::hash<WorkspaceSummary>()({}), std::hash<WorkspaceSummary>()({.attention = mark}));
  EXPECT_NE(std::hash<ControlResponse>()({.workspaces = std::vector<WorkspaceSummary>(1)}),
            std::hash<ControlResponse>()({.workspaces = std::vector<WorkspaceSummary>(2)}));
  EXPECT_NE(std::hash<ControlResponse>()({.choices = {{{1}, {2}}}}),
            std::hash<ControlResponse>()({.choices = {{{1, 2}}}}));
  EXPECT_NE(std::hash<ControlEvent>()({.workspace = WorkspaceSummary{}}),
            std::hash<ControlEvent>()({}));
  EXPECT_NE(std::hash<ControlRequest>()({.permission = AgentPermission{}}),
            std::hash<ControlRequest>()({.permission = AgentPermission{.subject = "ls"}}));
}

TEST(ControlProtocol, textThatIsNotUTF8IsRepairedSoThatTheLineCanBeRead) {
  const std::string text = "a\xFF\"\n\xF0\x9F\x98 é";
  const std::string repaired = "a\xEF\xBF\xBD\"\n\xEF\xBF\xBD é";
  std::string line = ControlCoding::line(ControlResponse::failure(text));
  EXPECT_EQ(line, "{\"error\":\"a\xEF\xBF\xBD\\\"\\n\xEF\xBF\xBD é\",\"ok\":false}\n");
  const auto read = ControlCoding::decode<ControlResponse>(line);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->error, repaired);
  for (int byte = 0x80; byte < 0x100; ++byte) {
    ControlRequest request{.cwd = std::string(20, 'x') + static_cast<char>(byte)};
    const auto decoded = ControlCoding::decode<ControlRequest>(ControlCoding::line(request));
    ASSERT_TRUE(decoded) << byte;
    EXPECT_EQ(decoded->cwd, std::string(20, 'x') + "\xEF\xBF\xBD") << byte;
  }
}

TEST(ControlProtocol, linesOfEverySizeAreWhole) {
  for (std::size_t size = 0; size < 9000; ++size) {
    const std::string text(size, 'x');
    ASSERT_EQ(ControlCoding::line(ControlResponse::failure(text)),
              "{\"error\":\"" + text + "\",\"ok\":false}\n");
  }
}

TEST(ControlProtocol, aLineIsReadWhereItStands) {
  std::string text = R"({"ok":false,"error":"a\tb"} and more)";
  const auto read = ControlCoding::decodeInPlace<ControlResponse>(std::span(text).first(28));
  ASSERT_TRUE(read);
  EXPECT_EQ(*read, ControlResponse::failure("a\tb"));
  EXPECT_TRUE(text.ends_with(" and more"));
}

/// What a text is read as: the record written again, or why it is none.
template <class Record>
std::string told(const Result<Record, ControlCoding::Failure>& read) {
  if (read) return ControlCoding::line(*read);
  const auto& offset = read.failure().offset;
  return read.failure().description + (offset ? " at " + std::to_string(*offset) : "");
}

/// A line in the form in which it was written is read without a document. It has to be told from
/// every other text, and read as that is.
template <class Record>
void isReadAsItsDocumentIs(const std::string& text) {
  std::string source = text;
  JSON::SyntaxError error;
  const auto document = JSON::Document::parse(source, {}, &error);
  const std::string expected =
      document ? told(ControlCoding::decode<Record>(document->root()))
               : told(Result<Record, ControlCoding::Failure>(
                     ControlCoding::Failure{"not JSON: " + error.reason, error.offset}));
  ASSERT_EQ(told(ControlCoding::decode<Record>(text)), expected) << text;
}

/// Every prefix of a line, and every line with one byte exchanged, missing or more.
template <class Record>
void isReadAsItsDocumentIsWhateverHappensToIt(const std::string& line) {
  static constexpr char text[] = "\0\t\n \"\\/{}[],:-+.0189eEnutf\x7f\x80\xE2\xFF";
  constexpr std::string_view bytes(text, sizeof text - 1);
  isReadAsItsDocumentIs<Record>(line);
  for (std::size_t place = 0; place <= line.size(); ++place) {
    isReadAsItsDocumentIs<Record>(line.substr(0, place));
    if (place < line.size()) isReadAsItsDocumentIs<Record>(std::string(line).erase(place, 1));
    for (const char byte : bytes) {
      isReadAsItsDocumentIs<Record>(std::string(line).insert(place, 1, byte));
      if (place == line.size()) continue;
      std::string changed = line;
      changed[place] = byte;
      isReadAsItsDocumentIs<Record>(changed);
    }
  }
}

TEST(ControlProtocol, aLineIsReadAsTheDocumentThatItIs) {
  isReadAsItsDocumentIsWhateverHappensToIt<ControlResponse>(
      R"({"choices":[[0,12],[],[-9223372036854775808]],"decision":"allow","error":"⌥ é",)"
      R"("ok":true,"paused":false,"workspace":)" +
      workspace + R"(,"workspaces":[{"active":false,"attention":)" + attention + R"(,"id":)" + id +
      R"(,"name":"⌥ Site","section":"","windows":-3},)" + workspace + "]}");
  isReadAsItsDocumentIsWhateverHappensToIt<ControlResponse>(R"({"error":"\u2325\n","ok":true})");
  isReadAsItsDocumentIsWhateverHappensToIt<ControlEvent>(R"({"event":"workspace","workspace":)" +
                                                         workspace + "}");
  isReadAsItsDocumentIsWhateverHappensToIt<ControlRequest>(
      R"({"cmux":)" + pane + R"(,"command":"notify","cwd":"/tmp/a b","permission":)" + card +
      R"(,"process":-2147483648})");
}

TEST(ControlProtocol, aLineIsReadWhateverTheOrderOfItsKeys) {
  for (const std::string& text :
       {std::string(R"({"error":"no","ok":true})"), std::string(R"({"ok":true,"error":"no"})"),
        std::string(R"( {"error":"no","ok":true} )"),
        std::string(R"({"error":"n\u006f","ok":true})"),
        std::string(R"({"error":"no","new":[1],"ok":true})"),
        std::string(R"({"error":"","error":"no","ok":1,"ok":true})"),
        std::string(R"({"error":"no","ok":true,"paused":null})")}) {
    EXPECT_EQ(recoded<ControlResponse>(text), R"({"error":"no","ok":true})") << text;
  }
}

TEST(ControlProtocol, integersAreReadToTheirEnds) {
  const auto windows = [](const std::string& number) {
    return recoded<WorkspaceSummary>(R"({"active":true,"id":)" + id +
                                     R"(,"name":"","section":"","windows":)" + number + "}")
        .has_value();
  };
  EXPECT_TRUE(windows("9223372036854775807"));
  EXPECT_TRUE(windows("-9223372036854775808"));
  EXPECT_TRUE(windows("-0"));
  EXPECT_FALSE(windows("9223372036854775808"));
  EXPECT_FALSE(windows("-9223372036854775809"));
  EXPECT_FALSE(windows("18446744073709551616"));
  EXPECT_FALSE(windows("01"));
  const auto process = [](const std::string& number) {
    return recoded<ControlRequest>(R"({"command":"list","process":)" + number + "}").has_value();
  };
  EXPECT_TRUE(process("2147483647"));
  EXPECT_TRUE(process("-2147483648"));
  EXPECT_FALSE(process("2147483648"));
  EXPECT_FALSE(process("-2147483649"));
  EXPECT_FALSE(process("4294967296"));
}

TEST(ControlProtocol, fieldsAreFoundBesideEveryOtherKey) {
  // Before, between and after the fields, and such as begin like one.
  for (const char* const key : {"", "A", "e", "erro", "error2", "errors", "o", "ok ", "okay", "z",
                                "\\u0000", "workspac", "workspaces0", "\xF0\x9F\x98\x80"}) {
    const std::string text = R"({"ok":true,")" + std::string(key) + R"(":1,"error":"e"})";
    const auto read = ControlCoding::decode<ControlResponse>(text);
    ASSERT_TRUE(read) << key;
    EXPECT_EQ(*read, (ControlResponse{.ok = true, .error = "e"})) << key;
  }
  EXPECT_EQ(recoded<ControlResponse>(R"({"ok":true,"ok":false})"), R"({"ok":false})");
}

template <class Enumeration>
void expectTextsOfItsOwn() {
  for (const auto& entry : wireNames(Enumeration{})) {
    EXPECT_EQ(wireName(entry.value), entry.name);
    EXPECT_EQ(wireValue<Enumeration>(entry.name), entry.value) << entry.name;
  }
  for (const std::string_view other : {"", "Done", "done ", "needsInput", "?"}) {
    EXPECT_EQ(wireValue<Enumeration>(other), std::nullopt) << other;
  }
}

TEST(ControlProtocol, enumerationsAreFoundByTheirTexts) {
  expectTextsOfItsOwn<AttentionKind>();
  expectTextsOfItsOwn<AgentActivity>();
  expectTextsOfItsOwn<ControlRequest::Command>();
  expectTextsOfItsOwn<ControlEvent::Kind>();
  expectTextsOfItsOwn<AgentPermission::Action>();
  expectTextsOfItsOwn<PermissionAnswer>();
  expectTextsOfItsOwn<PlanApproval>();
  expectTextsOfItsOwn<AgentPermission::Line::Kind>();
}

TEST(ControlProtocol, hostsCompareByAlternativeAndPayload) {
  const AgentHost application = ApplicationHost{"com.example.editor", 1};
  EXPECT_EQ(application, AgentHost(ApplicationHost{"com.example.editor", 1}));
  EXPECT_NE(application, AgentHost(ApplicationHost{"com.example.editor", 2}));
  EXPECT_NE(application, AgentHost(CmuxHost{1, {}}));
  EXPECT_NE(AgentHost(TmuxHost{"/dev/pts/1", 1}), AgentHost(TmuxHost{"/dev/pts/2", 1}));
}

}  // namespace
}  // namespace CorvaneControl
