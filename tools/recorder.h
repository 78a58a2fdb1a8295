#pragma once

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "tools/byte_stream.h"
#include "tools/frame_clock.h"
#include "tools/frame_source.h"
#include "zr_mp4.h"

namespace tool {

// What the command line says about a track.
struct TrackOptions {
  zrMP4_TRACK_TYPE_E type = ZR_MP4_TRACK_VIDEO;
  std::string file;
  const char* codecName = nullptr;
  zrMP4_CODECID_E codec = ZR_MP4_CODEC_META;
  Rate rate;  // video and metadata
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t sampleRate = 0;  // audio
  uint32_t channels = 0;
};

struct BoxOptions {
  std::string path;
  std::string type;
  std::string file;
};

struct RecordOptions {
  std::string output;
  zrMP4_MUXER_CONFIG_S muxer = {};
  bool timing = false;
  bool finish = true;
  std::vector<BoxOptions> boxes;
  std::vector<TrackOptions> tracks;
};

// One recording from its first byte to its last.
class Recorder {
 public:
  // *stop, set by a signal handler, ends the recording as the end of its inputs would.
  Recorder(const RecordOptions& options, const volatile std::sig_atomic_t* stop);
  ~Recorder();

  // Records until the inputs end, and finishes the file also when they end in a Failure.
  void run();

 private:
  struct RecordedTrack {
    const TrackOptions* options = nullptr;
    std::unique_ptr<FrameSource> source;
    FrameClock clock;
    ZR_MP4_TRACK_HANDLE handle = 0;
    zrMP4_PROC_TRACK_S* figures = nullptr;
    uint64_t frames = 0;  // handed in, refused ones included
    uint64_t bytes = 0;
    uint32_t refusedInARow = 0;
    bool ended = false;
  };

  void openInput(const TrackOptions& track);
  void create();
  void createTrack(RecordedTrack& track);
  void addBox(const BoxOptions& box);
  void writeFrames();
  RecordedTrack* earliest();
  void writeFrame(RecordedTrack& track);
  void finish();
  void showStatus(bool isLast);
  void showTiming();

  const RecordOptions& mOptions;
  const volatile std::sig_atomic_t* const mStop;
  InputPool mInputs;
  std::vector<RecordedTrack> mTracks;
  ZR_MP4_HANDLE mHandle = 0;
  zrMP4_PROC_MUXER_S* mFigures = nullptr;
  std::vector<uint32_t> mCalls;  // microseconds of each call for a frame, where timing is asked for
  uint64_t mBytes = 0;
  uint64_t mRefused = 0;
  bool mOnTerminal = false;
  std::chrono::steady_clock::time_point mNextStatus;
};

}  // namespace tool
