#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/support/log_capture.h"
#include "tests/support/session.h"

namespace {

class Repair : public ::testing::Test {
 protected:
  ZR_U32 repair(bool extraFrames) { return ZR_MP4_RepairFile(file.path().c_str(), extraFrames); }

  LogCapture log;
  MemoryFile file;
};

class RepairOf : public Repair, public ::testing::WithParamInterface<std::size_t> {};

// Every boundary, its neighbours, and a stride between.
std::set<std::uint64_t> CutsOf(const Model& model, std::uint64_t stride) {
  std::set<std::uint64_t> cuts;
  const std::uint64_t size = model.whole().size();
  for (const std::uint64_t at : model.boundaries()) {
    for (const std::uint64_t cut : {at - 1, at, at + 1}) {
      if (cut <= size) cuts.insert(cut);
    }
  }
  for (std::uint64_t cut = 0; cut <= size; cut += stride) cuts.insert(cut);
  return cuts;
}

TEST_P(RepairOf, AnyCutEqualsARecordingFinishedThere) {
  const Session& session = Sessions()[GetParam()];
  Model model(session);
  ASSERT_FALSE(model.whole().empty());
  for (std::size_t calls = 0; calls <= session.calls.size(); calls += calls < 8 ? 1 : 13) {
    ASSERT_EQ(model.problemAfter(calls), "") << calls << " calls";
  }
  ASSERT_EQ(model.problemAfter(session.calls.size()), "");
  int failures = 0;
  for (const std::uint64_t cut : CutsOf(model, 37)) {
    for (const bool extraFrames : {false, true}) {
      SCOPED_TRACE(session.name + ", cut " + std::to_string(cut) + ", flag " + std::to_string(extraFrames));
      log.clear();
      file.set(model.whole(), cut);
      const Data before = file.bytes();
      const ZR_U32 status = repair(extraFrames);
      const Data once = file.bytes();
      EXPECT_EQ(status, model.status(cut)) << std::hex << status;
      if (status != 0) {
        EXPECT_EQ(once, before) << "changed";
      } else {
        EXPECT_EQ(model.difference(once, cut, extraFrames), "");
        EXPECT_EQ(repair(extraFrames), 0u);
        EXPECT_TRUE(file.bytes() == once) << "a second repair changed the file";
      }
      if (HasFailure() && ++failures == 5) FAIL() << log.all();
    }
  }
}

TEST_F(Repair, DropsAFrameThatWasCutInFrontOfReservedSpace) {
  const auto telling = [](const Session& one) { return one.telling; };
  const Session& session = *std::find_if(Sessions().begin(), Sessions().end(), telling);
  Model model(session);
  for (const std::uint64_t cut : CutsOf(model, 5)) {
    if (model.keptCalls(cut, true) == 0) continue;
    for (const std::size_t zeros : {300, 700, 9000}) {
      SCOPED_TRACE(session.name + ", cut " + std::to_string(cut) + ", zeros " + std::to_string(zeros));
      file.set(model.whole(), cut, zeros);
      ASSERT_EQ(repair(true), 0u);
      EXPECT_EQ(model.difference(file.bytes(), cut, true, false), "");
      if (HasFailure()) return;
    }
  }
}

// What a damaged snapshot costs: everything behind it, unless the flag recovers the frames up to it.
TEST_F(Repair, ADamagedSnapshotEndsTheSnapshots) {
  const Session& session = Sessions()[2];
  Model model(session);
  std::vector<std::uint64_t> groups;
  file.set(model.whole(), model.whole().size());
  for (const auto& record : RecordedFile(file.path()).records()) {
    if (record.kind == "tbgp") groups.push_back(record.offset);
  }
  ASSERT_GE(groups.size(), 2u);
  const std::uint64_t group = groups[1];
  const std::uint64_t end = group + RecordedFile(file.path()).number(group, 4);
  for (std::uint64_t at = group; at < end; at += 3) {
    for (const bool tail : {false, true}) {
      for (const bool extraFrames : {false, true}) {
        SCOPED_TRACE("byte " + std::to_string(at - group) + (tail ? " and on" : "") + ", flag " +
                     std::to_string(extraFrames));
        Data data = model.whole();
        if (tail) {
          std::fill(data.begin() + static_cast<long>(at), data.begin() + static_cast<long>(end), 0);
        } else {
          data[at] ^= 0x80;
        }
        file.set(data, data.size());
        ASSERT_EQ(repair(extraFrames), 0u);
        const RecordedFile repaired(file.path());
        EXPECT_EQ(repaired.problem(), "");
        // Either the byte means nothing to the tables, or the file is that of a cut in front of the snapshot.
        if (repaired.find("mdat")->end() <= group) {
          EXPECT_EQ(model.difference(file.bytes(), group, extraFrames), "");
        } else {
          EXPECT_FALSE(tail && at + 4 < end) << "trusted";
        }
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(Repair, ARecordingWithoutFramesIsWholeAtOnce) {
  Session session = Sessions()[0];
  session.leading = 0;
  session.calls.clear();
  ASSERT_EQ(Play(session, file.path(), 0, true).status, 0u);
  const RecordedFile finished(file.path());
  EXPECT_EQ(finished.problem(), "");
  EXPECT_EQ(finished.count("vemo"), 1);
  EXPECT_EQ(finished.tracks().size(), 6u);
  const Data before = file.bytes();
  EXPECT_EQ(repair(true), 0u);
  EXPECT_TRUE(file.bytes() == before);
}

INSTANTIATE_TEST_SUITE_P(Sessions, RepairOf, ::testing::Range<std::size_t>(0, Sessions().size()));

}  // namespace
