#pragma once

#include "box/atom.h"
#include "stream/field_io.h"

namespace zrmp4 {

// The file type: which family of readers the file is for.
class FtypAtom : public Atom {
 public:
  enum FormatType : ZR_U32 { FORMAT_MP4 = 0, FORMAT_MOV = 1 };

  explicit FtypAtom(FormatType format) : FtypAtom(AtomHeader("ftyp", format == FORMAT_MP4 ? 24 : 20), format) {}
  explicit FtypAtom(const AtomHeader& header, FormatType format = FORMAT_MP4);

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;

 private:
  bool head(FieldIo& io);

  FormatType mFormat;  // as constructed; reading does not change it
  ZR_U8 mMajorBrand[4];
  ZR_U32 mMinorVersion;
  ZR_U8 mCompatibleBrands[2][4];  // the second is in the file for MP4 only
};

// The movie: its header and one trak per track.
class MoovAtom : public Atom {
 public:
  MoovAtom() : Atom("moov", 8) {}
  explicit MoovAtom(const AtomHeader& header) : Atom(header) {}

  Atom* ReadChild(IOStream* stream) override;

  // Traks read from the file; those added to a recording are not counted.
  ZR_U32 trackCount() const { return mTrackCount; }

 private:
  ZR_U32 mTrackCount = 0;
};

// The movie header: duration and time scale of the whole.
class MvhdAtom : public Atom {
 public:
  MvhdAtom(ZR_U32 timeScale, ZR_U64 duration, ZR_U32 nextTrackId)
      : MvhdAtom(AtomHeader("mvhd", 108), timeScale, duration, nextTrackId) {}
  explicit MvhdAtom(const AtomHeader& header, ZR_U32 timeScale = 0, ZR_U64 duration = 0, ZR_U32 nextTrackId = 0)
      : Atom(header), mTimeScale(timeScale), mDuration(duration), mNextTrackId(nextTrackId) {}

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;

  // The times stay those of construction.
  void update(ZR_U64 duration, ZR_U32 timeScale, ZR_U32 nextTrackId);

  // Milliseconds; 0 without a time scale or when they do not fit in 32 bits.
  ZR_U32 getDuration() const;
  ZR_U32 timeScale() const { return mTimeScale; }

 private:
  bool head(FieldIo& io);

  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 0;
  ZR_U32 mCreated = static_cast<ZR_U32>(LocalTime());
  ZR_U32 mModified = mCreated;
  ZR_U32 mTimeScale;
  ZR_U64 mDuration;  // in ticks of the time scale; only 32 bits can be written
  ZR_U32 mRate = 0x00010000;  // 16.16 fixed point
  ZR_U16 mVolume = 0x0100;    // 8.8 fixed point
  ZR_U32 mNextTrackId;
};

// Space that readers pass over. Writing one writes the header alone: its owner sets the size and writes the rest.
class FreeAtom : public Atom {
 public:
  FreeAtom() : Atom("free", 8) {}
  explicit FreeAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return SeekToEnd(stream); }
};

class SkipAtom : public Atom {
 public:
  SkipAtom() : Atom("skip", 8) {}
  explicit SkipAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override { return SeekToEnd(stream); }
};

}  // namespace zrmp4
