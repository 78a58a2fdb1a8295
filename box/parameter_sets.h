#pragma once

#include <memory>
#include <utility>

#include "base/annex_k.h"
#include "base/log.h"
#include "box/atom_header.h"
#include "stream/field_io.h"

namespace zrmp4 {

// One NAL unit kept for the decoder configuration, without start code or length.
struct ParameterSet {
  // With uninitialised data of this size; null when memory is out.
  static std::unique_ptr<ParameterSet> OfSize(ZR_U16 size);

  std::unique_ptr<ZR_U8[]> data;
  ZR_U16 size = 0;

 private:
  friend class ParameterSetList;
  ZR_U32 mHash = 0;
  ParameterSet* mNext = nullptr;    // in the order of arrival
  ParameterSet* mBranches[4] = {};  // by the next two bits of the hash
};

// Parameter sets in the order of arrival. They are indexed by a tree over a hash of their bytes, two bits a level,
// so that the test for a duplicate takes some eight steps however many sets a long recording has brought.
class ParameterSetList {
 public:
  ParameterSetList() = default;
  ParameterSetList(const ParameterSetList&) = delete;
  ParameterSetList& operator=(const ParameterSetList&) = delete;
  ~ParameterSetList();

  bool contains(const ZR_U8* data, ZR_U16 size) const;
  void append(std::unique_ptr<ParameterSet> set);

  ZR_U32 count() const { return mCount; }
  bool empty() const { return mCount == 0; }
  // Length in a configuration box: a 16-bit length and the bytes of each set.
  ZR_U32 bytes() const { return mBytes; }

  // Writes each set behind its 16-bit length.
  bool write(FieldIo& io) const;

  struct ReadTexts {
    const char* emptySet;  // with the length
    const char* noMemory;  // with the length
  };
  // Appends count sets from the stream, none longer than what is left of the box.
  bool read(FieldIo& io, const AtomHeader& box, ZR_U32 count, const ReadTexts& texts);

 private:
  // The link in the tree that leads to the set of these bytes, or that is null and would have to. Sets that were made
  // to have one hash count as equal where telling them apart would take long.
  static ParameterSet** Place(ParameterSet** root, ZR_U32 hash, const ZR_U8* data, ZR_U16 size);

  ParameterSet* mFirst = nullptr;  // the root of the tree as well
  ParameterSet* mLast = nullptr;
  ZR_U32 mCount = 0;
  ZR_U32 mBytes = 0;
};

// How a kind of parameter set is added, and what is logged on the way.
struct ParameterSetRules {
  ZR_U32 maxCount;
  const char* exists;
  const char* full;        // with the maximum; null when sets beyond it are passed over
  const char* noMemory;    // with the size
  const char* notCleared;  // with the size
  const char* notCopied;
};

// Appends a copy of a NAL unit unless the list has it. parse(buffer), given a zeroed buffer of the NAL unit's size to
// work in, answers whether the unit is acceptable. 0, also for a duplicate, or -1 and the list is as before.
template <typename Parse>
int AddParameterSet(ParameterSetList& list, const ParameterSetRules& rules, const ZR_U8* nalu, ZR_U16 size,
                    Parse parse) {
  if (list.contains(nalu, size)) {
    ZR_NOTE(ZR_LOG_LEVEL_TRACE, "%s", rules.exists);
    return 0;
  }
  if (list.count() >= rules.maxCount) {
    return rules.full != nullptr ? ZR_FAIL(-1, rules.full, static_cast<int>(rules.maxCount)) : 0;
  }
  auto set = ParameterSet::OfSize(size);
  if (set == nullptr) return ZR_FAIL(-1, rules.noMemory, size);
  if (memset_s(set->data.get(), size, 0, size) != 0) return ZR_FAIL(-1, rules.notCleared, size);
  if (!parse(set->data.get())) return -1;
  if (memcpy_s(set->data.get(), size, nalu, size) != 0) return ZR_FAIL(-1, "%s", rules.notCopied);
  list.append(std::move(set));
  return 0;
}

// The bytes at the end of a box that its class does not interpret, kept so that a box that was read writes back whole.
class UnreadRest {
 public:
  bool read(FieldIo& io, const AtomHeader& box);
  bool write(FieldIo& io) { return mSize == 0 || io.bytes(mData.get(), mSize); }
  ZR_U32 size() const { return mSize; }

 private:
  std::unique_ptr<ZR_U8[]> mData;
  ZR_U32 mSize = 0;
};

}  // namespace zrmp4
