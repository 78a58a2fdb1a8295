#pragma once

#include "base/log.h"
#include "base/table_array.h"
#include "box/atom.h"
#include "stream/field_io.h"

namespace zrmp4 {

// The sample tables of one track. The same classes serve a finished file, the tables of a snapshot that grow and are
// emptied again and again, and the snapshots that repair reads back and joins.
class StblAtom : public Atom {
 public:
  StblAtom() : Atom("stbl", 8) {}
  explicit StblAtom(const AtomHeader& header) : Atom(header) {}

  Atom* ReadChild(IOStream* stream) override;
};

// What the six tables share: a full box with a list of entries, each a run of 32-bit words or one 64-bit word. The
// box size follows every entry, up to the root.
template <typename Entry, unsigned kBlockEntries>
class TableAtom : public Atom {
 public:
  using Entries = TableArray<Entry, kBlockEntries>;

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;

  const Entries& entries() const { return mEntries; }

  // Makes sure that one more entry finds its memory.
  bool reserve() { return mEntries.reserve() || failGrowth(); }
  // How many more entries find theirs already.
  ZR_U32 room() const { return mEntries.room(); }

  // Empties the table and keeps its memory for the next entries.
  void clear() {
    DecreaseSize(mEntries.count() * kEntrySize);
    mEntries.clear();
  }

 protected:
  static constexpr ZR_U32 kEntrySize = sizeof(Entry);  // on disk as in memory

  TableAtom(const char* type, ZR_U32 emptySize) : Atom(type, emptySize) {}
  explicit TableAtom(const AtomHeader& header) : Atom(header) {}

  // False, and nothing has changed, when memory is out.
  bool append(const Entry& entry, ZR_U32 growth = kEntrySize) {
    if (!mEntries.append(entry)) return failGrowth();
    IncreaseSize(growth);
    return true;
  }
  Entry* last() { return mEntries.empty() ? nullptr : &mEntries.back(); }

 private:
  virtual bool fieldsBeforeCount(FieldIo&) { return true; }
  virtual bool acceptsCount(ZR_U32 count) const { return count < (0xFFFFFFFFu - header().size) / kEntrySize; }
  [[gnu::cold]] bool failGrowth() const { return ZR_FAIL(false, "no memory:%s\n", type().c_str()); }

  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 0;
  Entries mEntries;
};

struct SttsEntry {
  ZR_U32 sampleCount;
  ZR_U32 sampleDelta;  // ticks of the track's time scale
};

struct StscEntry {
  ZR_U32 firstChunk;
  ZR_U32 samplesPerChunk;
  ZR_U32 sampleDescriptionIndex;
};

// Lists of runs stay short; the other tables grow by an entry per sample or chunk.
constexpr unsigned kRunsPerBlock = 128;
constexpr unsigned kEntriesPerBlock = 1024;

// In every table: numbers count from 1. merge appends the entries from-to of a source to this table, crop2new fills
// this empty table with them; both end early and answer false when memory is out or there is no source.

// Decoding times, as runs of samples with the same duration.
class SttsAtom : public TableAtom<SttsEntry, kRunsPerBlock> {
 public:
  using SttsEntry = zrmp4::SttsEntry;

  SttsAtom() : TableAtom("stts", 16) {}
  explicit SttsAtom(const AtomHeader& header) : TableAtom(header) {}

  // Continues the last run when it has the same duration.
  bool addEntry(ZR_U32 count, ZR_U32 delta) {
    SttsEntry* run = last();
    if (run == nullptr || run->sampleDelta != delta) return append({count, delta});
    run->sampleCount += count;
    return true;
  }
  bool merge(const SttsAtom* source, ZR_U32 from, ZR_U32 to);

  ZR_U64 totalDuration() const;

 private:
  bool acceptsCount(ZR_U32 count) const override;
};

// Samples per chunk, as runs of chunks with the same number.
class StscAtom : public TableAtom<StscEntry, kRunsPerBlock> {
 public:
  using StscEntry = zrmp4::StscEntry;

  StscAtom() : TableAtom("stsc", 16) {}
  explicit StscAtom(const AtomHeader& header) : TableAtom(header) {}

