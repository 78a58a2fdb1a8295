#pragma once

#include "stream/io_stream.h"
#include "track/priv_sample_header.h"

namespace zrmp4 {

// Walks the private records that a crash-safe recording lays into its media data, one after another: frames, copies
// of user boxes, and at multiples of the backup unit the table groups with the zeros in front of them.
class RecordWalker {
 public:
  enum class Record { kFrame, kUserBox, kTableGroup, kEnd };

  // Walks within [start, end); backupUnit 0 means that no table groups stand in the way.
  RecordWalker(IOStream* stream, ZR_U32 backupUnit, ZR_U64 start, ZR_U64 end)
      : mStream(stream), mBackupUnit(backupUnit), mNext(start), mEnd(end) {}

  // Moves to the next record; the stream may then stand anywhere. kEnd when what follows is no whole record.
  Record next();

  const PrivSampleHeader& header() const { return mHeader; }  // of a frame or user box
  ZR_U64 offset() const { return mOffset; }                   // where the record starts
  ZR_U64 dataOffset() const { return mOffset + PrivSampleHeader::kSize; }
  // Why the last kEnd was one: a record that the end cuts off, or a header that could not be read.
  bool cut() const { return mCut; }
  bool unreadable() const { return mUnreadable; }
  ZR_U64 endOffset() const { return mNext; }           // behind the record
  ZR_U32 userBoxSize() const { return mUserBoxSize; }  // of a user box; the rest of the record is its path

  // Whether a header can be one of a record: a user box carries no key flag, time stamp or empty body.
  static bool Plausible(const PrivSampleHeader& header);

 private:
  Record readRecord();
  bool readUserBoxSize(ZR_U32 bodySize);
  bool readTableGroup(ZR_U64 at);

  IOStream* mStream;
  ZR_U32 mBackupUnit;
  ZR_U64 mNext;
  ZR_U64 mEnd;
  ZR_U64 mOffset = 0;
  bool mCut = false;
  bool mUnreadable = false;
  ZR_U32 mUserBoxSize = 0;
  PrivSampleHeader mHeader;
};

}  // namespace zrmp4
