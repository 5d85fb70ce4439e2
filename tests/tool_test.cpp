// tarnell-host's pieces that decide what a user sees: which checks a --filter
// selects and which of its globs select nothing, the progress line cut to the
// terminal's width, the JSON writer, the report file's early check, and the
// processor's description. (The commands themselves are run by the tool_commands,
// tool_errors and bench_report CTest scripts.)
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tools/machine.h"
#include "tools/output.h"
#include "verify/check.h"
#include "verify/runner.h"

namespace tarnell {
namespace {

std::vector<std::string> selected(const std::string& filter) {
  std::vector<std::string> keys;
  for (const verify::Check& check : verify::allChecks())
    if (verify::matchesFilter(check, filter)) {
      const std::string label = verify::checkLabel(check);
      keys.push_back(label.substr(0, label.find(' ')));
    }
  return keys;
}

TEST(ToolFilter, GlobsMatchNamesKeysAndLabelsWithBlanksAroundCommasIgnored) {
  EXPECT_EQ(selected("blnd:1"), std::vector<std::string>{"blnd:1"});
  EXPECT_EQ(selected("ScaleByConstant8"), std::vector<std::string>{"blnd:1"});
  EXPECT_EQ(selected("blnd:1 Scale*"), std::vector<std::string>{"blnd:1"});
  // The blank after the comma is not part of the second glob.
  EXPECT_EQ(selected("blnd:1, conv:16"), (std::vector<std::string>{"blnd:1", "conv:16"}));
  EXPECT_EQ(selected(" blnd:1 ,\tconv:16 ,"), (std::vector<std::string>{"blnd:1", "conv:16"}));
  EXPECT_EQ(selected("").size(), verify::allChecks().size());
  std::size_t memo = 0;
  for (const verify::Check& check : verify::allChecks()) memo += check.suite == code::memo ? 1 : 0;
  EXPECT_EQ(selected("memo:*").size(), memo);
}

TEST(ToolFilter, SuiteKeysMatchInAnyCaseNamesAsWritten) {
  EXPECT_EQ(selected("BLND:1"), std::vector<std::string>{"blnd:1"});
  EXPECT_EQ(selected("Blnd:1 ScaleByConstant8"), std::vector<std::string>{"blnd:1"});
  EXPECT_EQ(selected("MEMO:*"), selected("memo:*"));
  EXPECT_TRUE(selected("scalebyconstant8").empty());
}

TEST(ToolFilter, GlobsThatSelectNothingAreNamed) {
  EXPECT_TRUE(verify::unmatchedGlobs("").empty());
  EXPECT_TRUE(verify::unmatchedGlobs("blnd:1, BLND:2,memo:*").empty());
  // A suite without a slot, a misspelt name, a forwarded slot (it has no check).
  EXPECT_EQ(verify::unmatchedGlobs("blnd"), std::vector<std::string>{"blnd"});
  EXPECT_EQ(verify::unmatchedGlobs("blnd:1, ScaleByConstant9 ,blnd:53"),
            (std::vector<std::string>{"ScaleByConstant9", "blnd:53"}));
  EXPECT_EQ(verify::filterGlobs(" , ,"), std::vector<std::string>{});
}

TEST(ToolProgress, LineFitsTheWidthKeepingCountAndTime) {
  const std::string label = "blnd:7 DarkenTowardSourceThroughMask8";
  EXPECT_EQ(tool::progressLine("verify", 12, 49, label, 3.2, 120),
            "verify [12/49] blnd:7 DarkenTowardSourceThroughMask8  (3 s)");
  // Exactly as wide as the window allows (one column kept free): not cut.
  const std::string whole = tool::progressLine("verify", 12, 49, label, 3.2, 120);
  EXPECT_EQ(tool::progressLine("verify", 12, 49, label, 3.2, static_cast<int>(whole.size()) + 1), whole);
  // Narrower: the label loses its end, the count and the time stay.
  EXPECT_EQ(tool::progressLine("verify", 12, 49, label, 3.2, 40), "verify [12/49] blnd:7 DarkenT...  (3 s)");
  // Too narrow for even that: the line is cut.
  EXPECT_EQ(tool::progressLine("bench", 1, 127, label, 0, 12), "bench [1/12");
  for (int columns = 2; columns <= 80; ++columns)
    EXPECT_LE(tool::progressLine("verify", 100, 128, label, 1234, columns).size(), static_cast<std::size_t>(columns - 1))
        << columns;
  // Width unknown: nothing at all.
  EXPECT_EQ(tool::progressLine("verify", 1, 2, label, 0, 0), "");
}

TEST(ToolJson, WriterNestsSeparatesAndWritesNullForAbsentValues) {
  tool::JsonWriter j;
  j.beginObject().key("name").string("a\"b\\c\n").key("none").stringOrNull(std::nullopt);
  j.key("some").stringOrNull(std::string("x")).key("nan").number(std::nan(""), 3).key("pi").number(3.14159, 2);
  j.key("list").beginArray().integer(-1).boolean(true).null().beginObject().key("k").integer(2).endObject().endArray();
  j.key("empty").beginArray().endArray().key("deep").beginObject().key("v").beginArray().integer(1).integer(2);
  j.endArray().endObject().endObject();
  EXPECT_EQ(j.text(),
            "{\n"
            "  \"name\": \"a\\\"b\\\\c\\n\",\n"
            "  \"none\": null,\n"
            "  \"some\": \"x\",\n"
            "  \"nan\": null,\n"
            "  \"pi\": 3.14,\n"
            "  \"list\": [\n"
            "    -1,\n"
            "    true,\n"
            "    null,\n"
            "    {\"k\": 2}\n"
            "  ],\n"
            "  \"empty\": [],\n"
            "  \"deep\": {\n"
            "    \"v\": [1, 2]\n"
            "  }\n"
            "}\n");
}

TEST(ToolReportFile, WritabilityIsKnownBeforeTheRunAndNothingIsLeftBehind) {
  const std::filesystem::path dir = std::filesystem::temp_directory_path() / "tarnell-tool-test";
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  const std::filesystem::path fresh = dir / "fresh.html", kept = dir / "kept.html";
  EXPECT_EQ(tool::whyNotWritable(fresh.string()), "");
  EXPECT_FALSE(std::filesystem::exists(fresh));  // only asked, not written
  std::ofstream(kept) << "an earlier report";
  EXPECT_EQ(tool::whyNotWritable(kept.string()), "");
  EXPECT_EQ(std::filesystem::file_size(kept), 17u);  // not truncated
  EXPECT_NE(tool::whyNotWritable((dir / "no-such-directory" / "r.html").string()), "");
  EXPECT_NE(tool::whyNotWritable(dir.string()), "");  // a directory
  std::filesystem::remove_all(dir);
}

TEST(ToolMachine, UnknownLevel2CacheReadsUnknown) {
  CpuIdentification id{};
  std::memcpy(id.vendor, "GenuineIntel", 13);
  const tool::Machine known = tool::describeMachine(id, "A Processor", Topology{4, 8, 1u << 20, 1u << 20});
  EXPECT_EQ(known.processor, "A Processor (GenuineIntel)");
  EXPECT_EQ(known.topologyText(), "4 physical cores, 8 logical processors, L2 1 MiB");
  const tool::Machine unknown = tool::describeMachine(id, "", Topology{1, 1, 0, 0});
  EXPECT_EQ(unknown.processor, "GenuineIntel");
  EXPECT_EQ(unknown.topologyText(), "1 physical core, 1 logical processor, L2 unknown");
  EXPECT_FALSE(unknown.l2Bytes.has_value());
  EXPECT_EQ(tool::byteSize(512 * 1024), "512 KiB");
  EXPECT_EQ(tool::byteSize(1000), "1000 bytes");
  EXPECT_EQ(known.namedFlags.size(), 10u);
  EXPECT_EQ(known.flagList().substr(0, 6), "MMX=0 ");
}

}  // namespace
}  // namespace tarnell
