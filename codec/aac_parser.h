#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

// What an ADTS header says of the AAC frame behind it.
struct ZrAACAdtsHeaderS {
  ZR_U8 profile;                 // audio object type less one: 1 is AAC LC
  ZR_U8 samplingFrequencyIndex;  // into the MPEG-4 table of sampling frequencies, 0 (96000) to 12 (7350)
  ZR_U8 channelConfiguration;
  ZR_U16 frameLength;  // bytes, the header included
};

class AacParser {
 public:
  // headerLen is 7 or 9 when the data begins with an ADTS header, 0 when it has none. 0, or -1 for a header that is
  // cut off or contradicts itself, or whose frame is longer than the data.
  static int ParseAdtsHeader(const ZR_U8* data, ZR_U32 len, ZR_U32& headerLen, ZrAACAdtsHeaderS& header);

  // The index of a rate in the MPEG-4 table. 0, or -1 for a rate that is not in the table: the index is then the one
  // that decoders take for such a rate.
  static int SampleRatesToFreqIndex(ZR_U32 sampleRate, ZR_U8* index);
};

}  // namespace zrmp4
