#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bench/frames.h"

namespace bench {

// Something that takes the frames of a workload into a file.
class Recorder {
 public:
  virtual ~Recorder() = default;
  virtual void open(const Workload& work, const std::string& path) = 0;
  virtual void write(const Frame& frame) = 0;
  // Makes the file playable.
  virtual void finish() {}
  virtual void close() = 0;
};

// How the library is set up for a run.
struct Setup {
  uint32_t backupUnit = 0;
  bool sync = false;
  bool co64 = false;
  uint32_t buffer = 1u << 20;
  uint32_t preAlloc = 0;
};

// "raw", "writev", "floor", "lavf", "lavf-frag", "zrmp4", "zrmp4-backup", "zrmp4-sync" (backups and syncing),
// "zrmp4-co64" (backups, 64-bit offsets), "zrmp4-64k" (backups, a buffer of 64 KiB).
std::unique_ptr<Recorder> MakeRecorder(const std::string& name);
std::unique_ptr<Recorder> MakeZrmp4(const Setup& setup);

// Opens and closes a finished file for reading; false when the recorder's format has no reader here.
bool OpenForReading(const std::string& recorder, const std::string& path);

}  // namespace bench
