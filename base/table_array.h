#pragma once

#include <new>
#include <type_traits>

#include "base/memory_out.h"
#include "zr_mp4.h"

namespace zrmp4 {

// A table that grows with the recording: entries stand in chained blocks that never move, so that growing costs one
// block at a time and nothing is ever copied. append answers false when memory is out, and nothing has changed. The
// first block is small: a file that is read may have any number of tables with next to nothing in them.
template <typename T, unsigned kBlockEntries = 1024>
class TableArray {
  static_assert(std::is_trivially_copyable<T>::value, "entries are copied as bytes");

  struct alignas(T) alignas(void*) Block {
    Block* next;  // the entries follow

    T* entries() { return reinterpret_cast<T*>(this + 1); }
    const T* entries() const { return reinterpret_cast<const T*>(this + 1); }
  };

 public:
  TableArray() = default;
  TableArray(const TableArray&) = delete;
  TableArray& operator=(const TableArray&) = delete;
  ~TableArray() {
    while (mFirst != nullptr) {
      Block* next = mFirst->next;
      ::operator delete(mFirst);
      mFirst = next;
    }
  }

  ZR_U32 count() const { return mCount; }
  bool empty() const { return mCount == 0; }
  T& back() { return mEnd[-1]; }
  const T& back() const { return mEnd[-1]; }
  const T& front() const { return mFirst->entries()[0]; }

  // Makes sure that the next append finds its memory.
  bool reserve() {
    if (mFree > 0) return true;
    Block*& next = nextBlock();
    if (next != nullptr) return true;
    next = static_cast<Block*>(::operator new(sizeof(Block) + nextSize() * sizeof(T), std::nothrow));
    if (next == nullptr) {
      NoteMemoryOut();
      return false;
    }
    next->next = nullptr;
    return true;
  }

  // How many entries find their memory already.
  ZR_U32 room() const { return mFree + ((mLast != nullptr ? mLast->next : mFirst) != nullptr ? nextSize() : 0); }

  bool append(const T& entry) {
    if (mFree == 0) {
      if (!reserve()) return false;
      mFree = nextSize();
      mLast = nextBlock();
      mEnd = mLast->entries();
    }
    *mEnd++ = entry;
    --mFree;
    ++mCount;
    return true;
  }

  // Forgets the entries and keeps the blocks for the next ones.
  void clear() {
    mLast = nullptr;
    mEnd = nullptr;
    mFree = 0;
    mCount = 0;
  }

  // Calls take(entries, n) for one run of entries after another; stops and answers false when it does.
  template <typename Take>
  bool forEachRun(Take take) const {
    ZR_U32 left = mCount;
    ZR_U32 size = kFirstEntries;
    for (const Block* block = mFirst; left > 0; block = block->next) {
      const ZR_U32 run = left < size ? left : size;
      if (!take(block->entries(), run)) return false;
      left -= run;
      size = kBlockEntries;
    }
    return true;
  }

  class Iterator {
   public:
    Iterator(const Block* block, ZR_U32 left) : mBlock(block), mLeft(left) {}
    const T& operator*() const { return mBlock->entries()[mAt]; }
    const T* operator->() const { return mBlock->entries() + mAt; }
    bool operator!=(const Iterator& other) const { return mLeft != other.mLeft; }
    Iterator& operator++() {
      --mLeft;
      if (++mAt == mSize) {
        mBlock = mBlock->next;
        mAt = 0;
        mSize = kBlockEntries;
      }
      return *this;
    }

   private:
    const Block* mBlock;
    ZR_U32 mLeft;
    ZR_U32 mAt = 0;
    ZR_U32 mSize = kFirstEntries;
  };
  Iterator begin() const { return Iterator(mFirst, mCount); }
  Iterator end() const { return Iterator(nullptr, 0); }

 private:
  static constexpr ZR_U32 kFirstEntries = kBlockEntries < 8 ? kBlockEntries : 8;

  Block*& nextBlock() { return mLast != nullptr ? mLast->next : mFirst; }
  ZR_U32 nextSize() const { return mLast != nullptr ? kBlockEntries : kFirstEntries; }

  Block* mFirst = nullptr;
  Block* mLast = nullptr;  // the block that holds the last entry, null while empty
  T* mEnd = nullptr;       // behind the last entry
  ZR_U32 mFree = 0;        // entries left in mLast
  ZR_U32 mCount = 0;
};

}  // namespace zrmp4
