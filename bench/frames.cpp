#include "bench/frames.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

constexpr uint32_t kAdtsHeader = 7;
constexpr uint32_t kGroup = 30;     // frames from one key frame to the next
constexpr uint32_t kKeyWeight = 5;  // a key frame against another one

class Random {
 public:
  uint64_t next() {
    mState ^= mState << 13;
    mState ^= mState >> 7;
    mState ^= mState << 17;
    return mState;
  }

 private:
  uint64_t mState = 0x9E3779B97F4A7C15;
};

void Fill(uint8_t* to, uint32_t size, Random& random) {
  for (uint32_t at = 0; at < size; at += 8) {
    const uint64_t word = random.next();
    std::memcpy(to + at, &word, std::min<uint32_t>(8, size - at));
  }
  // What an encoder escapes does not occur: two zeros and less than 4 behind them, or a zero at the end.
  uint8_t* const end = to + size;
  for (uint8_t* at = to; (at = static_cast<uint8_t*>(std::memchr(at, 0, static_cast<size_t>(end - at)))) != nullptr;
       ++at) {
    if (end - at <= 3) {
      *at = 0x55;
    } else if (at[1] == 0 && at[2] < 4) {
      at[2] = 0x80;
    }
  }
}

uint32_t HeadSize(Codec codec, bool key) {
  switch (codec) {
    case Codec::kH264:
    case Codec::kH265:
      return 6 + (key ? static_cast<uint32_t>(ParameterSets(codec).size()) : 0);
    case Codec::kProres:
      return 28;
    case Codec::kAac:
      return kAdtsHeader;
    case Codec::kMeta:
      return 0;
  }
  return 0;
}

void PutBe32(uint8_t* to, uint32_t value) {
  for (int i = 0; i < 4; ++i) to[i] = static_cast<uint8_t>(value >> 8 * (3 - i));
}

void WriteHead(const TrackSpec& track, bool key, uint8_t* to, uint32_t size) {
  if (track.codec == Codec::kH264 || track.codec == Codec::kH265) {
    if (key) {
      const std::vector<uint8_t>& sets = ParameterSets(track.codec);
      std::memcpy(to, sets.data(), sets.size());
      to += sets.size();
    }
    const uint8_t avc[] = {0, 0, 0, 1, static_cast<uint8_t>(key ? 0x65 : 0x41), 0x88};
    const uint8_t hevc[] = {0, 0, 0, 1, static_cast<uint8_t>(key ? 0x26 : 0x02), 0x01};
    std::memcpy(to, track.codec == Codec::kH264 ? avc : hevc, sizeof(avc));
  } else if (track.codec == Codec::kProres) {
    const uint8_t head[] = {0, 0, 0, 0, 'i', 'c', 'p', 'f', 0, 20, 0, 0, 'b', 'n', 'c', 'h',
                            0, 0, 0, 0, 0x80, 0, 1, 1, 1, 0, 0, 0};
    std::memcpy(to, head, sizeof(head));
    PutBe32(to, size);
    PutBe32(to + 16, track.width << 16 | track.height);
  } else if (track.codec == Codec::kAac) {
    // Low complexity, 48 kHz, stereo.
    const uint8_t head[] = {0xFF, 0xF1, 0x4C, static_cast<uint8_t>(0x80 | size >> 11), static_cast<uint8_t>(size >> 3),
                            static_cast<uint8_t>((size & 7) << 5 | 0x1F), 0xFC};
    std::memcpy(to, head, sizeof(head));
  }
}

struct Plan {
  const TrackSpec* track;
  uint32_t index;
  uint64_t written = 0;

  double perSecond() const { return track->codec == Codec::kAac ? track->rate / 1024.0 : track->rate; }
  uint64_t pts() const { return static_cast<uint64_t>(static_cast<double>(written) * 1e6 / perSecond()); }
  bool key() const {
    return track->codec == Codec::kProres || track->codec == Codec::kAac || written % kGroup == 0;
  }
  uint32_t size(Random& random) const {
    const double mean = track->bitRate / 8.0 / perSecond();
    if (track->codec != Codec::kH264 && track->codec != Codec::kH265) return static_cast<uint32_t>(mean);
    const double unit = mean * kGroup / (kGroup - 1 + kKeyWeight);
    const double jitter = 0.75 + static_cast<double>(random.next() % 1000) / 2000;
    return static_cast<uint32_t>(unit * (key() ? kKeyWeight : jitter));
  }
};

// Frames begin where an encoder's buffers do. Were they packed, a recorder that stores as many bytes as it gets would
// copy between addresses that are always the same distance apart, modulo a page, which some processors are slow at.
uint32_t Aligned(uint32_t size) { return (size + 63) / 64 * 64; }

}  // namespace

