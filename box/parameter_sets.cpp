#include "box/parameter_sets.h"

#include <cstring>
#include <new>

#include "base/make_or_null.h"
#include "base/memory_out.h"

namespace zrmp4 {
namespace {

// FNV-1a, stirred at the end because the tree branches by the high bits.
ZR_U32 HashOf(const ZR_U8* data, ZR_U16 size) {
  ZR_U32 hash = 0x811C9DC5;
  for (ZR_U32 i = 0; i < size; ++i) hash = (hash ^ data[i]) * 0x01000193;
  hash = (hash ^ hash >> 16) * 0x85EBCA6B;
  return hash ^ hash >> 13;
}

}  // namespace

std::unique_ptr<ParameterSet> ParameterSet::OfSize(ZR_U16 size) {
  auto set = MakeOrNull<ParameterSet>();
  if (set == nullptr) return nullptr;
  set->data.reset(new (std::nothrow) ZR_U8[size]);
  set->size = size;
  if (set->data != nullptr) return set;
  NoteMemoryOut();
  return nullptr;
}

ParameterSetList::~ParameterSetList() {
  while (mFirst != nullptr) {
    ParameterSet* next = mFirst->mNext;
    delete mFirst;
    mFirst = next;
  }
}

ParameterSet** ParameterSetList::Place(ParameterSet** root, ZR_U32 hash, const ZR_U8* data, ZR_U16 size) {
  constexpr int kMostSteps = 64;
  ParameterSet** at = root;
  ZR_U32 path = hash;
  for (int steps = 0; *at != nullptr && steps < kMostSteps; ++steps, path <<= 2) {
    ParameterSet& set = **at;
    if (set.mHash == hash && set.size == size && std::memcmp(set.data.get(), data, size) == 0) break;
    at = &set.mBranches[path >> 30];
  }
  return at;
}

bool ParameterSetList::contains(const ZR_U8* data, ZR_U16 size) const {
  ParameterSet* root = mFirst;
  return root != nullptr && *Place(&root, HashOf(data, size), data, size) != nullptr;
}

void ParameterSetList::append(std::unique_ptr<ParameterSet> set) {
  ParameterSet* added = set.release();
  added->mHash = HashOf(added->data.get(), added->size);
  ParameterSet** place = Place(&mFirst, added->mHash, added->data.get(), added->size);
  if (*place == nullptr) *place = added;  // a file may bring equal sets, of which one is enough to be found
  if (mLast != nullptr) mLast->mNext = added;
  mLast = added;
  ++mCount;
  mBytes += 2u + added->size;
}

bool ParameterSetList::write(FieldIo& io) const {
  for (const ParameterSet* set = mFirst; set != nullptr; set = set->mNext) {
    if (!io.fixed16(set->size) || !io.bytes(set->data.get(), set->size)) return false;
  }
  return true;
}

bool ParameterSetList::read(FieldIo& io, const AtomHeader& box, ZR_U32 count, const ReadTexts& texts) {
  for (ZR_U32 i = 0; i < count; ++i) {
    ZR_U16 size = 0;
    if (!io.be16(size)) return false;
    if (size == 0) return ZR_FAIL(false, texts.emptySet, size);
    if (size > box.Remaining(io.stream())) {
      const long long offset = static_cast<long long>(io.stream()->getCurPos());
      return ZR_IO_FAIL(false, "offset:%lld, readBytes(%u) fail\n", offset, static_cast<unsigned>(size));
    }
    auto set = ParameterSet::OfSize(size);
    if (set == nullptr) return ZR_FAIL(false, texts.noMemory, size);
    if (!io.bytes(set->data.get(), size)) return false;
    append(std::move(set));
  }
  return true;
}

bool UnreadRest::read(FieldIo& io, const AtomHeader& box) {
  if (box.size <= 1) return true;  // no end of its own, or one that no configuration needs
  const ZR_U32 size = static_cast<ZR_U32>(box.Remaining(io.stream()));
  if (size == 0) return true;
  mData = MakeArrayOrNull<ZR_U8>(size);
  if (mData == nullptr) return ZR_FAIL(false, "no memory\n");
  mSize = size;
  return io.bytes(mData.get(), size);
}

}  // namespace zrmp4
