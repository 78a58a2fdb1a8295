#include "track/record_walker.h"

#include <cstring>

#include "box/user_def_atom.h"

namespace zrmp4 {

bool RecordWalker::Plausible(const PrivSampleHeader& header) {
  if (header.isKey > 1) return false;
  return header.trackId != 0 || (header.isKey == 0 && header.pts == 0 && header.size != 0);
}

RecordWalker::Record RecordWalker::next() {
  if (mNext >= mEnd) return Record::kEnd;
  const ZR_U64 unit = mBackupUnit;
  const ZR_U64 multiple = unit != 0 ? (mNext + unit - 1) / unit * unit : mEnd;
  // Less than a header in front of a table group is padding, whatever it reads like.
  const bool closeToUnit = unit != 0 && multiple - mNext < PrivSampleHeader::kSize;
  if (closeToUnit && readTableGroup(multiple)) return Record::kTableGroup;
  const Record record = readRecord();
  if (record != Record::kEnd || unit == 0 || closeToUnit) return record;
  return readTableGroup(multiple) ? Record::kTableGroup : Record::kEnd;
}

RecordWalker::Record RecordWalker::readRecord() {
  if (mEnd - mNext < PrivSampleHeader::kSize) return Record::kEnd;
  PrivSampleHeader header;
  mUnreadable = mStream->seek(static_cast<long long>(mNext), 0) != 0 || header.Read(mStream) != 0;
  if (mUnreadable) return Record::kEnd;
  if (!Plausible(header)) return Record::kEnd;
  mCut = header.size > mEnd - mNext - PrivSampleHeader::kSize;
  if (mCut) return Record::kEnd;
  if (header.trackId == 0 && !readUserBoxSize(header.size)) return Record::kEnd;
  mHeader = header;
  mOffset = mNext;
  mNext = dataOffset() + header.size;
  return header.trackId == 0 ? Record::kUserBox : Record::kFrame;
}

// The box at the stream's position and a path of 1 to 64 characters make up the record's body.
bool RecordWalker::readUserBoxSize(ZR_U32 bodySize) {
  constexpr ZR_U32 kBoxHeader = 8;
  if (mStream->readBe32(&mUserBoxSize) != 4 || mUserBoxSize < kBoxHeader) return false;
  return mUserBoxSize < bodySize && bodySize - mUserBoxSize <= kMaxUserBoxPath;
}

bool RecordWalker::readTableGroup(ZR_U64 at) {
  constexpr ZR_U32 kHeaderSize = 12;  // size, type and the count of user boxes
  ZR_U32 size = 0;
  ZR_U8 type[4];
  if (at >= mEnd || mEnd - at < kHeaderSize || mStream->seek(static_cast<long long>(at), 0) != 0) return false;
  if (mStream->readBe32(&size) != 4 || mStream->readBytes(type, 4) != 4) return false;
  if (std::memcmp(type, "tbgp", 4) != 0 || size < kHeaderSize || size > mEnd - at) return false;
  mOffset = at;
  mNext = at + size;
  return true;
}

}  // namespace zrmp4
