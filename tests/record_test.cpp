// Records taken apart and shown: separators in names, hostile bytes, cuts at every length.
#include "host/record.h"

#include <gtest/gtest.h>

#include <sstream>

#include "host/escape.h"
#include "host/record_format.h"

namespace {

std::string joined(const host::Record& record) {
  return std::to_string(record.pid) + "@@" + std::to_string(record.value) + "@@" + record.event +
         "@@" + record.name + "@@" + record.detail;
}

TEST(Record, NamesComeOutWhole) {
  const std::string cut = "a@@b" + std::string(52, 'x') + "#123456";
  ASSERT_EQ(cut.size(), 63u);
  const std::string detail(6143, 'd');
  const std::string rows[][3] = {
      {"1234", "app@@x#1234", ""},
      {"1234", "a#1234@@b#1234", ""},
      {"1234", "9@@8@@Event_Vss@@x#1234", ""},
      {"1234", "app@@x#1234", "more@@of#it"},
      {"1234", "@app@@@#1234", ""},
      {"1234", "x#1234", "@"},
      {"12", "ends early#1@@#12", ""},
      {"1234567", cut, ""},
      {"1234567", cut, "detail"},
      {"1234567", "b#1234567@@" + cut.substr(11), ""},
      {"1234", "foreign@@name", ""},
      {"1234", "foreign", "its detail"},
      {"1234", "", ""},
      {"1234", std::string(99, 'n'), detail},
      {"-2147483648", "\xff\n#", ""},
      {"1234", "app#1234", detail.substr(7) + "#1234@@"},
  };
  for (const auto& [pid, name, rest] : rows) {
    const std::string text = pid + "@@-7@@Event_VssHeap@@" + name + "@@" + rest;
    std::string_view why;
    const auto record = host::parse_record(text, &why);
    ASSERT_TRUE(record) << text << ": " << why;
    EXPECT_EQ(record->name, name);
    EXPECT_EQ(joined(*record), text);
  }
}

TEST(Record, RefusesWhatIsNone) {
  const std::string d(6144, 'd');
  std::istringstream texts(
      ",@@,@@@@@@@@,1@@2@@E@@n,1@@2@@E@n@@,1@2@@E@@n@@,@@2@@E@@n@@,-@@2@@E@@n@@,+1@@2@@E@@n@@,"
      " 1@@2@@E@@n@@,1 @@2@@E@@n@@,0x1@@2@@E@@n@@,2147483648@@2@@E@@n@@,1@@-2147483649@@E@@n@@,"
      "1@@99999999999999999999@@E@@n@@,1@@2@@@@n@@,1@@2@@E e@@n@@,1@@2@@\u00e9@@n@@,1@@2@@" +
      std::string(30, 'E') + "@@n@@,1@@2@@E@@" + d.substr(6044) + "@@,1@@2@@E@@n@@" + d +
      ",1@@2@@E@@n#1@@" + d + ",1@@2@@E@@n@@" + d + d);
  for (std::string text; std::getline(texts, text, ',');) {
    std::string_view why;
    EXPECT_FALSE(host::parse_record(text, &why)) << text;
    EXPECT_FALSE(why.empty()) << text;
  }
}

TEST(Record, CutsAreRefusedOrLoseNothing) {
  const std::string text = "1234@@307200@@Event_ResidentSize@@a@@b#1234@@detail@@#1234@@";
  for (size_t length = 0; length <= text.size(); ++length) {
    std::string_view why;
    const std::string cut = text.substr(0, length);
    const auto record = host::parse_record(cut, &why);
    EXPECT_EQ(record.has_value(), length >= text.find("@@b") + 2) << cut;
    EXPECT_EQ(record ? joined(*record) : cut, cut);
  }
}

TEST(Record, TextCannotDriveATerminal) {
  const std::string rows[][2] = {
      {"app #1 ~ h\u00e9 \u4e2d \U0001F600", "app #1 ~ h\u00e9 \u4e2d \U0001F600"},
      {std::string("\\\0\n\x1b[\x7f", 6), "\\\\\\x00\\x0A\\x1B[\\x7F"},
      {"\u009b\u00a0\u2066\u2070", "\\xC2\\x9B\u00a0\\xE2\\x81\\xA6\u2070"},
      {"\u2028\u202e\u200f", "\\xE2\\x80\\xA8\\xE2\\x80\\xAE\\xE2\\x80\\x8F"},
      {"\x80 \xc0\xaf \xed\xa0\x80", "\\x80 \\xC0\\xAF \\xED\\xA0\\x80"},
      {"\xc1\x9c", "\\xC1\\x9C"},  // a backslash in two bytes
      {"\xf4\x90\x80\x80 \xff \xe4\xb8", "\\xF4\\x90\\x80\\x80 \\xFF \\xE4\\xB8"},
  };
  for (const auto& [bytes, shown] : rows) EXPECT_EQ(host::escape_text(bytes), shown);
}

// The text, on a terminal, and anywhere else.
TEST(Record, LogTextsKeepWhatTheLibraryWrites) {
  const std::string rows[][3] = {
      {"", "", ""},
      {"\n\n", "\n\n", "\n\n"},
      {"\t \"a\\b\": 2!!\n\n", "\t \"a\\b\": 2!!\n\n", "\t \"a\\b\": 2!!\n\n"},
      {"\t\n\t\x1b\xc2\x9b\n", "\t\\x0A\\x09\\x1B\\xC2\\x9B\n", "\t\n\t\x1b\xc2\x9b\n"},
      {"a\nrecord: b\n", "a\\x0Arecord: b\n", "a\\x0Arecord: b\n"},
      {"a\n\rtaskwarden: b", "a\\x0A\\x0Dtaskwarden: b", "a\n\\x0Dtaskwarden: b"},
      {"record: \nrecord:", "record: \\x0Arecord:", "record: \nrecord:"},
  };
  for (const auto& [text, terminal, pipe] : rows) {
    EXPECT_EQ(host::log_text_for_terminal(text), terminal);
    EXPECT_EQ(host::log_text_for_pipe(text), pipe);
  }
}

TEST(Record, JsonIsWholeWhateverTheName) {
  const std::chrono::system_clock::time_point arrival(std::chrono::milliseconds(1234567890009));
  const std::string name = "\"\\\n\u2028\x7f\xff#";
  EXPECT_EQ(host::record_json({-1, 7, "E", name, "d"}, {12, 34}, arrival),
            R"({"time":"2009-02-13T23:31:30.009Z","pid":-1,"value":7,"event":"E",)"
            R"("name":"\"\\\n\u2028\u007f\ufffd#","detail":"d","sender_uid":34,"sender_pid":12})");
}

}  // namespace
