#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "box/audio_entry.h"
#include "box/avc_entry.h"
#include "box/track_boxes.h"
#include "tests/support/box_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/parameter_set_bytes.h"
#include "tests/support/recording.h"
#include "track/annexb.h"
#include "track/nal_track.h"
#include "track/record_walker.h"
#include "track/track.h"

using namespace zrmp4;

namespace {

// One track over a file in memory, fed as a session feeds it.
struct TrackRig {
  explicit TrackRig(TrakAtom::CodecType codec, ZR_U32 timescale = 120000, float speed = 1.0f, int constantRate = -1,
                    const Data& file = {})
      : stream(file) {
    const auto kind = codec <= TrakAtom::CODEC_PRORES_HQ ? TrakAtom::TRAK_VIDEO
                      : codec <= TrakAtom::CODEC_G711U   ? TrakAtom::TRAK_AUDIO
                                                         : TrakAtom::TRAK_META;
    trak.reset(TrakAtom::create(kind, kId, "a handler of more than 31 characters", codec, timescale, ZR_FALSE));
    EXPECT_EQ(trak->init(), 0);
    trak->SetAudioConfig(2, 16, 48000, 1024);
    track.reset(Track::create(&stream, trak.get(), &mdat, speed, std::max(constantRate, 0), constantRate >= 0));
  }

  ZR_U32 write(const Data& frame, ZR_U64 pts, bool key = false) {
    Track::Mp4Sample sample;
    const ZR_U8* data = frame.empty() ? nullptr : frame.data();
    const int cut = track->FrameToSample(data, static_cast<ZR_U32>(frame.size()), pts, key, &sample);
    if (cut != 0) return static_cast<ZR_U32>(cut);
    const ZR_U32 refused = track->ExamineSample(sample);
    if (refused != 0) return refused;
    EXPECT_TRUE(track->ReserveEntries());
    return track->WriteSample(sample);
  }

  template <typename Table>
  auto entries(const char* type) const {
    const auto& listed = trak->Find<Table>((std::string("mdia/minf/stbl/") + type).c_str())->entries();
    std::vector<std::decay_t<decltype(*listed.begin())>> all;
    for (const auto& entry : listed) all.push_back(entry);
    return all;
  }
  std::vector<ZR_U32> sizes() const { return entries<StszAtom>("stsz"); }
  std::vector<ZR_U32> durations() const {  // one for each sample that has one
    std::vector<ZR_U32> all;
    for (const auto& run : entries<SttsAtom>("stts")) all.insert(all.end(), run.sampleCount, run.sampleDelta);
    return all;
  }

  static constexpr ZR_U32 kId = 7;

