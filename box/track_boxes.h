#pragma once

#include <string>

#include "base/table_array.h"
#include "box/atom.h"
#include "stream/field_io.h"

namespace zrmp4 {

// Track header: identity, duration in the movie's time scale, picture size.
class TkhdAtom : public Atom {
 public:
  TkhdAtom(ZR_U32 trackId, ZR_U64 duration, ZR_U32 width, ZR_U32 height)
      : TkhdAtom(AtomHeader("tkhd", 92), trackId, duration, width, height) {}
  explicit TkhdAtom(const AtomHeader& header, ZR_U32 trackId = 0, ZR_U64 duration = 0, ZR_U32 width = 0,
                    ZR_U32 height = 0)
      : Atom(header), mTrackId(trackId), mDuration(duration), mWidth(width), mHeight(height) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override;
  bool fields(FieldIo& io);

  void setDuration(ZR_U64 duration) { mDuration = duration; }
  void setVolume(ZR_U16 volume) { mVolume = volume; }  // 8.8 fixed point
  void setPicSize(ZR_U32 width, ZR_U32 height) {
    mWidth = width;
    mHeight = height;
  }
  ZR_U32 trackId() const { return mTrackId; }
  ZR_U64 duration() const { return mDuration; }
  ZR_U32 width() const { return mWidth; }
  ZR_U32 height() const { return mHeight; }

 private:
  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 3;  // enabled, in the movie
  ZR_U64 mCreated = static_cast<ZR_U32>(LocalTime());
  ZR_U64 mModified = mCreated;
  ZR_U32 mTrackId;
  ZR_U64 mDuration;  // only 32 bits can be written
  ZR_U16 mVolume = 0x0100;
  ZR_U32 mWidth;   // whole pixels, 16.16 fixed point in the file
  ZR_U32 mHeight;
};

// Edit list container.
class EdtsAtom : public Atom {
 public:
  EdtsAtom() : Atom("edts", 8) {}
  explicit EdtsAtom(const AtomHeader& header) : Atom(header) {}

  Atom* ReadChild(IOStream* stream) override;
};

// Edit list of one edit: the whole track from its start.
class ElstAtom : public Atom {
 public:
  ElstAtom() : Atom("elst", 28) {}
  explicit ElstAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  bool fields(FieldIo& io);

  void update(ZR_U32 segmentDuration, float rate);

 private:
  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 0;
  ZR_U32 mSegmentDuration = 0;  // movie time scale
  ZR_U32 mMediaTime = 0;
  float mRate = 1.0f;  // kept for the owner, not in the file
};

// Media container.
class MdiaAtom : public Atom {
 public:
  MdiaAtom() : Atom("mdia", 8) {}
  explicit MdiaAtom(const AtomHeader& header) : Atom(header) {}

  Atom* ReadChild(IOStream* stream) override;
};

// Media header: time scale and duration of the track's samples.
class MdhdAtom : public Atom {
 public:
  MdhdAtom(ZR_U32 timeScale, ZR_BOOL useCo64)
      : MdhdAtom(AtomHeader("mdhd", useCo64 ? 44 : 32), timeScale, useCo64) {}
  explicit MdhdAtom(const AtomHeader& header, ZR_U32 timeScale = 0, ZR_BOOL useCo64 = ZR_FALSE)
      : Atom(header), mVersion(useCo64 ? 1 : 0), mTimeScale(timeScale) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  bool fields(FieldIo& io);

  void setDuration(ZR_U64 duration) { mDuration = duration; }
  ZR_U64 duration() const { return mDuration; }
  ZR_U32 timeScale() const { return mTimeScale; }

