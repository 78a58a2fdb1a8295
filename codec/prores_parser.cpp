#include "codec/prores_parser.h"

#include <cstring>

#include "base/log.h"

namespace zrmp4 {
namespace {

// A frame is its size, "icpf" and the frame header; offsets are from the frame's start.
constexpr ZR_U32 kFrameHeaderAt = 8;
constexpr ZR_U32 kVersionAt = 11;
constexpr ZR_U32 kWidthAt = 16;
constexpr ZR_U32 kHeightAt = 18;
constexpr ZR_U32 kInterlaceModeAt = 20;
constexpr ZR_U32 kPrimariesAt = 22;
constexpr ZR_U32 kTransferAt = 23;
constexpr ZR_U32 kShortestFrameHeader = 20;  // without quantisation matrices
constexpr ZR_U8 kLatestVersion = 1;

ZR_U16 Be16(const ZR_U8* at) { return static_cast<ZR_U16>(at[0] << 8 | at[1]); }

ZR_U32 Be32(const ZR_U8* at) { return static_cast<ZR_U32>(Be16(at)) << 16 | Be16(at + 2); }

// Colour description of the frame as the colour box names it.
ZR_U8 ColourCode(ZR_U8 primaries, ZR_U8 transfer) {
  constexpr ZR_U8 kBt2020 = 9;
  if (primaries == kBt2020 && transfer == 16) return 11;  // PQ
  if (primaries == kBt2020 && transfer == 18) return 12;  // HLG
  return primaries == 1 || primaries == 5 || primaries == 6 || primaries == kBt2020 ? primaries : 0;
}

}  // namespace

int ProresParser::ParseProres(const ZR_U8* frame, ZR_U32 size, ProresInfo& info) {
  if (frame == nullptr || size < kFrameHeaderAt + kShortestFrameHeader || std::memcmp(frame + 4, "icpf", 4) != 0) {
    return ZR_FAIL(-1, "prores frame(%u bytes) has no header\n", size);
  }
  const ZR_U32 frameSize = Be32(frame);
  const ZR_U32 headerSize = Be16(frame + kFrameHeaderAt);
  if (frameSize > size || headerSize < kShortestFrameHeader || kFrameHeaderAt + headerSize > frameSize) {
    return ZR_FAIL(-1, "prores frame size %u or header size %u is illegal in %u bytes\n", frameSize, headerSize, size);
  }
  const ZR_U8 version = frame[kVersionAt];
  const ZR_U16 width = Be16(frame + kWidthAt);
  const ZR_U16 height = Be16(frame + kHeightAt);
  const ZR_U8 interlaceMode = frame[kInterlaceModeAt] >> 2 & 0x03;
  if (version > kLatestVersion || width == 0 || height == 0 || interlaceMode > 2) {
    return ZR_FAIL(-1, "prores header is illegal: version %u, %ux%u, interlace mode %u\n", version, width, height,
                   interlaceMode);
  }
  info = {width, height, interlaceMode, ColourCode(frame[kPrimariesAt], frame[kTransferAt])};
  return 0;
}

}  // namespace zrmp4
