#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "tools/box_reader.h"
#include "tools/commands.h"
#include "tools/file_words.h"
#include "tools/status.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Tells on a terminal how long a repair has been running, while it runs.
class Progress {
 public:
  Progress(const std::string& file, uint64_t size) {
    if (::isatty(STDERR_FILENO) == 0) return;
    mThread = std::thread([this, file, size] { show(file, size); });
  }
  ~Progress() {
    {
      std::lock_guard<std::mutex> guard(mLock);
      mDone = true;
    }
    mChanged.notify_all();
    if (mThread.joinable()) mThread.join();
  }

 private:
  void show(const std::string& file, uint64_t size) {
    const Clock::time_point start = Clock::now();
    std::unique_lock<std::mutex> guard(mLock);
    while (!mChanged.wait_for(guard, std::chrono::milliseconds(250), [this] { return mDone; }))
      std::fprintf(stderr, "\r\033[K%s: repairing %" PRIu64 " MiB, %.0f s", file.c_str(), size >> 20,
                   SecondsSince(start));
    std::fprintf(stderr, "\r\033[K");
  }

  std::mutex mLock;
  std::condition_variable mChanged;
  bool mDone = false;
  std::thread mThread;
};

struct RepairResult {
  std::string file;
  const char* outcome = "failed";
  std::string error;
  uint64_t kept = 0;  // bytes up to the end of the media data
  uint64_t dropped = 0;
  double seconds = 0;
  std::vector<TrackContent> tracks;
};

void RepairOne(RepairResult& result, bool extraFrames) {
  const FileLayout before = ReadLayout(result.file);
  if (!before.isFinished) {
    const Clock::time_point start = Clock::now();
    {
      const Progress progress(result.file, before.size);
      Check(result.file, ZR_MP4_RepairFile(result.file.c_str(), extraFrames ? ZR_TRUE : ZR_FALSE));
    }
    result.seconds = SecondsSince(start);
  }
  // What the library leaves alone though its end is missing: a file with the movie box in front.
  const FileLayout after = ReadLayout(result.file);
  const bool leftAlone = before.isFinished || !after.isFinished;
  result.kept = leftAlone ? before.size : after.mediaEnd;
  result.dropped = before.size > result.kept ? before.size - result.kept : 0;
  result.outcome = leftAlone ? "finished" : "repaired";
  try {
    result.tracks = ReadTracks(result.file);
  } catch (const Failure& failure) {
    // A file that plays may have more than the library reads back: more than ten tracks, say.
    Warn(failure.what());
  }
}

void PrintText(const RepairResult& result) {
  if (!result.error.empty()) return Warn(result.error);
  if (result.outcome == std::string("finished"))
    std::printf("%s: is a finished file, left alone\n", result.file.c_str());
  else
    std::printf("%s: repaired in %.3f s, %" PRIu64 " bytes kept, %" PRIu64 " dropped\n", result.file.c_str(),
                result.seconds, result.kept, result.dropped);
  for (size_t i = 0; i < result.tracks.size(); ++i) {
    const TrackContent& track = result.tracks[i];
    std::printf("  track %zu: %s, %" PRIu64 " frames, %" PRIu64 " key frames, %.3f s\n", i, track.type.c_str(),
                track.frames, track.keyFrames, track.seconds);
  }
}

void PrintJson(const RepairResult& result, bool isLast) {
  std::printf("  {\"file\": %s, \"outcome\": \"%s\"", Quoted(result.file).c_str(), result.outcome);
  if (!result.error.empty()) std::printf(", \"error\": %s", Quoted(result.error).c_str());
  std::printf(", \"bytes_kept\": %" PRIu64 ", \"bytes_dropped\": %" PRIu64 ", \"repair_seconds\": %.3f, \"tracks\": [",
              result.kept, result.dropped, result.seconds);
  for (size_t i = 0; i < result.tracks.size(); ++i) {
    const TrackContent& track = result.tracks[i];
    std::printf("%s\n    {\"type\": \"%s\", \"frames\": %" PRIu64 ", \"key_frames\": %" PRIu64
                ", \"duration_seconds\": %.6f}",
                i == 0 ? "" : ",", track.type.c_str(), track.frames, track.keyFrames, track.seconds);
  }
  std::printf("]}%s\n", isLast ? "" : ",");
}

}  // namespace

int Repair(Arguments arguments) {
  const FileWords words = TakeFiles(arguments, "--no-extra-frames");
  bool allWell = true;
  if (words.json) std::printf("[\n");
  for (size_t i = 0; i < words.files.size(); ++i) {
    RepairResult result;
    result.file = words.files[i];
    try {
      RepairOne(result, !words.flag);
    } catch (const Failure& failure) {
      result.error = failure.what();
      allWell = false;
    }
    if (words.json) PrintJson(result, i + 1 == words.files.size());
    else PrintText(result);
  }
  if (words.json) std::printf("]\n");
  return allWell ? 0 : 1;
}

}  // namespace tool
