#include "box/sample_tables.h"

#include <cstring>

#include "base/make_or_null.h"
#include "box/child_types.h"
#include "box/stsd_atom.h"

namespace zrmp4 {
namespace {

// The buffer of one bulk read: words that are swapped in place before they become entries.
template <typename Word>
using Words = std::unique_ptr<Word[]>;

void SwapWords(ZR_U32* words, ZR_U32 count) { IOStream::swapArrayOfBe32(words, count); }
void SwapWords(ZR_U64* words, ZR_U32 count) { IOStream::swapArrayOfBe64(words, count); }

// A whole table of size bytes in one transfer, in host order; null when it cannot be had. A size beyond left is
// refused before any memory is taken for it.
template <typename Word>
Words<Word> ReadTableFromStream(IOStream* stream, ZR_U32 size, ZR_U64 left, const char* name) {
  if (size > left) return ZR_FAIL(nullptr, "read %u bytes to %s buf failed\n", size, name);
  const ZR_U32 count = size / static_cast<ZR_U32>(sizeof(Word));
  Words<Word> words = MakeArrayOrNull<Word>(count);
  if (words == nullptr) return ZR_FAIL(nullptr, "malloc %u bytes for building %s failed\n", size, name);
  if (stream->readBytes(reinterpret_cast<ZR_U8*>(words.get()), size) != size) {
    return ZR_FAIL(nullptr, "read %u bytes to %s buf failed\n", size, name);
  }
  SwapWords(words.get(), count);
  return words;
}

// What an entry consists of on disk.
template <typename Entry>
struct WordOf {
  using Type = ZR_U32;
};
template <>
struct WordOf<ZR_U64> {
  using Type = ZR_U64;
};

bool WriteWords(FieldIo& io, const ZR_U32* words, ZR_U32 count) {
  IOStream* stream = io.stream();
  return stream->writeArrayOfBe32(words, count) == static_cast<ZR_U64>(count) * 4 ||
         ZR_IO_FAIL(false, "offset:%lld, writeBe32 fail\n", static_cast<long long>(stream->getCurPos()));
}

bool WriteWords(FieldIo& io, const ZR_U64* words, ZR_U32 count) {
  IOStream* stream = io.stream();
  return stream->writeArrayOfBe64(words, count) == static_cast<ZR_U64>(count) * 8 ||
         ZR_IO_FAIL(false, "offset:%lld, writeBe64 fail\n", static_cast<long long>(stream->getCurPos()));
}

// A run of entries that are more than one word each.
template <typename Run>
bool WriteRuns(FieldIo& io, const Run* runs, ZR_U32 count) {
  ZR_U32 words[kRunsPerBlock * (sizeof(Run) / 4)];
  std::memcpy(words, runs, count * sizeof(Run));
  return WriteWords(io, words, count * static_cast<ZR_U32>(sizeof(Run) / 4));
}

bool WriteWords(FieldIo& io, const SttsEntry* runs, ZR_U32 count) { return WriteRuns(io, runs, count); }
bool WriteWords(FieldIo& io, const StscEntry* runs, ZR_U32 count) { return WriteRuns(io, runs, count); }

// Entry number no, or null.
template <typename Entry, unsigned kBlockEntries>
const Entry* EntryByNumber(const TableArray<Entry, kBlockEntries>& entries, ZR_U32 no) {
  if (no == 0) return nullptr;
  const Entry* found = nullptr;
  entries.forEachRun([&](const Entry* run, ZR_U32 count) {
    if (no <= count) found = &run[no - 1];
    no -= count;
    return found == nullptr;
  });
  return found;
}

// The number of the first entry at or behind the offset, 0 when none is.
template <typename Entries>
ZR_U32 NumberReaching(const Entries& offsets, ZR_U64 offset) {
  ZR_U32 no = 1;
  for (const auto& entry : offsets) {
    if (entry >= offset) return no;
    ++no;
  }
  return 0;
}

}  // namespace

Atom* StblAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {
      {"stsd", NewChild<StsdAtom>}, {"stts", NewChild<SttsAtom>}, {"stsc", NewChild<StscAtom>},
      {"stsz", NewChild<StszAtom>}, {"stss", NewChild<StssAtom>}, {"stco", NewChild<StcoAtom>},
      {"co64", NewChild<Co64Atom>},
  };
  return ReadChildOf(stream, kChildren);
}

template <typename Entry, unsigned kBlockEntries>
int TableAtom<Entry, kBlockEntries>::readData(IOStream* stream) {
  using Word = typename WordOf<Entry>::Type;
  FieldIo io = FieldIo::Reading(stream);
  ZR_U32 count = 0;
  if (!io.ok() || !io.versionAndFlags(mVersion, mFlags) || !fieldsBeforeCount(io) || !io.be32(count)) return -1;
  if (count == 0) {
    ZR_NOTE(1, "no entry in %s\n", type().c_str());
    return 0;
  }
  if (!acceptsCount(count)) return -1;

  const Words<Word> words =
      ReadTableFromStream<Word>(stream, count * kEntrySize, header().Remaining(stream), type().c_str());
  if (words == nullptr) return -1;
  const Word* word = words.get();
  for (ZR_U32 i = 0; i < count; ++i, word += sizeof(Entry) / sizeof(Word)) {
    Entry entry;
    std::memcpy(&entry, word, sizeof(Entry));
    if (!mEntries.append(entry)) {
      mEntries.clear();
      failGrowth();
      return -1;
    }
  }
  return 0;
}

