#include <gtest/gtest.h>

#include "codec/bit_reader.h"
#include "codec/hevc_parser.h"
#include "codec/nal_unit.h"
#include "tests/support/parameter_set_bytes.h"

using zrmp4::BitReader;
using zrmp4::HevcParser;

namespace {

Nal Sodb(const Nal& nal) {
  Nal out(nal.size());
  out.resize(zrmp4::GenSodpByRbsp(nal.data(), static_cast<ZR_U32>(nal.size()), out.data()));
  return out;
}

// A copy of exactly this size on the heap, so that a read outside is noticed.
template <typename Info>
int Parse(int (HevcParser::*parse)(const ZR_U8*, ZR_U32, Info*) const, const Nal& nal, Info& info) {
  const Nal exact(nal);
  return (HevcParser().*parse)(exact.data(), static_cast<ZR_U32>(exact.size()), &info);
}

}  // namespace

TEST(NalUnit, DropsEachThreeThatFollowsTwoZeros) {
  const struct {
    Nal nal, sodb;
  } cases[] = {
      {{1, 0, 0, 3, 1}, {1, 0, 0, 1}},
      {{0, 0, 3, 0, 0, 3, 3}, {0, 0, 0, 0, 3}},
      {{0, 0, 0, 3, 0, 3}, {0, 0, 0, 0, 3}},
      {{0, 3, 0, 0, 2, 3}, {0, 3, 0, 0, 2, 3}},
      {{0, 0, 3}, {0, 0}},
  };
  for (const auto& test : cases) EXPECT_EQ(Sodb(test.nal), test.sodb);
}

TEST(BitReader, ReadsExpGolombCodes) {
  const Nal bits = FromBits("1 010 011 00100 00101" + Times(31, "0") + Times(32, "1") + "1");
  BitReader in(bits.data(), static_cast<ZR_U32>(bits.size()));
  EXPECT_EQ(in.ue(), 0u);
  EXPECT_EQ(in.se(), 1);
  EXPECT_EQ(in.se(), -1);
  EXPECT_EQ(in.ue(), 3u);
  EXPECT_EQ(in.se(), -2);
  EXPECT_EQ(in.ue(), 0xFFFFFFFEu);
  EXPECT_TRUE(in.flag());
  EXPECT_FALSE(in.failed());
}

TEST(BitReader, AFailureLasts) {
  const Nal tooLong = FromBits(Times(32, "0") + Times(40, "1"));
  const Nal cutOff = FromBits("00000000 00010101");
  for (const Nal& bits : {tooLong, cutOff}) {
    BitReader in(bits.data(), static_cast<ZR_U32>(bits.size()));
    EXPECT_EQ(in.ue(), 0u);
    EXPECT_TRUE(in.failed());
    EXPECT_EQ(in.bits(1), 0u);
  }
  BitReader none(nullptr, 100);
  EXPECT_EQ(none.bits(8), 0u);
  EXPECT_TRUE(none.failed());
}

TEST(HevcParser, ReadsTheSetsOfACommonEncoder) {
  HevcParser::VpsInfo vps;
  ASSERT_EQ(Parse(&HevcParser::ParseVps, Sodb(kHevcVps), vps), 0);
  EXPECT_EQ(vps.vps_max_sub_layers_minus1, 0);
  EXPECT_EQ(vps.profile.general_profile_idc, 1);
  EXPECT_EQ(vps.profile.general_level_idc, 60);

  HevcParser::SpsInfo sps;
  ASSERT_EQ(Parse(&HevcParser::ParseSps, Sodb(kHevcSps), sps), 0);
  EXPECT_EQ(sps.sps_temporal_id_nesting_flag, 1);
  EXPECT_EQ(sps.profile.general_profile_compatibility_flags, 0x60000000u);
  EXPECT_EQ(sps.profile.general_constraint_indicator_flags_high, 0x90000000u);
  EXPECT_EQ(sps.chroma_format_idc, 1);
  EXPECT_FALSE(sps.min_spatial_segmentation_present);

  HevcParser::PpsInfo pps;
  ASSERT_EQ(Parse(&HevcParser::ParsePps, Sodb(kHevcPps), pps), 0);
  EXPECT_EQ(pps.tiles_enabled_flag, 0);
  EXPECT_EQ(pps.entropy_coding_sync_enabled_flag, 1);
}

