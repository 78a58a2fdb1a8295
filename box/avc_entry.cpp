#include "box/avc_entry.h"

#include "base/log.h"
#include "box/child_types.h"
#include "codec/nal_unit.h"

namespace zrmp4 {
namespace {

constexpr CompressorName kCompressor = {"\nAVC Coding", "Init avc compressor name failed\n",
                                        "write avc1 compressor error\n", "skip avc1 compressor error\n"};

constexpr ParameterSetRules kSpsRules = {31,
                                         "avc sps is already exist\n",
                                         "avc sps has reach max cnt[%d]\n",
                                         "new avc(%hu bytes) sps fail\n",
                                         "init avc(%hu bytes) sps fail\n",
                                         "memcpy nal to tmpSps fail\n"};
constexpr ParameterSetRules kPpsRules = {255,
                                         "avc pps is already exist\n",
                                         "avc pps has reach max cnt[%d]\n",
                                         "new avc pps(%hu bytes) fail\n",
                                         "init avc(%hu bytes) pps fail\n",
                                         "memcpy_s nal to tmpPps fail\n"};

constexpr ParameterSetList::ReadTexts kSpsTexts = {"sps size(%d) rec in file is illegal\n",
                                                   "new sps(%d bytes) failed\n"};
constexpr ParameterSetList::ReadTexts kPpsTexts = {"pps size(%d) rec in file is illegal\n",
                                                   "new pps(%d bytes) failed\n"};

constexpr ZR_U8 kSpsCountReserved = 0xE0;  // three reserved bits above the 5-bit count of SPS

void LogNoMemory(const char*) { ZR_LOG_Printf("MP4", ZR_LOG_LEVEL_ERROR, "new avcC or user atom no memory\n"); }

}  // namespace

bool Avc1Atom::fields(FieldIo& io) {
  return io.fixed16(0) && io.fixed32(0) && io.be16(mDataReferenceIndex) &&    //
         io.fixed32(0) && io.fixed32(0) && io.fixed32(0) && io.fixed32(0) &&  //
         mPicture.fields(io, kCompressor);
}

Atom* Avc1Atom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {{"avcC", NewChild<AvccAtom>}};
  return ReadChildOf(stream, kChildren, 1, LogNoMemory);
}

bool AvccAtom::IsParamentSetExist(const ZR_U8* data, ZR_U16 size, const ParameterSetList& sets) const {
  return data != nullptr && sets.contains(data, size);
}

int AvccAtom::AddSps(const ZR_U8* nalu, ZR_U16 size) {
  if (nalu == nullptr || size == 0) {
    LogNullArgument("AddSps");
    return -1;
  }
  const ZR_U32 before = mSps.bytes();
  const int result = AddParameterSet(mSps, kSpsRules, nalu, size, [&](ZR_U8* sodb) {
    GenSodpByRbsp(nalu, size, sodb);
    // Each distinct SPS sets these, so the last one wins. What a short one lacks is zero, as the buffer was.
    mProfile = size > 1 ? sodb[1] : 0;
    mCompatibility = size > 2 ? sodb[2] : 0;
    mLevel = size > 3 ? sodb[3] : 0;
    return true;
  });
  IncreaseSize(mSps.bytes() - before);
  return result;
}

int AvccAtom::AddPps(const ZR_U8* nalu, ZR_U16 size) {
  if (nalu == nullptr || size == 0) {
    LogNullArgument("AddPps");
    return -1;
  }
  const ZR_U32 before = mPps.bytes();
  const int result = AddParameterSet(mPps, kPpsRules, nalu, size, [](ZR_U8*) { return true; });
  IncreaseSize(mPps.bytes() - before);
  return result;
}

int AvccAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  ZR_U8 spsCount = 0;
  if (!io.byte(mConfigurationVersion) || !io.byte(mProfile) || !io.byte(mCompatibility) || !io.byte(mLevel) ||
      !io.byte(mLengthSizeMinusOne) || !io.byte(spsCount)) {
    return -1;
  }
  if (spsCount <= kSpsCountReserved) return ZR_FAIL(-1, "sps count(%d) rec in file is illegal\n", spsCount);
  if (!mSps.read(io, header(), static_cast<ZR_U32>(spsCount - kSpsCountReserved), kSpsTexts)) return -1;
  ZR_U8 ppsCount = 0;
  if (!io.byte(ppsCount)) return -1;
  if (ppsCount == 0) return ZR_FAIL(-1, "pps count(%d) rec in file is illegal\n", ppsCount);
  return mPps.read(io, header(), ppsCount, kPpsTexts) && mRest.read(io, header()) ? 0 : -1;
}

int AvccAtom::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  const bool written = io.byte(mConfigurationVersion) && io.byte(mProfile) && io.byte(mCompatibility) &&
                       io.byte(mLevel) && io.byte(mLengthSizeMinusOne) &&
                       io.fixed8(static_cast<ZR_U8>(kSpsCountReserved | mSps.count())) && mSps.write(io) &&
                       io.fixed8(static_cast<ZR_U8>(mPps.count())) && mPps.write(io) && mRest.write(io);
  return written ? 0 : -1;
}

}  // namespace zrmp4
