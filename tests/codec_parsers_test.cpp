#include <gtest/gtest.h>

#include "codec/aac_parser.h"
#include "codec/hevc_parser.h"
#include "codec/nal_unit.h"
#include "codec/prores_parser.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/parameter_set_bytes.h"

using namespace zrmp4;

namespace {

Nal Sodb(const Nal& nal) {
  Nal out(nal.size());
  out.resize(GenSodpByRbsp(nal.data(), static_cast<ZR_U32>(nal.size()), out.data()));
  return out;
}

// All parsers get a copy of exactly this size on the heap, so that a read outside is noticed.
template <typename Info>
int Parse(int (HevcParser::*parse)(const ZR_U8*, ZR_U32, Info*) const, const Nal& nal, Info& info) {
  const Nal exact(nal);
  return (HevcParser().*parse)(exact.data(), static_cast<ZR_U32>(exact.size()), &info);
}
int Parse(const Nal& frame, ProresInfo& info) {
  const Nal exact(frame);
  return ProresParser::ParseProres(exact.data(), static_cast<ZR_U32>(exact.size()), info);
}

TEST(NalUnit, DropsEachThreeThatFollowsTwoZeros) {
  const std::pair<Nal, Nal> kCases[] = {
      {{1, 0, 0, 3, 1}, {1, 0, 0, 1}},       {{0, 0, 3, 0, 0, 3, 3}, {0, 0, 0, 0, 3}},
      {{0, 0, 0, 3, 0, 3}, {0, 0, 0, 0, 3}}, {{0, 3, 0, 0, 2, 3}, {0, 3, 0, 0, 2, 3}},
      {{0, 0, 3}, {0, 0}},
  };
  for (const auto& [nal, sodb] : kCases) EXPECT_EQ(Sodb(nal), sodb);
}

// Every optional part stands before the last field read: it is right only when each of them has its exact length.
TEST(HevcParser, FindsItsWayThroughEveryOptionalPart) {
  HevcParser::SpsInfo sps;
  ASSERT_EQ(Parse(&HevcParser::ParseSps, HevcSpsBits().bytes(), sps), 0);
  EXPECT_EQ(sps.sps_max_sub_layers_minus1, 1);
  EXPECT_EQ(sps.profile.general_profile_space, 1);
  EXPECT_EQ(sps.profile.general_constraint_indicator_flags_low, 0xFFFFu);
  EXPECT_EQ(sps.bit_depth_chroma_minus8, 4);
  EXPECT_TRUE(sps.min_spatial_segmentation_present);
  EXPECT_EQ(sps.min_spatial_segmentation_idc, 100);
}

TEST(HevcParser, RefusesWhatCannotBe) {
  const std::tuple<const char*, std::string HevcSpsBits::*, std::string> kCases[] = {
      {"chroma format 4", &HevcSpsBits::chroma, "00101 0"},
      {"17-bit samples", &HevcSpsBits::depths, "0001010 1"},
      {"17-bit picture order count", &HevcSpsBits::pocLsb, "0001110"},
      {"65 reference picture sets", &HevcSpsBits::refPicSets, "0000001000010 1 1" + Times(64, "0 1 1")},
      {"17 reference pictures", &HevcSpsBits::refPicSets, "010 0001010 0001001" + Times(17, "1 1")},
      {"33 long-term pictures", &HevcSpsBits::longTerm, "1 00000100010" + Times(33, "00000000 0")},
      {"33 buffers", &HevcSpsBits::cpbCount, "00000100001" + Times(2 * 31, Times(4, "010") + "1")},
      {"segmentation 4096", &HevcSpsBits::segmentation, "000000000000 1000000000001"},
  };
  for (const auto& [what, field, text] : kCases) {
    HevcSpsBits bits;
    bits.*field = text;
    Nal nal = bits.bytes();
    nal.resize(nal.size() + 100);  // it is the value that fails, not the end of the bytes
    HevcParser::SpsInfo sps;
    EXPECT_EQ(Parse(&HevcParser::ParseSps, nal, sps), -1) << what;
  }
  HevcParser::VpsInfo vps;
  const std::string start = "0 100000 000000 001  0000 11 000000", profile = "0" + Times(16, "1") + Times(112, "0");
  EXPECT_EQ(Parse(&HevcParser::ParseVps, FromBits(start + "110" + profile), vps), 0);
  EXPECT_EQ(vps.vps_max_sub_layers_minus1, 6);
  EXPECT_EQ(Parse(&HevcParser::ParseVps, FromBits(start + "111" + profile), vps), -1) << "eight sub-layers";
}

TEST(HevcParser, FailsForEveryCutAndSurvivesEveryFlippedBit) {
  const Nal whole = HevcSpsBits().bytes();
  HevcParser::VpsInfo vps;
  HevcParser::SpsInfo sps;
  HevcParser::PpsInfo pps;
  for (std::size_t cut = 0; cut < whole.size(); ++cut) {
    EXPECT_EQ(Parse(&HevcParser::ParseSps, Nal(whole.begin(), whole.begin() + static_cast<long>(cut)), sps), -1) << cut;
  }
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    Nal flipped = whole;
    flipped[bit / 8] = static_cast<ZR_U8>(flipped[bit / 8] ^ 1u << bit % 8);
    Parse(&HevcParser::ParseVps, flipped, vps);
    Parse(&HevcParser::ParsePps, flipped, pps);
    if (Parse(&HevcParser::ParseSps, flipped, sps) != 0) continue;
    EXPECT_TRUE(sps.sps_max_sub_layers_minus1 <= 6 && sps.min_spatial_segmentation_idc <= 4095) << bit;
  }
}