// Every optional part stands before the last field read: it is right only when each of them has its exact length.
TEST(HevcParser, FindsItsWayThroughEveryOptionalPart) {
  HevcParser::SpsInfo sps;
  ASSERT_EQ(Parse(&HevcParser::ParseSps, HevcSpsBits().bytes(), sps), 0);
  EXPECT_EQ(sps.sps_max_sub_layers_minus1, 1);
  EXPECT_EQ(sps.profile.general_profile_space, 1);
  EXPECT_EQ(sps.profile.general_tier_flag, 1);
  EXPECT_EQ(sps.profile.general_profile_idc, 2);
  EXPECT_EQ(sps.profile.general_profile_compatibility_flags, 0x20000000u);
  EXPECT_EQ(sps.profile.general_constraint_indicator_flags_high, 0x90FFFFFFu);
  EXPECT_EQ(sps.profile.general_constraint_indicator_flags_low, 0xFFFFu);
  EXPECT_EQ(sps.profile.general_level_idc, 93);
  EXPECT_EQ(sps.chroma_format_idc, 3);
  EXPECT_EQ(sps.bit_depth_luma_minus8, 2);
  EXPECT_EQ(sps.bit_depth_chroma_minus8, 4);
  EXPECT_TRUE(sps.min_spatial_segmentation_present);
  EXPECT_EQ(sps.min_spatial_segmentation_idc, 100);
}

TEST(HevcParser, RefusesWhatCannotBe) {
  const struct {
    const char* what;
    std::string HevcSpsBits::*field;
    std::string bits;
  } cases[] = {
      {"chroma format 4", &HevcSpsBits::chroma, "00101 0"},
      {"17-bit samples", &HevcSpsBits::depths, "0001010 1"},
      {"17-bit picture order count", &HevcSpsBits::pocLsb, "0001110"},
      {"65 reference picture sets", &HevcSpsBits::refPicSets, "0000001000010 1 1" + Times(64, "0 1 1")},
      {"17 reference pictures", &HevcSpsBits::refPicSets, "010 0001010 0001001" + Times(17, "1 1")},
      {"33 long-term pictures", &HevcSpsBits::longTerm, "1 00000100010" + Times(33, "00000000 0")},
      {"33 buffers", &HevcSpsBits::cpbCount, "00000100001" + Times(2 * 31, Times(4, "010") + "1")},
      {"segmentation 4096", &HevcSpsBits::segmentation, "000000000000 1000000000001"},
  };
  for (const auto& test : cases) {
    HevcSpsBits bits;
    bits.*test.field = test.bits;
    Nal nal = bits.bytes();
    nal.resize(nal.size() + 100);  // it is the value that fails, not the end of the bytes
    HevcParser::SpsInfo sps;
    EXPECT_EQ(Parse(&HevcParser::ParseSps, nal, sps), -1) << test.what;
  }
}

TEST(HevcParser, RefusesEightSubLayersOfAVps) {
  HevcParser::VpsInfo vps;
  const std::string start = "0 100000 000000 001  0000 11 000000";
  const std::string profile = "0" + Times(16, "1") + Times(96 + 16, "0");
  EXPECT_EQ(Parse(&HevcParser::ParseVps, FromBits(start + "110" + profile), vps), 0);
  EXPECT_EQ(vps.vps_max_sub_layers_minus1, 6);
  EXPECT_EQ(Parse(&HevcParser::ParseVps, FromBits(start + "111" + profile), vps), -1);
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
    if (Parse(&HevcParser::ParseSps, flipped, sps) == 0) {
      EXPECT_LE(sps.sps_max_sub_layers_minus1, 6) << bit;
      EXPECT_LE(sps.min_spatial_segmentation_idc, 4095) << bit;
    }
  }
  EXPECT_EQ(Parse(&HevcParser::ParseVps, {0x40, 0x01, 0x0C}, vps), -1);
  EXPECT_EQ(Parse(&HevcParser::ParsePps, {0x44, 0x01}, pps), -1);
}
