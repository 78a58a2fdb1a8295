#include <gtest/gtest.h>

#include <algorithm>

#include "base/make_or_null.h"
#include "box/audio_entry.h"
#include "box/prores_entry.h"
#include "codec/aac_parser.h"
#include "codec/prores_parser.h"
#include "tests/support/alloc_faults.h"
#include "tests/support/box_case.h"
#include "tests/support/log_capture.h"
#include "tests/support/short_stream.h"

namespace zrmp4 {
namespace {

using Data = std::vector<std::uint8_t>;

const std::string kLongestName = "0123456789abcdefghijklmnopqrstu";

template <typename Box>
std::unique_ptr<Box> AudioEntry(ZR_U32 sampleRate) {
  auto entry = MakeOrNull<Box>();
  entry->SetAudioConfig(2, 24, sampleRate, 1152);
  return entry;
}

std::unique_ptr<Atom> ReadEsds(const AtomHeader& header) { return MakeOrNull<EsdsAtom>(header); }

Bytes EntryHead(ZR_U32 size, const char* type) { return Bytes().be32(size).type(type).fill(6).be16(1); }

Bytes ProresEntry(ZR_U32 size, ZR_U8 nameLength, const std::string& name) {
  return EntryHead(size, "apcn").fill(4).text("appl").be32(0).be32(1023).be16(1920).be16(1080).be32(0x480000)
      .be32(0x480000).be32(0).be16(1).u8(nameLength).text(name).fill(31 - name.size()).be16(24).be16(0xFFFF);
}

Bytes Mp4aEntry(ZR_U32 size, ZR_U16 sampleSize) {
  return EntryHead(size, "mp4a").fill(8).be16(2).be16(sampleSize).be16(0xFFFE).be16(0).be32(48000u << 16);
}

const Bytes kAacEsds = Bytes().be32(54).type("esds").be32(0)
    .u8(3).be32(0x80808025).be16(0).u8(0)
    .u8(4).be32(0x80808017).u8(0x40).u8(0x15).be24(8192).be32(128000).be32(128000)
    .u8(5).be32(0x80808005).be16(0x1208).fill(3)
    .u8(6).be32(0x80808001).u8(2);

const BoxCase kBoxes[] = {
    {"ProRes",
     [] { auto box = MakeOrNull<ProresAtom>("apcn", kLongestName); box->setPicSize(1920, 1080); return box; },
     ProresEntry(86, 31, kLongestName)},
    {"colr", [] { return MakeOrNull<ColrAtom>(); }, Bytes().be32(18).type("colr").text("nclc").be16(1).be16(1).be16(1)},
    {"fiel", [] { return MakeOrNull<FielAtom>(); }, Bytes().be32(10).type("fiel").u8(1).u8(0)},
    {"pasp", [] { return MakeOrNull<PaspAtom>(); }, Bytes().be32(16).type("pasp").be32(1).be32(1)},
    {"mp4a", [] { return AudioEntry<Mp4aAtom>(48000); }, Mp4aEntry(36, 24)},
    {"mp4a, deliberately with the low 16 bits of a high rate", [] { return AudioEntry<Mp4aAtom>(96000); },
     EntryHead(36, "mp4a").fill(8).be16(2).be16(24).be16(0xFFFE).be16(0).be16(96000 - 65536).be16(0)},
    {"alaw", [] { return AudioEntry<AlawAtom>(8000); },
     EntryHead(36, "alaw").fill(8).be16(2).be16(24).be16(0).be16(0).be16(8000).be16(0)},
    {"ulaw, deliberately with the low 16 bits of a high rate", [] { return AudioEntry<UlawAtom>(96000); },
     EntryHead(36, "ulaw").fill(8).be16(2).be16(24).be16(0).be16(0).be16(96000 - 65536).be16(0)},
    {"esds of AAC", [] { auto box = MakeOrNull<AacAtom>(); box->SetAudioConfig(1, 44100, 1024); return box; },
     kAacEsds, ReadEsds},
    {"esds of MP3", [] { auto box = MakeOrNull<Mp3Atom>(); box->setBitrates(320000, 192000); return box; },
     Bytes().be32(44).type("esds").be32(0)
         .u8(3).be32(0x8080801B).be16(0).u8(0)
         .u8(4).be32(0x8080800D).u8(0x6B).u8(0x15).be24(0).be32(320000).be32(192000)
         .u8(6).be32(0x80808001).u8(2), ReadEsds},
};

TEST(AudioAndProresBoxes, AreWrittenAndReadAndFailWithTheirStream) {
  for (const BoxCase& box : kBoxes) CheckBox(box);
}

template <typename Box>
std::unique_ptr<Box> ReadAs(const std::vector<std::uint8_t>& bytes) {
  ShortStream in(bytes);
  AtomHeader header;
  EXPECT_EQ(header.Read(&in), 0);
  auto box = MakeOrNull<Box>(header);
  return box->ReadContent(&in) == 0 ? std::move(box) : nullptr;
}

Data Written(Atom& box) {
  ShortStream out;
  EXPECT_EQ(box.Write(&out), 0);
  return out.data();
}

TEST(SampleEntries, KeepTheirChildrenAndBoxesThatTheyDoNotKnow) {
  const Bytes kUnknown = Bytes().be32(11).type("wave").text("xyz");
  const Bytes kDamaged = Bytes().be32(20).type("esds").fill(12);
  const Bytes kPicture = Bytes().be32(10).type("fiel").u8(2).u8(9).be32(18).type("colr").text("nclc").be16(9).be16(16)
                             .be16(9).be32(16).type("pasp").be32(4).be32(3);
  const LogCapture log;

  const Bytes prores = ProresEntry(86 + 44 + 11, 4, "Name").add(kPicture).add(kUnknown);
  const auto video = ReadAs<ProresAtom>(prores);
  ASSERT_NE(video, nullptr) << log.all();
  EXPECT_EQ(prores.difference(Written(*video)), "");
  EXPECT_TRUE(video->Find<FielAtom>("fiel") && video->Find<ColrAtom>("colr") && video->Find<PaspAtom>("pasp"));

  const Bytes mp4a = Mp4aEntry(36 + 11 + 54, 16).add(kUnknown).add(kAacEsds);
  const auto audio = ReadAs<Mp4aAtom>(mp4a);
  ASSERT_NE(audio, nullptr) << log.all();
  EXPECT_EQ(mp4a.difference(Written(*audio)), "");
  ASSERT_NE(audio->Find<EsdsAtom>("esds"), nullptr);
  EXPECT_EQ(log.all(), "");

  const auto damaged = ReadAs<Mp4aAtom>(Mp4aEntry(36 + 20, 16).add(kDamaged).fill(40));
  ASSERT_NE(damaged, nullptr);
  EXPECT_EQ(damaged->firstChild(), nullptr);
}

TEST(Mp4aAtom, ReadsASampleSizeOfNothingAs16) {
  const auto entry = ReadAs<Mp4aAtom>(Mp4aEntry(36, 0));
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->sampleSize(), 16);
  EXPECT_EQ(entry->channels(), 2);
  EXPECT_EQ(entry->sampleRate(), 48000u);
}

TEST(AudioEntries, StillKnowAHighRateWhenWritten) {
  const auto mp4a = AudioEntry<Mp4aAtom>(96000);
  const auto ulaw = AudioEntry<UlawAtom>(96000);
  for (AudioEntryAtom* entry : {static_cast<AudioEntryAtom*>(mp4a.get()), static_cast<AudioEntryAtom*>(ulaw.get())}) {
    Written(*entry);
    EXPECT_EQ(entry->sampleRate(), 96000u);
  }
}

TEST(ProresAtom, RefusesACompressorNameOf32BytesBothWays) {
  const LogCapture log;
  ShortStream out;
  EXPECT_EQ(ProresAtom("apcn", kLongestName + "v").Write(&out), -1);
  EXPECT_EQ(log.all(), "MP4 3 Prores compress name length:32 is illegal\n");
  log.clear();
  EXPECT_EQ(ReadAs<ProresAtom>(ProresEntry(86, 32, kLongestName)), nullptr);
  EXPECT_TRUE(log.has("Prores compress name length:32 is illegal\n"));
  EXPECT_EQ(log.transferFailures(), 0);
}

TEST(ProresAtom, TellsThatTheCompressorNameFailed) {
  constexpr std::uint64_t kLengthByteAt = 50;
  ProresAtom entry("apcn", "Name");
  const Data whole = Written(entry);
  for (const std::uint64_t cut : {kLengthByteAt, kLengthByteAt + 1}) {
    const LogCapture log;
    ShortStream out({}, cut);
    EXPECT_EQ(entry.Write(&out), -1);
    EXPECT_TRUE(log.has("write prores compressor failed\n"));
    EXPECT_EQ(ReadAs<ProresAtom>({whole.begin(), whole.begin() + static_cast<long>(cut)}), nullptr);
    EXPECT_TRUE(log.has("Read prores compressor failed\n"));
  }
}

TEST(PictureBoxes, FollowTheFrame) {
  const struct {
    ZR_U32 colour;
    ZR_U16 primaries, transfer, matrix;
  } kColours[] = {
      {1, 1, 1, 1}, {5, 5, 1, 6}, {6, 6, 1, 6},
      {9, 9, 1, 6},  // Deliberate: the matrix is 6, not 9.
      {11, 9, 16, 9}, {12, 9, 18, 9},
  };
  ColrAtom colr;
  for (const auto& row : kColours) {
    const Bytes expected =
        Bytes().be32(18).type("colr").text("nclc").be16(row.primaries).be16(row.transfer).be16(row.matrix);
    colr.setColr(row.colour);
    for (const ZR_U32 unknown : {0u, 2u, 10u, 13u, 0xFFFFFFFFu}) colr.setColr(unknown);
    EXPECT_EQ(expected.difference(Written(colr)), "") << row.colour;
  }

  const struct {
    ZR_U32 mode;
    ZR_U8 count, ordering;
  } kFields[] = {{1, 2, 9}, {2, 2, 14}, {3, 2, 14}, {0, 1, 0}, {0x100, 1, 0}};
  FielAtom fiel;
  for (const auto& row : kFields) {
    fiel.setFiel(row.mode);
    EXPECT_EQ(Bytes().be32(10).type("fiel").u8(row.count).u8(row.ordering).difference(Written(fiel)), "") << row.mode;
  }

  const struct {
    ZR_U32 width, height, horizontal, vertical;
  } kShapes[] = {{1280, 1080, 3, 2}, {960, 720, 4, 3}, {1920, 1080, 1, 1}, {1440, 1080, 4, 3}, {1280, 720, 1, 1}};
  PaspAtom pasp;
  for (const auto& row : kShapes) {
    pasp.setPasp(row.width, row.height);
    const Bytes expected = Bytes().be32(16).type("pasp").be32(row.horizontal).be32(row.vertical);
    EXPECT_EQ(expected.difference(Written(pasp)), "") << row.width << "x" << row.height;
  }
}

// A descriptor as other writers leave it: lengths in 1 to 4 bytes, in 5 for one that does not end, and any rest.
Bytes ForeignEsds(int esWidth, int configWidth, std::size_t restSize, ZR_U32 maxBitrate) {
  const auto length = [](int width, ZR_U8 value) {
    return Bytes().fill(static_cast<std::size_t>(width - 1), 0x80).add(width < 5 ? Bytes().u8(value) : Bytes());
  };
  const Bytes body = Bytes().be32(0x01000203).u8(3).add(length(esWidth, 0x7F)).be16(7).u8(0x1F)
                         .u8(4).add(length(configWidth, 0x11)).u8(0x6B).u8(0x15).be24(0xABCDEF)
                         .be32(maxBitrate).be32(64000).fill(restSize, 0x5C);
  return Bytes().be32(8 + body.size()).type("esds").add(body);
}

TEST(EsdsAtom, FromAFileIsWrittenBackByteForByte) {
  const LogCapture log;
  for (int esWidth = 1; esWidth <= 5; ++esWidth) {
    for (int configWidth = 1; configWidth <= 5; ++configWidth) {
      for (const std::size_t rest : {0, 3, 400}) {
        SCOPED_TRACE(testing::Message() << esWidth << " " << configWidth << " " << rest);
        const Bytes bytes = ForeignEsds(esWidth, configWidth, rest, 96000);
        const auto esds = ReadAs<EsdsAtom>(Bytes().add(bytes).fill(50));  // its box, not the stream, ends it
        ASSERT_NE(esds, nullptr) << log.all();
        EXPECT_EQ(bytes.difference(Written(*esds)), "");
        EXPECT_EQ(esds->objectTypeIndication(), 0x6B);
        esds->setBitrates(123456, 64000);
        EXPECT_EQ(ForeignEsds(esWidth, configWidth, rest, 123456).difference(Written(*esds)), "");
      }
    }
  }
}

TEST(EsdsAtom, ThatEndsInsideItsFieldsIsRefusedAndTakesNoMemory) {
  const Bytes whole = ForeignEsds(1, 1, 0, 96000);
  for (ZR_U32 size = 8; size < whole.size(); ++size) {
    const LogCapture log;
    Data bytes = Bytes().add(whole).fill(60);
    bytes[3] = static_cast<std::uint8_t>(size);
    EXPECT_EQ(ReadAs<EsdsAtom>(bytes), nullptr) << size;
  }
  Data endless = whole;
  endless[0] = 0x7F;
  const AllocFaults watch;
  ReadAs<EsdsAtom>(endless);
  EXPECT_LT(AllocFaults::largest(), 4096u);
}

TEST(EsdsAtom, LengthsHaveSevenBitsAByte) {
  const struct {
    Bytes bytes;
    ZR_U32 size;
    ZR_U8 width;
  } kRows[] = {
      {Bytes().u8(0x05), 5, 1},
      {Bytes().be16(0x8101), 129, 2},
      {Bytes().be32(0x80808025), 37, 4},
      {Bytes().be32(0xFFFFFF7F), (1u << 28) - 1, 4},
      {Bytes().be32(0x80818280), 0x4100, 5},  // the fourth byte is the last, whatever it says
  };
  for (const auto& row : kRows) {
    ShortStream in(Bytes().add(row.bytes).u8(0x11));
    ZR_U32 size = 99;
    ZR_U8 width = 99;
    ASSERT_EQ(EsdsAtom::ReadTagSize(&in, size, width), 0);
    EXPECT_EQ(size, row.size);
    EXPECT_EQ(width, row.width);
    EXPECT_EQ(in.getCurPos(), row.bytes.size());
    ShortStream out;
    ASSERT_EQ(EsdsAtom::WriteTagSize(&out, size, width), 0);
    EXPECT_EQ(row.bytes.difference(out.data()), "");
  }
}

ZR_U32 AudioSpecificConfig(AacAtom& esds) {
  const Data bytes = Written(esds);
  return static_cast<ZR_U32>(bytes[43] << 8 | bytes[44]);
}

TEST(AacAtom, ConfigurationNamesTheRateOfTheTableOrTheOneThatDecodersTake) {
  const struct {
    ZR_U32 rate;
    ZR_U8 index;
    bool exact;
  } kRates[] = {
      {96000, 0, true}, {88200, 1, true}, {64000, 2, true}, {48000, 3, true}, {44100, 4, true}, {32000, 5, true},
      {24000, 6, true}, {22050, 7, true}, {16000, 8, true}, {12000, 9, true}, {11025, 10, true}, {8000, 11, true},
      {7350, 12, true}, {0xFFFFFFFF, 0, false}, {92017, 0, false}, {92016, 1, false}, {37566, 4, false},
      {37565, 5, false}, {44099, 4, false}, {9391, 10, false}, {9390, 11, false}, {7349, 11, false}, {0, 11, false},
  };
  for (const auto& row : kRates) {
    SCOPED_TRACE(row.rate);
    const LogCapture log;
    ZR_U8 index = 99;
    EXPECT_EQ(AacParser::SampleRatesToFreqIndex(row.rate, &index) == 0, row.exact);
    EXPECT_EQ(index, row.index);
    AacAtom esds;
    esds.SetAudioConfig(2, row.rate, 1024);
    EXPECT_EQ(AudioSpecificConfig(esds), 0x1010u | row.index << 7);
    EXPECT_EQ(log.lines().size(), row.exact ? 0u : 1u) << "a notice";
  }
  AacAtom esds;
  esds.SetAudioConfig(0xFFF2, 48000, 1024);
  esds.setFrequencyIndex(4);  // what the stream says wins
  EXPECT_EQ(AudioSpecificConfig(esds), 0x1210u) << "too many channels spoil no other field";
  esds.SetAudioConfig(8, 48000, 1024);
  EXPECT_EQ(AudioSpecificConfig(esds), 0x11C0u) << "deliberately 8, the number of channels";
}

// An ADTS frame whose header says frameLength, of AAC LC.
Bytes Adts(ZR_U32 frameLength, ZR_U32 frequencyIndex = 3, ZR_U32 channels = 2, bool crc = false, ZR_U32 layer = 0) {
  const std::uint64_t header = 0xFFFull << 44 | std::uint64_t{layer} << 41 | std::uint64_t{!crc} << 40 | 1ull << 38 |
                               std::uint64_t{frequencyIndex} << 34 | std::uint64_t{channels} << 30 |
                               std::uint64_t{frameLength} << 13 | 0x7FF << 2;
  return Bytes().be24(header >> 32).be32(header);
}

TEST(AacParser, ReadsAdtsHeadersAndRefusesDamagedOnes) {
  const LogCapture log;
  ZR_U32 length = 99;
  for (ZR_U8 index = 0; index < 16; ++index) {
    for (ZR_U8 channels = 0; channels < 8; ++channels) {
      for (const bool crc : {false, true}) {
        const Data frame = Adts(8191, index, channels, crc).fill(8184);
        ZrAACAdtsHeaderS header = {};
        const int result = AacParser::ParseAdtsHeader(frame.data(), 8191, length, header);
        ASSERT_EQ(result, index < 13 ? 0 : -1) << int{index};
        ASSERT_EQ(length, index >= 13 ? 0u : crc ? 9u : 7u);
        if (result != 0) continue;
        ASSERT_EQ(header.samplingFrequencyIndex, index);
        ASSERT_EQ(header.channelConfiguration, channels);
        ASSERT_EQ(header.profile, 1);
        ASSERT_EQ(header.frameLength, 8191);
      }
    }
  }
  EXPECT_EQ(log.lines().size(), 3u * 8 * 2) << "one line for each refusal";

  const struct {
    const char* what;
    Data data;
    int result;
    ZR_U32 headerLen;
  } kRows[] = {
      {"nothing", {}, 0, 0},
      {"half a sync word", {0xFF}, 0, 0},
      {"a sync word only", {0xFF, 0xF1}, -1, 0},
      {"raw data", {0xDE, 0x02, 0, 0, 0, 0, 0, 0, 0}, 0, 0},
      {"a sync word short of a bit", {0xFF, 0xE1, 0x4C, 0x80, 1, 0, 0, 0, 0}, 0, 0},
      {"one byte short of a header", {0xFF, 0xF1, 0x4C, 0x80, 0, 0xC0}, -1, 0},
      {"a header and no data", Adts(7), 0, 7},
      {"a length below the header's", Adts(6).fill(20), -1, 0},
      {"a length without room for the CRC", Adts(8, 3, 2, true).fill(20), -1, 0},
      {"more data than the frame", Adts(12).fill(20), 0, 7},
      {"a frame short of a byte", Adts(28).fill(20), -1, 0},
      {"MPEG audio of another layer", Adts(27, 3, 2, false, 1).fill(20), -1, 0},
  };
  for (const auto& row : kRows) {
    ZrAACAdtsHeaderS header = {};
    length = 99;
    const auto size = static_cast<ZR_U32>(row.data.size());
    EXPECT_EQ(AacParser::ParseAdtsHeader(row.data.data(), size, length, header), row.result) << row.what;
    EXPECT_EQ(length, row.headerLen) << row.what;
  }
}

// A ProRes frame with the shortest header and a little data.
Bytes ProresFrame(ZR_U8 interlaceMode, ZR_U8 primaries, ZR_U8 transfer) {
  return Bytes().be32(38).type("icpf").be16(20).be16(0).text("enc ").be16(1440).be16(1080)
      .u8(0x83 | interlaceMode << 2).u8(0).u8(primaries).u8(transfer).u8(1).fill(3).fill(10, 0x77);
}

int Parse(const Data& frame, ProresInfo& info) {
  const Data exact(frame);  // with nothing behind it that a sanitizer would let pass
  return ProresParser::ParseProres(exact.data(), static_cast<ZR_U32>(exact.size()), info);
}

TEST(ProresParser, TellsSizeFieldsAndColour) {
  for (int primaries = 0; primaries < 256; ++primaries) {
    for (int transfer = 0; transfer < 256; ++transfer) {
      const bool bt2020 = primaries == 9;
      const bool known = primaries == 1 || primaries == 5 || primaries == 6 || bt2020;
      const int colour = bt2020 && transfer == 16 ? 11 : bt2020 && transfer == 18 ? 12 : known ? primaries : 0;
      const ZR_U8 mode = static_cast<ZR_U8>(transfer % 3);
      ProresInfo info = {};
      ASSERT_EQ(Parse(ProresFrame(mode, static_cast<ZR_U8>(primaries), static_cast<ZR_U8>(transfer)), info), 0);
      ASSERT_EQ(info.colourCode, colour) << primaries << " " << transfer;
      ASSERT_EQ(info.interlaceMode, mode);
      ASSERT_EQ(info.width, 1440);
      ASSERT_EQ(info.height, 1080);
    }
  }
}

TEST(ProresParser, RefusesDamagedHeaders) {
  const LogCapture log;
  const Data frame = ProresFrame(0, 1, 1);
  ProresInfo info = {1, 2, 3, 4};
  EXPECT_EQ(ProresParser::ParseProres(nullptr, 0, info), -1);
  for (std::size_t cut = 0; cut < frame.size(); ++cut) {
    EXPECT_EQ(Parse(Data(frame.begin(), frame.begin() + static_cast<long>(cut)), info), -1) << cut;
  }
  const struct {
    const char* what;
    std::size_t at;
    Data bytes;
  } kDamages[] = {
      {"another type", 7, {'g'}},      {"a frame that is longer", 3, {39}}, {"a frame that is huge", 0, {0xFF}},
      {"a frame without room", 3, {27}}, {"a header that is shorter", 9, {19}}, {"a header that is longer", 9, {31}},
      {"a version to come", 11, {2}},  {"no width", 16, {0, 0}},            {"no height", 18, {0, 0}},
      {"a third kind of interlacing", 20, {0x8F}},
  };
  for (const auto& damage : kDamages) {
    Data damaged = frame;
    std::copy(damage.bytes.begin(), damage.bytes.end(), damaged.begin() + static_cast<long>(damage.at));
    EXPECT_EQ(Parse(damaged, info), -1) << damage.what;
  }
  EXPECT_EQ(log.lines().size(), 1 + frame.size() + std::size(kDamages)) << "one line for each refusal";
  EXPECT_EQ(info.width, 1) << "a refused frame tells nothing";

  Data padded = frame;
  padded.resize(60);
  EXPECT_EQ(Parse(padded, info), 0);
}

}  // namespace
}  // namespace zrmp4
