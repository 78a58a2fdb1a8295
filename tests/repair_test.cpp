#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/log_capture.h"
#include "tests/support/session.h"

namespace {

class Repair : public ::testing::Test {
 protected:
  ZR_U32 repair(bool extraFrames) { return ZR_MP4_RepairFile(file.path().c_str(), extraFrames); }
  // Offsets of the snapshots in the file.
  std::vector<std::uint64_t> groups() const {
    std::vector<std::uint64_t> offsets;
    for (const Record& record : RecordedFile(file.path()).records()) {
      if (record.kind == "tbgp") offsets.push_back(record.offset);
    }
    return offsets;
  }

  LogCapture log;
  MemoryFile file;
};

// What a damaged snapshot costs: everything behind it, unless the flag recovers the frames up to it.
TEST_F(Repair, ADamagedSnapshotEndsTheSnapshots) {
  const Session& session = Sessions()[2];
  Model model(session);
  file.set(model.whole(), model.whole().size());
  ASSERT_GE(groups().size(), 2u);
  const std::uint64_t group = groups()[1];
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
  session.calls = {{Call::kBox, {}, 0, false, "/moov"}};
  ASSERT_EQ(Play(session, file.path(), 1, true).status, 0u);
  const RecordedFile finished(file.path());
  EXPECT_EQ(finished.problem(), "");
  EXPECT_EQ(finished.count("vemo"), 1);
  EXPECT_EQ(finished.tracks().size(), 6u);
  Data before = file.bytes();
  ++before[finished.find("moov/mvhd")->payload() + 6];  // as if it had been made a while ago
  file.set(before, before.size());
  EXPECT_EQ(repair(true), 0u);
  EXPECT_TRUE(file.bytes() == before);
}

TEST_F(Repair, FindsParameterSetsBehindTheFirstSnapshot) {
  Session session = Sessions().back();
  session.calls.insert(session.calls.begin(), {0, DeltaFrame(3300), 7000000000});
  Model model(session);
  file.set(model.whole(), model.whole().size());
  ASSERT_EQ(repair(true), 0u);
  EXPECT_EQ(model.difference(file.bytes(), model.whole().size(), true), "");
}

TEST_F(Repair, ASnapshotOfAnotherSizeIsNotTrusted) {
  Model model(Sessions()[2]);
  Data data = model.whole();
  file.set(data, data.size());
  const std::uint64_t group = groups().at(1);
  data[group + 3] = static_cast<std::uint8_t>(data[group + 3] + 4);
  file.set(data, data.size());
  ASSERT_EQ(repair(true), 0u);
  EXPECT_EQ(model.difference(file.bytes(), group, true), "");
}

TEST_F(Repair, AConfigurationThatWasCutInReservedSpaceIsNone) {
  const Model model(Sessions()[1]);
  const Record& vemo = model.records().at(0);
  ASSERT_EQ(vemo.kind, "vemo");
  for (std::uint64_t written = 12; written < vemo.size - 4; written += 9) {
    file.set(model.whole(), vemo.offset + written, 9000);
    const Data before = file.bytes();
    EXPECT_EQ(repair(true), ZR_ERR_MP4_NO_TRACK_CFG) << written;
    EXPECT_TRUE(file.bytes() == before);
  }
}

// The seventh track, or one that came after the first frame.
TEST_F(Repair, TracksThatAreNotProtectedCostTheOthersNothing) {
  constexpr std::size_t kTracks = 7;
  for (const std::size_t atFirst : {kTracks, std::size_t{2}}) {
    SCOPED_TRACE(std::to_string(atFirst) + " tracks at first");
    log.clear();
    zrMP4_CONFIG_S config = MuxerConfig(file.path(), 524288);
    config.stMuxerConfig.u32VBufSize = 1;
    Muxer muxer(config);
    std::vector<ZR_MP4_TRACK_HANDLE> tracks;
    std::vector<std::size_t> written(kTracks);
    for (std::size_t round = 0; round < 60; ++round) {
      while (tracks.size() < (round < 3 ? atFirst : kTracks)) tracks.push_back(muxer.add(MetaTrack()));
      for (std::size_t i = 0; i < tracks.size(); ++i) {
        ASSERT_EQ(muxer.write(tracks[i], Data(3000 + i, static_cast<std::uint8_t>(round + 1)), round * 40000), 0u);
        ++written[i];
      }
    }
    const std::size_t kept = std::min<std::size_t>(atFirst, 6);
    for (std::size_t i = kept; i < kTracks; ++i) {
      const std::string name = std::to_string(i + 1);
      EXPECT_TRUE(log.has("track[" + name + "] is not protected, it cannot be repaired after a cut\n"));
    }
    const Data cut = file.bytes();
    const auto check = [&](std::size_t count) {
      const RecordedFile recorded(file.path());
      EXPECT_EQ(recorded.problem(), "");
      ASSERT_EQ(recorded.tracks().size(), count);
      for (std::size_t i = 0; i < count; ++i) {
        const TrackView track = recorded.tracks()[i];
        ASSERT_EQ(track.samples.size(), written[i]);
        EXPECT_EQ(recorded.bytes(track.samples.back()), Data(3000 + i, 60));
      }
    };
    ASSERT_EQ(muxer.finish(), 0u);
    ASSERT_EQ(muxer.destroy(), 0u);
    check(kTracks);
    file.set(cut, cut.size());
    ASSERT_EQ(repair(true), 0u);
    check(kept);
  }
}

// A frame of some GiB, of which nothing needs to be there, brings the next one beyond what 32 bits can tell.
TEST_F(Repair, FramesBeyondTheReachOf32BitOffsetsAreDropped) {
  for (const bool wide : {false, true}) {
    Session session = {"far", 16777216, 65536, 0, wide ? ZR_TRUE : ZR_FALSE, ZR_FALSE, {MetaTrack()}};
    session.calls = {{0, Data(50, 1), 0}, {0, Data(60, 2), 40000}, {0, Data(70, 3), 80000}};
    const Outcome outcome = Play(session, file.path(), 3, false);
    Data data = file.bytes();
    const std::uint32_t size = 0xFFFFFFF0;
    const std::uint64_t second = outcome.ends[0];
    for (std::size_t i = 0; i < 4; ++i) data[second + 16 + i] = static_cast<std::uint8_t>(size >> (24 - 8 * i));
    file.set(data, second + 20);
    const std::uint64_t third = second + 20 + size;
    ASSERT_EQ(pwrite(file.descriptor(), &data[outcome.ends[1]], 90, static_cast<off_t>(third)), 90);
    ASSERT_EQ(repair(true), 0u);
    const RecordedFile repaired(file.path());
    EXPECT_EQ(repaired.problem(), "");
    EXPECT_EQ(repaired.tracks().at(0).samples.size(), wide ? 3u : 2u);
  }
}

// Some encoders fill frames up to a size: not to be taken for pages that never reached the disk.
TEST_F(Repair, AFrameFilledWithZerosIsKeptWhereTheRecordsGoOn) {
  Data filled = KeyFrame(3000);
  filled.resize(16000);
  Session session = {"filled", 65536, 1, 0, ZR_FALSE, ZR_FALSE, {VideoTrack()}};
  session.calls = {{0, filled, 0, true}, {0, DeltaFrame(), 40000}, {0, filled, 80000, true}};
  const Outcome outcome = Play(session, file.path(), 3, false);
  ASSERT_EQ(outcome.statuses, std::vector<ZR_U32>(3));
  ASSERT_EQ(repair(true), 0u);
  const RecordedFile repaired(file.path());
  EXPECT_EQ(repaired.problem(), "");
  EXPECT_EQ(repaired.tracks().at(0).samples.size(), 2u) << "the last one could be a torn one";
}

TEST_F(Repair, AFileWithTwoMoviesIsReadAndLeftAlone) {
  const Session& session = Sessions()[3];
  ASSERT_EQ(Play(session, file.path(), session.calls.size(), true).status, 0u);
  Data data = file.bytes();
  const RecordedFile finished(file.path());
  const Data movie = finished.bytes(finished.find("moov")->offset, finished.find("moov")->size);
  data.insert(data.end(), movie.begin(), movie.end());
  file.set(data, data.size());
  EXPECT_EQ(repair(true), 0u);
  EXPECT_TRUE(file.bytes() == data);
  ZR_MP4_HANDLE handle = 0;
  const zrMP4_CONFIG_S config = DemuxerConfig(file.path());
  ASSERT_EQ(ZR_MP4_Create(&handle, &config), 0u);
  EXPECT_EQ(ZR_MP4_DestroyAllTracks(handle, nullptr), 0u);
  EXPECT_EQ(ZR_MP4_Destroy(handle, nullptr), 0u);
}

}  // namespace
