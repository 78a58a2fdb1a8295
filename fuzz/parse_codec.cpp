// Everything that looks into encoded data: headers of frames, parameter sets, and the configuration boxes that hold
// them. A configuration that was read or collected is the same after it was written and read again.
#include "box/audio_entry.h"
#include "box/avc_entry.h"
#include "box/hevc_entry.h"
#include "codec/aac_parser.h"
#include "codec/hevc_parser.h"
#include "codec/nal_unit.h"
#include "codec/prores_parser.h"
#include "fuzz/fuzz.h"
#include "tests/support/short_stream.h"
#include "track/nal_track.h"

using namespace zrmp4;

namespace {

void ParseHeaders(const ZR_U8* data, ZR_U32 size) {
  ZR_U32 headerSize = 0;
  ZrAACAdtsHeaderS adts = {};
  if (AacParser::ParseAdtsHeader(data, size, headerSize, adts) == 0 && headerSize != 0) {
    Require(headerSize <= adts.frameLength && adts.frameLength <= size, "an ADTS frame beyond its data");
    Require(adts.samplingFrequencyIndex < 13, "a sampling frequency beyond the table");
  }
  ProresInfo prores = {};
  ProresParser::ParseProres(data, size, prores);

  const std::unique_ptr<ZR_U8[]> sodb(new ZR_U8[size]);
  const ZR_U32 length = GenSodpByRbsp(data, size, sodb.get());
  Require(length <= size, "a unit that grows");
  HevcParser::VpsInfo vps;
  HevcParser::SpsInfo sps;
  HevcParser::PpsInfo pps;
  HevcParser().ParseVps(sodb.get(), length, &vps);
  HevcParser().ParseSps(sodb.get(), length, &sps);
  HevcParser().ParsePps(sodb.get(), length, &pps);
}

Data Written(Atom& box) {
  ShortStream stream;
  Require(box.Write(&stream) == 0, box.type() + " cannot be written");
  return stream.data();
}

// What is written of the box that these bytes are, or nothing.
template <typename Box>
Data Rewritten(const Data& bytes) {
  ShortStream stream(bytes);
  AtomHeader header;
  if (header.Read(&stream) != 0 || header.Length(stream.size()) < header.Size()) return {};
  Box box(header);
  return box.readData(&stream) == 0 ? Written(box) : Data();
}

template <typename Box>
void RoundTrip(const Data& bytes) {
  const Data once = Rewritten<Box>(bytes);
  Require(Rewritten<Box>(once) == once, "a configuration that is read differently the second time");
}

void CheckPieces(const Track::Mp4Sample& sample, const Data& frame) {
  ZR_U64 end = 0;
  for (ZR_U32 i = 0; i < sample.partCount; ++i) {
    const auto at = static_cast<ZR_U64>(sample.partData[i] - frame.data());
    Require(at >= end && at + sample.partSize[i] <= frame.size(), "a piece outside of the frame");
    end = at + sample.partSize[i];
  }
}

void CutFrames(const Data& frame) {
  const auto size = static_cast<ZR_U32>(frame.size());
  Track::Mp4Sample stored = {};
  if (NalTrack::Mp4AuToSample(frame.data(), size, 0, ZR_TRUE, stored) == 0) CheckPieces(stored, frame);
  Track::Mp4Sample sample = {};
  if (NalTrack::AnnexbToSample(frame.data(), size, 0, ZR_TRUE, &sample) != 0) return;
  CheckPieces(sample, frame);
  AvccAtom avcc;
  HvccAtom hvcc;
  for (ZR_U32 i = 0; i < sample.partCount; ++i) {
    const auto length = static_cast<ZR_U16>(std::min(sample.partSize[i], 0xFFFFu));
    if (length == 0) continue;
    const ZR_U8* unit = sample.partData[i];
    (unit[0] & 0x1F) == 7 ? avcc.AddSps(unit, length) : avcc.AddPps(unit, length);
    switch (unit[0] >> 1 & 0x3F) {
      case 32: hvcc.AddVps(unit, length); break;
      case 33: hvcc.AddSps(unit, length); break;
      case 34: hvcc.AddPps(unit, length); break;
      default: hvcc.AddSei(unit, length);
    }
  }
  RoundTrip<AvccAtom>(Written(avcc));
  hvcc.settleSize();
  const Data whole = Written(hvcc);
  Require(whole.size() == hvcc.header().size, "hvcC has another size than it says");
  RoundTrip<HvccAtom>(whole);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Data bytes(data, data + size);
  const MemoryBound bound(16 << 10, size);
  ParseHeaders(data, static_cast<ZR_U32>(size));
  RoundTrip<AvccAtom>(bytes);
  RoundTrip<HvccAtom>(bytes);
  RoundTrip<EsdsAtom>(bytes);
  if (size != 0) CutFrames(bytes);
  return 0;
}
