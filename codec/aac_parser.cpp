#include "codec/aac_parser.h"

#include "base/log.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kFixedHeaderSize = 7;
constexpr ZR_U32 kCrcSize = 2;

constexpr ZR_U8 kFrequencies = 13;
constexpr ZR_U32 kFrequencyTable[kFrequencies] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                  22050, 16000, 12000, 11025, 8000,  7350};

// A decoder uses the tables of index i for any rate from here up to the limit before it; what is below the last has
// the index behind it.
constexpr ZR_U8 kLimits = 11;
constexpr ZR_U32 kLowestRate[kLimits] = {92017, 75132, 55426, 46009, 37566, 27713, 23004, 18783, 13856, 11502, 9391};

bool IsSyncWord(const ZR_U8* data) { return data[0] == 0xFF && (data[1] & 0xF0) == 0xF0; }

}  // namespace

int AacParser::ParseAdtsHeader(const ZR_U8* data, ZR_U32 len, ZR_U32& headerLen, ZrAACAdtsHeaderS& header) {
  headerLen = 0;
  if (data == nullptr || len < 2 || !IsSyncWord(data)) return 0;
  if (len < kFixedHeaderSize) return ZR_FAIL(-1, "adts header is cut after %u bytes\n", len);

  const bool crcAbsent = (data[1] & 0x01) != 0;
  const ZR_U32 layer = data[1] >> 1 & 0x03u;  // 0; the other audio of MPEG has a similar sync word
  const ZR_U32 headerSize = kFixedHeaderSize + (crcAbsent ? 0 : kCrcSize);
  const ZR_U32 frameLength = (data[3] & 0x03u) << 11 | static_cast<ZR_U32>(data[4]) << 3 | data[5] >> 5;
  const ZR_U32 frequencyIndex = data[2] >> 2 & 0x0Fu;
  if (layer != 0 || frequencyIndex >= kFrequencies) {
    return ZR_FAIL(-1, "adts header is illegal: layer %u, frequency index %u\n", layer, frequencyIndex);
  }
  if (frameLength < headerSize || frameLength > len) {
    return ZR_FAIL(-1, "adts frame length %u is illegal in %u bytes\n", frameLength, len);
  }
  headerLen = headerSize;
  header.profile = data[2] >> 6;
  header.samplingFrequencyIndex = static_cast<ZR_U8>(frequencyIndex);
  header.channelConfiguration = static_cast<ZR_U8>((data[2] & 0x01u) << 2 | data[3] >> 6);
  header.frameLength = static_cast<ZR_U16>(frameLength);
  return 0;
}

int AacParser::SampleRatesToFreqIndex(ZR_U32 sampleRate, ZR_U8* index) {
  if (index == nullptr) {
    LogNullArgument("SampleRatesToFreqIndex");
    return -1;
  }
  for (ZR_U8 i = 0; i < kFrequencies; ++i) {
    if (kFrequencyTable[i] != sampleRate) continue;
    *index = i;
    return 0;
  }
  *index = 0;
  while (*index < kLimits && sampleRate < kLowestRate[*index]) ++*index;
  return -1;
}

}  // namespace zrmp4
