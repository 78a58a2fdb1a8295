#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zr_mp4.h"

namespace tool {

// A file opened for reading through the library. What cannot be opened is a Failure.
class Reader {
 public:
  explicit Reader(const std::string& file);
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  ZR_MP4_HANDLE handle() const { return mHandle; }
  // The payload of a box: 0, or the status that says why there is none.
  ZR_U32 payload(const std::string& path, std::vector<ZR_U8>& bytes) const;

 private:
  ZR_MP4_HANDLE mHandle = 0;
};

// What the sample tables of a track say.
struct TrackContent {
  std::string type = "unknown";  // or "video", "audio", "meta"
  uint64_t frames = 0;
  uint64_t keyFrames = 0;
  double seconds = 0;
};

std::vector<TrackContent> ReadTracks(const std::string& file);

// The chain of a file's outermost boxes.
struct FileLayout {
  uint64_t size = 0;
  uint64_t mediaEnd = 0;    // where the media data ends, 0 without any
  bool isFinished = false;  // the chain ends with the file, and a movie box is in it
};

FileLayout ReadLayout(const std::string& file);

}  // namespace tool
