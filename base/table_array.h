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

  ZR_U32 count() const { return mLast != nullptr ? mBefore + static_cast<ZR_U32>(mEnd - mLast->entries()) : 0; }
  bool empty() const { return mLast == nullptr; }
  T& back() { return mEnd[-1]; }
  const T& back() const { return mEnd[-1]; }
  const T& front() const { return mFirst->entries()[0]; }

  // Makes sure that the next append finds its memory. A block that is half full has its successor, so that there is
  // room for many and nobody needs to ask often.
  bool reserve() {
    if (static_cast<ZR_U32>(mLimit - mEnd) > kBlockEntries / 2) return true;
    Block*& next = nextBlock();
    if (next != nullptr) return true;
    next = static_cast<Block*>(::operator new(sizeof(Block) + nextSize() * sizeof(T), std::nothrow));
    if (next != nullptr) {
      next->next = nullptr;
    } else if (mEnd == mLimit) {
      NoteMemoryOut();
      return false;
    }
    return true;
  }

  // How many entries find their memory already.
  ZR_U32 room() const {
    const ZR_U32 left = static_cast<ZR_U32>(mLimit - mEnd);
    return left + ((mLast != nullptr ? mLast->next : mFirst) != nullptr ? nextSize() : 0);
  }

  bool append(const T& entry) {
    if (mEnd == mLimit && !startBlock()) return false;
    *mEnd++ = entry;
    return true;
  }

  // Forgets the entries and keeps the blocks for the next ones.
  void clear() {
    mLast = nullptr;
    mEnd = mLimit = nullptr;
    mBefore = 0;
  }

  // Calls take(entries, n) for one run of entries after another; stops and answers false when it does.
  template <typename Take>
  bool forEachRun(Take take) const {
    ZR_U32 left = count();
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
    Iterator(const Block* block, const T* at, const T* end) : mBlock(block), mAt(at), mEnd(end) {}
    const T& operator*() const { return *mAt; }
    const T* operator->() const { return mAt; }
    bool operator!=(const Iterator& other) const { return mAt != other.mAt; }
    Iterator& operator++() {
      if (++mAt == mBlock->entries() + mSize && mAt != mEnd) {
        mBlock = mBlock->next;
        mAt = mBlock->entries();
        mSize = kBlockEntries;
      }
      return *this;
    }

   private:
    const Block* mBlock;
    const T* mAt;
    const T* mEnd;
    ZR_U32 mSize = kFirstEntries;  // of the block
  };
  Iterator begin() const { return Iterator(mFirst, mLast != nullptr ? mFirst->entries() : nullptr, mEnd); }
  Iterator end() const { return Iterator(mLast, mEnd, mEnd); }

 private:
  static constexpr ZR_U32 kFirstEntries = kBlockEntries < 8 ? kBlockEntries : 8;

  Block*& nextBlock() { return mLast != nullptr ? mLast->next : mFirst; }
  ZR_U32 nextSize() const { return mLast != nullptr ? kBlockEntries : kFirstEntries; }

  bool startBlock() {
    if (!reserve()) return false;
    mBefore = count();
    const ZR_U32 size = nextSize();
    mLast = nextBlock();
    mEnd = mLast->entries();
    mLimit = mEnd + size;
    return true;
  }

  Block* mFirst = nullptr;
  Block* mLast = nullptr;  // the block that holds the last entry, null while empty
  T* mEnd = nullptr;       // behind the last entry
  T* mLimit = nullptr;     // and where its block ends
  ZR_U32 mBefore = 0;      // entries in the blocks in front of mLast
};

}  // namespace zrmp4
