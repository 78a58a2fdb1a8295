#include <algorithm>
#include <cmath>

#include "tests/support/session.h"
#include "tests/sweeps/questions.h"
#include "tests/sweeps/sweep.h"
#include "tests/sweeps/system_calls.h"

// A day on six tracks: a million small samples, and large ones that take the file far beyond 4 GiB.

namespace {

constexpr ZR_U64 kSteps = 1000000;
constexpr ZR_U64 kStep = 86400;  // microseconds
constexpr ZR_U32 kUnit = 16u << 20;

struct DayTrack {
  zrMP4_TRACK_INFO_S info;
  ZR_U64 every;  // steps
  Data key;
  Data delta;
};

// Sound whose frames last so many steps.
zrMP4_TRACK_INFO_S Sound(zrMP4_CODECID_E codec, ZR_U64 steps) {
  zrMP4_TRACK_INFO_S track = AudioTrack(codec);
  track.stAudioInfo.u32SamplePerFrame = static_cast<ZR_U32>(steps * kStep * track.u32TimeScale / 1000000);
  return track;
}

std::vector<DayTrack> DayTracks() {
  const Data prores = {0, 0, 0, 32, 'i', 'c', 'p', 'f', 0, 20, 0, 0, 't', 'e', 's', 't', 2, 128, 1, 104, 0x80,
                       0, 1, 1, 1, 0, 0, 0, 5, 5, 5, 5};
  return {{MetaTrack(), 1, Data(1, 9), Data(1, 9)},
          {MetaTrack(), 23, Data(131072, 5), Data(131072, 5)},
          {VideoTrack(), 13, KeyFrame(), DeltaFrame()},
          {Sound(ZR_MP4_CODEC_AAC, 12), 12, AacFrame(), AacFrame()},
          {Sound(ZR_MP4_CODEC_G711A, 100), 100, Data(800, 3), Data(800, 3)},
          {VideoTrack(ZR_MP4_CODEC_PRORES_HQ), 701, prores, prores}};
}

// Not steady: a single run could not last a day.
ZR_U64 TimeOf(ZR_U64 step) { return step * kStep + step % 2 * 2000; }

ZR_U32 RecordDay(const std::string& path, const std::vector<DayTrack>& tracks, bool finish) {
  zrMP4_CONFIG_S config = MuxerConfig(path, kUnit);
  config.stMuxerConfig.bCo64Flag = ZR_TRUE;
  Muxer muxer(config);
  std::vector<ZR_MP4_TRACK_HANDLE> handles;
  for (const DayTrack& track : tracks) handles.push_back(muxer.add(track.info));
  ZR_U32 status = muxer.status();
  for (ZR_U64 step = 0; step < kSteps && status == 0; ++step) {
    for (std::size_t i = 0; i < tracks.size() && status == 0; ++i) {
      if (step % tracks[i].every != 0) continue;
      const bool key = step / tracks[i].every % 50 == 0;
      const Data& data = key ? tracks[i].key : tracks[i].delta;
      const zrMP4_FRAME_DATA_S frame = {TimeOf(step), const_cast<ZR_U8*>(data.data()),
                                        static_cast<ZR_U32>(data.size()), key};
      status = ZR_MP4_WriteFrame(muxer.handle(), handles[i], &frame);
    }
  }
  if (finish) muxer.finish();
  const ZR_U32 ended = muxer.destroy();
  return status != 0 ? status : ended;
}

std::string ProblemOf(const RecordedFile& file, const TrackView& track, const DayTrack& recorded) {
  const ZR_U64 count = (kSteps + recorded.every - 1) / recorded.every;
  if (track.samples.size() != count) return At("samples:", track.samples.size());
  for (ZR_U64 i = 0; i < count; ++i) {
    const Sample& sample = track.samples[i];
    const double time = recorded.info.enTrackType == ZR_MP4_TRACK_AUDIO
                            ? static_cast<double>(i * recorded.info.stAudioInfo.u32SamplePerFrame)
                            : static_cast<double>(TimeOf(i * recorded.every)) * track.timeScale / 1e6;
    const bool key = !track.tables.hasSyncs || i % 50 == 0;
    const double off = std::fabs(static_cast<double>(sample.time) - time) / track.timeScale;
    if (off > 0.005 || sample.sync != key) return At("sample", i);
    // Every sample stands behind its private header.
    if (i % 977 != 0 && i + 1 != count) continue;
    if (file.number(sample.offset - 20, 4) != track.id || file.number(sample.offset - 4, 4) != sample.size) {
      return At("no record of sample", i);
    }
  }
  const std::uint64_t end = track.samples.back().offset;
  return end > std::uint64_t{5} << 30 ? "" : At("ends at", end);
}

std::string ProblemOf(const std::string& path, const std::vector<DayTrack>& recorded) {
  const RecordedFile file(path);
  const std::string problem = file.problem();
  if (!problem.empty()) return problem;
  const std::vector<TrackView> tracks = file.tracks();
  for (std::size_t i = 0; i < recorded.size(); ++i) {
    const std::string wrong = i < tracks.size() ? ProblemOf(file, tracks[i], recorded[i]) : "missing";
    if (!wrong.empty()) return At("track", i) + ": " + wrong;
  }
  const std::uint64_t mvhd = file.find("moov/mvhd")->payload();
  const std::uint64_t seconds = file.number(mvhd + 16, 4) / file.number(mvhd + 12, 4);
  return seconds > 86300 && seconds < 86500 ? "" : At("movie of seconds:", seconds);
}

}  // namespace

void Long(Sweep& sweep) {
  const std::vector<DayTrack> tracks = DayTracks();
  const auto day = [&](const std::string& state, const std::string& path, bool finish) {
    sweep.attempt(state, [&] {
      const ZR_U32 status = RecordDay(path, tracks, finish);
      const bool good = status == 0 && (finish || ZR_MP4_RepairFile(path.c_str(), ZR_TRUE) == 0);
      return good ? ProblemOf(path, tracks) : At("status", status);
    });
  };
  {
    SystemCalls calls;
    calls.keepOnlyHeaders();
    day("finished", MemoryFile().path(), true);
    day("cut", MemoryFile().path(), false);
    // A repair reads little of what it repairs.
    const MemoryFile file;
    sweep.attempt("read by a repair", [&] {
      RecordDay(file.path(), tracks, false);
      const std::uint64_t before = calls.bytesRead();
      ZR_MP4_RepairFile(file.path().c_str(), ZR_TRUE);
      const std::uint64_t read = calls.bytesRead() - before;
      return read < RecordedFile(file.path()).size() / 100 ? "" : At("bytes:", read);
    });
  }
  if (sweep.full()) day("on a disk", TempFile().path(), false);
}
