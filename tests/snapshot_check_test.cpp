#include "engine/snapshot_check.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "box/sample_tables.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/short_stream.h"

namespace {

// Three samples of 100, 200 and 300 bytes, numbers 11 to 13 of their track, which fill their interval.
struct Snapshot {
  std::map<std::string, std::vector<ZR_U32>> tables = {{"stts", {3, 40}},
                                                       {"stsc", {1, 1, 1}},
                                                       {"stsz", {100, 200, 300}},
                                                       {"stco", {1020, 1140, 1360}},
                                                       {"stss", {11, 13}}};
  zrmp4::SnapshotBounds bounds = {1000, 1660, 10, false, false};
  std::string padded = {};  // a table with a byte behind its entries

  bool holds() const {
    Bytes content;
    for (const auto& [type, words] : tables) {
      const std::size_t perEntry = type == "stts" || type == "co64" ? 2 : type == "stsc" ? 3 : 1;
      const std::size_t head = type == "stsz" ? 20 : 16;
      content.be32(head + 4 * words.size() + (type == padded)).type(type.c_str()).fill(head - 12);
      content.be32(words.size() / perEntry);
      for (const ZR_U32 word : words) content.be32(word);
      content.fill(type == padded);
    }
    ShortStream stream(Bytes().be32(8 + content.size()).type("stbl").add(content));
    zrmp4::StblAtom stbl;
    EXPECT_EQ(stbl.Read(&stream), 0);
    return SnapshotHolds(stbl, bounds);
  }
};

TEST(SnapshotCheck, TrustsWhatAgreesInEveryTable) {
  const LogCapture log;
  const struct {
    const char* name;
    bool holds;
    std::function<void(Snapshot&)> change;
  } kRows[] = {
      {"as it is", true, [](Snapshot&) {}},
      {"every sample is a sync sample", true, [](Snapshot& s) { s.tables.erase("stss"); }},
      {"the first of the track lacks its duration", true,
       [](Snapshot& s) { s.bounds.samplesBefore = 0, s.tables["stts"] = {2, 40}, s.tables["stss"] = {1, 3}; }},
      {"and has it where all have", false,
       [](Snapshot& s) { s.bounds.samplesBefore = 0, s.tables["stss"] = {1, 3}; }},
      {"it has it with a constant rate", true,
       [](Snapshot& s) { s.bounds = {1000, 1660, 0, true, false}, s.tables["stss"] = {1, 3}; }},
      {"nothing in the interval", true,
       [](Snapshot& s) {
         s.bounds.samplesBefore = 0;
         for (const char* type : {"stts", "stsz", "stco", "stss"}) s.tables[type].clear();
       }},
      {"64-bit offsets", true,
       [](Snapshot& s) { s.bounds.wide = true, s.tables["co64"] = {0, 1020, 0, 1140, 0, 1360}; }},
      {"64-bit offsets are missing", false, [](Snapshot& s) { s.bounds.wide = true; }},
      {"a duration too few", false, [](Snapshot& s) { s.tables["stts"][0] = 2; }},
      {"an offset too few", false, [](Snapshot& s) { s.tables["stco"].pop_back(); }},
      {"begins before the interval", false, [](Snapshot& s) { s.bounds.start = 1001; }},
      {"ends behind the interval", false, [](Snapshot& s) { s.bounds.end = 1659; }},
      {"samples overlap", false, [](Snapshot& s) { s.tables["stco"][1] = 1139; }},
      {"a sync sample of the interval before", false, [](Snapshot& s) { s.tables["stss"][0] = 10; }},
      {"a sync sample that is not there", false, [](Snapshot& s) { s.tables["stss"][1] = 14; }},
      {"sync samples twice", false, [](Snapshot& s) { s.tables["stss"] = {13, 13}; }},
      {"no run of chunks", false, [](Snapshot& s) { s.tables["stsc"].clear(); }},
      {"two runs of chunks", false, [](Snapshot& s) { s.tables["stsc"] = {1, 1, 1, 2, 1, 1}; }},
      {"a run from the second chunk on", false, [](Snapshot& s) { s.tables["stsc"][0] = 2; }},
      {"two samples in a chunk", false, [](Snapshot& s) { s.tables["stsc"][1] = 2; }},
      {"another description", false, [](Snapshot& s) { s.tables["stsc"][2] = 2; }},
  };
  for (const auto& row : kRows) {
    Snapshot snapshot;
    row.change(snapshot);
    EXPECT_EQ(snapshot.holds(), row.holds) << row.name;
  }
  for (const char* type : {"stts", "stsc", "stsz", "stco", "stss"}) {
    Snapshot padded;
    padded.padded = type;
    EXPECT_FALSE(padded.holds()) << type;
    Snapshot without;
    without.tables.erase(type);
    EXPECT_EQ(without.holds(), type == std::string("stss")) << type;
  }
}

}  // namespace
