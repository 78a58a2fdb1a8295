#pragma once

#include "base/table_array.h"
#include "track/track.h"

namespace zrmp4 {

// The tracks of a session in creation order, owned.
class TrackList {
 public:
  TrackList() = default;
  ~TrackList() { clear(); }

  // Makes sure that the next add finds its memory.
  bool reserve() { return mTracks.reserve(); }
  void add(Track* track) { mTracks.append(track); }

  bool contains(const Track* track) const {
    for (const Track* own : mTracks) {
      if (own == track) return true;
    }
    return false;
  }

  Track* at(ZR_U32 index) const {
    for (Track* own : mTracks) {
      if (index-- == 0) return own;
    }
    return nullptr;
  }

  ZR_U32 count() const { return mTracks.count(); }

  void clear() {
    for (Track* own : mTracks) delete own;
    mTracks.clear();
  }

  auto begin() const { return mTracks.begin(); }
  auto end() const { return mTracks.end(); }

 private:
  TableArray<Track*, 8> mTracks;
};

}  // namespace zrmp4
