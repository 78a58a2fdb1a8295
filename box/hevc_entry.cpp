#include "box/hevc_entry.h"

#include "base/log.h"
#include "box/child_types.h"
#include "codec/nal_unit.h"

namespace zrmp4 {
namespace {

constexpr CompressorName kCompressor = {"\vHEVC Coding", "Init hevc compressor name failed\n",
                                        "write hvc1 compressor error\n", "skip hvc1 compressor error\n"};

constexpr ParameterSetList::ReadTexts kReadTexts = {"hvcc parameter set size(%d) is illegal\n",
                                                    "new hvcc parameter set(%d bytes) failed\n"};

constexpr ZR_U32 kFixedBytes = 23;
constexpr ZR_U32 kArrayHeaderBytes = 3;  // type and 16-bit count
constexpr ZR_U32 kMaxSei = 0xFFFF;       // the count in the file has 16 bits
constexpr ZR_U16 kMaxMinSpatialSegmentation = 4096;

template <typename T>
T Larger(T one, T other) {
  return one > other ? one : other;
}

ZR_U8 Byte(int value) { return static_cast<ZR_U8>(value); }

ZR_U8 NalTypeOf(ZR_U8 arrayType) { return arrayType & 0x3F; }

// A NAL unit to be parsed, and the memory to do it in.
struct Nal {
  const char* operation;
  const ZR_U8* data;
  ZR_U16 size;
  ZR_U8* buffer;
  ZR_U16 bufferSize;
};

template <typename Info>
int Parse(const HevcParser& parser, int (HevcParser::*parse)(const ZR_U8*, ZR_U32, Info*) const, const Nal& nal,
          Info* info, const char* error) {
  if (nal.data == nullptr || nal.buffer == nullptr) {
    LogTrackArgument(nullptr, nal.operation);
    return -1;
  }
  if (nal.size > nal.bufferSize) return ZR_FAIL(-1, "%s", error);
  const ZR_U32 length = GenSodpByRbsp(nal.data, nal.size, nal.buffer);
  return (parser.*parse)(nal.buffer, length, info) == 0 ? 0 : ZR_FAIL(-1, "%s", error);
}

}  // namespace

// A kind of parameter set: its array, how it is read from the stream, and the limits and texts of adding one.
struct HvccAtom::Kind {
  ZR_U8 nalType;
  const char* operation;
  int (HvccAtom::*parse)(const ZR_U8* nal, ZR_U16 size, ZR_U8* buf, ZR_U16 bufSize);
  const char* notParsed;
  ParameterSetRules rules;
};

const HvccAtom::Kind HvccAtom::kKinds[] = {
    {kVps,
     "AddVps",
     &HvccAtom::ParseVps,
     nullptr,
     {16, "hevc vps is already exist\n", "hevc vps has reach max cnt[%d]\n", "new hevc vps (%hu bytes) fail\n",
      "init hevc(%hu bytes) vps fail\n", "HevcParser Parse vps error\n"}},
    {kSps,
     "AddSps",
     &HvccAtom::ParseSps,
     "Parse sps fail\n",
     {16, "hevc sps is already exist\n", "hevc sps has reach max cnt[%d]\n", "new hevc sps (%hu bytes) fail\n",
      "init hevc(%hu bytes) sps fail\n", "memcpy_s nal to tmpSps fail\n"}},
    {kPps,
     "AddPps",
     &HvccAtom::ParsePps,
     "Parse pps fail\n",
     {64, "hevc pps is already exist\n", "hevc pps has reach max cnt[%d]\n", "new hevc pps (%hu bytes) fail\n",
      "init hevc(%hu bytes) pps fail\n", "memcpy nal to tmpPps fail\n"}},
    {kSei,
     "AddSei",
     nullptr,
     nullptr,
     {kMaxSei, "hevc sei is already exist\n", nullptr, "new hevc sei (%hu bytes) fail\n",
      "init hevc(%hu bytes) sei fail\n", "memcpy_s nal to tmpSei fail\n"}},
};

bool Hvc1Atom::fields(FieldIo& io) {
  return io.fixed32(0) && io.fixed16(0) && io.be16(mDataReferenceIndex) &&                     //
         io.fixed16(0) && io.fixed16(0) && io.fixed32(0) && io.fixed32(0) && io.fixed32(0) &&  //
         mPicture.fields(io, kCompressor);
}

Atom* Hvc1Atom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {{"hvcC", NewChild<HvccAtom>}};
  return ReadChildOf(stream, kChildren);
}

bool HvccAtom::IsParamentSetExist(const ZR_U8* data, ZR_U16 size, const ParameterSetList& sets) const {
  if (data == nullptr) {
    LogTrackArgument(nullptr, "IsParamentSetExist");
    return false;
  }
  return sets.contains(data, size);
}