 private:
  ZR_U8 mVersion;  // 1: 64-bit times
  ZR_U32 mFlags = 0;
  ZR_U64 mCreated = LocalTime();
  ZR_U64 mModified = mCreated;
  ZR_U32 mTimeScale;
  ZR_U64 mDuration = 0;  // its low 32 bits are written in version 0
  ZR_U16 mLanguage = 0;
  ZR_U16 mQuality = 0;
};

// Handler: the kind of the track's media and a name for it, as a counted string.
class HdlrAtom : public Atom {
 public:
  enum Kind : ZR_U32 { KIND_VIDEO = 0, KIND_SOUND = 1, KIND_META = 2, KIND_OTHER = 3 };

  HdlrAtom() : Atom("hdlr", 32) {}
  explicit HdlrAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;

  // subType is "vide", "soun" or "meta". The box grows by the name: once per box.
  int setHdlrAtom(const std::string& subType, const std::string& name);
  // The name as the box keeps it; a terminator that was in the file is part of it.
  void getHandlrName(std::string& name) const { name.assign(mName, mNameLength); }
  Kind kind() const { return mKind; }  // known once the box was read

 private:
  static constexpr ZR_U32 kNameSize = 256;

  bool head(FieldIo& io);
  bool tail(FieldIo& io);
  int readName(FieldIo& io);

  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 0;
  ZR_U8 mComponentType[4] = {};
  ZR_U8 mComponentSubtype[4] = {};
  ZR_U32 mManufacturer = 0;
  ZR_U32 mComponentFlags = 0;
  ZR_U32 mComponentFlagsMask = 0;
  ZR_U8 mNameLength = 0;
  char mName[kNameSize] = {};
  Kind mKind = KIND_VIDEO;
};

// Media information container.
class MinfAtom : public Atom {
 public:
  MinfAtom() : Atom("minf", 8) {}
  explicit MinfAtom(const AtomHeader& header) : Atom(header) {}

  Atom* ReadChild(IOStream* stream) override;
};

// Video media header: how pictures are composed, always a plain copy.
class VmhdAtom : public Atom {
 public:
  VmhdAtom() : Atom("vmhd", 20) {}
  explicit VmhdAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  bool fields(FieldIo& io);

 private:
  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 1;  // required to be 1
  ZR_U16 mGraphicsMode = 0;
  ZR_U16 mOpcolor[3] = {};  // red, green, blue
};

// Sound media header: stereo balance and nothing else.
class SmhdAtom : public Atom {
 public:
  SmhdAtom() : Atom("smhd", 16) {}
  explicit SmhdAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  bool fields(FieldIo& io);

 private:
  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 0;
  ZR_U16 mBalance = 0;  // 8.8 fixed point, 0 is the centre
};

// General media header, of timed metadata.
class GmhdAtom : public Atom {
 public:
  GmhdAtom() : Atom("gmhd", 8) {}
  explicit GmhdAtom(const AtomHeader& header) : Atom(header) {}

  Atom* ReadChild(IOStream* stream) override;
};

class GminAtom : public Atom {
 public:
  GminAtom() : Atom("gmin", 24) {}
  explicit GminAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  bool fields(FieldIo& io);

 private:
  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 0;
  ZR_U16 mGraphicsMode = 0;
  ZR_U16 mOpcolor[3] = {};
  ZR_U16 mBalance = 0;
};

// Data information container.
class DinfAtom : public Atom {
 public:
  DinfAtom() : Atom("dinf", 8) {}
  explicit DinfAtom(const AtomHeader& header) : Atom(header) {}

  Atom* ReadChild(IOStream* stream) override;
};

// Data references: where the media is.
class DrefAtom : public Atom {
 public:
  DrefAtom() : Atom("dref", 16) {}
  explicit DrefAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;

  // type is "url "; flags 1 say that the media is in this file. 0, or -1 when the entry was not added.
  int addEntry(const std::string& type, ZR_U8 version, ZR_U32 flags);

 private:
  struct Entry {
    ZR_U8 type[4];
    ZR_U8 version;
    ZR_U32 flags;
  };
  static bool EntryFields(FieldIo& io, ZR_U32& size, Entry& entry);
  int append(const Entry& entry);

  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 0;
  TableArray<Entry, 4> mEntries;
};

}  // namespace zrmp4
