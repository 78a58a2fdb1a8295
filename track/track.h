#pragma once

#include <memory>

#include "box/mdat_atom.h"
#include "box/sample_tables.h"
#include "box/trak_atom.h"
#include "stream/io_stream.h"
#include "track/priv_sample_header.h"
#include "track/sample_clock.h"

namespace zrmp4 {

class RecordWalker;

// One track while it is recorded or rebuilt. It turns the caller's frames into samples, writes them into the media
// data and keeps the sample tables up to date: those of the movie and, for the snapshots of a crash-safe recording,
// those of the current interval.
//
// A frame is taken in three steps. FrameToSample and ExamineSample can refuse it and change nothing that is written;
// ReserveEntries finds the memory for the tables; WriteSample then can fail in the stream only, and writes before it
// records. So a frame that fails is in none of the tables.
class Track {
 public:
  using PrivSampleHeader = zrmp4::PrivSampleHeader;

  // One frame as it is stored: pieces that stand one after another. Only partCount of the pieces are set.
  struct Mp4Sample {
    static constexpr ZR_U32 kMaxParts = 32;

    ZR_U32 partCount;
    const ZR_U8* partData[kMaxParts];  // in the caller's frame
    ZR_U32 partSize[kMaxParts];
    ZR_U32 totalSize;  // bytes in the file
    ZR_U64 pts;        // microseconds
    ZR_BOOL isKey;
  };

  // Samples that stand one after another in the file. It is open while it holds samples.
  struct Chunk {
    ZR_S64 offset = 0;
    ZR_U32 size = 0;
    ZR_U32 sampleCount = 0;
    ZR_U32 chunkCount = 0;  // its number in the track, 0 before the first
    ZR_U64 startPts = 0;    // microseconds
  };

  // The track for a trak of this kind and codec, or null. The stream, the trak and mdat stay the caller's.
  static Track* create(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate,
                       ZR_BOOL constantRate);

  Track(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, ZR_BOOL constantRate);
  Track(const Track&) = delete;
  Track& operator=(const Track&) = delete;
  virtual ~Track() = default;

  // The frame as a sample whose pieces point into it. 0, or non-zero when it is malformed.
  virtual int FrameToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out);
  // Whether the sample can be recorded: 0, or the status code of the refusal.
  virtual ZR_U32 ExamineSample(const Mp4Sample&) { return 0; }
  // Makes sure that the next sample finds room in every table. A sample takes at most one entry of each, so that they
  // need not be asked for every sample.
  bool ReserveEntries() { return mRoom != 0 || reserveMore(); }

  // While it is recorded, the boxes above the tables learn of their growth by settleSizes, and whenever room is
  // reserved: they are never short of more than kMostKept bytes.
  static constexpr ZR_U32 kMostKept = 1u << 16;  // a thousand entries of every table make 36 KiB
  void keepSizes();
  void settleSizes();

  ZR_U32 WritePrivSampleHeader(const Mp4Sample& sample);
  // Writes the sample at the stream's position and records it. The room in the tables is reserved.
  virtual ZR_U32 WriteSample(const Mp4Sample& sample);
  // Records a sample that stands at the stream's position already.
  int update(const Mp4Sample& sample);
  // Closes the tables, once; nothing happens to a track without samples. -1 when memory is out.
  int FinishWrite();

  // The tables of the current interval, in which every sample is a chunk of its own.
  virtual int CreateTmpStbl();
  virtual int UpdateTmpStbl(ZR_U64 chunkOffset, const Mp4Sample& sample);
  void ClearTmpStbl();
  void DestroyTmpStbl();
  StblAtom* tmpStbl() const { return mTmpStbl.get(); }

