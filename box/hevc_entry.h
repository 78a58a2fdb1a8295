#pragma once

#include "box/atom.h"
#include "box/parameter_sets.h"
#include "box/picture_fields.h"
#include "codec/hevc_parser.h"

namespace zrmp4 {

// The sample entry of an H.265 track; its child hvcC holds the decoder configuration.
class Hvc1Atom : public Atom {
 public:
  Hvc1Atom() : Atom("hvc1", 86) {}
  explicit Hvc1Atom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  Atom* ReadChild(IOStream* stream) override;
  bool fields(FieldIo& io);

  void setPicSize(ZR_U16 width, ZR_U16 height) {
    mPicture.width = width;
    mPicture.height = height;
  }

 private:
  ZR_U16 mDataReferenceIndex = 1;
  PictureFields mPicture;
};

// The H.265 decoder configuration: the distinct parameter sets and prefix SEI of the stream, and a summary of them.
class HvccAtom : public Atom {
 public:
  using ParameterSet = zrmp4::ParameterSet;

  HvccAtom() : Atom("hvcC", 31) {}
  explicit HvccAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;

  // Add a copy of a NAL unit, its two header bytes included. 0, also when the unit is there already, or -1 and
  // nothing has changed. SEI beyond what its 16-bit count can tell is passed over.
  int AddVps(const ZR_U8* nalu, ZR_U16 size);
  int AddSps(const ZR_U8* nalu, ZR_U16 size);
  int AddPps(const ZR_U8* nalu, ZR_U16 size);
  int AddSei(const ZR_U8* nalu, ZR_U16 size);
  bool IsParamentSetExist(const ZR_U8* data, ZR_U16 size, const ParameterSetList& sets) const;

  bool hasVps() const { return has(kVps); }
  bool hasSps() const { return has(kSps); }
  bool hasPps() const { return has(kPps); }

  // While sets are added the size of this box follows a rule that counts the array headers only roughly. Puts the
  // exact length of what writeData writes into this box and every ancestor; to be called before they are written.
  void settleSize();

  // Parse a NAL unit, with buf as memory to work in, and fold what it says into the summary. 0 or -1.
  int ParseVps(const ZR_U8* nal, ZR_U16 size, ZR_U8* buf, ZR_U16 bufSize);
  int ParseSps(const ZR_U8* nal, ZR_U16 size, ZR_U8* buf, ZR_U16 bufSize);
  int ParsePps(const ZR_U8* nal, ZR_U16 size, ZR_U8* buf, ZR_U16 bufSize);
  void UpdateProfileTierLevel(const HevcParser::ProfileTierLevel& ptl);

 private:
  static constexpr ZR_U8 kVps = 32;  // NAL unit types
  static constexpr ZR_U8 kSps = 33;
  static constexpr ZR_U8 kPps = 34;
  static constexpr ZR_U8 kSei = 39;
  static constexpr ZR_U32 kArrays = 4;

  struct Kind;
  static const Kind kKinds[kArrays];

  struct Array {
    ZR_U8 type;  // of its NAL units, with a bit 7 of other writers that says: the stream has no others
    ParameterSetList sets;
  };

  int add(const Kind& kind, const ZR_U8* nalu, ZR_U16 size);
  bool fixedFields(FieldIo& io);
  bool readArray(FieldIo& io, ZR_U32 index);
  // The arrays that stand in mArrays: a file may have fewer, or more, which are kept unread.
  ZR_U32 arrayCount() const { return mNumOfArrays < kArrays ? mNumOfArrays : kArrays; }
  int indexOf(ZR_U8 nalType) const;  // of the array with these NAL units, or -1
  bool has(ZR_U8 nalType) const;

  HevcParser mParser;
  ZR_U8 mConfigurationVersion = 1;
  ZR_U8 mProfileSpace = 0;
  ZR_U8 mTierFlag = 0;
  ZR_U8 mProfile = 0;
  ZR_U32 mCompatibility = 0xFFFFFFFF;
  ZR_U32 mConstraintsHigh = 0xFFFFFFFF;  // the first 32 of 48 bits
  ZR_U16 mConstraintsLow = 0xFFFF;
  ZR_U8 mLevel = 0;
  ZR_U16 mMinSpatialSegmentation = 0;
  ZR_U8 mParallelismType = 0;
  ZR_U8 mChromaFormat = 0;
  ZR_U8 mBitDepthLumaMinus8 = 0;
  ZR_U8 mBitDepthChromaMinus8 = 0;
  ZR_U16 mAvgFrameRate = 0;
  ZR_U8 mConstantFrameRate = 0;
  ZR_U8 mNumTemporalLayers = 0;
  ZR_U8 mTemporalIdNested = 0;
  ZR_U8 mLengthSizeMinusOne = 3;  // samples have 4-byte lengths
  ZR_U8 mNumOfArrays = kArrays;
  Array mArrays[kArrays] = {{kVps, {}}, {kSps, {}}, {kPps, {}}, {kSei, {}}};
  UnreadRest mRest;  // of a box that was read: further arrays
};

}  // namespace zrmp4
