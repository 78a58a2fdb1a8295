#pragma once

#include <string>

#include "box/atom.h"
#include "stream/field_io.h"

namespace zrmp4 {

// The sample entry of a ProRes track; its type tells the flavour. The children colr, fiel and pasp describe the
// picture.
class ProresAtom : public Atom {
 public:
  // type is "apch", "apcn", "apcs" or "apco"; a compressor name above 31 bytes makes the entry unwritable.
  ProresAtom(const char* type, const std::string& compressorName) : Atom(type, 86), mCompressorName(compressorName) {}
  explicit ProresAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  Atom* ReadChild(IOStream* stream) override;
  bool fields(FieldIo& io);

  void setPicSize(ZR_U16 width, ZR_U16 height) {
    mWidth = width;
    mHeight = height;
  }

 private:
  bool readCompressorName(FieldIo& io);
  bool writeCompressorName(FieldIo& io);

  ZR_U16 mVersion = 0;
  ZR_U16 mRevision = 0;
  ZR_U8 mVendor[4] = {'a', 'p', 'p', 'l'};
  ZR_U32 mTemporalQuality = 0;
  ZR_U32 mSpatialQuality = 1023;
  ZR_U16 mWidth = 0;
  ZR_U16 mHeight = 0;
  ZR_U32 mHorizontalResolution = 0x00480000;  // 16.16 fixed point, 72 dots per inch
  ZR_U32 mVerticalResolution = 0x00480000;
  ZR_U32 mDataSize = 0;
  ZR_U16 mFrameCount = 1;
  std::string mCompressorName;
  ZR_U16 mDepth = 0x0018;
  ZR_U16 mColorTableId = 0xFFFF;  // -1: none
};

// Colour parameters of type nclc.
class ColrAtom : public Atom {
 public:
  ColrAtom() : Atom("colr", 18) {}
  explicit ColrAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  bool fields(FieldIo& io);

  // 1, 5, 6, 9, 11 (BT.2020 with PQ) or 12 (BT.2020 with HLG); any other value changes nothing.
  void setColr(ZR_U32 colour);

 private:
  ZR_U8 mParameterType[4] = {'n', 'c', 'l', 'c'};
  ZR_U16 mPrimaries = 1;
  ZR_U16 mTransferFunction = 1;
  ZR_U16 mMatrix = 1;
};

// How many fields a frame has, and which comes first.
class FielAtom : public Atom {
 public:
  FielAtom() : Atom("fiel", 10) {}
  explicit FielAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  bool fields(FieldIo& io);

  // 0 progressive, 1 top field first, 2 bottom field first; any other value changes nothing.
  void setFiel(ZR_U32 mode);

 private:
  ZR_U8 mFieldCount = 1;
  ZR_U8 mFieldOrdering = 0;
};

// The shape of a pixel.
class PaspAtom : public Atom {
 public:
  PaspAtom() : Atom("pasp", 16) {}
  explicit PaspAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  bool fields(FieldIo& io);

  // From the size of the coded picture: the formats that are stored narrower than they are shown have wide pixels.
  void setPasp(ZR_U32 width, ZR_U32 height);

 private:
  ZR_U32 mHorizontalSpacing = 1;
  ZR_U32 mVerticalSpacing = 1;
};

}  // namespace zrmp4
