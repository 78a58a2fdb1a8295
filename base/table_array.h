#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

#include "base/memory_out.h"
#include "zr_mp4.h"

namespace zrmp4 {

// A table that grows with the recording: entries stand in chained blocks that never move, so that growing costs one
// block at a time and nothing is ever copied. append answers false when memory is out, and nothing has changed.
template <typename T, unsigned kBlockEntries = 1024>
class TableArray {
  static_assert(std::is_trivially_copyable<T>::value, "entries are copied as bytes");

  struct Block {
    Block* next;
    T entries[kBlockEntries];
  };

 public:
  TableArray() = default;
  TableArray(const TableArray&) = delete;
  TableArray& operator=(const TableArray&) = delete;
  ~TableArray() {
    while (mFirst != nullptr) {
      Block* next = mFirst->next;
      delete mFirst;
      mFirst = next;
    }
  }

  ZR_U32 count() const { return mCount; }
  bool empty() const { return mCount == 0; }
  T& back() { return mLast->entries[mUsed - 1]; }
  const T& back() const { return mLast->entries[mUsed - 1]; }
  const T& front() const { return mFirst->entries[0]; }

  // Makes sure that the next append finds its memory.
  bool reserve() {
    if (mLast != nullptr && mUsed < kBlockEntries) return true;
    Block*& next = mLast != nullptr ? mLast->next : mFirst;
    if (next != nullptr) return true;
    Block* block = new (std::nothrow) Block;
    if (block == nullptr) {
      NoteMemoryOut();
      return false;
    }
    block->next = nullptr;
    next = block;
    return true;
  }

  // How many entries find their memory already.
  ZR_U32 room() const {
    if (mLast == nullptr) return mFirst != nullptr ? kBlockEntries : 0;
    return kBlockEntries - mUsed + (mLast->next != nullptr ? kBlockEntries : 0);
  }

  bool append(const T& entry) {
    if (mLast == nullptr || mUsed == kBlockEntries) {
      if (!reserve()) return false;
      mLast = mLast != nullptr ? mLast->next : mFirst;
      mUsed = 0;
    }
    mLast->entries[mUsed++] = entry;
    ++mCount;
    return true;
  }

  // Forgets the entries and keeps the blocks for the next ones.
  void clear() {
    mLast = nullptr;
    mUsed = 0;
    mCount = 0;
  }

  // Calls take(entries, n) for one run of entries after another; stops and answers false when it does.
  template <typename Take>
  bool forEachRun(Take take) const {
    ZR_U32 left = mCount;
    for (const Block* block = mFirst; left > 0; block = block->next) {
      const ZR_U32 run = left < kBlockEntries ? left : kBlockEntries;
      if (!take(static_cast<const T*>(block->entries), run)) return false;
      left -= run;
    }
    return true;
  }

  class Iterator {
   public:
    Iterator(const Block* block, ZR_U32 left) : mBlock(block), mLeft(left) {}
    const T& operator*() const { return mBlock->entries[mAt]; }
    const T* operator->() const { return &mBlock->entries[mAt]; }
    bool operator!=(const Iterator& other) const { return mLeft != other.mLeft; }
    Iterator& operator++() {
      --mLeft;
      if (++mAt == kBlockEntries) {
        mBlock = mBlock->next;
        mAt = 0;
      }
      return *this;
    }

   private:
    const Block* mBlock;
    ZR_U32 mLeft;
    ZR_U32 mAt = 0;
  };
  Iterator begin() const { return Iterator(mFirst, mCount); }
  Iterator end() const { return Iterator(nullptr, 0); }

 private:
  Block* mFirst = nullptr;
  Block* mLast = nullptr;  // the block that holds the last entry, null while empty
  ZR_U32 mUsed = 0;        // entries in mLast
  ZR_U32 mCount = 0;
};

}  // namespace zrmp4
