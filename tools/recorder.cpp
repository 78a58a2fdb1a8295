#include "tools/recorder.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "tools/status.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kMaxRefusedInARow = 8;
constexpr auto kStatusInterval = std::chrono::milliseconds(500);
constexpr double kMiB = 1 << 20;

const char* TypeName(zrMP4_TRACK_TYPE_E type) {
  return type == ZR_MP4_TRACK_VIDEO ? "video" : type == ZR_MP4_TRACK_AUDIO ? "audio" : "meta";
}

const char* HandlerName(zrMP4_TRACK_TYPE_E type) {
  return type == ZR_MP4_TRACK_VIDEO ? "VideoHandler" : type == ZR_MP4_TRACK_AUDIO ? "SoundHandler" : "MetadataHandler";
}

std::vector<ZR_U8> ReadBoxFile(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  if (!file) throw SystemFailure(name, "cannot be opened");
  std::vector<ZR_U8> bytes;
  // One byte more than a box may hold is enough for the library to refuse it.
  for (std::istreambuf_iterator<char> at(file), end; at != end && bytes.size() <= ZR_MP4_BOX_MAX_DATALEN; ++at)
    bytes.push_back(static_cast<ZR_U8>(*at));
  return bytes;
}

}  // namespace

Recorder::Recorder(const RecordOptions& options, const volatile std::sig_atomic_t* stop)
    : mOptions(options), mStop(stop), mInputs(stop), mOnTerminal(::isatty(STDERR_FILENO) != 0) {}

Recorder::~Recorder() {
  if (mHandle != 0) ZR_MP4_Destroy(mHandle, nullptr);
  if (!mFigures) return;
  MP4_PROC_DestroyTrack(mFigures);
  MP4_PROC_Remove(mFigures);
}

void Recorder::run() {
  for (const TrackOptions& track : mOptions.tracks) openInput(track);
  // Every input has shown its first frame before an old file of this name is given up.
  for (RecordedTrack& track : mTracks) {
    if (!track.source->load()) throw Failure(track.options->file + ": holds no frames");
  }
  create();
  try {
    writeFrames();
  } catch (const Failure& failure) {
    finish();
    throw;
  }
  finish();
  if (mRefused > 0) throw Failure(mOptions.output + ": " + std::to_string(mRefused) + " frames were refused");
}

void Recorder::openInput(const TrackOptions& options) {
  RecordedTrack track;
  track.options = &options;
  track.source = MakeFrameSource(mInputs.open(options.file), options.codec, options.sampleRate, options.channels);
  mTracks.push_back(std::move(track));
}

void Recorder::create() {
  zrMP4_CONFIG_S config = {};
  std::memcpy(config.aszFileName, mOptions.output.c_str(), mOptions.output.size() + 1);
  config.s32Fd = -1;
  config.enConfigType = ZR_MP4_CONFIG_MUXER;
  config.stMuxerConfig = mOptions.muxer;
  for (const TrackOptions& track : mOptions.tracks) {
    if (config.stMuxerConfig.bConstantRate == ZR_FALSE || track.type == ZR_MP4_TRACK_AUDIO || track.rate.whole())
      continue;
    // The library's constant rate counts whole frames per second; our time stamps give equal durations anyway.
    Warn("--constant-rate has no effect with a fractional frame rate; the frames last the same without it");
    config.stMuxerConfig.bConstantRate = ZR_FALSE;
  }
  Check(mOptions.output, ZR_MP4_Create(&mHandle, &config));
  if (MP4_PROC_Add(&mFigures, &config) != 0) throw Failure("memory is out");
  for (RecordedTrack& track : mTracks) createTrack(track);
  for (const BoxOptions& box : mOptions.boxes) addBox(box);
}

void Recorder::createTrack(RecordedTrack& track) {
  const TrackOptions& options = *track.options;
  zrMP4_TRACK_INFO_S info = {};
  info.enTrackType = options.type;
  info.fSpeed = 1.0f;
  std::strcpy(info.aszHdlrName, HandlerName(options.type));
  if (options.type == ZR_MP4_TRACK_AUDIO) {
    constexpr ZR_U16 kSampleSize = 16;  // as decoded
    info.stAudioInfo = {options.channels, options.sampleRate, track.source->samplesPerFrame(), kSampleSize,
                        options.codec};
    track.clock = FrameClock(options.sampleRate, track.source->samplesPerFrame());
  } else {
    track.clock = FrameClock(options.rate);
    // The bit rate is not known beforehand; the library only asks that there is one.
    if (options.type == ZR_MP4_TRACK_VIDEO)
      info.stVideoInfo = {options.width, options.height, 1, options.rate.rounded(), options.codec};
    else
      info.stMetaInfo = {options.width, options.height, options.rate.rounded(), options.codec, 0};
  }
  info.u32TimeScale = track.clock.timeScale();
  Check(mOptions.output, ZR_MP4_CreateTrack(mHandle, &track.handle, &info));
  if (MP4_PROC_CreateTrack(mFigures, &track.figures, &info) != 0) throw Failure("memory is out");
}

