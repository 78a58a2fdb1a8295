// Arbitrary frames into every kind of track. What was accepted is in the finished file, and repair finds the same in
// one that was not finished.
//
// Input: options, tracks less one, a byte for each track, then a control byte and the bytes of each frame or box.
#include <array>

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

std::string Difference(const TrackView& a, const TrackView& b) {
  if (a.duration != b.duration || a.entry != b.entry) return "another duration or codec";
  if (a.samples.size() != b.samples.size()) return std::to_string(b.samples.size()) + " samples";
  for (std::size_t i = 0; i < a.samples.size(); ++i) {
    const Sample& x = a.samples[i];
    const Sample& y = b.samples[i];
    if (x.offset != y.offset || x.size != y.size) return "sample " + std::to_string(i) + " elsewhere";
    if (x.time != y.time || x.duration != y.duration) return "sample " + std::to_string(i) + " at another time";
    // An empty key frame becomes a sync sample by repair alone.
    if (x.sync != y.sync && x.size != 0) return "sample " + std::to_string(i) + " with another key flag";
  }
  return "";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Session session = Decode(data, size);
  static MemoryFile file;
  const Outcome outcome = Play(session, file.path(), session.calls.size(), true);
  Require(outcome.status == 0, "cannot be finished");
  std::vector<std::size_t> accepted(session.tracks.size());
  for (std::size_t i = 0; i < session.calls.size(); ++i) {
    if (session.calls[i].track != Call::kBox && outcome.statuses[i] == 0) {
      ++accepted[static_cast<std::size_t>(session.calls[i].track)];
    }
  }
  const RecordedFile finished(file.path());
  Require(ProblemOf(finished).empty(), ProblemOf(finished));
  const std::vector<TrackView> tracks = finished.tracks();
  Require(tracks.size() == session.tracks.size(), "another number of tracks");
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    Require(tracks[i].samples.size() == accepted[i], "another number of frames in track " + std::to_string(i));
  }

  if (session.unit == 0 || accepted == std::vector<std::size_t>(accepted.size())) return 0;
  Play(session, file.path(), session.calls.size(), false);
  Require(ZR_MP4_RepairFile(file.path().c_str(), ZR_TRUE) == 0, "cannot be repaired");
  const RecordedFile repaired(file.path());
  Require(ProblemOf(repaired).empty(), "repaired: " + ProblemOf(repaired));
  const std::vector<TrackView> again = repaired.tracks();
  Require(again.size() == tracks.size(), "repaired with another number of tracks");
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    const std::string difference = Difference(tracks[i], again[i]);
    Require(difference.empty(), "repaired track " + std::to_string(i) + " has " + difference);
  }
  return 0;
}
