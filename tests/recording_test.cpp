#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>

#include "engine/mp4_file.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/session.h"
#include "tests/support/three_tracks.h"

namespace {

constexpr ZR_U32 kBackupUnit = 524288;

class Recording : public ::testing::Test {
 protected:
  Data content() const { return RecordedFile(file.path()).bytes(0, ~0ull); }

  LogCapture log;
  TempFile file;
};

TEST_F(Recording, HoldsWhatWasHandedInUnderEveryConfiguration) {
  for (unsigned bits = 0; bits < 48; ++bits) {
    SCOPED_TRACE("configuration " + std::to_string(bits));
    constexpr ZR_U32 kPreAllocUnits[] = {0, 4096, 1048576};
    zrMP4_CONFIG_S config = MuxerConfig(file.path(), bits & 1 ? kBackupUnit : 0);
    auto& chosen = config.stMuxerConfig;
    chosen.bCo64Flag = bits >> 1 & 1;
    chosen.bConstantRate = bits >> 2 & 1;
    chosen.enFormatProfile = zrMP4_FORMAT_PROFILE_E(bits >> 3 & 1);
    chosen.u32PreAllocUnit = kPreAllocUnits[bits >> 4];
    chosen.u32VBufSize = bits & 1 ? 1 : 65536;
    const TempFile other;
    if (bits % 5 == 0) {  // a descriptor wins over the name, and is copied
      other.path().copy(config.aszFileName, sizeof(config.aszFileName));
      config.s32Fd = open(file.path().c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    }
    Muxer muxer(config);
    if (config.s32Fd != -1) close(config.s32Fd);
    ThreeTracks tracks(muxer);
    tracks.write(160);
    muxer.finish();
    ASSERT_EQ(muxer.destroy(), 0u);

    const RecordedFile recorded(file.path());
    tracks.findIn(recorded);
    EXPECT_NE(access(other.path().c_str(), F_OK), 0);
    EXPECT_EQ(recorded.text(8, 4), chosen.enFormatProfile == ZR_MP4_PROFILE_MOV ? "qt  " : "mp42");
    EXPECT_EQ(recorded.outline(), chosen.u32PreAllocUnit == 0 ? "ftyp mdat moov" : "ftyp mdat moov free");
    EXPECT_EQ(recorded.find("moov/trak/mdia/minf/stbl/co64") != nullptr, chosen.bCo64Flag == 1);
    if (chosen.u32BackupUnit == 0) continue;
    EXPECT_TRUE(recorded.count("vemo") == 1 && recorded.count("tbgp") == 1 && recorded.count("frame") == 480);
    // Each frame's record names its track, time and kind, and the samples stand right behind their headers.
    std::size_t next[3] = {};
    const std::vector<TrackView> views = recorded.tracks();
    for (const Record& record : recorded.records()) {
      if (record.kind != "frame") continue;
      const std::size_t i = next[record.trackId - 1]++;
      const Sample& sample = views[record.trackId - 1].samples[i];
      ASSERT_TRUE(record.offset + 20 == sample.offset && record.size == 20 + sample.size);
      ASSERT_TRUE(record.pts == i * kFrameTime && record.key == (record.trackId == 1 && sample.sync));
    }
  }
}

ZR_U32 DropDuration(ZR_MP4_HANDLE, ZR_U32, ZR_U64* duration) {
  *duration = 0;
  return 1;  // is ignored
}

// mvhd of a finished file.
struct MovieHeader {
  explicit MovieHeader(const RecordedFile& file) {
    const std::uint64_t at = file.find("moov/mvhd")->payload();
    timeScale = file.number(at + 12, 4);
    duration = file.number(at + 16, 4);
    nextTrack = file.number(at + 96, 4);
  }
  std::uint64_t timeScale, duration, nextTrack;
};

TEST_F(Recording, TheLastVideoTrackGivesTheMovieItsTime) {
  const struct {
    std::vector<std::pair<ZR_U32, ZR_U64>> videos;  // time scale, frames
    ZR_U64 start;
    std::uint64_t timeScale, duration;
  } kCases[] = {
      {{}, 0, 120000, 0},
      {{{120000, 0}}, 5000000, 120000, 0},
      {{{120000, 1}}, 5000000, 120000, 0},
      {{{120000, 2}}, ZR_U64{1} << 50, 120000, 9600},
      {{{120000, 25}, {90000, 50}}, 0, 90000, 180000},
      {{{90000, 50}, {120000, 25}}, 5000000, 120000, 120000},
  };
  for (const auto& movie : kCases) {
    for (const bool hooked : {false, true}) {
      Muxer muxer(MuxerConfig(file.path()));
      for (const auto& [timeScale, frames] : movie.videos) {
        zrMP4_TRACK_INFO_S info = VideoTrack();
        info.u32TimeScale = timeScale;
        const ZR_MP4_TRACK_HANDLE video = muxer.add(info);
        for (ZR_U64 i = 0; i < frames; ++i) muxer.write(video, KeyFrame(), movie.start + i * kFrameTime, true);
      }
      const ZR_MP4_TRACK_HANDLE audio = muxer.add(AudioTrack());
      for (ZR_U64 i = 0; i < 100; ++i) muxer.write(audio, Data(50), i);
      muxer.finish(hooked ? DropDuration : nullptr);
      muxer.destroy();
      const RecordedFile recorded(file.path());
      EXPECT_TRUE(hooked || recorded.problem().empty()) << recorded.problem();
      const MovieHeader header(recorded);
      const std::vector<TrackView> tracks = recorded.tracks();
      EXPECT_EQ(header.timeScale, movie.timeScale);
      EXPECT_EQ(header.duration, hooked ? 0 : movie.duration);
      EXPECT_TRUE(header.nextTrack == tracks.size() + 1 && tracks.size() == movie.videos.size() + 1);
      EXPECT_EQ(tracks.back().duration, hooked ? 0u : 102400u);
      for (const TrackView& track : tracks) {
        const std::uint64_t inMovie = track.duration * movie.timeScale / track.timeScale;
        EXPECT_TRUE(track.movieDuration == inMovie && track.editDuration == inMovie);
      }
    }
  }
}

TEST_F(Recording, OfAnyLengthGetsItsMovieBox) {
  constexpr ZR_U64 kHour = 3600ull * 1000000;
  for (const bool longVideo : {true, false}) {
    zrMP4_CONFIG_S config = MuxerConfig(file.path());
    config.stMuxerConfig.bCo64Flag = ZR_TRUE;
    Muxer muxer(config);
    const ZR_MP4_TRACK_HANDLE video = muxer.add(VideoTrack()), meta = muxer.add(MetaTrack());
    for (const ZR_U64 time : {0 * kHour, 5 * kHour, 9 * kHour, 14 * kHour, 18 * kHour}) {
      EXPECT_EQ(muxer.write(video, KeyFrame(), longVideo ? time : time / 1000, true), 0u);
      EXPECT_EQ(muxer.write(meta, Data(5), time), 0u);
    }
    muxer.finish();
    muxer.destroy();
    const RecordedFile recorded(file.path());
    ASSERT_EQ(recorded.problem(), "");
    const MovieHeader header(recorded);
    EXPECT_EQ(header.timeScale, longVideo ? 1000u : 120000u);
    for (const TrackView& track : recorded.tracks()) {
      const std::uint64_t inMovie = track.duration * header.timeScale / track.timeScale;
      EXPECT_EQ(track.movieDuration, static_cast<std::uint32_t>(inMovie));
      EXPECT_EQ(track.editDuration, static_cast<std::uint32_t>(inMovie));
      EXPECT_TRUE(track.id != 1 || header.duration == inMovie);
    }
    EXPECT_NEAR(static_cast<double>(recorded.tracks()[1].duration), 22 * 3600 * 90000.0, 90000.0);
  }
}

TEST_F(Recording, IsFinishedOnceAndAcceptsNothingAfter) {
  Muxer muxer(MuxerConfig(file.path(), kBackupUnit));
  ThreeTracks tracks(muxer);
  tracks.write(5);
  muxer.finish();
  const Data finished = content();
  muxer.finish(DropDuration);
  const auto acceptsNothing = [](Muxer& opened, ZR_MP4_TRACK_HANDLE track) {
    EXPECT_EQ(opened.write(track, KeyFrame(), 0, true), ZR_ERR_MP4_ILLEGAL_PARAM);
    EXPECT_EQ(opened.addBox("/moov", "abcd", {1}), ZR_ERR_MP4_ILLEGAL_PARAM);
    EXPECT_EQ(opened.add(VideoTrack()), 0u);
    EXPECT_EQ(opened.status(), ZR_ERR_MP4_CREATE_TRACK);
  };
  acceptsNothing(muxer, tracks.video);
  for (const char* message :
       {"track not exist\n", "addAtom failed, file tail already written\n", "create track error\n"}) {
    EXPECT_TRUE(log.has(message)) << message;
  }
  EXPECT_EQ(muxer.destroy(), 0u);
  EXPECT_EQ(content(), finished);

  Muxer reader(DemuxerConfig(file.path()));
  zrMP4_TRACK_INFO_S info;
  ZR_MP4_TRACK_HANDLE track = 0;
  EXPECT_EQ(ZR_MP4_GetTrackByIndex(reader.handle(), 0, &info, &track), 0u);
  acceptsNothing(reader, track);
}

TEST_F(Recording, ASnapshotComesBeforeTheRecordThatWouldCrossItsPlace) {
  for (const bool box : {false, true}) {
    for (const int beyond : {0, 1}) {
      zrMP4_CONFIG_S config = MuxerConfig(file.path(), kBackupUnit);
      config.stMuxerConfig.u32VBufSize = 1;
      Muxer muxer(config);
      const ZR_MP4_TRACK_HANDLE track = muxer.add(MetaTrack());
      EXPECT_EQ(muxer.write(track, Data(50000), 0), 0u);
      const std::uint64_t room = kBackupUnit - RecordedFile(file.path()).size() - 20 + static_cast<unsigned>(beyond);
      // A box has a header and its path besides.
      EXPECT_EQ(box ? muxer.addBox("/", "note", Data(room - 9, 1)) : muxer.write(track, Data(room, 1), 0), 0u);
      EXPECT_EQ(RecordedFile(file.path()).count("tbgp"), beyond) << (box ? "box" : "frame");
    }
  }
}

TEST_F(Recording, IsReadBackAsItWasDescribed) {
  for (const ZR_U32 unit : {0u, kBackupUnit}) {
    zrMP4_TRACK_INFO_S given[] = {VideoTrack(ZR_MP4_CODEC_PRORES_LT), AudioTrack(ZR_MP4_CODEC_AAC), MetaTrack(),
                                  AudioTrack(ZR_MP4_CODEC_G711U)};
    given[0].fSpeed = 2.0f;
    given[1].stAudioInfo = {2, 48000, 960, 16, ZR_MP4_CODEC_AAC};
    zrMP4_CONFIG_S config = MuxerConfig(file.path(), unit);
    config.stMuxerConfig.bCo64Flag = unit != 0;
    Muxer muxer(config);
    std::vector<ZR_MP4_TRACK_HANDLE> tracks;
    for (const zrMP4_TRACK_INFO_S& track : given) tracks.push_back(muxer.add(track));
    for (ZR_U64 i = 0; i < 20; ++i) {
      EXPECT_EQ(muxer.write(tracks[0], {}, 2 * i * kFrameTime), 0u);
      EXPECT_EQ(muxer.write(tracks[2], {}, i * kFrameTime), 0u);
    }
    muxer.finish();
    muxer.destroy();

    Muxer reader(DemuxerConfig(file.path()));
    zrMP4_FILE_INFO_S info = {};
    EXPECT_EQ(ZR_MP4_GetFileInfo(reader.handle(), &info), 0u);
    EXPECT_EQ(info.u32Duration, 800u);  // twice the speed
    EXPECT_STREQ(info.aszHdlrName, "VideoHandler");
    EXPECT_EQ(info.bCo64Flag, config.stMuxerConfig.bCo64Flag);
    EXPECT_EQ(info.u32TrackNum, 4u);
    EXPECT_EQ(info.u32BackupUnit, unit);
    for (ZR_U32 i = 0; i < 4; ++i) {
      SCOPED_TRACE("track " + std::to_string(i));
      zrMP4_TRACK_INFO_S track = {};
      ZR_MP4_TRACK_HANDLE handle = 0;
      EXPECT_EQ(ZR_MP4_GetTrackByIndex(reader.handle(), i, &track, &handle), 0u);
      EXPECT_NE(handle, 0u);
      EXPECT_EQ(track.enTrackType, given[i].enTrackType);
      EXPECT_EQ(track.u32TimeScale, given[i].u32TimeScale);
      EXPECT_EQ(track.fSpeed, unit != 0 ? given[i].fSpeed : 1.0f);
      EXPECT_STREQ(track.aszHdlrName, given[i].aszHdlrName);
      if (track.enTrackType == ZR_MP4_TRACK_AUDIO) {
        const zrMP4_AUDIO_INFO_S& audio = given[i].stAudioInfo;
        EXPECT_EQ(track.stAudioInfo.u32Channels, audio.u32Channels);
        EXPECT_EQ(track.stAudioInfo.u32SampleRate, audio.u32SampleRate);
        EXPECT_EQ(track.stAudioInfo.u32SamplePerFrame, unit != 0 ? audio.u32SamplePerFrame : 0);
        EXPECT_EQ(track.stAudioInfo.u16SampleSize, audio.u16SampleSize);
        EXPECT_EQ(track.stAudioInfo.enCodecID, audio.enCodecID);
      } else if (track.enTrackType == ZR_MP4_TRACK_VIDEO) {
        EXPECT_EQ(track.stVideoInfo.u32Width, 640u);
        EXPECT_EQ(track.stVideoInfo.u32Height, 360u);
        EXPECT_EQ(track.stVideoInfo.u32BitRate, RecordedFile(file.path()).size() * 1000 / 800 * 8);
        EXPECT_EQ(track.stVideoInfo.u32FrameRate, 25u);
        EXPECT_EQ(track.stVideoInfo.enCodecID, ZR_MP4_CODEC_PRORES_LT);
      } else {
        EXPECT_EQ(track.stMetaInfo.u32FrameRate, 25u);
      }
    }
    zrMP4_TRACK_INFO_S track = {};
    ZR_MP4_TRACK_HANDLE handle = 0;
    EXPECT_EQ(ZR_MP4_GetTrackByIndex(reader.handle(), 4, &track, &handle), ZR_ERR_MP4_ILLEGAL_PARAM);
  }
}

// Steady with jitter around the tolerance, or with steps that a recorder meets: small ones back, discontinuities.
TEST_F(Recording, IsRepairedToTheDurationsThatItHadWhateverItsTimes) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    std::mt19937 random(seed);
    Session session;
    session.unit = 4096;
    session.tracks = {VideoTrack(), MetaTrack()};
    ZR_U64 now = seed % 3 == 0 ? 0 : ZR_U64{1} << 36;
    for (std::size_t i = 0, calls = 1 + random() % 100; i < calls; ++i) {
      const bool empty = random() % 8 == 0, key = !empty && random() % 4 == 0;
      const int track = random() % 4 == 0;
      session.calls.push_back({track, empty ? Data() : key ? KeyFrame(200) : DeltaFrame(200), now, key, {}});
      const unsigned step = seed % 2 == 0 ? 16 : random() % 16;
      now += step == 0 ? random() % 3000000 : step == 1 ? ZR_U64{0} - random() % 900000 : 39000 + random() % 2000;
      if (step == 2) now -= 2000000 + random() % 100000000;
      if (step == 3 && random() % 4 == 0) now += ZR_U64{1} << 40;
    }
    Model model(session);
    MemoryFile cut;
    cut.set(model.whole(), model.whole().size());
    ASSERT_EQ(ZR_MP4_RepairFile(cut.path().c_str(), ZR_TRUE), 0u);
    EXPECT_EQ(model.difference(cut.bytes(), model.whole().size(), true), "") << seed;
  }
}

