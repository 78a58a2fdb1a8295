#pragma once

#include "box/atom.h"
#include "box/parameter_sets.h"
#include "box/picture_fields.h"

namespace zrmp4 {

// The sample entry of an H.264 track; its child avcC holds the decoder configuration.
class Avc1Atom : public Atom {
 public:
  Avc1Atom() : Atom("avc1", 86) {}
  explicit Avc1Atom(const AtomHeader& header) : Atom(header) {}

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

// The H.264 decoder configuration: the distinct SPS and PPS of the stream, in the order in which they came.
class AvccAtom : public Atom {
 public:
  using ParameterSet = zrmp4::ParameterSet;

  AvccAtom() : Atom("avcC", 15) {}
  explicit AvccAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;

  // Add a copy of a NAL unit, its header byte included. 0, also when the unit is there already, or -1.
  int AddSps(const ZR_U8* nalu, ZR_U16 size);
  int AddPps(const ZR_U8* nalu, ZR_U16 size);
  bool IsParamentSetExist(const ZR_U8* data, ZR_U16 size, const ParameterSetList& sets) const;

  bool hasSps() const { return !mSps.empty(); }
  bool hasPps() const { return !mPps.empty(); }
  const ParameterSetList& sps() const { return mSps; }
  const ParameterSetList& pps() const { return mPps; }

 private:
  ZR_U8 mConfigurationVersion = 1;
  ZR_U8 mProfile = 0;
  ZR_U8 mCompatibility = 0;
  ZR_U8 mLevel = 0;
  ZR_U8 mLengthSizeMinusOne = 0xFF;  // with six reserved bits: samples have 4-byte lengths
  ParameterSetList mSps;
  ParameterSetList mPps;
  UnreadRest mRest;  // of a box that was read: what high profiles append
};

}  // namespace zrmp4
