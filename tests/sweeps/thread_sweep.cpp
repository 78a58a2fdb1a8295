#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "tests/support/session.h"
#include "tests/sweeps/questions.h"
#include "tests/sweeps/sweep.h"

// As many handles as there may be, each with threads of its own.

namespace {

constexpr int kHandles = 32;
constexpr ZR_U64 kFrames = 70;
constexpr int kBoxes = 5;

zrMP4_TRACK_INFO_S TrackOf(int worker) {
  return worker % 3 == 0 ? VideoTrack() : worker % 3 == 1 ? AudioTrack() : MetaTrack();
}

Data FrameOf(int worker, ZR_U64 number) {
  const auto fill = static_cast<std::uint8_t>(1 + worker * 50 + static_cast<int>(number) % 50);
  if (worker % 3 != 0) return Data(3000 + number, fill);
  return number % 10 == 0 ? KeyFrame(9000, fill) : DeltaFrame(9000, fill);
}

// Queries between two frames may come side by side: all answer the same.
bool Agree(const Muxer& muxer) {
  const auto ask = [&] {
    Data movie(65536);
    zrMP4_ATOM_INFO_S box = {static_cast<ZR_U32>(movie.size()), "", movie.data()};
    movie.resize(ZR_MP4_GetAtom(muxer.handle(), "/moov", &box) == 0 ? box.u32DataLen : 0);
    return movie;
  };
  std::future<Data> other = std::async(std::launch::async, ask);
  const Data movie = ask();
  return !movie.empty() && other.get() == movie;
}

// Makes a track and fills it, among others that do the same or alone.
std::string Work(Muxer& muxer, int worker, bool alone) {
  const zrMP4_TRACK_INFO_S info = TrackOf(worker);
  ZR_MP4_TRACK_HANDLE track = 0;
  ZR_U8 text[100] = {};
  const zrMP4_ATOM_INFO_S box = {sizeof(text), "note", text};
  ZR_U32 status = ZR_MP4_CreateTrack(muxer.handle(), &track, &info);
  for (ZR_U64 k = 0; k < kFrames && status == 0; ++k) {
    status = muxer.write(track, FrameOf(worker, k), k * 40000, k % 10 == 0);
    if (status == 0 && k % (kFrames / kBoxes) == 0) status = ZR_MP4_AddAtom(muxer.handle(), "/moov", &box);
    if (status == 0 && alone && k % 10 == 5 && !Agree(muxer)) return "queries differ";
  }
  return status == 0 ? "" : At("status", status);
}

bool Holds(const RecordedFile& file, const TrackView& track, int worker) {
  if (track.samples.size() != kFrames) return false;
  for (ZR_U64 k = 0; k < kFrames; ++k) {
    const Data frame = FrameOf(worker, k);
    if (file.bytes(track.samples[k]) != (worker % 3 == 0 ? Stored(frame) : frame)) return false;
  }
  return true;
}

std::string ProblemOf(const std::string& path, int workers) {
  const RecordedFile file(path);
  const std::string problem = file.problem();
  if (!problem.empty()) return problem;
  const std::vector<TrackView> tracks = file.tracks();
  for (int worker = 0; worker < workers; ++worker) {
    const bool found = std::any_of(tracks.begin(), tracks.end(),
                                   [&](const TrackView& track) { return Holds(file, track, worker); });
    if (!found) return At("no track of thread", static_cast<std::uint64_t>(worker));
  }
  const std::vector<Record> records = file.records();
  const auto boxes = std::count_if(records.begin(), records.end(), [](const Record& one) { return one.kind == "user"; });
  if (boxes != workers * kBoxes) return "boxes are missing";
  ZR_MP4_HANDLE reader = 0;
  zrMP4_FILE_INFO_S info = {};
  const zrMP4_CONFIG_S config = DemuxerConfig(path);
  const bool read = ZR_MP4_Create(&reader, &config) == 0 && ZR_MP4_GetFileInfo(reader, &info) == 0 &&
                    ZR_MP4_Destroy(reader, nullptr) == 0 && info.u32TrackNum == static_cast<ZR_U32>(workers);
  return read ? "" : "the file does not read back";
}

// Records one file on some threads; all handles are open before any goes on.
std::string RecordOn(int handle, int workers, std::atomic<int>& open) {
  const MemoryFile file;
  const zrMP4_CONFIG_S config = MuxerConfig(file.path(), 524288);
  Muxer muxer(config);
  for (++open; open < kHandles;) std::this_thread::yield();
  zrMP4_PROC_MUXER_S* statistics = nullptr;
  if (muxer.status() != 0 || MP4_PROC_Add(&statistics, &config) != 0) return "no handle";
  std::vector<std::future<std::string>> work;
  for (int i = 0; i < workers; ++i) work.push_back(std::async(std::launch::async, Work, std::ref(muxer), i, workers == 1));
  std::string problem;
  for (std::future<std::string>& one : work) problem += one.get();
  MP4_PROC_UpdateWriteTime(config.aszFileName, static_cast<ZR_U64>(handle));
  MP4_PROC_Remove(statistics);
  if (!problem.empty()) return problem;
  // A track that came after the first frame is not repaired, so only the others are cut.
  const bool cut = workers == 1 && handle % 2 == 0;
  if (!cut) muxer.finish();
  const bool ended = muxer.destroy() == 0 && (!cut || ZR_MP4_RepairFile(file.path().c_str(), ZR_TRUE) == 0);
  return ended ? ProblemOf(file.path(), workers) : "the end failed";
}

}  // namespace

void Threads(Sweep& sweep) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(sweep.choose(20, 600));
  for (std::uint64_t round = 0; Clock::now() < end; ++round) {
    std::atomic<int> open{0};
    std::vector<std::future<std::string>> files;
    for (int i = 0; i < kHandles; ++i) {
      files.push_back(std::async(std::launch::async, RecordOn, i, i == 0 ? 4 : 1, std::ref(open)));
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
      sweep.attempt(At("round", round) + At(", handle", i), [&] { return files[i].get(); });
    }
  }
}