  // Adds nothing when the last run goes on.
  bool addEntry(ZR_U32 firstChunk, ZR_U32 samplesPerChunk, ZR_U32 descriptionIndex) {
    const StscEntry* run = last();
    if (run != nullptr && run->samplesPerChunk == samplesPerChunk && run->sampleDescriptionIndex == descriptionIndex) {
      return true;
    }
    return append({firstChunk, samplesPerChunk, descriptionIndex});
  }
  bool merge(const StscAtom* source, ZR_U32 from, ZR_U32 to);
  bool crop2new(const StscAtom* source);
};

// Sample sizes.
class StszAtom : public TableAtom<ZR_U32, kEntriesPerBlock> {
 public:
  StszAtom() : TableAtom("stsz", 20) {}
  explicit StszAtom(const AtomHeader& header) : TableAtom(header) {}

  bool addEntry(ZR_U32 size) { return append(size); }
  bool merge(const StszAtom* source, ZR_U32 from, ZR_U32 to);
  bool crop2new(const StszAtom* source, ZR_U32 from, ZR_U32 to);

  ZR_U32 getCount() const { return entries().count(); }
  ZR_U64 TotalSampleSize() const;
  // 0 when there is no such sample.
  ZR_U32 getSizeByNO(ZR_U32 no) const;

 private:
  bool fieldsBeforeCount(FieldIo& io) override { return io.be32(mSampleSize); }

  ZR_U32 mSampleSize = 0;  // kept as read: every size is listed, whatever it says
};

// Chunk offsets of 32 bits.
class StcoAtom : public TableAtom<ZR_U32, kEntriesPerBlock> {
 public:
  StcoAtom() : TableAtom("stco", 16) {}
  explicit StcoAtom(const AtomHeader& header) : TableAtom(header) {}

  bool addEntry(ZR_U32 offset) { return append(offset); }
  // Both move the chunks as a whole, so that the first one stands at start.
  bool merge(const StcoAtom* source, ZR_U32 from, ZR_U32 to, ZR_U64 start);
  bool crop2new(const StcoAtom* source, ZR_U32 from, ZR_U32 to, ZR_U64 start);

  // The first offset, 0 when there is none.
  ZR_U32 getStartOffset() const { return entries().empty() ? 0 : entries().front(); }
  // Leaves *position alone when there is no such chunk.
  void getPosByNO(ZR_U32 no, ZR_U64* position) const;
  // Where chunk startNo lies, for a *startAddr of 0, and how far chunk endNo is from there.
  void getFramePos(ZR_U32 startNo, ZR_U32 endNo, ZR_U64* startAddr, ZR_U32* dataLen) const;
  // The first chunk at or behind the offset; the last one when there is none, 0 in an empty table.
  ZR_U32 getNextFrameNoByOffset(ZR_U64 offset) const;
  // The last chunk before the offset, or 0.
  ZR_U32 getLastFrameNoByOffset(ZR_U64 offset) const;
};

// Chunk offsets of 64 bits.
class Co64Atom : public TableAtom<ZR_U64, kEntriesPerBlock> {
 public:
  Co64Atom() : TableAtom("co64", 16) {}
  explicit Co64Atom(const AtomHeader& header) : TableAtom(header) {}

  bool addEntry(ZR_U64 offset) { return append(offset); }
  bool merge(const Co64Atom* source, ZR_U32 from, ZR_U32 to, ZR_U64 start);
  bool crop2new(const Co64Atom* source, ZR_U32 from, ZR_U32 to, ZR_U64 start);

  ZR_U64 getStartOffset() const { return entries().empty() ? 0 : entries().front(); }
  // Sets *position to 0 when there is no such chunk.
  void getPosByNO(ZR_U32 no, ZR_U64* position) const;
  // The first chunk at or behind the offset, or 0.
  ZR_U32 getNextFrameNoByOffset(ZR_U64 offset) const;
  ZR_U32 getLastFrameNoByOffset(ZR_U64 offset) const;
};

// Numbers of the sync samples, ascending.
class StssAtom : public TableAtom<ZR_U32, kEntriesPerBlock> {
 public:
  StssAtom() : TableAtom("stss", 16) {}
  explicit StssAtom(const AtomHeader& header) : TableAtom(header) {}

  bool addEntry(ZR_U32 sampleNumber) { return append(sampleNumber); }
  // Here from and to are sample numbers; what was sample from becomes the one after base.
  bool merge(const StssAtom* source, ZR_U32 from, ZR_U32 to, ZR_U32 base);
  bool crop2new(const StssAtom* source, ZR_U32 from, ZR_U32 to);

  // Moves *no on to the next sync sample at or behind it, when there is one.
  void getIFrameNumber(ZR_U32* no) const;
};

}  // namespace zrmp4