TEST_F(Recording, WithoutTracksGetsNoMovieBox) {
  EXPECT_EQ(Muxer(MuxerConfig(file.path())).finish(), 0u);
  const Bytes ftyp = Bytes().be32(24).type("ftyp").type("mp42").be32(0).type("mp42").type("isom");
  EXPECT_EQ(Bytes(ftyp).be32(1).type("mdat").be64(16).difference(content()), "");
  EXPECT_EQ(truncate(file.path().c_str(), 0), 0);
  EXPECT_EQ(Muxer(DemuxerConfig(file.path())).status(), ZR_ERR_MP4_OPEN);
  EXPECT_TRUE(log.has("file size is illegal\n") && log.has("MP4File open failed\n"));
}

TEST_F(Recording, EndsWithItsLastBoxInsideTheLastReservedUnit) {
  constexpr ZR_U32 kUnit = 4096;
  // The size of the free box when a top-level box of this size stands before it.
  const auto gapAfter = [&](std::size_t payload) {
    zrMP4_CONFIG_S config = MuxerConfig(file.path());
    config.stMuxerConfig.u32PreAllocUnit = kUnit;
    Muxer muxer(config);
    muxer.write(muxer.add(AudioTrack()), Data(10), 0);
    EXPECT_EQ(muxer.addBox("/", "abcd", Data(payload, 1)), 0u);
    muxer.finish();
    muxer.destroy();
    const RecordedFile recorded(file.path());
    EXPECT_EQ(recorded.size() % kUnit, 0u);
    return recorded.size() - recorded.find("abcd")->end();
  };
  const std::size_t fits = 1 + gapAfter(1);
  for (std::size_t gap = 0; gap < 20; ++gap) {
    ASSERT_EQ(gapAfter(fits - gap), gap);
    // Deliberate: no allowance is made for a gap smaller than the header of the free box.
    EXPECT_EQ(RecordedFile(file.path()).problem().empty(), gap == 0 || gap >= 8) << "gap of " << gap;
  }

  zrmp4::MP4File full;
  ASSERT_EQ(full.Open(file.path(), -1, "w", 65537, 1), 0u);
  ASSERT_EQ(full.stream()->seek(0xFFFFFFF0, 0), 0);
  EXPECT_EQ(full.WriteFreeBox(), -1);  // its end would be the last number of 32 bits
  EXPECT_TRUE(log.has("WriteFreeBox:201 multi failed\n"));
}