int HvccAtom::indexOf(ZR_U8 nalType) const {
  for (ZR_U32 i = 0; i < arrayCount(); ++i) {
    if (NalTypeOf(mArrays[i].type) == nalType) return static_cast<int>(i);
  }
  return -1;
}

bool HvccAtom::has(ZR_U8 nalType) const {
  const int index = indexOf(nalType);
  return index >= 0 && !mArrays[index].sets.empty();
}

int HvccAtom::AddVps(const ZR_U8* nalu, ZR_U16 size) { return add(kKinds[0], nalu, size); }
int HvccAtom::AddSps(const ZR_U8* nalu, ZR_U16 size) { return add(kKinds[1], nalu, size); }
int HvccAtom::AddPps(const ZR_U8* nalu, ZR_U16 size) { return add(kKinds[2], nalu, size); }
int HvccAtom::AddSei(const ZR_U8* nalu, ZR_U16 size) { return add(kKinds[3], nalu, size); }

int HvccAtom::add(const Kind& kind, const ZR_U8* nalu, ZR_U16 size) {
  if (nalu == nullptr || size == 0) {
    LogTrackArgument(nullptr, kind.operation);
    return -1;
  }
  const int index = indexOf(kind.nalType);
  if (index < 0) return ZR_FAIL(-1, "hvcc has no array of nal type %d\n", kind.nalType);

  ParameterSetList& sets = mArrays[index].sets;
  const ZR_U32 before = sets.count();
  // Deliberate: for a VPS it is the PPS that are looked at. settleSize puts this right.
  const bool addsHeader = !has(kind.nalType == kVps ? kPps : kind.nalType);
  const int result = AddParameterSet(sets, kind.rules, nalu, size, [&](ZR_U8* buffer) {
    if (kind.parse == nullptr || (this->*kind.parse)(nalu, size, buffer, size) == 0) return true;
    return kind.notParsed != nullptr && ZR_FAIL(false, "%s", kind.notParsed);
  });
  if (sets.count() > before) IncreaseSize(2u + size + (addsHeader ? kArrayHeaderBytes : 0));
  return result;
}

void HvccAtom::settleSize() {
  ZR_U32 exact = header().Size() + kFixedBytes + mRest.size();
  for (ZR_U32 i = 0; i < arrayCount(); ++i) exact += kArrayHeaderBytes + mArrays[i].sets.bytes();
  const ZR_U32 size = header().size;
  if (exact > size) IncreaseSize(exact - size);
  if (exact < size) DecreaseSize(size - exact);
}

int HvccAtom::ParseVps(const ZR_U8* nal, ZR_U16 size, ZR_U8* buf, ZR_U16 bufSize) {
  HevcParser::VpsInfo vps;
  const Nal unit = {"ParseVps", nal, size, buf, bufSize};
  if (Parse(mParser, &HevcParser::ParseVps, unit, &vps, "HevcParser Parse vps error\n") != 0) return -1;
  UpdateProfileTierLevel(vps.profile);
  mNumTemporalLayers = Larger(mNumTemporalLayers, static_cast<ZR_U8>(vps.vps_max_sub_layers_minus1 + 1));
  return 0;
}

int HvccAtom::ParseSps(const ZR_U8* nal, ZR_U16 size, ZR_U8* buf, ZR_U16 bufSize) {
  HevcParser::SpsInfo sps;
  const Nal unit = {"ParseSps", nal, size, buf, bufSize};
  if (Parse(mParser, &HevcParser::ParseSps, unit, &sps, "HevcParser Parse sps error\n") != 0) return -1;
  mNumTemporalLayers = Larger(mNumTemporalLayers, static_cast<ZR_U8>(sps.sps_max_sub_layers_minus1 + 1));
  mTemporalIdNested = sps.sps_temporal_id_nesting_flag;
  UpdateProfileTierLevel(sps.profile);
  mChromaFormat = sps.chroma_format_idc;
  mBitDepthLumaMinus8 = sps.bit_depth_luma_minus8;
  mBitDepthChromaMinus8 = sps.bit_depth_chroma_minus8;
  // Deliberate: the least of all, beginning with 0, stays 0.
  if (sps.min_spatial_segmentation_present && sps.min_spatial_segmentation_idc < mMinSpatialSegmentation) {
    mMinSpatialSegmentation = sps.min_spatial_segmentation_idc;
  }
  return 0;
}