// The start of an ADTS frame whose header says frameLength, of AAC LC.
Bytes Adts(ZR_U32 frameLength, ZR_U32 frequencyIndex = 3, bool crc = false, ZR_U32 layer = 0) {
  const std::uint64_t header = 0xFFFull << 44 | std::uint64_t{layer} << 41 | std::uint64_t{!crc} << 40 | 1ull << 38 |
                               std::uint64_t{frequencyIndex} << 34 | 2ull << 30 | std::uint64_t{frameLength} << 13 |
                               0x7FF << 2;
  return Bytes().be24(header >> 32).be32(header);
}

TEST(AacParser, ReadsAdtsHeadersAndRefusesDamagedOnes) {
  const std::tuple<Nal, int, ZR_U32> kRows[] = {  // result and length of the header
      {{}, 0, 0},
      {{0xFF}, 0, 0},
      {{0xFF, 0xF1}, -1, 0},
      {{0xDE, 0x02, 0, 0, 0, 0, 0, 0, 0}, 0, 0},
      {{0xFF, 0xE1, 0x4C, 0x80, 1, 0, 0, 0, 0}, 0, 0},  // a sync word short of a bit
      {{0xFF, 0xF1, 0x4C, 0x80, 0, 0xC0}, -1, 0},       // one byte short of a header
      {Adts(7), 0, 7},
      {Adts(6).fill(20), -1, 0},            // a length below the header's
      {Adts(8, 3, true).fill(20), -1, 0},   // or without room for the CRC
      {Adts(27, 3, true).fill(20), 0, 9},
      {Adts(12).fill(20), 0, 7},            // more data than the frame
      {Adts(28).fill(20), -1, 0},           // a frame short of a byte
      {Adts(27, 13).fill(20), -1, 0},       // a rate that is none
      {Adts(27, 3, false, 1).fill(20), -1, 0},  // MPEG audio of another layer
      {Adts(8191, 12).fill(8184), 0, 7},
  };
  ZrAACAdtsHeaderS header = {};
  for (const auto& [data, result, headerLen] : kRows) {
    const LogCapture log;
    ZR_U32 length = 99;
    const auto size = static_cast<ZR_U32>(data.size());
    EXPECT_EQ(AacParser::ParseAdtsHeader(data.data(), size, length, header), result) << testing::PrintToString(data);
    EXPECT_EQ(length, headerLen) << testing::PrintToString(data);
    EXPECT_EQ(log.lines().size(), result == 0 ? 0u : 1u);
  }
  EXPECT_TRUE(header.samplingFrequencyIndex == 12 && header.channelConfiguration == 2 && header.profile == 1);
  EXPECT_EQ(header.frameLength, 8191);
}

// A ProRes frame with the shortest header and a little data.
Bytes ProresFrame(ZR_U8 interlaceMode, int primaries, int transfer) {
  return Bytes().be32(38).type("icpf").be16(20).be16(0).text("enc ").be16(1440).be16(1080)
      .u8(0x83 | interlaceMode << 2).u8(0).u8(static_cast<ZR_U8>(primaries)).u8(static_cast<ZR_U8>(transfer)).u8(1)
      .fill(3).fill(10, 0x77);
}

TEST(ProresParser, TellsSizeFieldsAndColour) {
  for (int primaries = 0; primaries < 256; ++primaries) {
    for (const int transfer : {0, 1, 16, 17, 18, 255}) {
      const bool bt2020 = primaries == 9;
      const bool known = primaries == 1 || primaries == 5 || primaries == 6 || bt2020;
      const int colour = bt2020 && transfer == 16 ? 11 : bt2020 && transfer == 18 ? 12 : known ? primaries : 0;
      const ZR_U8 mode = static_cast<ZR_U8>(primaries % 3);
      ProresInfo info = {};
      ASSERT_EQ(Parse(ProresFrame(mode, primaries, transfer), info), 0);
      ASSERT_EQ(info.colourCode, colour) << primaries << " " << transfer;
      ASSERT_TRUE(info.interlaceMode == mode && info.width == 1440 && info.height == 1080);
    }
  }
}

TEST(ProresParser, RefusesDamagedHeaders) {
  const LogCapture log;
  const Nal frame = ProresFrame(0, 1, 1);
  ProresInfo info = {1, 2, 3, 4};
  for (std::size_t cut = 0; cut < frame.size(); ++cut) {
    EXPECT_EQ(Parse(Nal(frame.begin(), frame.begin() + static_cast<long>(cut)), info), -1) << cut;
  }
  const std::tuple<const char*, std::size_t, Nal> kDamages[] = {
      {"another type", 7, {'g'}},        {"a frame that is longer", 3, {39}},    {"a frame that is huge", 0, {0xFF}},
      {"a frame without room", 3, {27}}, {"a header that is shorter", 9, {19}}, {"a header that is longer", 9, {31}},
      {"a version to come", 11, {2}},    {"no width", 16, {0, 0}},              {"no height", 18, {0, 0}},
      {"a third kind of interlacing", 20, {0x8F}},
  };
  for (const auto& [what, at, bytes] : kDamages) {
    Nal damaged = frame;
    std::copy(bytes.begin(), bytes.end(), damaged.begin() + static_cast<long>(at));
    EXPECT_EQ(Parse(damaged, info), -1) << what;
  }
  EXPECT_EQ(log.lines().size(), frame.size() + std::size(kDamages)) << "one line for each refusal";
  EXPECT_EQ(info.width, 1) << "a refused frame tells nothing";
  Nal padded = frame;
  padded.resize(60);
  EXPECT_EQ(Parse(padded, info), 0);
}

}  // namespace
