#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "support/recording.h"

namespace {

// Headers carry the time of day behind their version and flags, in two numbers of four bytes, or of eight in version 1.
void ClearTimes(Data& file) {
  for (std::size_t i = 4; i + 24 <= file.size(); ++i) {
    const char* type = reinterpret_cast<const char*>(&file[i]);
    for (const char* header : {"mvhd", "tkhd", "mdhd"}) {
      if (std::memcmp(type, header, 4) == 0) std::memset(&file[i + 8], 0, file[i + 4] == 1 ? 16 : 8);
    }
  }
}

std::uint64_t Hash(const Data& data) {  // FNV-1a
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const std::uint8_t byte : data) hash = (hash ^ byte) * 0x100000001b3;
  return hash;
}

// Three tracks at uneven times over four backup units, boxes in different places, a speed and a rate with fractions.
void RecordTracks(const zrMP4_CONFIG_S& config, bool finished) {
  Muxer muxer(config);
  zrMP4_TRACK_INFO_S video = VideoTrack();
  video.fSpeed = 0.3f;
  const auto picture = muxer.add(video);
  const auto sound = muxer.add(AudioTrack(ZR_MP4_CODEC_AAC));
  const auto data = muxer.add(MetaTrack());
  for (unsigned i = 0; i < 100; ++i) {
    const ZR_U64 pts = 7 + i * UINT64_C(1001000) / 30 + i * i % 7;
    const auto fill = static_cast<std::uint8_t>(i + 128);
    ASSERT_EQ(muxer.write(picture, i % 30 == 0 ? KeyFrame(60000, fill) : DeltaFrame(17001 + i, fill), pts, i % 30 == 0),
              0u);
    ASSERT_EQ(muxer.write(sound, AacFrame(300 + i % 11), pts + 5), 0u);
    if (i % 3 == 0) {
      ASSERT_EQ(muxer.write(data, Data(i, fill), pts + 9), 0u);
    }
    if (i == 50) {
      ASSERT_EQ(muxer.addBox("/moov", "note", Data(100, 0xFE)), 0u);
    }
  }
  ASSERT_EQ(muxer.addBox("/", "last", Data(9, 0x80)), 0u);
  if (finished) {
    ASSERT_EQ(muxer.finish(), 0u);
  }
  ASSERT_EQ(muxer.destroy(), 0u);
}

const struct {
  const char* name;
  ZR_U32 backupUnit;
  bool co64;
  bool repaired;
  std::uint64_t hash;
} kFiles[] = {
    {"plain", 0, false, false, 0x6e68a7587a301737},
    {"with backups", 524288, false, false, 0x16293feca4a5d422},
    {"with 64-bit offsets", 524288, true, false, 0x3e238e9a88b3171d},
    {"repaired", 524288, false, true, 0x16293feca4a5d422},
};

}  // namespace

// The hashes are those of one machine; the suite runs on 32-bit ARM and on x86-64 and must find them on both.
TEST(SameBytes, OnEveryProcessor) {
  for (const auto& wanted : kFiles) {
    const TempFile file;
    zrMP4_CONFIG_S config = MuxerConfig(file.path(), wanted.backupUnit);
    config.stMuxerConfig.bCo64Flag = wanted.co64 ? ZR_TRUE : ZR_FALSE;
    RecordTracks(config, !wanted.repaired);
    if (wanted.repaired) {
      ASSERT_EQ(ZR_MP4_RepairFile(file.path().c_str(), ZR_TRUE), 0u);
    }
    const RecordedFile recorded(file.path());
    Data bytes = recorded.bytes(0, recorded.size());
    ClearTimes(bytes);
    EXPECT_EQ(Hash(bytes), wanted.hash) << wanted.name << ", " << bytes.size() << " bytes: " << std::hex << Hash(bytes);
  }
}
