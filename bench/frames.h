#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bench {

enum class Codec { kH264, kH265, kProres, kAac, kMeta };

struct TrackSpec {
  Codec codec;
  uint32_t rate;     // frames per second; of audio, samples per second
  uint32_t bitRate;  // bits per second
  uint32_t width = 1920;
  uint32_t height = 1080;
};

struct Frame {
  uint8_t* data;
  uint32_t size;
  uint32_t track;
  uint64_t pts;  // microseconds
  bool key;
};

// Encoded frames in memory, in the order of recording, as all recorders get them. The bytes are
// random, with the emulation prevention of a real stream; head holds a track's parameter sets with start codes.
struct Workload {
  std::string name;
  std::string title;
  std::vector<TrackSpec> tracks;
  std::vector<Frame> frames;
  uint64_t bytes = 0;
  std::unique_ptr<uint8_t[]> pool;
};

struct WorkloadSpec {
  const char* name;
  const char* title;
  std::vector<TrackSpec> tracks;
  double seconds;
  uint32_t frameSize;  // of every frame, or 0 for the bit rate's
};

const std::vector<WorkloadSpec>& AllWorkloads();
// scale shortens it.
Workload MakeWorkload(const std::string& name, double scale);

// SPS and PPS, with VPS for H.265, behind start codes.
const std::vector<uint8_t>& ParameterSets(Codec codec);

}  // namespace bench
