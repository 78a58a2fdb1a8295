#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "engine/mp4_file.h"

namespace zrmp4 {

// The live handles of the process, in creation order. It owns the engines from add to remove, and lives as long as
// the process does: handles that were never destroyed are not torn down under threads that still use them.
class MuxerRegistry {
  struct Link {
    Link* next;
    Link* previous;
  };

 public:
  static constexpr ZR_S32 MAX_COUNT = 32;

  // An engine together with its place in the list, so that a file that was opened can always be registered.
  struct Muxer : Link {
    MP4File file;
  };

  static MuxerRegistry& instance();

  // Serialises the calls that add boxes or tear a muxer down. Taken before the registry's own lock, never after.
  std::mutex& interfaceLock() { return mInterfaceLock; }

  // A soft limit: read without the lock, so that creations at the same moment may pass it together.
  bool full() const { return mCount >= MAX_COUNT; }

  // The handle of a muxer that is registered from here on.
  ZR_MP4_HANDLE add(std::unique_ptr<Muxer> muxer);
  // The engine of a handle, or null. The lookup does not pin it: a handle must not be destroyed while it is used.
  MP4File* find(ZR_MP4_HANDLE handle);
  // Unregisters and deletes.
  void remove(ZR_MP4_HANDLE handle);

 private:
  constexpr MuxerRegistry() : mList{&mList, &mList} {}

  Muxer* locate(ZR_MP4_HANDLE handle) const;

  std::mutex mInterfaceLock;
  std::mutex mLock;  // the list and the count
  Link mList;        // circular, this is its head
  std::atomic<ZR_S32> mCount{0};
};

}  // namespace zrmp4
