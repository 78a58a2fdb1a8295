#include "api/muxer_registry.h"

#include <type_traits>

namespace zrmp4 {
namespace {

ZR_MP4_HANDLE HandleOf(const MP4File* file) { return reinterpret_cast<ZR_MP4_HANDLE>(file); }

MP4File* FileOf(ZR_MP4_HANDLE handle) { return reinterpret_cast<MP4File*>(handle); }

}  // namespace

MuxerRegistry& MuxerRegistry::instance() {
  static MuxerRegistry registry;
  static_assert(std::is_trivially_destructible<MuxerRegistry>::value, "it outlives the end of main");
  return registry;
}

ZR_MP4_HANDLE MuxerRegistry::add(std::unique_ptr<Muxer> muxer) {
  const std::lock_guard<std::mutex> guard(mLock);
  Muxer* last = muxer.release();
  last->previous = mList.previous;
  last->next = &mList;
  last->previous->next = last;
  mList.previous = last;
  ++mCount;
  replaceSlot(0, HandleOf(&last->file));
  return HandleOf(&last->file);
}

MP4File* MuxerRegistry::find(ZR_MP4_HANDLE handle) {
  for (const auto& slot : mSlots) {
    if (slot.load(std::memory_order_acquire) == handle) return FileOf(handle);
  }
  const std::lock_guard<std::mutex> guard(mLock);
  Muxer* muxer = locate(handle);
  return muxer != nullptr ? &muxer->file : nullptr;
}

void MuxerRegistry::remove(ZR_MP4_HANDLE handle) {
  std::unique_ptr<Muxer> removed;  // deleted after the lock is released
  const std::lock_guard<std::mutex> guard(mLock);
  removed.reset(locate(handle));
  if (removed == nullptr) return;
  removed->previous->next = removed->next;
  removed->next->previous = removed->previous;
  --mCount;
  replaceSlot(handle, 0);
}

// The first slot that holds the one handle, if there is any, holds the other from here on.
void MuxerRegistry::replaceSlot(ZR_MP4_HANDLE from, ZR_MP4_HANDLE to) {
  for (auto& slot : mSlots) {
    if (slot.load(std::memory_order_relaxed) != from) continue;
    slot.store(to, std::memory_order_release);
    return;
  }
}

MuxerRegistry::Muxer* MuxerRegistry::locate(ZR_MP4_HANDLE handle) const {
  for (Link* link = mList.next; link != &mList; link = link->next) {
    Muxer* muxer = static_cast<Muxer*>(link);
    if (HandleOf(&muxer->file) == handle) return muxer;
  }
  return nullptr;
}

}  // namespace zrmp4
