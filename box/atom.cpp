#include "box/atom.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdio>

#include "base/log.h"
#include "base/utc1904.h"

namespace zrmp4 {

Atom::~Atom() {
  while (mFirstChild != nullptr) {
    Atom* next = mFirstChild->mNextSibling;
    delete mFirstChild;
    mFirstChild = next;
  }
}

int Atom::Read(IOStream* stream) { return ReadHeader(stream) == 0 ? ReadContent(stream) : -1; }

int Atom::ReadContent(IOStream* stream) {
  if (stream == nullptr) {
    LogNullArgument("ReadContent", 118);
    return -1;
  }
  if (readData(stream) != 0) return ZR_FAIL(-1, "read data failed\n");

  constexpr ZR_U64 kSmallestHeader = 8;
  const ZR_U64 streamSize = stream->size();
  const ZR_U64 length = mHeader.Length(streamSize);
  const ZR_U64 left = streamSize > mHeader.offset ? streamSize - mHeader.offset : 0;
  const ZR_U64 end = mHeader.offset + (length < left ? length : left);
  while (stream->getCurPos() < end) {
    const ZR_U64 start = stream->getCurPos();
    const bool noRoom = end < streamSize && end - start < kSmallestHeader;  // the next header would be a neighbour's
    Atom* child = noRoom ? nullptr : ReadChild(stream);
    if (child == nullptr) return SeekToEnd(stream) == 0 ? 0 : ZR_FAIL(-1, "seek to stream end failed\n");
    adopt(child);
    if (stream->getCurPos() <= start) break;
  }
  return 0;
}

int Atom::Write(IOStream* stream) { return WriteHeader(stream) == 0 ? WriteContent(stream) : -1; }

int Atom::WriteContent(IOStream* stream) { return writeData(stream) == 0 ? writeChildren(stream) : -1; }

int Atom::writeChildren(IOStream* stream) {
  for (Atom* child = mFirstChild; child != nullptr; child = child->mNextSibling) {
    if (child->Write(stream) != 0) return -1;
  }
  return 0;
}

int Atom::seekOrLog(IOStream* stream, long long offset, int whence) {
  if (stream->seek(offset, whence) == 0) return 0;
  return ZR_FAIL(-1, "seek offset:%lld, whence(%d) fail:%d\n", static_cast<long long>(stream->getCurPos()), whence,
                 errno);
}

int Atom::SeekToEnd(IOStream* stream) {
  if (stream == nullptr) {
    LogNullArgument("SeekToEnd", 91);
    return -1;
  }
  if (mHeader.size == 0) return seekOrLog(stream, 0, 2);
  const ZR_U64 streamSize = stream->size();
  const ZR_U64 length = mHeader.Length(streamSize);
  if (streamSize < mHeader.offset || length > streamSize - mHeader.offset) return seekOrLog(stream, 0, 2);
  const ZR_U64 end = mHeader.offset + length;
  if (stream->getCurPos() == end) return 0;
  return seekOrLog(stream, static_cast<long long>(end), 0);
}

ZR_U64 Atom::LocalTime() {
  struct timeval now = {};
  gettimeofday(&now, nullptr);
  return changeLocalSecond2UTC1904(static_cast<ZR_U64>(now.tv_sec));
}

Atom* Atom::GetChild(int index) const {
  Atom* child = index < 0 ? nullptr : mFirstChild;
  for (int i = 0; i < index && child != nullptr; ++i) child = child->mNextSibling;
  return child;
}

Atom* Atom::GetChild(const std::string& childType) const {
  constexpr std::size_t kPlain = 4;    // "trak"
  constexpr std::size_t kIndexed = 7;  // "trak[1]"
  if (childType.size() != kPlain && childType.size() != kIndexed) {
    return ZR_FAIL(nullptr, "childType[%s] len err\n", childType.c_str());
  }
  int wanted = 0;
  if (childType.size() == kIndexed) {
    if (childType[4] != '[' || childType[5] < '0' || childType[5] > '9' || childType[6] != ']') {
      return ZR_FAIL(nullptr, "childType[%s] invalid\n", childType.c_str());
    }
    wanted = childType[5] - '0';
  }
  for (Atom* child = mFirstChild; child != nullptr; child = child->mNextSibling) {
    const std::string& type = child->mHeader.type;
    if (type.empty()) return ZR_FAIL(nullptr, "child pAtom type is NULL\n");
    const bool same = childType.size() == kPlain ? childType == type : childType.compare(0, type.size(), type) == 0;
    if (same && wanted-- == 0) return child;
  }
  return nullptr;
}

Atom* Atom::GetDescendant(const std::string& path) {
  Atom* box = this;
  std::size_t start = 0;
  while (box != nullptr) {
    const std::size_t slash = path.find('/', start);
    box = box->GetChild(path.substr(start, slash == std::string::npos ? slash : slash - start));
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  return box;
}

void Atom::settleGrowth() {
  if (mGrowsInto != nullptr || mParent == nullptr || mHeader.size == mToldSize) return;
  mParent->IncreaseSize(mHeader.size - mToldSize);
  mToldSize = mHeader.size;
}

void Atom::link(Atom* child, Atom* after) {
  Atom*& place = after != nullptr ? after->mNextSibling : mFirstChild;
  child->mNextSibling = place;
  place = child;
  if (child->mNextSibling == nullptr) mLastChild = child;
  child->mParent = child->mGrowsInto = this;
  ++mChildCount;
}

void Atom::adopt(Atom* child) { link(child, mLastChild); }

void Atom::AddChild(Atom* child) {
  if (child == nullptr) return LogNullArgument("AddChild", 174);
  link(child, mLastChild);
  IncreaseSize(child->mHeader.size);
}

void Atom::AddChildToFront(Atom* child) {
  if (child == nullptr) return LogNullArgument("AddChildToFront", 182);
  link(child, nullptr);
  IncreaseSize(child->mHeader.size);
}

void Atom::InsertChild(ZR_U32 position, Atom* child) {
  if (child == nullptr) return LogNullArgument("InsertChild", 191);
  Atom* after = nullptr;
  for (ZR_U32 i = 1; i < position && (after != nullptr ? after->mNextSibling : mFirstChild) != nullptr; ++i) {
    after = after != nullptr ? after->mNextSibling : mFirstChild;
  }
  link(child, after);
  IncreaseSize(child->mHeader.size);
}

void Atom::RemoveChild(Atom* child) {
  if (child == nullptr) return LogNullArgument("RemoveChild", 203);
  Atom* before = nullptr;
  for (Atom* at = mFirstChild; at != nullptr; before = at, at = at->mNextSibling) {
    if (at != child) continue;
    (before != nullptr ? before->mNextSibling : mFirstChild) = child->mNextSibling;
    if (mLastChild == child) mLastChild = before;
    --mChildCount;
    child->mNextSibling = nullptr;  // one that is not among these may stand in another list
    break;
  }
  child->mParent = child->mGrowsInto = nullptr;
  DecreaseSize(child->mHeader.size);
}

int Atom::Dump(IOStream* stream, ZR_U32 depth) {
  putchar('+');
  for (ZR_U32 i = 0; i < depth; ++i) putchar('-');
  printf("%s\n", mHeader.type.c_str());
  for (Atom* child = mFirstChild; child != nullptr; child = child->mNextSibling) {
    if (child->Dump(stream, depth + 1) != 0) return -1;
  }
  return 0;
}

int RootAtom::Read(IOStream* stream) {
  if (stream == nullptr) {
    LogNullArgument("Read");
    return -1;
  }
  const long long length = stream->getFileSize();
  if (length < 0 || length > 0xFFFFFFFFLL) return -1;
  IncreaseSize(static_cast<ZR_U32>(length));
  header().type = "root";
  return ReadContent(stream);
}

}  // namespace zrmp4