  // Repair: finds the codec's configuration in the recorded frames. -1 when they cannot be read.
  virtual int ParseMediaParameter(RecordWalker&) { return 0; }
  // Repair: goes on where the recorder was, after snapshots were merged into the trak's tables. 0 or -1.
  int RestoreAfterMerge();
  // Repair: whether a frame behind the last snapshot is whole and to be kept. lastBeforeZeros says that nothing but
  // zeros follows it in the file: it may have been cut inside space that was allocated in advance.
  virtual bool RecoverFrame(const PrivSampleHeader& header, ZR_U64 dataOffset, bool lastBeforeZeros);

  ZR_U64 Duration() const;         // in ticks of the track's time scale
  ZR_U64 TotalSampleSize() const;  // bytes
  ZR_U32 AvgBitrate() const;       // bits per second, 0 when it is not known

  TrakAtom* trak() const { return mTrak; }
  ZR_U32 trackId() const { return mTrak->trackId(); }
  bool isConstantRate() const { return mConstantRate != ZR_FALSE; }
  ZR_U32 sampleCount() const { return mSampleCount; }
  ZR_U32 sampleDuration() const { return mClock.duration(); }
  ZR_U64 firstPts() const { return mFirstPts; }
  ZR_U64 nextPts() const { return mClock.nextPts(); }
  const Chunk& curChunk() const { return mCurChunk; }

  // Table bookkeeping of one sample.
  void AddSamplePts(ZR_U64 pts) {
    if (!mConstantRate && mSampleCount == 0) {
      mFirstPts = pts;
      return mClock.start(pts);
    }
    mTables.stts->addEntry(1, mConstantRate ? mClock.duration() : mClock.advanceTo(pts));
  }
  void AddSampleToChunk(ZR_S64 offset, ZR_U32 size, ZR_U64 pts);

 protected:
  // The tables of one stbl; either stco or co64, and stss only where not every sample is a sync sample.
  struct Tables {
    SttsAtom* stts = nullptr;
    StscAtom* stsc = nullptr;
    StszAtom* stsz = nullptr;
    StcoAtom* stco = nullptr;
    Co64Atom* co64 = nullptr;
    StssAtom* stss = nullptr;

    bool reserve() const;
    ZR_U32 room() const;  // samples that find their memory already
    void addChunkOffset(ZR_U64 offset) const;
    ZR_U32 chunkCount() const;
  };

  // Writes the pieces of a sample, all of it or -1.
  virtual int writePieces(const Mp4Sample& sample);
  bool writeBytes(const ZR_U8* data, ZR_U32 size);
  int addTmpSample(ZR_U64 chunkOffset, const Mp4Sample& sample, const char* noStts, const char* noStsz);
  // Whether the last byte of a frame in the file is something other than zero.
  bool endsInData(const PrivSampleHeader& header, ZR_U64 dataOffset);

  IOStream* mStream;
  MdatAtom* mMdat;
  TrakAtom* mTrak;
  Atom* mStbl;
  Tables mTables;
  Tables mTmp;
  ZR_BOOL mConstantRate;  // every sample has the duration in force
  SampleClock mClock;
  std::unique_ptr<StblAtom> mTmpStbl;

 private:
  static constexpr ZR_U32 kMaxChunkSize = 0x100000;    // bytes
  static constexpr ZR_U64 kMaxChunkDuration = 500000;  // microseconds

  bool reserveMore();
  void record(const Mp4Sample& sample, ZR_U64 offset, bool sync);
  void openChunk(ZR_S64 offset, ZR_U32 size, ZR_U64 pts);
  void closeChunk();
  int addTmpChunkOffset(ZR_U64 chunkOffset);
  bool readHeaderAt(ZR_U64 dataOffset, PrivSampleHeader* header);
  template <typename Offsets>
  void restoreClock(const Offsets& offsets);
  template <typename Offsets>
  bool replayTimeStamps(const Offsets& offsets);

  ZR_U64 mFirstPts = 0;  // microseconds
  ZR_U32 mSampleCount = 0;
  ZR_U32 mRoom = 0;  // samples that surely find room in every table
  bool mFinished = false;
  Chunk mCurChunk;
};

}  // namespace zrmp4
