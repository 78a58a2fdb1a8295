#pragma once

#include <memory>

#include "box/atom.h"
#include "box/sample_tables.h"
#include "box/vemo_atom.h"

namespace zrmp4 {

// A table group, at every multiple of the backup unit in the file: for each track the sample tables of the interval
// since the previous one.
class TbgpAtom : public Atom {
 public:
  struct TbgpEntry {
    ZR_U32 trackId = 0;
    std::unique_ptr<StblAtom> stbl;
  };

  explicit TbgpAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override;
  int Dump(IOStream* stream, ZR_U32 depth) override;

  // How many groups to read: the box does not say, it has one for each track of the file's vemo.
  void setExpectedEntries(ZR_U32 count) { mExpectedEntries = count; }

  // User boxes recorded in mdat since the previous table group.
  ZR_U32 userAtomNum() const { return mUserAtomNum; }
  ZR_U32 entryCount() const { return mEntryCount; }
  const TbgpEntry& entry(ZR_U32 index) const { return mEntries[index]; }  // below entryCount()

 private:
  int readEntry(IOStream* stream);

  ZR_U32 mExpectedEntries = 0;
  ZR_U32 mUserAtomNum = 0;
  ZR_U32 mEntryCount = 0;
  TbgpEntry mEntries[VemoAtom::MAX_TRACKS];
};

// The media data. Of its content only the track configuration becomes a child; frames, records of user boxes and
// table groups are found by those who need them.
class MdatAtom : public Atom {
 public:
  // The form of a new recording: a 16-byte header, so that the size can pass 4 GiB without moving data.
  MdatAtom() : Atom("mdat", 1) { header().largeSize = 16; }
  explicit MdatAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override;
  int Dump(IOStream* stream, ZR_U32 depth) override;

  void setExtendedSize(ZR_U64 size) { header().largeSize = size; }
  // Patches the size in the stream.
  int rewriteSize(IOStream* stream) { return header().rewriteAtomSize(stream); }

  // Where the data begins, and where the records of user boxes that stand in front of it end (known once read).
  ZR_U64 dataStart() const { return header().offset + header().Size(); }
  ZR_U64 leadingRecordsEnd() const { return mLeadingRecordsEnd; }

  // Dumps the table groups found at the multiples of the backup unit. 0, -1 at the first that is not one, or the
  // status code that says why there are none to look for.
  int dumpTbgpAtoms(IOStream* stream, ZR_U32 depth);

 private:
  int skipLeadingRecords(IOStream* stream);
  int dumpTbgpAt(IOStream* stream, ZR_U64 position, ZR_U32 trackCount, ZR_U32 depth);
  ZR_U64 dataEnd(IOStream* stream) const;

  ZR_U64 mLeadingRecordsEnd = 0;
};

}  // namespace zrmp4
