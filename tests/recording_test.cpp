#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "engine/mp4_file.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/three_tracks.h"

namespace {

constexpr ZR_U32 kBackupUnit = 524288;
class Recording : public ::testing::Test {
 protected:
  LogCapture log;
  TempFile file;
};

TEST_F(Recording, HoldsWhatWasHandedInUnderEveryConfiguration) {
  for (unsigned bits = 0; bits < 48; ++bits) {
    SCOPED_TRACE("configuration " + std::to_string(bits));
    zrMP4_CONFIG_S config = MuxerConfig(file.path(), bits & 1 ? kBackupUnit : 0);
    config.stMuxerConfig.bCo64Flag = bits >> 1 & 1;
    config.stMuxerConfig.bConstantRate = bits >> 2 & 1;
    config.stMuxerConfig.enFormatProfile = zrMP4_FORMAT_PROFILE_E(bits >> 3 & 1);
    constexpr ZR_U32 kPreAllocUnits[] = {0, 4096, 1048576};
    config.stMuxerConfig.u32PreAllocUnit = kPreAllocUnits[bits >> 4];
    config.stMuxerConfig.u32VBufSize = bits & 1 ? 1 : 65536;
    Muxer muxer(config);
    ThreeTracks tracks(muxer);
    tracks.write(160);
    muxer.finish();
    ASSERT_EQ(muxer.destroy(), 0u);

    const RecordedFile recorded(file.path());
    tracks.findIn(recorded);
    EXPECT_EQ(recorded.text(8, 4), config.stMuxerConfig.enFormatProfile == ZR_MP4_PROFILE_MOV ? "qt  " : "mp42");
    EXPECT_EQ(recorded.outline(), kPreAllocUnits[bits >> 4] == 0 ? "ftyp mdat moov" : "ftyp mdat moov free");
    EXPECT_EQ(recorded.find("moov/trak/mdia/minf/stbl/co64") != nullptr, config.stMuxerConfig.bCo64Flag == 1);
    if (config.stMuxerConfig.u32BackupUnit == 0) continue;
    EXPECT_EQ(recorded.count("vemo"), 1);
    EXPECT_EQ(recorded.count("tbgp"), 1);
    EXPECT_EQ(recorded.count("frame"), 480);
    // Each frame's record names its track, time and kind, and the samples stand right behind their headers.
    std::size_t next[3] = {};
    const std::vector<TrackView> views = recorded.tracks();
    for (const Record& record : recorded.records()) {
      if (record.kind != "frame") continue;
      const std::size_t i = next[record.trackId - 1]++;
      const Sample& sample = views[record.trackId - 1].samples[i];
      ASSERT_EQ(record.offset + 20, sample.offset);
      ASSERT_EQ(record.size, 20 + sample.size);
      ASSERT_EQ(record.pts, i * kFrameTime);
      ASSERT_EQ(record.key, record.trackId == 1 && sample.sync);
    }
  }
}

struct Refused {
  const char* name;
  const ZR_MP4_TRACK_HANDLE ThreeTracks::*track;
  Data frame;
  bool key;
  ZR_U32 status;
  std::string message;
};

TEST_F(Recording, RefusedFramesLeaveNothingBehind) {
  const Data parameterSets = {0, 0, 0, 1, 0x67, 0x64, 0, 0x1F, 0xAC, 0, 0, 0, 1, 0x68, 0xEE, 0x3C, 0x80};
  Bytes manyUnits;
  for (int i = 0; i < 32; ++i) manyUnits.be24(1).u8(0x41).be32(0x41414141);
  constexpr auto kBackup = ZR_ERR_MP4_WRITE_BACKUP;
  constexpr auto kIllegal = ZR_ERR_MP4_ILLEGAL_PARAM;
  const Refused kBeforeAnyParameterSet = {"key frame without parameter sets",
                                          &ThreeTracks::video,
                                          Bytes().be32(1).u8(0x65).fill(30, 7),
                                          true,
                                          kBackup,
                                          "AVC I Frame error, I slice nalu cnt[1]\n"};
  const Refused kAnyTime[] = {
      {"key frame without a slice", &ThreeTracks::video, parameterSets, true, kBackup,
       "AVC I Frame error, I slice nalu cnt[0]\n"},
      {"no start code", &ThreeTracks::video, Data(50, 9), false, kIllegal, "input video frame is not annexb format\n"},
      {"too short", &ThreeTracks::video, {0, 0, 1, 0x41}, false, kIllegal, "input video frame len(4) is too short\n"},
      {"32 units", &ThreeTracks::video, manyUnits, false, kIllegal,
       "can not convert annexb to mp4 access unit, len is:256\n"},
      {"a unit of no length", &ThreeTracks::video, Bytes().be32(1).be32(1).u8(0x41).fill(9, 9), false, kBackup,
       "Get nalu type of avc failed\n"},
      {"empty audio", &ThreeTracks::audio, {}, false, kIllegal, "audio frame is invalid\n"},
      {"AAC without its header", &ThreeTracks::audio, Data(50, 9), false, kIllegal, "audio frame has no header\n"},
      {"AAC with nothing but its header", &ThreeTracks::audio, AacFrame(0), false, kIllegal, ""},
  };
  for (const ZR_U32 unit : {0u, kBackupUnit}) {
    const TempFile undisturbed;
    for (const std::string& path : {undisturbed.path(), file.path()}) {
      Muxer muxer(MuxerConfig(path, unit));
      ThreeTracks tracks(muxer);
      const auto refuse = [&](const Refused& refused) {
        SCOPED_TRACE(refused.name);
        log.clear();
        EXPECT_EQ(muxer.write(tracks.*refused.track, refused.frame, 123456789, refused.key), refused.status);
        EXPECT_TRUE(refused.message.empty() || log.has(refused.message)) << log.all();
      };
      const bool disturb = path == file.path();
      if (disturb) {
        refuse(kBeforeAnyParameterSet);
        std::for_each(std::begin(kAnyTime) + 1, std::end(kAnyTime), refuse);
      }
      tracks.write(15);
      if (disturb) std::for_each(std::begin(kAnyTime), std::end(kAnyTime), refuse);
      tracks.write(15);
      muxer.finish();
      muxer.destroy();
      tracks.findIn(RecordedFile(path));
    }
    const RecordedFile one(undisturbed.path());
    const RecordedFile other(file.path());
    EXPECT_EQ(one.bytes(0, one.find("mdat")->end()), other.bytes(0, other.find("mdat")->end()));
    EXPECT_EQ(one.size(), other.size());
  }
}

TEST_F(Recording, StartsAtAnyTime) {
  for (const ZR_U64 start : {ZR_U64{0}, ZR_U64{5000000}, ZR_U64{1} << 50}) {
    for (const int frames : {0, 1, 2, 5}) {
      SCOPED_TRACE(std::to_string(frames) + " frames from " + std::to_string(start));
      Muxer muxer(MuxerConfig(file.path(), kBackupUnit));
      const ZR_MP4_TRACK_HANDLE tracks[] = {muxer.add(VideoTrack()), muxer.add(MetaTrack())};
      for (int i = 0; i < frames; ++i) {
        const ZR_U64 pts = start + static_cast<ZR_U64>(i) * kFrameTime;
        EXPECT_EQ(muxer.write(tracks[0], i == 0 ? KeyFrame() : DeltaFrame(), pts, i == 0), 0u);
        EXPECT_EQ(muxer.write(tracks[1], Data(5), pts), 0u);
      }
      muxer.finish();
      muxer.destroy();
      const RecordedFile recorded(file.path());
      EXPECT_EQ(recorded.problem(), "");
      EXPECT_EQ(recorded.count("vemo"), 1) << "also without a frame";
      for (const TrackView& track : recorded.tracks()) {
        const std::uint64_t each = frames == 1 ? 0 : track.timeScale / 25;
        EXPECT_EQ(track.samples.size(), static_cast<std::size_t>(frames));
        EXPECT_EQ(track.duration, each * static_cast<std::uint64_t>(frames));
      }
    }
  }
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

ZR_U32 DropDuration(ZR_MP4_HANDLE, ZR_U32, ZR_U64* duration) {
  *duration = 0;
  return 1;  // is ignored
}

TEST_F(Recording, TheLastVideoTrackGivesTheMovieItsTime) {
  struct Case {
    std::vector<ZR_U32> videoTimeScales;
    std::vector<ZR_U64> videoFrames;
    std::uint64_t timeScale, duration;
  } const cases[] = {
      {{}, {}, 120000, 0},
      {{120000}, {25}, 120000, 120000},
      {{120000, 90000}, {25, 50}, 90000, 180000},
      {{90000, 120000}, {50, 25}, 120000, 120000},
  };
  for (const Case& movie : cases) {
    for (const bool hooked : {false, true}) {
      Muxer muxer(MuxerConfig(file.path()));
      for (std::size_t k = 0; k < movie.videoFrames.size(); ++k) {
        zrMP4_TRACK_INFO_S info = VideoTrack();
        info.u32TimeScale = movie.videoTimeScales[k];
        const ZR_MP4_TRACK_HANDLE video = muxer.add(info);
        for (ZR_U64 i = 0; i < movie.videoFrames[k]; ++i) muxer.write(video, KeyFrame(), i * kFrameTime, true);
      }
      const ZR_MP4_TRACK_HANDLE audio = muxer.add(AudioTrack());
      for (ZR_U64 i = 0; i < 100; ++i) muxer.write(audio, Data(50), i);
      muxer.finish(hooked ? DropDuration : nullptr);
      muxer.destroy();
      const RecordedFile recorded(file.path());
      const MovieHeader header(recorded);
      const std::vector<TrackView> tracks = recorded.tracks();
      ASSERT_EQ(tracks.size(), movie.videoFrames.size() + 1);
      EXPECT_EQ(header.timeScale, movie.timeScale);
      EXPECT_EQ(header.duration, hooked ? 0 : movie.duration);
      EXPECT_EQ(header.nextTrack, tracks.size() + 1);
      for (const TrackView& track : tracks) {
        const std::uint64_t inMovie = track.duration * movie.timeScale / track.timeScale;
        EXPECT_EQ(track.duration == 0, hooked);
        EXPECT_EQ(track.movieDuration, inMovie);
        EXPECT_EQ(track.editDuration, inMovie);
      }
    }
  }
}

TEST_F(Recording, OfAnyLengthGetsItsMovieBox) {
  constexpr ZR_U64 kHour = 3600ull * 1000000;
  const ZR_U64 times[] = {0, 5 * kHour, 9 * kHour, 14 * kHour, 18 * kHour};
  for (const bool longVideo : {true, false}) {
    zrMP4_CONFIG_S config = MuxerConfig(file.path());
    config.stMuxerConfig.bCo64Flag = ZR_TRUE;
    Muxer muxer(config);
    const ZR_MP4_TRACK_HANDLE video = muxer.add(VideoTrack());
    const ZR_MP4_TRACK_HANDLE meta = muxer.add(MetaTrack());
    for (const ZR_U64 time : times) {
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
      if (track.id == 1) {
        EXPECT_EQ(header.duration, inMovie);
      }
    }
    EXPECT_NEAR(static_cast<double>(recorded.tracks()[1].duration), 22 * 3600 * 90000.0, 90000.0);
  }
}

TEST_F(Recording, IsFinishedOnceAndAcceptsNothingAfter) {
  Muxer muxer(MuxerConfig(file.path(), kBackupUnit));
  ThreeTracks tracks(muxer);
  tracks.write(5);
  muxer.finish();
  const Data finished = RecordedFile(file.path()).bytes(0, ~0ull);
  muxer.finish(DropDuration);
  EXPECT_EQ(muxer.write(tracks.video, KeyFrame(), 0, true), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_TRUE(log.has("track not exist\n"));
  EXPECT_EQ(muxer.addBox("/moov", "abcd", {1}), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_TRUE(log.has("addAtom failed, file tail already written\n"));
  EXPECT_EQ(muxer.add(VideoTrack()), 0u);
  EXPECT_EQ(muxer.status(), ZR_ERR_MP4_CREATE_TRACK);
  EXPECT_TRUE(log.has("create track error\n"));
  EXPECT_EQ(muxer.destroy(), 0u);
  EXPECT_EQ(RecordedFile(file.path()).bytes(0, ~0ull), finished);

  Muxer reader(DemuxerConfig(file.path()));
  zrMP4_TRACK_INFO_S info;
  ZR_MP4_TRACK_HANDLE track = 0;
  EXPECT_EQ(ZR_MP4_GetTrackByIndex(reader.handle(), 0, &info, &track), 0u);
  EXPECT_NE(track, 0u);
  EXPECT_EQ(reader.write(track, KeyFrame(), 0, true), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_EQ(reader.addBox("/moov", "abcd", {1}), ZR_ERR_MP4_ILLEGAL_PARAM);
  EXPECT_EQ(reader.add(VideoTrack()), 0u);
  EXPECT_EQ(reader.status(), ZR_ERR_MP4_CREATE_TRACK);
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

TEST_F(Recording, WithoutTracksGetsNoMovieBox) {
  Muxer muxer(MuxerConfig(file.path()));
  EXPECT_EQ(muxer.finish(), 0u);
  muxer.destroy();
  EXPECT_EQ(RecordedFile(file.path()).bytes(0, 99), Bytes()
                                                        .be32(24)
                                                        .type("ftyp")
                                                        .type("mp42")
                                                        .be32(0)
                                                        .type("mp42")
                                                        .type("isom")
                                                        .be32(1)
                                                        .type("mdat")
                                                        .be64(16)
                                                        .data());
}

TEST_F(Recording, ThatNeverBeganCannotBeRead) {
  EXPECT_EQ(close(open(file.path().c_str(), O_WRONLY | O_CREAT, 0600)), 0);
  EXPECT_EQ(Muxer(DemuxerConfig(file.path())).status(), ZR_ERR_MP4_OPEN);
  EXPECT_TRUE(log.has("file size is illegal\n"));
  EXPECT_TRUE(log.has("MP4File open failed\n"));
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
    EXPECT_EQ(muxer.destroy(), 0u);
    const RecordedFile recorded(file.path());
    EXPECT_EQ(recorded.size() % kUnit, 0u);
    return recorded.size() - recorded.find("abcd")->end();
  };
  const std::size_t fits = 1 + gapAfter(1);
  for (std::size_t gap = 0; gap < 20; ++gap) {
    ASSERT_EQ(gapAfter(fits - gap), gap);
    // Deliberate: no allowance is made for a gap smaller than the header of the free box.
    if (gap > 0 && gap < 8) continue;
    EXPECT_EQ(RecordedFile(file.path()).problem(), "") << "gap of " << gap;
  }
}

TEST_F(Recording, ADescriptorWinsOverTheNameAndStaysTheCallers) {
  const int fd = open(file.path().c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
  const Data old(300000, 0xEE);
  ASSERT_EQ(write(fd, old.data(), old.size()), static_cast<ssize_t>(old.size()));
  const TempFile other;
  zrMP4_CONFIG_S config = MuxerConfig(other.path());
  config.s32Fd = fd;
  {
    Muxer muxer(config);
    ThreeTracks tracks(muxer);
    tracks.write(10);
    EXPECT_EQ(close(fd), 0);  // the library has its own
    tracks.write(10);
    muxer.finish();
    EXPECT_EQ(muxer.destroy(), 0u);
    tracks.findIn(RecordedFile(file.path()));
    EXPECT_NE(access(other.path().c_str(), F_OK), 0);
  }
  zrMP4_CONFIG_S reading = DemuxerConfig("");
  reading.s32Fd = open(file.path().c_str(), O_RDONLY);
  EXPECT_EQ(Muxer(reading).status(), 0u);
  EXPECT_EQ(close(reading.s32Fd), 0);

  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  config.s32Fd = ends[1];
  EXPECT_EQ(Muxer(config).status(), ZR_ERR_MP4_OPEN_FILE);
  EXPECT_EQ(close(ends[0]) + close(ends[1]), 0);
}

TEST_F(Recording, UserBoxesStandWhereTheyWereAdded) {
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
    for (const auto& [path, parent, size] : {std::tuple{"moov/aaaa", "moov", 11u},
                                             {"moov/trak[1]/cccc", "moov/trak[1]", 8u},
                                             {"moov/trak[1]/mdia/minf/dddd", "moov/trak[1]/mdia/minf", 9u}}) {
      ASSERT_NE(recorded.find(path), nullptr) << path;
      EXPECT_EQ(recorded.find(path)->size, size);
      if (size == 11) continue;  // tracks were added behind it
      EXPECT_EQ(recorded.find(parent)->children.back().offset, recorded.find(path)->offset);
    }
    EXPECT_EQ(recorded.bytes(recorded.find("bbbb")->payload(), 700), Data(700, 7));
    if (unit == 0) continue;
    // Each is followed by its path: a record of header, box and path.
    EXPECT_EQ(recorded.count("user"), 4);
    EXPECT_EQ(recorded.bytes(recorded.find("mdat")->payload(), 36),
              Bytes().be32(0).be32(0).be64(0).be32(16).be32(11).type("aaaa").u8(1).u8(2).u8(3).text("/moov").data());
  }
}

TEST_F(Recording, EveryPayloadCanBeQueried) {
  {
    Muxer muxer(MuxerConfig(file.path()));
    ThreeTracks tracks(muxer);
    tracks.write(30);
    muxer.addBox("/moov/trak[2]", "note", Data(100, 3));
    muxer.finish();
  }
  const RecordedFile recorded(file.path());
  const Muxer reader(DemuxerConfig(file.path()));
  for (const std::string path :
       {"moov", "ftyp", "moov/trak[0]", "moov/trak[1]/mdia/minf/stbl/stsd/mp4a", "moov/trak[2]/note", "moov/mvhd"}) {
    SCOPED_TRACE(path);
    const Box* box = recorded.find(path);
    const Data payload = recorded.bytes(box->payload(), box->size - box->headerSize);
    zrMP4_ATOM_INFO_S info = {};
    EXPECT_EQ(ZR_MP4_GetAtom(reader.handle(), ("/" + path).c_str(), &info), ZR_ERR_MP4_ATOM_BUF);
    ASSERT_EQ(info.u32DataLen, payload.size());
    Data copy(payload.size() + 10);
    info.pu8DataBuf = copy.data();
    info.u32DataLen = static_cast<ZR_U32>(payload.size() - 1);
    EXPECT_EQ(ZR_MP4_GetAtom(reader.handle(), ("/" + path).c_str(), &info), ZR_ERR_MP4_ATOM_BUF);
    EXPECT_EQ(copy, Data(payload.size() + 10));
    info.u32DataLen = static_cast<ZR_U32>(copy.size());
    EXPECT_EQ(ZR_MP4_GetAtom(reader.handle(), ("/" + path).c_str(), &info), 0u);
    EXPECT_EQ(info.u32DataLen, payload.size());
    EXPECT_EQ(info.aszType, box->type);
    copy.resize(payload.size());
    EXPECT_EQ(copy, payload);
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

TEST_F(Recording, Of64BitOffsetsGoesBeyond4GiB) {
  zrMP4_CONFIG_S config = MuxerConfig(file.path());
  config.stMuxerConfig.bCo64Flag = ZR_TRUE;
  Muxer muxer(config);
  ThreeTracks tracks(muxer);
  for (const std::uint64_t position : {0xFFFFFFF0ull, 0x123456789Aull}) {
    tracks.write(3);
    SkipTo(muxer, position);
  }
  tracks.write(3);
  muxer.finish();
  EXPECT_EQ(muxer.destroy(), 0u);
  const RecordedFile recorded(file.path());
  tracks.findIn(recorded);
  EXPECT_GE(recorded.tracks()[0].samples.back().offset, 0x123456789Aull);
}

TEST_F(Recording, Of32BitOffsetsSaysWhenItIsFull) {
  constexpr std::uint64_t kLimit = 4284229877;
  // Another true value gives 64-bit offsets, but only the value 1 the large limit.
  for (const ZR_BOOL co64 : {0u, 1u, 2u}) {
    SCOPED_TRACE(co64);
    zrMP4_CONFIG_S config = MuxerConfig(file.path());
    config.stMuxerConfig.bCo64Flag = co64;
    Muxer muxer(config);
    const ZR_MP4_TRACK_HANDLE meta = muxer.add(MetaTrack());
    EXPECT_EQ(muxer.write(meta, Data(100), 0), 0u);
    SkipTo(muxer, Engine(muxer).stream()->getCurPos() + kLimit - Engine(muxer).header().largeSize - 300);
    EXPECT_EQ(muxer.write(meta, Data(100), kFrameTime), 0u);
    const ZR_U32 full = co64 == ZR_TRUE ? 0 : ZR_ERR_MP4_FILE_SIZE;
    EXPECT_EQ(muxer.write(meta, Data(300), 2 * kFrameTime), full);
    SkipTo(muxer, 0xFFFFFFFF);
    EXPECT_EQ(muxer.write(meta, Data(100), 3 * kFrameTime), full) << "the last offset of 32 bits";
    const std::uint64_t before = Engine(muxer).stream()->getCurPos();
    EXPECT_EQ(muxer.write(meta, Data(100), 4 * kFrameTime), full);
    EXPECT_EQ(Engine(muxer).stream()->getCurPos() == before, co64 == 0) << "and no offset is left";
    muxer.finish();
    EXPECT_EQ(muxer.destroy(), 0u);
    const RecordedFile recorded(file.path());
    EXPECT_EQ(recorded.problem(), "");
    EXPECT_EQ(recorded.tracks()[0].samples.size(), co64 == 0 ? 4u : 5u);
  }
}

}  // namespace
