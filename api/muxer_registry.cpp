#include "api/muxer_registry.h"

#include <type_traits>

namespace zrmp4 {
namespace {

ZR_MP4_HANDLE HandleOf(const MP4File* file) { return reinterpret_cast<ZR_MP4_HANDLE>(file); }

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
  return HandleOf(&last->file);
}

MP4File* MuxerRegistry::find(ZR_MP4_HANDLE handle) {
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
}

MuxerRegistry::Muxer* MuxerRegistry::locate(ZR_MP4_HANDLE handle) const {
  for (Link* link = mList.next; link != &mList; link = link->next) {
    Muxer* muxer = static_cast<Muxer*>(link);
    if (HandleOf(&muxer->file) == handle) return muxer;
  }
  return nullptr;
}

}  // namespace zrmp4
