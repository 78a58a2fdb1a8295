#pragma once

#include <string>

#include "bench/frames.h"
#include "bench/recorders.h"

namespace bench {

// Records over and over until so many bytes are written, and does not finish the file.
void RecordCut(const Workload& work, Recorder& recorder, const std::string& path, uint64_t bytes);

struct Loss {
  double mean = 0;
  double most = 0;
};
// Kills recordings in the middle, repairs them and counts the frames whose call had returned and that are gone.
Loss KillRecordings(const Workload& work, const Setup& setup, const std::string& path, int kills);

struct CardResult {
  bool ran = false;
  double lost = 0;     // seconds of video
  double longest = 0;  // seconds of a frame's call
};
// Records in real time on a file system on a slow block device, cuts the power after some seconds, and repairs what
// the device holds. Needs root, a loop device and a control group that throttles it; ran tells whether there were.
CardResult CutPower(const Workload& work, const std::string& recorder, double seconds, uint64_t bytesPerSecond);

// Frames in the first track of a finished file.
uint32_t CountFrames(const std::string& path);

}  // namespace bench