int HvccAtom::ParsePps(const ZR_U8* nal, ZR_U16 size, ZR_U8* buf, ZR_U16 bufSize) {
  HevcParser::PpsInfo pps;
  const Nal unit = {"ParsePps", nal, size, buf, bufSize};
  if (Parse(mParser, &HevcParser::ParsePps, unit, &pps, "HevcParser Parse pps error\n") != 0) return -1;
  // 1: slices, 2: tiles, 3: wavefronts, 0: mixed or unknown.
  const bool tiles = pps.tiles_enabled_flag != 0;
  const bool wavefronts = pps.entropy_coding_sync_enabled_flag != 0;
  mParallelismType = tiles ? (wavefronts ? 0 : 2) : (wavefronts ? 3 : 1);
  return 0;
}

void HvccAtom::UpdateProfileTierLevel(const HevcParser::ProfileTierLevel& ptl) {
  mProfileSpace = ptl.general_profile_space;
  // The level of a higher tier says more than any of a lower one.
  mLevel = ptl.general_tier_flag > mTierFlag ? ptl.general_level_idc : Larger(mLevel, ptl.general_level_idc);
  mTierFlag = Larger(mTierFlag, ptl.general_tier_flag);
  mProfile = Larger(mProfile, ptl.general_profile_idc);
  mCompatibility &= ptl.general_profile_compatibility_flags;
  mConstraintsHigh &= ptl.general_constraint_indicator_flags_high;
  mConstraintsLow &= ptl.general_constraint_indicator_flags_low;
}

int HvccAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  if (!fixedFields(io)) return -1;
  for (ZR_U32 i = 0; i < arrayCount(); ++i) {
    if (!readArray(io, i)) return -1;
  }
  return mRest.read(io, header()) ? 0 : -1;
}

int HvccAtom::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  if (!fixedFields(io)) return -1;
  for (ZR_U32 i = 0; i < arrayCount(); ++i) {
    const Array& array = mArrays[i];
    if (!io.fixed8(array.type) || !io.fixed16(static_cast<ZR_U16>(array.sets.count())) || !array.sets.write(io)) {
      return -1;
    }
  }
  return mRest.write(io) ? 0 : -1;
}

// What stands before the arrays: most of it packed, with reserved bits set.
bool HvccAtom::fixedFields(FieldIo& io) {
  const bool segmented = mMinSpatialSegmentation <= kMaxMinSpatialSegmentation;
  ZR_U8 profile = Byte(mProfileSpace << 6 | mTierFlag << 5 | mProfile);
  ZR_U16 segmentation = static_cast<ZR_U16>(0xF000 | (segmented ? mMinSpatialSegmentation : 0));
  ZR_U8 parallelism = Byte(0xFC | (segmented ? mParallelismType : 0));
  ZR_U8 chroma = Byte(0xFC | mChromaFormat);
  ZR_U8 lumaDepth = Byte(0xF8 | mBitDepthLumaMinus8);
  ZR_U8 chromaDepth = Byte(0xF8 | mBitDepthChromaMinus8);
  ZR_U8 timing = Byte(mConstantFrameRate << 6 | mNumTemporalLayers << 3 | mTemporalIdNested << 2 | mLengthSizeMinusOne);
  if (!io.byte(mConfigurationVersion) || !io.byte(profile) || !io.be32(mCompatibility) || !io.be32(mConstraintsHigh) ||
      !io.be16(mConstraintsLow) || !io.byte(mLevel) || !io.be16(segmentation) || !io.byte(parallelism) ||
      !io.byte(chroma) || !io.byte(lumaDepth) || !io.byte(chromaDepth) || !io.be16(mAvgFrameRate) || !io.byte(timing) ||
      !io.byte(mNumOfArrays)) {
    return false;
  }
  if (!io.reading()) return true;
  mProfileSpace = profile >> 6;
  mTierFlag = profile >> 5 & 1;
  mProfile = profile & 0x1F;
  mMinSpatialSegmentation = segmentation & 0x0FFF;
  mParallelismType = parallelism & 3;
  mChromaFormat = chroma & 3;
  mBitDepthLumaMinus8 = lumaDepth & 7;
  mBitDepthChromaMinus8 = chromaDepth & 7;
  mConstantFrameRate = timing >> 6;
  mNumTemporalLayers = timing >> 3 & 7;
  mTemporalIdNested = timing >> 2 & 1;
  mLengthSizeMinusOne = timing & 3;
  return true;
}

bool HvccAtom::readArray(FieldIo& io, ZR_U32 index) {
  Array& array = mArrays[index];
  ZR_U16 count = 0;
  if (!io.byte(array.type) || !io.be16(count)) return false;
  for (const Kind& kind : kKinds) {
    if (kind.nalType == NalTypeOf(array.type) && count > kind.rules.maxCount) {
      return ZR_FAIL(false, "hvcc parameter set[%d] count is invalid[%d]\n", static_cast<int>(index), count);
    }
  }
  return array.sets.read(io, header(), count, kReadTexts);
}

}  // namespace zrmp4