  ShortStream stream;
  MdatAtom mdat;
  std::unique_ptr<TrakAtom> trak;
  std::unique_ptr<Track> track;
};

// Where the start codes of a frame end as a shift register finds them, byte by byte.
std::vector<long> CodesByRegister(const Data& frame) {
  std::vector<long> ends;
  std::uint32_t seen = 0xFFFFFFFF;
  for (std::size_t at = 0; at < frame.size(); ++at) {
    seen = seen << 8 | frame[at];
    if ((seen & 0xFFFFFF) == 1) ends.push_back(static_cast<long>(at) + 1);
  }
  return ends;
}

Data RandomBytes(std::mt19937& random, std::size_t size) {
  Data bytes(size);
  const std::size_t zeros = random() % 60, ones = random() % 30;
  for (auto& byte : bytes) {
    const std::size_t kind = random() % 100;
    byte = kind < zeros ? 0 : kind < zeros + ones ? 1 : static_cast<std::uint8_t>(random());
  }
  return bytes;
}

TEST(StartCodes, EverySearchFindsThemEverywhere) {
  StartCodeSearch searches[kMaxStartCodeSearches];
  const ZR_U32 count = StartCodeSearches(searches);
  ASSERT_GE(count, 2u);
  std::mt19937 random(1);
  const auto check = [&](const Data& bytes) {
    const Data exact(bytes);  // so that reading past it shows
    const ZR_U8* end = exact.data() + exact.size();
    for (ZR_U32 i = 0; i < count; ++i) {
      const ZR_U8* at = searches[i](exact.data(), end);
      for (const long code : CodesByRegister(bytes)) {
        ASSERT_EQ(at - exact.data() + 1, code) << "search " << i << ", " << bytes.size();
        at = searches[i](at + 1, end);
      }
      ASSERT_EQ(at, end) << "search " << i << ", " << bytes.size() << " bytes";
    }
  };
  for (std::size_t size = 3; size <= 150; ++size) {
    for (std::size_t at = 0; at + 3 <= size; ++at) {
      Data bytes(size, 0xFF);
      bytes[at] = bytes[at + 1] = 0;
      check(bytes);
      bytes[at + 2] = 1;
      check(bytes);
    }
  }
  for (int round = 0; round < 2000; ++round) check(RandomBytes(random, random() % 300));
}

Data Units(const std::vector<Data>& units) {
  Bytes frame;
  for (const Data& unit : units) frame.be32(1).add(unit);
  return frame.data();
}

const Data kSps = {0x67, 0x64, 0x00, 0x1F, 0xAC};
const Data kPps = {0x68, 0xEE, 0x3C, 0x80};
const Data kIdr = {0x65, 0x88, 0x11, 0x22, 0x33};
const Data kSlice = {0x41, 0x9A, 0x11, 0x22, 0x33};
const Data kHevcIdr = {0x26, 0x01, 0xAF, 0x11, 0x22};  // IDR_W_RADL
const Data kHevcCra = {0x2A, 0x01, 0xAF, 0x11, 0x22};

Data HevcKey(const Data& slice) { return Units({kHevcVps, kHevcSps, kHevcPps, slice}); }

TEST(Frames, ThatCannotBeStoredAreRefusedWithAReason) {
  constexpr auto AVC = TrakAtom::CODEC_AVC, HEVC = TrakAtom::CODEC_HEVC, AAC = TrakAtom::CODEC_AAC;
  const std::string kNoI = "AVC I Frame error, I slice nalu cnt[0]\n", kHevcError = "HEVC I Frame error\n";
  const std::string kNotAnnexb = "input video frame is not annexb format\n";
  const struct {
    TrakAtom::CodecType codec;
    Data frame;
    bool key;
    std::string message;  // none when it is accepted
    bool multiSlice = false;
  } kRows[] = {
      {AVC, {0, 0, 1, 0x41}, false, "input video frame len(4) is too short\n"},
      {AVC, {0, 0, 0, 0, 0, 1, 0x41, 9}, false, kNotAnnexb},
      {AVC, {9, 9, 0, 0, 1, 0x41, 9, 9}, false, kNotAnnexb},
      {AVC, {9, 0, 0, 1, 0x41, 9, 9, 9}, false, ""},
      {AVC, {0, 0, 1, 0x41, 9, 9, 9, 9}, false, ""},
      {AVC, {0, 0, 1, 0x41, 9}, false, ""},  // deliberate: a start code in the last four bytes makes an empty sample
      {AVC, Units(std::vector<Data>(31, kSlice)), false, ""},
      {AVC, Units(std::vector<Data>(32, kSlice)), false, "mp4 access unit nalu count has reach the max(32)\n"},
      {AVC, Units({kSps, kPps, kIdr}), true, ""},
      {AVC, Units({kSps, kPps, kIdr, kIdr}), true, "", true},
      {AVC, Units({kIdr, kIdr}), false, "", true},
      {AVC, Units({{0x06, 5, 9, 9, 9}}), false, ""},
      {AVC, Units({kSps, kIdr}), true, "AVC I Frame error, I slice nalu cnt[1]\n"},
      {AVC, Units({kPps, kIdr}), true, "AVC I Frame error, I slice nalu cnt[1]\n"},
      {AVC, Units({kSps, kPps}), true, kNoI},
      {AVC, Units({kSps, kPps, kSlice}), true, kNoI},
      {AVC, Units({kSps, kPps, {0x75, 9, 9, 9, 9}}), true, kNoI},
      {AVC, Units({{}, kSlice}), false, "nalu len is invlid:0\n"},
      {AVC, Units({Bytes().u8(0x67).fill(65535, 9)}), false, "parmentSet len(65536) of avc stream is illegal\n"},
      {HEVC, HevcKey(kHevcIdr), true, ""},
      {HEVC, Units({kHevcVps, kHevcSps, kHevcPps, kHevcIdr, kHevcIdr}), true, "", true},
      {HEVC, Units({{0x4E, 0x01, 0x89, 0x18, 0x80}}), false, ""},
      {HEVC, Units({kHevcSps, kHevcPps, kHevcIdr}), true, kHevcError},
      {HEVC, Units({kHevcVps, kHevcSps, kHevcIdr}), true, kHevcError},
      {HEVC, HevcKey({0x28, 0x01, 0xAF, 0x11, 0x22}), true, kHevcError},  // IDR_N_LP
      {HEVC, HevcKey(kHevcCra), true, kHevcError},
      {HEVC, HevcKey({0xA6, 1, 0xAF, 9, 9}), true, kHevcError},  // the forbidden bit
      {HEVC, Units({{}, kHevcCra}), false, "nalu len of hevc is invlid:0\n"},
      {HEVC, Units({{0x42, 0x01, 0x01, 0x01, 9}}), false, "handle hevc parameter set failed\n"},
      {HEVC, Units({Bytes().be16(0x4E01).fill(65534, 9)}), false,
       "parment set(type:39) len(65536) of hevc stream is illegal\n"},
      {AAC, AacFrame(0), false, "audio frame is invalid\n"},  // nothing behind the header
      {AAC, {1, 2, 3, 4, 5, 6, 7, 8}, false, "audio frame has no header\n"},
      {AAC, {0xFF, 0xF1, 3, 4, 5, 6, 7, 8}, false, "audio frame header is invalid\n"},
      {AAC, {}, false, "audio frame is invalid\n"},
      {AAC, AacFrame(1), false, ""},
  };
  for (const auto& row : kRows) {
    TrackRig rig(row.codec);
    const LogCapture log;
    const ZR_U32 status = rig.write(row.frame, 0, row.key);
    EXPECT_TRUE(row.message.empty() ? log.all().empty() : log.has(row.message)) << row.message << log.all();
    EXPECT_EQ(status == 0, row.message.empty()) << row.message;
    EXPECT_EQ(rig.sizes().size(), status == 0 ? 1u : 0u);
    EXPECT_TRUE(status == 0 || rig.stream.data().empty()) << row.message << ": nothing may be left of it";
    const auto* nal = dynamic_cast<NalTrack*>(rig.track.get());
    EXPECT_TRUE(nal == nullptr || nal->multiSliceKey() == row.multiSlice) << row.message;
  }
}

TEST(Frames, TheFirstDescribeTheStream) {
  TrackRig avc(TrakAtom::CODEC_AVC);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(avc.write(Units({kSps, kPps, kIdr}), 0, true), 0u);
  EXPECT_EQ(avc.trak->Find<AvccAtom>("mdia/minf/stbl/stsd/avc1/avcC")->header().size, 15u + 2 + 5 + 2 + 4);
  EXPECT_EQ(avc.write(Units({kIdr}), 0, true), 0u) << "the sets of an earlier frame are enough";

  TrackRig aac(TrakAtom::CODEC_AAC);
  Data at8000 = AacFrame(0), at44100 = AacFrame(30);
  at8000[2] = 0x6C, at44100[2] = 0x50;
  EXPECT_NE(aac.write(at8000, 0), 0u) << "refused, so that it does not count";
  EXPECT_EQ(aac.write(at44100, 0) + aac.write(AacFrame(20), 0), 0u);
  const Data esds = Written(*aac.trak->GetDescendant("mdia/minf/stbl/stsd/mp4a/esds"));
  EXPECT_EQ(esds[43] << 8 | esds[44], 0x1210) << "LC, index 4, two channels";

  const auto frame = [](ZR_U16 width, ZR_U8 interlaceMode, ZR_U8 colour) {
    return Bytes().be32(28).type("icpf").be16(20).be16(0).type("test").be16(width).be16(1080)
        .u8(0x80u | interlaceMode << 2).u8(0).u8(colour).u8(1).u8(1).fill(3).data();
  };
  TrackRig prores(TrakAtom::CODEC_PRORES_HQ);
  EXPECT_EQ(prores.write({}, 0, true), 0u);
  EXPECT_EQ(prores.write({1, 2, 3}, 0, true), ZR_ERR_MP4_WRITE_BACKUP);
  EXPECT_EQ(prores.write(frame(1440, 1, 5), 1, true), 0u);
  EXPECT_EQ(prores.write({1, 2, 3}, 2, true) + prores.write(frame(1920, 0, 1), 3, true), 0u);
  Bytes picture;
  for (const char* type : {"fiel", "colr", "pasp"}) {
    picture.add(Written(*prores.trak->GetDescendant(std::string("mdia/minf/stbl/stsd/apch/") + type)));
  }
  EXPECT_EQ(Bytes().be32(10).type("fiel").be16(0x0209).be32(18).type("colr").type("nclc").be16(5).be16(1).be16(6)
                .be32(16).type("pasp").be32(4).be32(3).difference(picture), "");
}

TEST(RecoveredFrames, AreKeptWhenTheyAreWhole) {
  constexpr auto AVC = TrakAtom::CODEC_AVC, AAC = TrakAtom::CODEC_AAC, G711 = TrakAtom::CODEC_G711A,
                 META = TrakAtom::CODEC_META;
  const std::tuple<TrakAtom::CodecType, Data, bool, bool> kRows[] = {  // kept, and kept in front of zeros
      {AVC, Stored(Units({kSps, kPps, kIdr})), true, true},
      {TrakAtom::CODEC_HEVC, Stored(Units({kHevcVps, kHevcCra})), true, true},
      {AVC, {}, true, false},
      {AVC, Stored(Units({{0x41, 1, 2, 3, 4, 0}})), true, false},
      {AVC, Bytes().be32(5).u8(0x41).fill(5, 9), false, false},    // not tiled
      {AVC, Bytes().be32(7).u8(0x41).fill(5, 9), false, false},    // past its end
      {AVC, Bytes().be32(1).u8(0x41).be32(0), false, false},       // a length alone
      {AVC, Bytes().be32(0).be32(2).be16(0x4101), false, false},   // an empty unit
      {AVC, Stored(Units(std::vector<Data>(31, kSlice))), true, true},
      {AVC, Stored(Units(std::vector<Data>(32, kSlice))), false, false},
      {AAC, {0, 9}, true, true},   {AAC, {9, 0}, true, false}, {AAC, {}, false, false},
      {G711, {9, 0}, true, true},  {G711, {}, false, false},   {META, {9, 0}, true, true},
      {META, {}, true, false},     {TrakAtom::CODEC_PRORES_HQ, {9, 0}, true, true},
  };
  for (const auto& [codec, frame, kept, keptBeforeZeros] : kRows) {
    const PrivSampleHeader header(TrackRig::kId, ZR_FALSE, 0, static_cast<ZR_U32>(frame.size()));
    TrackRig rig(codec, 120000, 1, -1, Bytes().fill(3, 7).add(frame).fill(9));
    EXPECT_EQ(rig.track->RecoverFrame(header, 3, true), keptBeforeZeros) << frame.size() << " of codec " << codec;
    EXPECT_EQ(rig.track->RecoverFrame(header, 3, false), kept) << frame.size() << " of codec " << codec;
  }
}

TEST(MediaParameters, AreFoundUpToTheFirstKeyFrame) {
  struct Frame {
    Data stored;
    ZR_U32 key;
    ZR_U32 track = TrackRig::kId;
  };
  const Data otherSps = {0x67, 0x42, 0x00, 0x1E, 0xAC};
  const Data other = Stored(Units({otherSps})), key = Stored(Units({kSps, kPps, kIdr}));
  const std::tuple<std::vector<Frame>, ZR_U32, ZR_U32> kRows[] = {  // how many SPS and PPS are found
      {{{key, 1}, {other, 0}}, 1, 1},
      {{{other, 0}, {key, 1}}, 2, 1},
      {{{{}, 1}, {key, 1}}, 1, 1},
      {{{other, 1, TrackRig::kId + 1}, {key, 1}}, 1, 1},
      {{{Bytes().be32(5).add(kSps).be32(4).fill(14), 1}, {key, 1}}, 1, 1},        // a torn frame
      {{{Stored(Units({otherSps, {0, 0, 0}})), 1}, {key, 1}}, 2, 1},              // a key frame that is none
      {{{other, 0}}, 1, 0},
  };
  for (const auto& [frames, sps, pps] : kRows) {
    Bytes file;
    for (const Frame& frame : frames) {
      file.be32(frame.track).be32(frame.key).be64(1).be32(frame.stored.size()).add(frame.stored);
    }
    TrackRig rig(TrakAtom::CODEC_AVC, 120000, 1, -1, file);
    RecordWalker walker(&rig.stream, 0, 0, file.size());
    EXPECT_EQ(rig.track->ParseMediaParameter(walker), 0);
    const auto* avcc = rig.trak->Find<AvccAtom>("mdia/minf/stbl/stsd/avc1/avcC");
    EXPECT_TRUE(avcc->sps().count() == sps && avcc->pps().count() == pps) << avcc->sps().count();
  }
}

TEST(TrakBoxes, FollowTheCodecAndAreRecognised) {
  const LogCapture log;
  for (ZR_U32 i = TrakAtom::CODEC_AVC; i <= TrakAtom::CODEC_META; ++i) {
    const auto codec = static_cast<TrakAtom::CodecType>(i);
    TrackRig rig(codec);
    EXPECT_EQ(rig.trak->GetDescendant("mdia/minf/stbl/stss") != nullptr, codec <= TrakAtom::CODEC_HEVC);
    if (rig.track == nullptr || codec <= TrakAtom::CODEC_HEVC) continue;  // none, or not readable while empty
    const Data bytes = Written(*rig.trak);
    ASSERT_EQ(bytes.size(), rig.trak->header().size);
    EXPECT_EQ(bytes[8 + 44] << 8 | bytes[8 + 45], rig.trak->trakType() == TrakAtom::TRAK_AUDIO ? 0x100 : 0);
    ShortStream file(bytes);
    TrakAtom read;
    ASSERT_EQ(read.Read(&file) | read.Parse(), 0);
    EXPECT_EQ(read.codecType(), codec == TrakAtom::CODEC_META ? TrakAtom::CODEC_UNKNOWN : codec);
    EXPECT_EQ(read.trakType(), rig.trak->trakType());
    EXPECT_NE(std::unique_ptr<Track>(Track::create(&file, &read, &rig.mdat, 1.0f, 0, ZR_FALSE)), nullptr);
  }
  EXPECT_EQ(TrakAtom::create(static_cast<TrakAtom::TrakType>(3), 1, "", TrakAtom::CODEC_AVC, 1, ZR_FALSE), nullptr);
  EXPECT_TRUE(log.has("not support 3 trak type\n") && log.has("track codec error\n"));
  TrackRig rig(TrakAtom::CODEC_META);
  rig.trak->setTkhdDuration(0x100000005);
  rig.trak->setMdhdDuration(0x100000005);
  EXPECT_TRUE(rig.trak->Find<TkhdAtom>("tkhd")->duration() == 5 && rig.trak->mdhdDuration() == 0x100000005);
}

TEST(TrakBoxes, ObjectTypesTellTheCodec) {
  const std::map<int, TrakAtom::CodecType> kKnown = {
      {0x21, TrakAtom::CODEC_AVC}, {0x23, TrakAtom::CODEC_HEVC}, {0x40, TrakAtom::CODEC_AAC},
      {0x66, TrakAtom::CODEC_AAC}, {0x67, TrakAtom::CODEC_AAC},  {0x68, TrakAtom::CODEC_AAC},
      {0x69, TrakAtom::CODEC_MP3}, {0x6B, TrakAtom::CODEC_MP3}};
  const LogCapture log;
  std::map<int, TrakAtom::CodecType> found;
  TrakAtom::CodecType codec;
  for (int oti = 0; oti < 256; ++oti) {
    if (TrakAtom::GetCodecByIndication(static_cast<ZR_U8>(oti), codec) == 0) found[oti] = codec;
  }
  EXPECT_EQ(found, kKnown);
  EXPECT_TRUE(log.has("unknown obj type indication[106]\n") && log.lines().size() == 256 - 8);
}

constexpr ZR_U64 kLast = std::numeric_limits<ZR_U64>::max();

const struct {
  const char* name;
  float speed;
  std::vector<ZR_U64> times;      // microseconds
  std::vector<ZR_U32> durations;  // at 120000 ticks per second, jitter up to 120 ticks
} kTimings[] = {
    {"a recording that starts at 0 has a duration for every sample", 1, {0, 40000, 80000}, {4800, 4800, 4800}},
    {"a single sample lasts 0", 1, {5000}, {0}},
    {"rounded stamps of a fixed rate give one duration", 1, {0, 33333, 66667, 100000}, {3999, 3999, 3999, 3999}},
    {"jitter of the tolerance keeps the duration", 1, {0, 40000, 81000}, {4800, 4800, 4800}},
    {"jitter of a tick more changes it", 1, {0, 40000, 81009}, {4800, 4921, 4921}},
    {"the time advances by durations, not to the stamps", 1, {0, 40000, 81000, 122000}, {4800, 4800, 5040, 5040}},
    {"double speed halves the durations", 2, {0, 40000, 80000, 200000}, {2400, 2400, 7200, 7200}},
    {"speed 0 makes every duration 1", 0, {0, 40000, 20, kLast}, {1, 1, 1, 1}},
    {"equal stamps last a tick", 1, {7, 7, 7}, {1, 1, 1}},
    {"a small step back lasts a tick, and the time waits", 1, {0, 40000, 39000, 80000}, {4800, 1, 4799, 4799}},
    {"a step back counts with its sign", 1, {0, 833, 815, 1650 + 825}, {99, 99, 99, 99}},
    {"back by a second is a small step", 1, {5000000, 5040000, 4040000, 5080000}, {4800, 1, 4799, 4799}},
    {"back by more is a discontinuity", 1, {5000000, 5040000, 4039999, 4079999}, {4800, 4800, 4800, 4800}},
    {"so it is for the second sample", 1, {5000000, 1000, 41000}, {1, 4800, 4800}},
    {"forward by what fits", 1, {0, 35791392000}, {4294967040, 4294967040}},
    {"forward by more", 1, {0, 40000, 35791434134, 35791474134}, {4800, 4800, 4800, 4800}},
    {"forward to where single precision rounds beyond 32 bits", 1, {0, 40000, 35791434133}, {4800, 4800, 4800}},
    {"over the end of the clock", 1, {kLast - 39999, 0, 40000}, {4800, 4800, 4800}},
    {"from end to end", 1, {0, kLast / 2, kLast}, {1, 1, 1}},
    {"a speed that makes durations endless", 1e-38f, {0, 40000, 80000}, {1, 1, 1}},
    {"a speed that makes them nothing", 3e38f, {0, 40000, 80000}, {1, 1, 1}},
    {"no number as speed", std::numeric_limits<float>::quiet_NaN(), {0, 40000, 80000}, {1, 1, 1}},
};

TEST(TrackTiming, DurationsFollowTheTimeStamps) {
  for (const auto& row : kTimings) {
    TrackRig rig(TrakAtom::CODEC_META, 120000, row.speed);
    for (ZR_U64 time : row.times) ASSERT_EQ(rig.write({1}, time), 0u);
    for (int i = 0; i < 2; ++i) {  // also when finished twice
      ASSERT_EQ(rig.track->FinishWrite(), 0);
      EXPECT_EQ(rig.durations(), row.durations) << row.name;
    }
  }
  const struct {
    TrakAtom::CodecType codec;
    ZR_U32 timescale;
    int constantRate;  // -1: none
    float speed;
    ZR_U32 duration;
  } kFixed[] = {
      {TrakAtom::CODEC_AVC, 90000, 25, 2, 3600},  // the speed is not for video
      {TrakAtom::CODEC_AVC, 100, 30, 1, 3},         {TrakAtom::CODEC_AVC, 90000, 0, 1, 0},
      {TrakAtom::CODEC_META, 1000, 30, 2, 16},      {TrakAtom::CODEC_META, 1000, 30, 0, 0},
      {TrakAtom::CODEC_META, 1000, 30, 1e-9f, 0},   {TrakAtom::CODEC_G711A, 48000, -1, 1, 1024},
      {TrakAtom::CODEC_G711A, 90000, -1, 1, 1024},  {TrakAtom::CODEC_G711A, 8000, -1, 1, 0},
  };
  for (const auto& row : kFixed) {
    TrackRig rig(row.codec, row.timescale, row.speed, row.constantRate);
    for (ZR_U64 time : {5u, 0u, 900000u}) {
      ASSERT_EQ(rig.write(row.codec == TrakAtom::CODEC_AVC ? DeltaFrame() : Data{1}, time), 0u);
    }
    ASSERT_EQ(rig.track->FinishWrite(), 0);
    EXPECT_EQ(rig.durations(), std::vector<ZR_U32>(3, row.duration)) << row.codec << " at " << row.timescale;
  }
  for (const auto& [time, bitRate] : {std::pair(500000u, 16000u), {1u, 0u}}) {  // 0: it does not fit
    TrackRig rig(TrakAtom::CODEC_META);
    for (ZR_U64 at : {0u, time}) ASSERT_EQ(rig.write(Data(time == 1 ? 9000 : 1000), at), 0u);
    rig.track->FinishWrite();
    EXPECT_EQ(rig.track->AvgBitrate(), bitRate);
  }
}

TEST(TrackChunks, JoinWhatStandsTogether) {
  struct Step {
    ZR_U32 size;
    ZR_U64 pts;
    ZR_U32 gap;  // bytes that are not the track's, in front of the sample
  };
  const struct {
    const char* name;
    std::vector<Step> steps;
    std::vector<std::pair<ZR_U32, ZR_U32>> runs;
    std::vector<ZR_U32> chunks;
  } kCases[] = {
      {"contiguous samples share a chunk", {{10, 0, 0}, {20, 1, 0}, {0, 2, 0}, {5, 3, 0}}, {{1, 4}}, {0}},
      {"any gap starts a chunk", {{10, 0, 0}, {20, 1, 1}, {5, 2, 20}, {5, 3, 0}}, {{1, 1}, {3, 2}}, {0, 11, 51}},
      {"a chunk stays below 1 MiB", {{0xFFFFE, 0, 0}, {1, 0, 0}, {1, 0, 0}, {1, 0, 0}}, {{1, 2}}, {0, 0xFFFFF}},
      {"a sample above it stands alone", {{0x180000, 0, 0}, {1, 0, 0}, {1, 0, 0}}, {{1, 1}, {2, 2}}, {0, 0x180000}},
      {"a chunk stays below half a second", {{1, 7, 0}, {1, 500006, 0}, {1, 500007, 0}}, {{1, 2}, {2, 1}}, {0, 2}},
      {"a step back in time starts a chunk", {{1, 7, 0}, {1, 6, 0}}, {{1, 1}}, {0, 1}},
  };
  for (const auto& row : kCases) {
    TrackRig rig(TrakAtom::CODEC_META);
    for (const Step& step : row.steps) {
      rig.stream.seek(step.gap, SEEK_CUR);
      ASSERT_EQ(rig.write(Data(step.size), step.pts), 0u);
    }
    rig.track->FinishWrite();
    std::vector<std::pair<ZR_U32, ZR_U32>> runs;
    for (const auto& run : rig.entries<StscAtom>("stsc")) runs.emplace_back(run.firstChunk, run.samplesPerChunk);
    EXPECT_EQ(runs, row.runs) << row.name;
    EXPECT_EQ(rig.entries<StcoAtom>("stco"), row.chunks) << row.name;
  }
}

}  // namespace