const std::vector<uint8_t>& ParameterSets(Codec codec) {
  static const std::vector<uint8_t> avc = {0,    0,    0,    1,    0x67, 0x64, 0x00, 0x1F, 0xAC, 0xD9, 0x40, 0x50,
                                           0x05, 0xBB, 0x01, 0x10, 0x00, 0x00, 0x03, 0x00, 0x10, 0x00, 0x00, 0x03,
                                           0x03, 0xC0, 0xF1, 0x83, 0x19, 0x60, 0,    0,    0,    1,    0x68, 0xEB,
                                           0xE3, 0xCB, 0x22, 0xC0};
  static const std::vector<uint8_t> hevc = {
      0,    0,    0,    1,    0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00,
      0x03, 0x00, 0x00, 0x03, 0x00, 0x3C, 0x95, 0x98, 0x09, 0,    0,    0,    1,    0x42, 0x01, 0x01, 0x01, 0x60, 0x00,
      0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x3C, 0xA0, 0x0A, 0x08, 0x0F, 0x16, 0x59, 0x59,
      0xA4, 0x93, 0x2B, 0xC0, 0x5A, 0x02, 0x00, 0x00, 0x03, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x32, 0x10, 0,    0,
      0,    1,    0x44, 0x01, 0xC1, 0x72, 0xB4, 0x62, 0x40};
  return codec == Codec::kH265 ? hevc : avc;
}

const std::vector<WorkloadSpec>& AllWorkloads() {
  static const std::vector<WorkloadSpec> all = {
      {"1080p30-2M", "1080p30, 2 Mbit/s", {{Codec::kH264, 30, 2000000}}, 480, 0},
      {"1080p30-8M", "1080p30, 8 Mbit/s", {{Codec::kH264, 30, 8000000}}, 150, 0},
      {"1080p60-25M", "1080p60, 25 Mbit/s", {{Codec::kH264, 60, 25000000}}, 50, 0},
      {"4K30-60M", "4K30, 60 Mbit/s", {{Codec::kH265, 30, 60000000, 3840, 2160}}, 20, 0},
      {"prores-hq", "ProRes HQ 1080p30", {{Codec::kProres, 30, 220000000}}, 6, 0},
      {"million", "a million samples of 100 bytes", {{Codec::kH264, 1000, 800000}}, 1000, 100},
      {"four-tracks",
       "two videos, audio, metadata",
       {{Codec::kH264, 30, 8000000}, {Codec::kH264, 30, 2000000}, {Codec::kAac, 48000, 128000},
        {Codec::kMeta, 30, 24000}},
       120,
       0},
  };
  return all;
}

Workload MakeWorkload(const std::string& name, double scale) {
  const auto& all = AllWorkloads();
  const auto spec = std::find_if(all.begin(), all.end(), [&](const WorkloadSpec& one) { return name == one.name; });
  if (spec == all.end()) {
    std::fprintf(stderr, "no workload %s\n", name.c_str());
    std::exit(2);
  }
  Workload work;
  work.name = spec->name;
  work.title = spec->title;
  work.tracks = spec->tracks;
  std::vector<Plan> plans;
  for (uint32_t i = 0; i < work.tracks.size(); ++i) plans.push_back({&work.tracks[i], i});
  Random random;
  uint64_t poolSize = 0;
  const uint64_t end = static_cast<uint64_t>(spec->seconds * scale * 1e6);
  for (;;) {
    Plan& plan =
        *std::min_element(plans.begin(), plans.end(), [](const Plan& a, const Plan& b) { return a.pts() < b.pts(); });
    if (plan.pts() >= end) break;
    const uint32_t least = HeadSize(plan.track->codec, plan.key()) + 4;
    const uint32_t size = std::max(least, spec->frameSize != 0 ? spec->frameSize : plan.size(random));
    work.frames.push_back({nullptr, size, plan.index, plan.pts(), plan.key()});
    work.bytes += size;
    poolSize += Aligned(size);
    ++plan.written;
  }
  work.pool.reset(new uint8_t[poolSize]);
  uint8_t* at = work.pool.get();
  for (Frame& frame : work.frames) {
    const TrackSpec& track = work.tracks[frame.track];
    const uint32_t head = HeadSize(track.codec, frame.key);
    frame.data = at;
    WriteHead(track, frame.key, at, frame.size);
    Fill(at + head, frame.size - head, random);
    at += Aligned(frame.size);
  }
  return work;
}

}  // namespace bench