void Recorder::addBox(const BoxOptions& box) {
  std::vector<ZR_U8> payload = ReadBoxFile(box.file);
  zrMP4_ATOM_INFO_S info = {};
  info.u32DataLen = static_cast<ZR_U32>(payload.size());
  std::memcpy(info.aszType, box.type.c_str(), box.type.size());
  info.pu8DataBuf = payload.empty() ? nullptr : payload.data();
  Check(mOptions.output + ": box " + box.type + " at " + box.path,
        ZR_MP4_AddAtom(mHandle, box.path.c_str(), &info));
}

// Frames go in by ascending time, whichever track they belong to.
void Recorder::writeFrames() {
  mNextStatus = Clock::now() + kStatusInterval;
  while (RecordedTrack* const track = earliest()) {
    track->ended = !track->source->load();
    // A frame that was being read when the stop came may be cut off, so it is not written.
    if (*mStop) return;
    if (track->ended) continue;
    writeFrame(*track);
    track->source->pass();
    showStatus(false);
  }
}

Recorder::RecordedTrack* Recorder::earliest() {
  RecordedTrack* first = nullptr;
  for (RecordedTrack& track : mTracks) {
    if (track.ended) continue;
    if (!first || track.clock.microseconds(track.frames) < first->clock.microseconds(first->frames)) first = &track;
  }
  return first;
}

void Recorder::writeFrame(RecordedTrack& track) {
  zrMP4_FRAME_DATA_S frame = track.source->frame();
  frame.u64TimeStamp = track.clock.microseconds(track.frames++);

  const Clock::time_point start = Clock::now();
  const ZR_U32 status = ZR_MP4_WriteFrame(mHandle, track.handle, &frame);
  const auto taken = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
  MP4_PROC_UpdateWriteTime(mOptions.output.c_str(), static_cast<ZR_U64>(taken.count()));
  if (mOptions.timing) mCalls.push_back(static_cast<uint32_t>(taken.count()));

  if (status == 0) {
    track.refusedInARow = 0;
    track.bytes += frame.u32DataLength;
    mBytes += frame.u32DataLength;
    MP4_PROC_WriteFrame(mFigures, track.figures, frame.u64TimeStamp, frame.u32DataLength, mBytes);
    return;
  }
  const std::string cause = Describe(mOptions.output, status) + " at frame " + std::to_string(track.frames) + " of " +
                            track.options->file;
  if (status == ZR_ERR_MP4_FILE_SIZE || ++track.refusedInARow >= kMaxRefusedInARow) throw Failure(cause);
  if (mRefused++ == 0) Warn(cause);
}

void Recorder::finish() {
  showStatus(true);
  showTiming();
  std::string unfinished;
  if (mOptions.finish) {
    ZR_MP4_DestroyAllTracks(mHandle, nullptr);
    // It answers 0 whatever happened; a track that is still there tells that the movie box was not written.
    const std::string cause = Describe(mOptions.output, ZR_ERR_MP4_WRITE_TAIL);
    zrMP4_FILE_INFO_S info = {};
    if (ZR_MP4_GetFileInfo(mHandle, &info) != ZR_ERR_MP4_ATOM_NOT_FOUND) unfinished = cause;
  }
  const ZR_MP4_HANDLE handle = mHandle;
  mHandle = 0;
  const ZR_U32 closed = ZR_MP4_Destroy(handle, nullptr);
  if (!unfinished.empty()) throw Failure(unfinished);
  Check(mOptions.output, closed);
}

// One line, written over itself: "00:01:23  41.2 MiB  video 2490 frames 3.92 Mbit/s  longest write 3 ms".
void Recorder::showStatus(bool isLast) {
  if (!mOnTerminal || (!isLast && Clock::now() < mNextStatus)) return;
  mNextStatus = Clock::now() + kStatusInterval;
  uint64_t longest = 0;
  for (const RecordedTrack& track : mTracks) {
    const uint64_t time = track.clock.microseconds(track.frames);
    longest = time > longest ? time : longest;
  }
  const uint64_t seconds = longest / 1000000;
  std::fprintf(stderr, "\r\033[K%02" PRIu64 ":%02" PRIu64 ":%02" PRIu64 "  %.1f MiB", seconds / 3600,
               seconds / 60 % 60, seconds % 60, static_cast<double>(mFigures->lastFrameValue) / kMiB);
  for (const RecordedTrack& track : mTracks) {
    const uint64_t time = track.clock.microseconds(track.frames);
    const double bits = 8.0 * static_cast<double>(track.bytes);
    std::fprintf(stderr, "  %s %u frames %.2f Mbit/s", TypeName(track.figures->trackType), track.figures->frameCount,
                 time == 0 ? 0 : bits / static_cast<double>(time));
  }
  std::fprintf(stderr, "  longest write %" PRIu64 " ms%s", mFigures->maxWriteTime / 1000, isLast ? "\n" : "");
  std::fflush(stderr);
}

void Recorder::showTiming() {
  if (mCalls.empty()) return;
  std::sort(mCalls.begin(), mCalls.end());
  const auto within = [&](size_t percent) { return mCalls[(mCalls.size() - 1) * percent / 100]; };
  std::printf("%zu frames; a call took %u us (median), %u us (99 %%), %u us (longest)\n", mCalls.size(), within(50),
              within(99), mCalls.back());
}

}  // namespace tool