template <typename Entry, unsigned kBlockEntries>
int TableAtom<Entry, kBlockEntries>::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  ZR_U32 count = mEntries.count();
  if (!io.ok() || !io.versionAndFlags(mVersion, mFlags) || !fieldsBeforeCount(io) || !io.be32(count)) return -1;
  return mEntries.forEachRun([&](const Entry* run, ZR_U32 n) { return WriteWords(io, run, n); }) ? 0 : -1;
}

template class TableAtom<SttsEntry, kRunsPerBlock>;
template class TableAtom<StscEntry, kRunsPerBlock>;
template class TableAtom<ZR_U32, kEntriesPerBlock>;
template class TableAtom<ZR_U64, kEntriesPerBlock>;

bool SttsAtom::acceptsCount(ZR_U32 count) const {
  return count <= (0xFFFFFFFFu - header().size) / kEntrySize || ZR_FAIL(false, "stts entry count err\n");
}

ZR_U64 SttsAtom::totalDuration() const {
  ZR_U64 total = 0;
  // Deliberate: the product wraps in 32 bits, only the sum is wide.
  for (const SttsEntry& run : entries()) total += run.sampleCount * run.sampleDelta;
  return total;
}

ZR_U64 StszAtom::TotalSampleSize() const {
  ZR_U64 total = 0;
  for (const ZR_U32 size : entries()) total += size;
  return total;
}

ZR_U32 StszAtom::getSizeByNO(ZR_U32 no) const {
  const ZR_U32* size = EntryByNumber(entries(), no);
  if (size == nullptr) return 0;
  ZR_NOTE(0, "frame no %u frame size %u\n", no, *size);
  return *size;
}

void StcoAtom::getPosByNO(ZR_U32 no, ZR_U64* position) const {
  if (position == nullptr) return LogNullArgument("getPosByNO");
  const ZR_U32* offset = EntryByNumber(entries(), no);
  // Deliberate: a miss leaves the position alone here, and sets it to 0 in the 64-bit table.
  if (offset != nullptr) *position = *offset;
}

void StcoAtom::getFramePos(ZR_U32 startNo, ZR_U32 endNo, ZR_U64* startAddr, ZR_U32* dataLen) const {
  if (startAddr == nullptr || dataLen == nullptr) return LogNullArgument("getFramePos");
  const bool wanted = *startAddr == 0;
  ZR_U32 start = 0;  // Deliberate: stays 0 when the caller brought a start address
  ZR_U32 no = 0;
  for (const ZR_U32 offset : entries()) {
    ++no;
    if (no == startNo && wanted) {
      start = offset;
      *startAddr = offset;
      ZR_NOTE(0, "start addr %llu startNo %u frameNumber %u \n", static_cast<unsigned long long>(*startAddr), startNo,
              no);
    }
    if (no == endNo) {
      *dataLen = offset - start;
      ZR_NOTE(0, "end  addr %u  datalen %u endno %u frameNumber %u\n", offset, *dataLen, endNo, no);
      return;
    }
  }
}

ZR_U32 StcoAtom::getNextFrameNoByOffset(ZR_U64 offset) const {
  const ZR_U32 no = NumberReaching(entries(), offset);
  // Deliberate: behind the last chunk the answer is the last one here, and 0 in the 64-bit table.
  if (no == 0) return entries().count();
  ZR_NOTE(0, "next frame offset %llu frame no %u \n", static_cast<unsigned long long>(offset), no);
  return no;
}

ZR_U32 StcoAtom::getLastFrameNoByOffset(ZR_U64 offset) const {
  const ZR_U32 no = NumberReaching(entries(), offset);
  if (no == 0) return entries().count();
  ZR_NOTE(0, "last+1 frame offset %llu frame no %u \n", static_cast<unsigned long long>(offset), no);
  return no - 1;
}

void Co64Atom::getPosByNO(ZR_U32 no, ZR_U64* position) const {
  if (position == nullptr) return LogNullArgument("getPosByNO");
  const ZR_U64* offset = EntryByNumber(entries(), no);
  *position = offset != nullptr ? *offset : 0;
  if (offset == nullptr) ZR_NOTE(0, "co64::getPosByNO fail\n");
}

ZR_U32 Co64Atom::getNextFrameNoByOffset(ZR_U64 offset) const {
  const ZR_U32 no = NumberReaching(entries(), offset);
  if (no == 0) return 0;
  ZR_NOTE(0, "next frame offset %llu frame no %u\n", static_cast<unsigned long long>(offset), no);
  return no;
}

ZR_U32 Co64Atom::getLastFrameNoByOffset(ZR_U64 offset) const {
  const ZR_U32 no = NumberReaching(entries(), offset);
  if (no == 0) return entries().count();
  ZR_NOTE(0, "next frame offset %llu frame no %u\n", static_cast<unsigned long long>(offset), no);
  return no - 1;
}

void StssAtom::getIFrameNumber(ZR_U32* no) const {
  if (no == nullptr) return LogNullArgument("getIFrameNumber");
  for (const ZR_U32 sync : entries()) {
    if (sync < *no) continue;
    *no = sync;
    return;
  }
}

}  // namespace zrmp4
