// Arbitrary frames into every kind of track. What was accepted is in the finished file, and repair finds the same in
// one that was not finished.
//
// Input: options, tracks less one, a byte for each track, then a control byte and the bytes of each frame or box.
#include <array>
#include <sstream>

#include "engine/mp4_file.h"
#include "fuzz/fuzz.h"

namespace {

constexpr zrMP4_CODECID_E kVideo[] = {ZR_MP4_CODEC_H264, ZR_MP4_CODEC_H265, ZR_MP4_CODEC_PRORES_HQ};
constexpr zrMP4_CODECID_E kAudio[] = {ZR_MP4_CODEC_AAC, ZR_MP4_CODEC_MP3, ZR_MP4_CODEC_G711A, ZR_MP4_CODEC_G711U};

Session Decode(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  Session session;
  const unsigned options = in.byte();
  session.wide = options & 1u;
  session.constantRate = options >> 1 & 1u;
  session.unit = std::array<ZR_U32, 4>{8192, 4096, 0, 32768}[options >> 2 & 3u];
  session.preAlloc = options & 0x10u ? 20000 : 0;
  session.buffer = options & 0x20u ? 1 : 65536;
  for (unsigned left = in.byte() % 6 + 1; left > 0; --left) {
    const unsigned kind = in.byte();
    zrMP4_TRACK_INFO_S track = kind % 8 < 3   ? VideoTrack(kVideo[kind % 8])
                               : kind % 8 < 7 ? AudioTrack(kAudio[kind % 8 - 3])
                                              : MetaTrack();
    track.fSpeed = std::array<float, 4>{1, 0.25f, 4, 1e-3f}[kind >> 3 & 3u];
    if (kind & 0x20u) track.u32TimeScale = 1000;
    session.tracks.push_back(track);
  }
  constexpr ZR_S64 kSteps[] = {40000, 0, 1, -30000, 999999, 70000000, -5000000};  // microseconds
  ZR_U64 time = 3600000000;
  while (!in.empty()) {
    const unsigned control = in.byte();
    const auto track = static_cast<int>(control % 8);
    const unsigned step = control >> 4 & 7u;
    time += static_cast<ZR_U64>(step < 7 ? kSteps[step] : static_cast<ZR_S64>(in.number(2)));
    if (track < static_cast<int>(session.tracks.size())) {
      session.calls.push_back({track, in.bytes(), time, (control & 8u) != 0, {}});
    } else if (track == 7) {
      session.calls.push_back({Call::kBox, in.bytes(), 0, false, control & 8u ? "/" : "/moov/trak[0]"});
    }
  }
  return session;
}

// What a player is told of the tracks. An empty key frame becomes a sync sample by repair alone.
std::string Told(const RecordedFile& file) {
  std::ostringstream text;
  for (const TrackView& track : file.tracks()) {
    text << "a track of " << track.entry << " lasts " << track.duration << '\n';
    for (const Sample& sample : track.samples) {
      text << sample.offset << '+' << sample.size << " at " << sample.time << '/' << sample.duration
           << (sample.sync && sample.size != 0 ? " key\n" : "\n");
    }
  }
  return text.str();
}

bool EndsInZeros(const Data& data) {
  constexpr std::ptrdiff_t kFewestOfPage = 8;
  const auto written = std::find_if(data.rbegin(), data.rend(), [](ZR_U8 byte) { return byte != 0; });
  return written - data.rbegin() >= kFewestOfPage;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Session session = Decode(data, size);
  static MemoryFile file;
  const Outcome outcome = Play(session, file.path(), session.calls.size(), true);
  Require(outcome.status == 0, "cannot be finished");
  std::vector<std::size_t> accepted(session.tracks.size());
  const Data* last = nullptr;
  for (std::size_t i = 0; i < session.calls.size(); ++i) {
    const int track = session.calls[i].track;
    if (track == Call::kBox || outcome.statuses[i] != 0) continue;
    ++accepted[static_cast<std::size_t>(track)];
    last = &session.calls[i].data;
  }
  const RecordedFile finished(file.path());
  Require(ProblemOf(finished).empty(), ProblemOf(finished));
  std::vector<std::size_t> found;
  for (const TrackView& track : finished.tracks()) found.push_back(track.samples.size());
  Require(found == accepted, "another number of tracks or frames");
  const std::string told = Told(finished);

  if (session.unit == 0 || last == nullptr) return 0;
  // Zeros at the end of a file may be a page that never reached the disk.
  if (EndsInZeros(*last)) return 0;
  Play(session, file.path(), session.calls.size(), false);
  Require(ZR_MP4_RepairFile(file.path().c_str(), ZR_TRUE) == 0, "cannot be repaired");
  const RecordedFile repaired(file.path());
  Require(ProblemOf(repaired).empty(), "repaired: " + ProblemOf(repaired));
  Require(Told(repaired) == told, "repaired:\n" + Told(repaired) + "but finished:\n" + told);
  return 0;
}