TEST_F(Recording, UserBoxesStandWhereTheyWereAddedAndCanBeQueried) {
  for (const ZR_U32 unit : {0u, kBackupUnit}) {
    Muxer muxer(MuxerConfig(file.path(), unit));
    EXPECT_EQ(muxer.addBox("/moov", "aaaa", {1, 2, 3}), 0u) << "before any track";
    ThreeTracks tracks(muxer);
    tracks.write(2);
    EXPECT_EQ(muxer.addBox("/", "bbbb", Data(700, 7)), 0u);
    EXPECT_EQ(muxer.addBox("/moov/trak[1]", "cccc", {}), 0u);
    EXPECT_EQ(muxer.addBox("/moov/trak[1]/mdia/minf", "dddd", {9}), 0u);
    EXPECT_EQ(muxer.addBox("/moov/none", "eeee", {9}), ZR_ERR_MP4_ILLEGAL_PARAM);
    EXPECT_TRUE(log.has("get pParentAtom[/moov/none] failed\n"));
    tracks.write(2);
    muxer.finish();
    EXPECT_EQ(muxer.destroy(), 0u);

    const RecordedFile recorded(file.path());
    tracks.findIn(recorded);
    EXPECT_EQ(recorded.outline(), "ftyp mdat moov bbbb");
    for (const char* parent : {"moov/trak[1]", "moov/trak[1]/mdia/minf"}) {
      const std::string type = recorded.find(parent)->children.back().type;
      EXPECT_TRUE(type == "cccc" || type == "dddd") << type;
    }
    if (unit != 0) {  // each is followed by its path: a record of header, box and path
      EXPECT_EQ(recorded.count("user"), 4);
      EXPECT_EQ(Bytes().fill(16).be32(16).be32(11).type("aaaa").u8(1).u8(2).u8(3).text("/moov")
                    .difference(recorded.bytes(recorded.find("mdat")->payload(), 36)), "");
    }
    const Muxer reader(DemuxerConfig(file.path()));
    for (const std::string path : {"moov", "ftyp", "bbbb", "moov/aaaa", "moov/trak[0]", "moov/trak[1]/cccc",
                                   "moov/trak[1]/mdia/minf/stbl/stsd/mp4a", "moov/trak[1]/mdia/minf/dddd"}) {
      SCOPED_TRACE(path);
      const Box* box = recorded.find(path);
      const Data payload = recorded.bytes(box->payload(), box->size - box->headerSize);
      Data copy(payload.size() + 10);
      zrMP4_ATOM_INFO_S info = {};
      const auto query = [&] { return ZR_MP4_GetAtom(reader.handle(), ("/" + path).c_str(), &info); };
      EXPECT_EQ(query(), payload.empty() ? 0 : ZR_ERR_MP4_ATOM_BUF);
      ASSERT_EQ(info.u32DataLen, payload.size());
      if (payload.empty()) continue;
      info.pu8DataBuf = copy.data();
      info.u32DataLen = static_cast<ZR_U32>(payload.size() - 1);
      EXPECT_EQ(query(), ZR_ERR_MP4_ATOM_BUF);
      EXPECT_EQ(copy, Data(payload.size() + 10));
      info.u32DataLen = static_cast<ZR_U32>(copy.size());
      EXPECT_EQ(query(), 0u);
      copy.resize(info.u32DataLen);
      EXPECT_EQ(copy, payload);
      EXPECT_EQ(info.aszType, box->type);
    }
  }
}

