#include <gtest/gtest.h>

#include <random>

#include "box/audio_entry.h"
#include "box/prores_entry.h"
#include "box/track_boxes.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/parameter_set_bytes.h"
#include "tests/support/track_rig.h"
#include "track/annexb.h"
#include "track/avc_track.h"
#include "track/hevc_track.h"
#include "track/record_walker.h"

using zrmp4::AvccAtom;
using zrmp4::HvccAtom;
using zrmp4::NalTrack;
using zrmp4::RecordWalker;
using zrmp4::Track;
using zrmp4::TrakAtom;

namespace {

constexpr ZR_U32 kBadFrame = ZR_ERR_MP4_ILLEGAL_PARAM;
constexpr ZR_U32 kBadSample = ZR_ERR_MP4_WRITE_BACKUP;

// The start codes of a frame as a shift register finds them, byte by byte: where each ends, and whether it has three
// bytes or four.
struct Code {
  std::size_t end;
  std::size_t length;
  bool operator==(const Code& other) const { return end == other.end && length == other.length; }
};

std::vector<Code> CodesByRegister(const Data& frame, std::size_t margin) {
  std::vector<Code> codes;
  std::uint32_t seen = 0xFFFFFFFF;
  for (std::size_t at = 0; at + margin < frame.size(); ++at) {
    seen = seen << 8 | frame[at];
    if ((seen & 0xFFFFFF) != 1) continue;
    codes.push_back({at + 1, seen == 1 ? 4u : 3u});
    seen = 0xFFFFFFFF;
  }
  return codes;
}

// Where the codes end that a search finds. The bytes are in a block of their own, so that reading past them shows.
std::vector<std::size_t> EndsBySearch(zrmp4::StartCodeSearch search, const Data& bytes) {
  const std::unique_ptr<ZR_U8[]> block(new ZR_U8[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), block.get());
  std::vector<std::size_t> ends;
  const ZR_U8* end = block.get() + bytes.size();
  for (const ZR_U8* at = search(block.get(), end); at != end; at = search(at + 1, end)) {
    ends.push_back(static_cast<std::size_t>(at - block.get()) + 1);
  }
  return ends;
}

Data RandomBytes(std::mt19937& random, std::size_t size, std::size_t zeros, std::size_t ones) {
  Data bytes(size);
  for (auto& byte : bytes) {
    const std::size_t kind = random() % 100;
    byte = kind < zeros ? 0 : kind < zeros + ones ? 1 : static_cast<std::uint8_t>(random());
  }
  return bytes;
}

TEST(StartCodes, EverySearchFindsThemEverywhere) {
  zrmp4::StartCodeSearch searches[zrmp4::kMaxStartCodeSearches];
  const ZR_U32 count = zrmp4::StartCodeSearches(searches);
  ASSERT_GE(count, 2u);
  std::mt19937 random(1);
  for (ZR_U32 i = 0; i < count; ++i) {
    const auto check = [&](const Data& bytes) {
      std::vector<std::size_t> expected;
      for (const Code& code : CodesByRegister(bytes, 0)) expected.push_back(code.end);
      ASSERT_EQ(EndsBySearch(searches[i], bytes), expected) << "search " << i << ", " << bytes.size() << " bytes";
    };
    for (std::size_t size = 0; size <= 150; ++size) {
      check(Data(size, 0));
      for (std::size_t at = 0; at + 3 <= size; ++at) {
        Data bytes(size, 0xFF);
        bytes[at] = bytes[at + 1] = 0;
        check(bytes);
        bytes[at + 2] = 1;
        check(bytes);
        if (at != 0) bytes[at - 1] = 0;
        check(bytes);
      }
    }
    for (int round = 0; round < 2000; ++round) check(RandomBytes(random, random() % 300, random() % 60, random() % 30));
  }
}

TEST(AnnexB, FramesAreCutAsTheRegisterSays) {
  std::mt19937 random(2);
  int refused = 0;
  for (int round = 0; round < 5000; ++round) {
    const Data frame = RandomBytes(random, random() % 400, random() % 60, random() % 30);
    const std::vector<Code> codes = CodesByRegister(frame, 4);
    Track::Mp4Sample sample;
    sample.partCount = sample.totalSize = 0;
    const int result = NalTrack::AnnexbToSample(frame.data(), static_cast<ZR_U32>(frame.size()), 5, ZR_TRUE, &sample);
    ASSERT_EQ(result, frame.data() == nullptr || codes.size() > 31 ? -1 : 0);
    if (result != 0) {
      ++refused;
      continue;
    }
    ASSERT_EQ(sample.partCount, codes.size());
    std::size_t total = 0;
    for (std::size_t i = 0; i < codes.size(); ++i) {
      const std::size_t end = i + 1 < codes.size() ? codes[i + 1].end - codes[i + 1].length : frame.size();
      ASSERT_EQ(sample.partData[i], frame.data() + codes[i].end);
      ASSERT_EQ(sample.partSize[i], end - codes[i].end);
      total += 4 + sample.partSize[i];
    }
    ASSERT_EQ(sample.totalSize, total);
    ASSERT_TRUE(sample.pts == 5 && sample.isKey);
  }
  EXPECT_GT(refused, 0);
}

Data Units(const std::vector<Data>& units) {
  Bytes frame;
  for (const Data& unit : units) frame.be32(1).add(unit);
  return frame.data();
}

TEST(AnnexB, ThirtyOneUnitsAreTheMost) {
  TrackRig rig(TrakAtom::CODEC_AVC);
  const LogCapture log;
  EXPECT_EQ(rig.write(Units(std::vector<Data>(31, {0x41, 9, 9, 9, 9})), 0), 0u);
  const Data tooMany = Units(std::vector<Data>(32, {0x41, 9, 9, 9, 9}));
  EXPECT_EQ(rig.write(tooMany, 0), kBadFrame);
  EXPECT_TRUE(log.has("mp4 access unit nalu count has reach the max(32)\n")) << log.all();
  EXPECT_TRUE(log.has("can not convert annexb to mp4 access unit, len is:288\n")) << log.all();

  const Data stored = Stored(tooMany);
  Track::Mp4Sample sample;
  for (const bool fits : {true, false}) {
    const ZR_U32 length = static_cast<ZR_U32>(stored.size()) - (fits ? 9 : 0);
    sample.partCount = sample.totalSize = 0;
    EXPECT_EQ(NalTrack::Mp4AuToSample(stored.data(), length, 0, ZR_FALSE, sample), fits ? 0 : -1);
  }
  EXPECT_EQ(log.count("mp4 access unit nalu count has reach the max(32)\n"), 2);
}

TEST(AnnexB, FramesAreStoredBehindTheirLengths) {
  TrackRig rig(TrakAtom::CODEC_AVC);
  const Data frame = Bytes().be32(1).be24(0x67640A).be24(1).be24(0x68EE3C).be24(1).be32(0x65112233).data();
  ASSERT_EQ(rig.write(frame, 0, true), 0u);
  EXPECT_EQ(
      Bytes().be32(3).be24(0x67640A).be32(3).be24(0x68EE3C).be32(4).be32(0x65112233).difference(rig.stream.data()), "");
  EXPECT_EQ(rig.sizes(), (std::vector<ZR_U32>{3 + 3 + 4 + 12}));
  EXPECT_EQ(rig.syncs(), (std::vector<ZR_U32>{1}));
}

struct FrameCase {
  Data frame;
  std::string message;
};

TEST(VideoFrames, MalformedOnesAreRefused) {
  const FrameCase rows[] = {
      {{0, 0, 1, 0x41}, "input video frame len(4) is too short\n"},
      {{0, 0, 0, 0, 0, 1, 0x41, 9}, "input video frame is not annexb format\n"},
      {{9, 9, 0, 0, 1, 0x41, 9, 9}, "input video frame is not annexb format\n"},
      {{9, 0, 0, 1, 0x41, 9, 9, 9}, ""},
      {{0, 0, 1, 0x41, 9, 9, 9, 9}, ""},
      {{0, 0, 1, 0x41, 9}, ""},  // deliberate: its start code is among the last four bytes, so it is an empty sample
  };
  for (const FrameCase& row : rows) {
    TrackRig rig(TrakAtom::CODEC_AVC);
    const LogCapture log;
    EXPECT_EQ(rig.write(row.frame, 0), row.message.empty() ? 0 : kBadFrame) << log.all();
    EXPECT_TRUE(row.message.empty() || log.has(row.message)) << log.all();
    const ZR_U32 stored = row.frame.size() == 8 ? 4 + 4 + (row.frame[0] == 0) : 0;
    EXPECT_EQ(rig.sizes(), row.message.empty() ? std::vector<ZR_U32>{stored} : std::vector<ZR_U32>{});
  }
  TrackRig rig(TrakAtom::CODEC_HEVC);
  Track::Mp4Sample sample;
  const LogCapture log;
  const ZR_U8 byte = 0;
  EXPECT_EQ(static_cast<ZR_U32>(rig.track->FrameToSample(nullptr, 3, 0, ZR_FALSE, &sample)), kBadFrame);
  EXPECT_EQ(static_cast<ZR_U32>(rig.track->FrameToSample(&byte, 0, 0, ZR_FALSE, &sample)), kBadFrame);
  EXPECT_TRUE(log.has("input video frame data not matches len:3\n") &&
              log.has("input video frame data not matches len:0\n"));
  EXPECT_EQ(rig.track->FrameToSample(&byte, 1, 0, ZR_FALSE, nullptr), -1);
}

const Data kSps = {0x67, 0x64, 0x00, 0x1F, 0xAC};
const Data kPps = {0x68, 0xEE, 0x3C, 0x80};
const Data kIdr = {0x65, 0x88, 0x11, 0x22, 0x33};
const Data kSlice = {0x41, 0x9A, 0x11, 0x22, 0x33};
const Data kLongSps = Bytes().u8(0x67).fill(65535, 9).data();
const Data kHevcIdr = {0x26, 0x01, 0xAF, 0x11, 0x22};  // IDR_W_RADL
const Data kHevcIdrNoLeading = {0x28, 0x01, 0xAF, 0x11, 0x22};
const Data kHevcCra = {0x2A, 0x01, 0xAF, 0x11, 0x22};
const Data kHevcSei = {0x4E, 0x01, 0x89, 0x18, 0x80};

struct SampleCase {
  const char* name;
  TrakAtom::CodecType codec;
  std::vector<Data> units;
  bool key;
  std::string message;  // none when the sample is accepted
  bool multiSlice = false;
};

TEST(VideoSamples, KeyFramesMustBeDecodable) {
  const SampleCase rows[] = {
      {"whole", TrakAtom::CODEC_AVC, {kSps, kPps, kIdr}, true, ""},
      {"two slices", TrakAtom::CODEC_AVC, {kSps, kPps, kIdr, kIdr}, true, "", true},
      {"two slices without the flag", TrakAtom::CODEC_AVC, {kIdr, kIdr}, false, "", true},
      {"no slice without the flag", TrakAtom::CODEC_AVC, {{0x06, 5, 9, 9, 9}}, false, ""},
      {"no sets", TrakAtom::CODEC_AVC, {kIdr}, true, "AVC I Frame error, I slice nalu cnt[1]\n"},
      {"no PPS", TrakAtom::CODEC_AVC, {kSps, kIdr}, true, "AVC I Frame error, I slice nalu cnt[1]\n"},
      {"no slice", TrakAtom::CODEC_AVC, {kSps, kPps}, true, "AVC I Frame error, I slice nalu cnt[0]\n"},
      {"another slice", TrakAtom::CODEC_AVC, {kSps, kPps, kSlice}, true, "AVC I Frame error, I slice nalu cnt[0]\n"},
      {"type 21",
       TrakAtom::CODEC_AVC,
       {kSps, kPps, {0x75, 9, 9, 9, 9}},
       true,
       "AVC I Frame error, I slice nalu cnt[0]\n"},
      {"an empty unit", TrakAtom::CODEC_AVC, {{}, kSlice}, false, "nalu len is invlid:0\n"},
      {"a long set",
       TrakAtom::CODEC_AVC,
       {kLongSps, kSlice},
       false,
       "parmentSet len(65536) of avc stream is illegal\n"},

      {"whole", TrakAtom::CODEC_HEVC, {kHevcVps, kHevcSps, kHevcPps, kHevcSei, kHevcIdr}, true, ""},
      {"two slices", TrakAtom::CODEC_HEVC, {kHevcVps, kHevcSps, kHevcPps, kHevcIdr, kHevcIdr}, true, "", true},
      {"no slice without the flag", TrakAtom::CODEC_HEVC, {kHevcSei}, false, ""},
      {"no VPS", TrakAtom::CODEC_HEVC, {kHevcSps, kHevcPps, kHevcIdr}, true, "HEVC I Frame error\n"},
      {"no PPS", TrakAtom::CODEC_HEVC, {kHevcVps, kHevcSps, kHevcIdr}, true, "HEVC I Frame error\n"},
      {"IDR_N_LP",
       TrakAtom::CODEC_HEVC,
       {kHevcVps, kHevcSps, kHevcPps, kHevcIdrNoLeading},
       true,
       "HEVC I Frame error\n"},
      {"CRA", TrakAtom::CODEC_HEVC, {kHevcVps, kHevcSps, kHevcPps, kHevcCra}, true, "HEVC I Frame error\n"},
      {"IDR with the forbidden bit",
       TrakAtom::CODEC_HEVC,
       {kHevcVps, kHevcSps, kHevcPps, {0xA6, 1, 0xAF, 9, 9}},
       true,
       "HEVC I Frame error\n"},
      {"an empty unit", TrakAtom::CODEC_HEVC, {{}, kHevcCra}, false, "nalu len of hevc is invlid:0\n"},
      {"a broken set",
       TrakAtom::CODEC_HEVC,
       {{0x42, 0x01, 0x01, 0x01, 9}},
       false,
       "handle hevc parameter set failed\n"},
      {"a long set",
       TrakAtom::CODEC_HEVC,
       {Bytes().be16(0x4E01).fill(65534, 9).data()},
       false,
       "parment set(type:39) len(65536) of hevc stream is illegal\n"},
  };
  for (const SampleCase& row : rows) {
    TrackRig rig(row.codec);
    const LogCapture log;
    EXPECT_EQ(rig.write(Units(row.units), 0, row.key), row.message.empty() ? 0 : kBadSample) << row.name << log.all();
    EXPECT_TRUE(row.message.empty() ? log.all().empty() : log.has(row.message)) << row.name << log.all();
    if (!row.message.empty()) {
      EXPECT_TRUE(log.has(row.codec == TrakAtom::CODEC_AVC ? "avc sample is invalid\n" : "hevc sample is invalid\n"));
      EXPECT_TRUE(rig.stream.data().empty() && rig.sizes().empty()) << row.name << ": nothing may be left of it";
    }
    EXPECT_EQ(static_cast<NalTrack&>(*rig.track).multiSliceKey(), row.multiSlice) << row.name;
  }
}

TEST(VideoSamples, ParameterSetsAreCapturedOnceAndSuffice) {
  TrackRig avc(TrakAtom::CODEC_AVC);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(avc.write(Units({kSps, kPps, kIdr}), 0, true), 0u);
  const auto* avcc = avc.trak->Find<AvccAtom>("mdia/minf/stbl/stsd/avc1/avcC");
  EXPECT_EQ(avcc->sps().count() + avcc->pps().count(), 2u);
  EXPECT_EQ(avc.write(Units({kIdr}), 0, true), 0u) << "the sets of an earlier frame are enough";

  TrackRig hevc(TrakAtom::CODEC_HEVC);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(hevc.write(Units({kHevcVps, kHevcSps, kHevcPps, kHevcIdr}), 0, true), 0u);
  EXPECT_EQ(hevc.trak->Find<HvccAtom>("mdia/minf/stbl/stsd/hvc1/hvcC")->header().size,
            31u + 9 + 6 + kHevcVps.size() + kHevcSps.size() + kHevcPps.size());
}

TEST(VideoSamples, ConfigurationBoxMayBeMissing) {
  for (const TrakAtom::CodecType codec : {TrakAtom::CODEC_AVC, TrakAtom::CODEC_HEVC}) {
    TrackRig rig(codec);
    zrmp4::Atom* entry = rig.trak->GetDescendant("mdia/minf/stbl/stsd")->firstChild();
    const std::unique_ptr<zrmp4::Atom> box(entry->firstChild());
    entry->RemoveChild(box.get());
    rig.track.reset(Track::create(&rig.stream, rig.trak.get(), &rig.mdat, 1.0f, 0, ZR_FALSE));
    const LogCapture log;
    EXPECT_EQ(rig.write(Units({codec == TrakAtom::CODEC_AVC ? kIdr : kHevcIdr}), 0, true), kBadSample);
    EXPECT_EQ(rig.write(Units({codec == TrakAtom::CODEC_AVC ? kSps : kHevcSps}), 0), kBadSample);
  }
}

// Frames that repair finds --------------------------------------------------------------------------------------------

struct StoredCase {
  const char* name;
  TrakAtom::CodecType codec;
  Data frame;
  bool kept;
  bool keptBeforeZeros;
};

TEST(RecoveredFrames, AreKeptWhenTheyAreWhole) {
  const Data key = Stored(Units({kSps, kPps, kIdr}));
  const Data endsInZero = Stored(Units({{0x41, 1, 2, 3, 4, 0}}));
  const StoredCase rows[] = {
      {"whole", TrakAtom::CODEC_AVC, key, true, true},
      {"whole", TrakAtom::CODEC_HEVC, Stored(Units({kHevcVps, kHevcCra})), true, true},
      {"empty", TrakAtom::CODEC_AVC, {}, true, false},
      {"ends in a zero", TrakAtom::CODEC_AVC, endsInZero, true, false},
      {"not tiled", TrakAtom::CODEC_AVC, Bytes().be32(5).u8(0x41).fill(5, 9).data(), false, false},
      {"past its end", TrakAtom::CODEC_AVC, Bytes().be32(7).u8(0x41).fill(5, 9).data(), false, false},
      {"a length alone", TrakAtom::CODEC_AVC, Bytes().be32(1).u8(0x41).be32(0).data(), false, false},
      {"an empty unit", TrakAtom::CODEC_AVC, Bytes().be32(0).be32(2).be16(0x4101).data(), false, false},
      {"31 units", TrakAtom::CODEC_AVC, Stored(Units(std::vector<Data>(31, kSlice))), true, true},
      {"32 units", TrakAtom::CODEC_AVC, Stored(Units(std::vector<Data>(32, kSlice))), false, false},
      {"ends in data", TrakAtom::CODEC_AAC, {0, 9}, true, true},
      {"ends in a zero", TrakAtom::CODEC_AAC, {9, 0}, true, false},
      {"empty", TrakAtom::CODEC_AAC, {}, false, false},
      {"ends in a zero", TrakAtom::CODEC_G711A, {9, 0}, true, true},
      {"empty", TrakAtom::CODEC_G711A, {}, false, false},
      {"ends in a zero", TrakAtom::CODEC_META, {9, 0}, true, true},
      {"empty", TrakAtom::CODEC_META, {}, true, false},
      {"ends in a zero", TrakAtom::CODEC_PRORES_HQ, {9, 0}, true, true},
  };
  for (const StoredCase& row : rows) {
    const Data file = Bytes().fill(3, 7).add(row.frame).fill(9).data();
    const zrmp4::PrivSampleHeader header(TrackRig::kTrackId, ZR_FALSE, 0, static_cast<ZR_U32>(row.frame.size()));
    TrackRig rig(row.codec, TrackRig::Options(), file);
    EXPECT_EQ(rig.track->RecoverFrame(header, 3, false), row.kept) << row.name << " of codec " << row.codec;
    TrackRig torn(row.codec, TrackRig::Options(), file);
    EXPECT_EQ(torn.track->RecoverFrame(header, 3, true), row.keptBeforeZeros) << row.name << " of codec " << row.codec;
    if (row.codec != TrakAtom::CODEC_AVC) continue;
    const auto* avcc = torn.trak->Find<AvccAtom>("mdia/minf/stbl/stsd/avc1/avcC");
    EXPECT_EQ(avcc->hasSps(), row.frame == key) << row.name;
  }
}

struct FileFrame {
  Data stored;
  bool key;
  ZR_U32 track;
};

struct SearchCase {
  const char* name;
  std::vector<FileFrame> frames;
  ZR_U32 sps;
  ZR_U32 pps;
};

TEST(MediaParameters, AreFoundUpToTheFirstKeyFrame) {
  constexpr ZR_U32 kOwn = TrackRig::kTrackId;
  const Data otherSps = {0x67, 0x42, 0x00, 0x1E, 0xAC};
  const Data key = Stored(Units({kSps, kPps, kIdr}));
  const Data torn = Bytes().be32(5).add(kSps).be32(4).fill(4).fill(10).data();
  const SearchCase rows[] = {
      {"the first key frame", {{key, true, kOwn}, {Stored(Units({otherSps})), false, kOwn}}, 1, 1},
      {"sets in front of it", {{Stored(Units({otherSps})), false, kOwn}, {key, true, kOwn}}, 2, 1},
      {"an empty key frame", {{{}, true, kOwn}, {key, true, kOwn}}, 1, 1},
      {"another track's frames", {{Stored(Units({otherSps})), true, kOwn + 1}, {key, true, kOwn}}, 1, 1},
      {"a torn frame", {{torn, true, kOwn}, {key, true, kOwn}}, 1, 1},
      {"a key frame that is none", {{Stored(Units({otherSps, {0, 0, 0}})), true, kOwn}, {key, true, kOwn}}, 2, 1},
      {"no key frame", {{Stored(Units({kSps})), false, kOwn}}, 1, 0},
      {"no frame", {}, 0, 0},
  };
  for (const SearchCase& row : rows) {
    Bytes file;
    for (const FileFrame& frame : row.frames) {
      file.be32(frame.track).be32(frame.key).be64(1).be32(frame.stored.size()).add(frame.stored);
    }
    TrackRig rig(TrakAtom::CODEC_AVC, TrackRig::Options(), file.data());
    RecordWalker walker(&rig.stream, 0, 0, file.size());
    EXPECT_EQ(rig.track->ParseMediaParameter(walker), 0) << row.name;
    const auto* avcc = rig.trak->Find<AvccAtom>("mdia/minf/stbl/stsd/avc1/avcC");
    EXPECT_EQ(avcc->sps().count(), row.sps) << row.name;
    EXPECT_EQ(avcc->pps().count(), row.pps) << row.name;
  }
}

TEST(MediaParameters, AreNotFoundWhereNothingCanBeRead) {
  for (const TrakAtom::CodecType codec : {TrakAtom::CODEC_HEVC, TrakAtom::CODEC_PRORES_LT}) {
    const LogCapture log;
    TrackRig rig(codec, TrackRig::Options(), Bytes().fill(10).data());
    RecordWalker walker(&rig.stream, 0, 0, 100);  // further than the stream goes
    EXPECT_EQ(rig.track->ParseMediaParameter(walker), -1);
    EXPECT_TRUE(log.has("read video frame header fail\n")) << log.all();
  }
}

// Other codecs --------------------------------------------------------------------------------------------------------

Data ProresFrame(ZR_U16 width, ZR_U16 height, ZR_U8 interlaceMode, ZR_U8 colour) {
  Bytes frame;
  frame.be32(28).type("icpf").be16(20).be16(0).type("test").be16(width).be16(height);
  return frame.u8(0x80u | interlaceMode << 2).u8(0).u8(colour).u8(1).u8(1).fill(3).data();
}

// What fiel, colr and pasp say of the picture.
Data PictureBoxes(TrackRig& rig) {
  ShortStream out;
  for (const char* type : {"fiel", "colr", "pasp"}) {
    rig.trak->GetDescendant(std::string("mdia/minf/stbl/stsd/apch/") + type)->Write(&out);
  }
  return out.data();
}

TEST(ProresFrames, FirstOneThatIsNotEmptyDescribesThePicture) {
  const Data wide = Bytes()
                        .be32(10)
                        .type("fiel")
                        .be16(0x0209)
                        .be32(18)
                        .type("colr")
                        .type("nclc")
                        .be16(5)
                        .be16(1)
                        .be16(6)
                        .be32(16)
                        .type("pasp")
                        .be32(4)
                        .be32(3)
                        .data();
  const Data frame = ProresFrame(1440, 1080, 1, 5);
  TrackRig rig(TrakAtom::CODEC_PRORES_HQ);
  EXPECT_EQ(rig.write({}, 0, true), 0u);
  EXPECT_EQ(rig.write({1, 2, 3}, 0, true), kBadSample);
  EXPECT_EQ(rig.sizes().size(), 1u);
  EXPECT_EQ(rig.write(frame, 1, true), 0u);
  EXPECT_EQ(PictureBoxes(rig), wide);
  EXPECT_EQ(rig.write({1, 2, 3}, 2, true), 0u) << "only the first is parsed";
  EXPECT_EQ(rig.write(ProresFrame(1920, 1080, 0, 1), 3, true), 0u);
  EXPECT_EQ(PictureBoxes(rig), wide);
  EXPECT_EQ(rig.stream.data().size(), 2 * frame.size() + 3);
  EXPECT_EQ(rig.table<zrmp4::StssAtom>("stss"), nullptr);

  const Data file = Bytes()
                        .be32(TrackRig::kTrackId)
                        .be32(1)
                        .be64(0)
                        .be32(0)
                        .be32(TrackRig::kTrackId)
                        .be32(1)
                        .be64(0)
                        .be32(frame.size())
                        .add(frame)
                        .data();
  TrackRig repaired(TrakAtom::CODEC_PRORES_HQ, TrackRig::Options(), file);
  RecordWalker walker(&repaired.stream, 0, 0, file.size());
  EXPECT_EQ(repaired.track->ParseMediaParameter(walker), 0);
  EXPECT_EQ(PictureBoxes(repaired), wide);
}

TEST(AudioFrames, AreStoredWithoutTheirHeaders) {
  TrackRig rig(TrakAtom::CODEC_AAC);
  const LogCapture log;
  Data at8000 = AacFrame(0);
  at8000[2] = 0x6C;  // index 11
  EXPECT_EQ(rig.write(at8000, 0), ZR_ERR_MP4_ILLEGAL_PARAM) << "nothing behind the header";
  EXPECT_NE(rig.write({1, 2, 3, 4, 5, 6, 7, 8}, 0), 0u);
  EXPECT_TRUE(log.has("audio frame has no header\n") && log.has("audio frame header is invalid\n")) << log.all();
  EXPECT_NE(rig.write({}, 0), 0u);
  EXPECT_TRUE(log.has("audio frame is invalid\n")) << log.all();
  EXPECT_TRUE(rig.sizes().empty() && rig.stream.data().empty());

  Data at44100 = AacFrame(30);
  at44100[2] = 0x50;  // index 4
  EXPECT_EQ(rig.write(at44100, 0), 0u);
  EXPECT_EQ(rig.write(AacFrame(20), 0), 0u);
  EXPECT_EQ(rig.sizes(), (std::vector<ZR_U32>{30, 20}));
  ShortStream esds;
  rig.trak->GetDescendant("mdia/minf/stbl/stsd/mp4a/esds")->Write(&esds);
  const Data& written = esds.data();
  const Data config = {0x12, 0x10};  // LC, index 4, two channels: the first frame that was accepted decides
  EXPECT_NE(std::search(written.begin(), written.end(), config.begin(), config.end()), written.end());
}

// The boxes of a track ------------------------------------------------------------------------------------------------

struct TrakCase {
  TrakAtom::CodecType codec;
  const char* entry;
  const char* mediaHeader;
  ZR_U16 volume;
  bool syncTable;
};

TEST(TrakBoxes, FollowTheCodecAndAreRecognised) {
  const TrakCase rows[] = {
      {TrakAtom::CODEC_AVC, "avc1", "vmhd", 0, true},           {TrakAtom::CODEC_HEVC, "hvc1", "vmhd", 0, true},
      {TrakAtom::CODEC_PRORES_PROXY, "apco", "vmhd", 0, false}, {TrakAtom::CODEC_PRORES_LT, "apcs", "vmhd", 0, false},
      {TrakAtom::CODEC_PRORES_422, "apcn", "vmhd", 0, false},   {TrakAtom::CODEC_PRORES_HQ, "apch", "vmhd", 0, false},
      {TrakAtom::CODEC_AAC, "mp4a", "smhd", 0x0100, false},     {TrakAtom::CODEC_MP3, "mp4a", "smhd", 0x0100, false},
      {TrakAtom::CODEC_G711A, "alaw", "smhd", 0x0100, false},   {TrakAtom::CODEC_G711U, "ulaw", "smhd", 0x0100, false},
      {TrakAtom::CODEC_META, "gpmd", "gmhd", 0, false},
  };
  for (const TrakCase& row : rows) {
    TrackRig rig(row.codec);
    const std::string outline = [&] {
      std::string types;
      const zrmp4::Atom* minf = rig.trak->GetDescendant("mdia/minf");
      for (const auto* box = minf->firstChild(); box != nullptr; box = box->nextSibling()) types += box->type() + " ";
      const zrmp4::Atom* stbl = rig.trak->GetDescendant("mdia/minf/stbl");
      for (const auto* box = stbl->firstChild(); box != nullptr; box = box->nextSibling()) types += box->type() + " ";
      return types;
    }();
    EXPECT_EQ(outline,
              std::string(row.mediaHeader) + " dinf stbl stsd stts stsc stsz stco " + (row.syncTable ? "stss " : ""));
    EXPECT_EQ(rig.trak->GetDescendant("mdia/minf/stbl/stsd")->firstChild()->type(), row.entry);

    rig.trak->setPicSize(1920, 1080);
    rig.trak->setTkhdDuration(0x100000005);
    rig.trak->setMdhdDuration(0x100000005);
    EXPECT_EQ(rig.trak->Find<zrmp4::TkhdAtom>("tkhd")->duration(), 5u);
    EXPECT_EQ(rig.trak->mdhdDuration(), 0x100000005u);

    if (row.codec == TrakAtom::CODEC_AVC || row.codec == TrakAtom::CODEC_HEVC) continue;  // not readable while empty
    ShortStream file;
    ASSERT_EQ(rig.trak->Write(&file), 0);
    ASSERT_EQ(file.data().size(), rig.trak->header().size);
    EXPECT_EQ(file.data()[8 + 44] << 8 | file.data()[8 + 45], row.volume) << row.entry;
    file.seek(0, SEEK_SET);
    TrakAtom read;
    ASSERT_EQ(read.Read(&file), 0);
    ASSERT_EQ(read.Parse(), 0);
    EXPECT_EQ(read.codecType(), row.codec == TrakAtom::CODEC_META ? TrakAtom::CODEC_UNKNOWN : row.codec);
    EXPECT_EQ(read.trakType(), rig.trak->trakType());
    const LogCapture log;
    std::unique_ptr<Track> track(Track::create(&file, &read, &rig.mdat, 1.0f, 0, ZR_FALSE));
    EXPECT_NE(track, nullptr) << log.all();
  }
  const LogCapture log;
  EXPECT_EQ(TrakAtom::create(static_cast<TrakAtom::TrakType>(3), 1, "", TrakAtom::CODEC_AVC, 1, ZR_FALSE), nullptr);
  EXPECT_TRUE(log.has("not support 3 trak type\n"));
  TrackRig reserved(TrakAtom::CODEC_RESERVED);
  EXPECT_EQ(reserved.track, nullptr);
  EXPECT_TRUE(log.has("track codec error\n"));
}

TEST(TrakBoxes, ObjectTypesTellTheCodec) {
  const std::pair<int, TrakAtom::CodecType> rows[] = {
      {0x21, TrakAtom::CODEC_AVC}, {0x23, TrakAtom::CODEC_HEVC}, {0x40, TrakAtom::CODEC_AAC},
      {0x66, TrakAtom::CODEC_AAC}, {0x67, TrakAtom::CODEC_AAC},  {0x68, TrakAtom::CODEC_AAC},
      {0x69, TrakAtom::CODEC_MP3}, {0x6B, TrakAtom::CODEC_MP3},
  };
  for (int oti = 0; oti < 256; ++oti) {
    const auto* row =
        std::find_if(std::begin(rows), std::end(rows), [&](const auto& known) { return known.first == oti; });
    TrakAtom::CodecType codec = TrakAtom::CODEC_UNKNOWN;
    const LogCapture log;
    EXPECT_EQ(TrakAtom::GetCodecByIndication(static_cast<ZR_U8>(oti), codec), row != std::end(rows) ? 0 : -1);
    EXPECT_EQ(codec, row != std::end(rows) ? row->second : TrakAtom::CODEC_UNKNOWN) << oti;
    EXPECT_EQ(log.has("unknown obj type indication[" + std::to_string(oti) + "]\n"), row == std::end(rows));
  }
}

}  // namespace