zrmp4::MP4File& Engine(const Muxer& muxer) { return *reinterpret_cast<zrmp4::MP4File*>(muxer.handle()); }

// As if the media data reached up to there: the file has a hole.
void SkipTo(const Muxer& muxer, std::uint64_t position) {
  zrmp4::MP4File& file = Engine(muxer);
  std::uint64_t gap = position - file.stream()->getCurPos();
  ASSERT_EQ(file.stream()->seek(static_cast<long long>(position), SEEK_SET), 0);
  while (gap > 0) {
    const auto step = static_cast<ZR_U32>(std::min<std::uint64_t>(gap, 0xFFFFFFFF));
    file.GetAtom("mdat")->IncreaseSize(step);
    gap -= step;
  }
}

TEST_F(Recording, Of32BitOffsetsSaysWhenItIsFull) {
  constexpr std::uint64_t kLimit = 4284229877;
  // Another true value gives 64-bit offsets, but only the value 1 the large limit.
  for (const ZR_BOOL co64 : {0u, 1u, 2u}) {
    zrMP4_CONFIG_S config = MuxerConfig(file.path());
    config.stMuxerConfig.bCo64Flag = co64;
    Muxer muxer(config);
    const ZR_MP4_TRACK_HANDLE meta = muxer.add(MetaTrack());
    EXPECT_EQ(muxer.write(meta, Data(100), 0), 0u);
    SkipTo(muxer, Engine(muxer).stream()->getCurPos() + kLimit - Engine(muxer).header().largeSize - 300);
    EXPECT_EQ(muxer.write(meta, Data(100), kFrameTime), 0u);
    const ZR_U32 full = co64 == ZR_TRUE ? 0 : ZR_ERR_MP4_FILE_SIZE;
    EXPECT_EQ(muxer.write(meta, Data(300), 2 * kFrameTime), full) << co64;
    SkipTo(muxer, 0xFFFFFFFF);
    EXPECT_EQ(muxer.write(meta, Data(100), 3 * kFrameTime), full) << "the last offset of 32 bits";
    const std::uint64_t before = Engine(muxer).stream()->getCurPos();
    EXPECT_EQ(muxer.write(meta, Data(100, 9), 4 * kFrameTime), full) << co64;
    EXPECT_EQ(Engine(muxer).stream()->getCurPos() == before, co64 == 0) << "and no offset is left";
    muxer.finish();
    EXPECT_EQ(muxer.destroy(), 0u);
    const RecordedFile recorded(file.path());
    EXPECT_EQ(recorded.problem(), "");
    const std::vector<Sample> samples = recorded.tracks()[0].samples;
    EXPECT_EQ(samples.size(), co64 == 0 ? 4u : 5u);
    EXPECT_EQ(recorded.bytes(samples.back()), Data(100, co64 == 0 ? 0 : 9)) << "also beyond 4 GiB";
  }
}

}  // namespace
