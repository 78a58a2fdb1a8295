#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "zr_mp4.h"

// Recordings through the C interface, and a reader of the files that shares no code with the library.

using Data = std::vector<std::uint8_t>;

// Access units with start codes, valid as far as a recorder looks.
Data KeyFrame(std::size_t sliceSize = 40, std::uint8_t fill = 0x11);
Data DeltaFrame(std::size_t sliceSize = 40, std::uint8_t fill = 0x22);
// The same as they stand in a file: a length before each unit.
Data Stored(const Data& frame);
// ADTS header and payload.
Data AacFrame(std::size_t payloadSize = 30, std::uint8_t fill = 0x33);

zrMP4_CONFIG_S MuxerConfig(const std::string& path, ZR_U32 backupUnit = 0);
zrMP4_CONFIG_S DemuxerConfig(const std::string& path);
zrMP4_TRACK_INFO_S VideoTrack(zrMP4_CODECID_E codec = ZR_MP4_CODEC_H264);
zrMP4_TRACK_INFO_S AudioTrack(zrMP4_CODECID_E codec = ZR_MP4_CODEC_G711A);
zrMP4_TRACK_INFO_S MetaTrack();

// A name in the temporary folder; the file goes with the object.
class TempFile {
 public:
  TempFile();
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile();

  const std::string& path() const { return mPath; }

 private:
  std::string mPath;
};

// A muxer that is destroyed with the object. The calls answer the library's status.
class Muxer {
 public:
  explicit Muxer(const zrMP4_CONFIG_S& config) { mStatus = ZR_MP4_Create(&mHandle, &config); }
  Muxer(const Muxer&) = delete;
  Muxer& operator=(const Muxer&) = delete;
  ~Muxer() { destroy(); }

  ZR_U32 status() const { return mStatus; }
  ZR_MP4_HANDLE handle() const { return mHandle; }

  ZR_MP4_TRACK_HANDLE add(const zrMP4_TRACK_INFO_S& track);
  ZR_U32 write(ZR_MP4_TRACK_HANDLE track, const Data& frame, ZR_U64 pts, bool key = false);
  ZR_U32 finish(ZR_MP4_DURATION_CALLBACK hook = nullptr) { return ZR_MP4_DestroyAllTracks(mHandle, hook); }
  ZR_U32 destroy();

 private:
  ZR_MP4_HANDLE mHandle = 0;
  ZR_U32 mStatus;
};

struct Box {
  std::string type;
  std::uint64_t offset;
  std::uint64_t headerSize;
  std::uint64_t size;
  std::vector<Box> children;

  std::uint64_t payload() const { return offset + headerSize; }
  std::uint64_t end() const { return offset + size; }
};

struct Sample {
  std::uint64_t offset;
  std::uint64_t size;
  std::uint64_t time;  // ticks of the track
  std::uint32_t duration;
  bool sync;
};

struct Tables {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> durations;  // count, ticks
  std::vector<std::pair<std::uint32_t, std::uint32_t>> runs;       // first chunk, samples per chunk
  std::vector<std::uint64_t> sizes;
  std::vector<std::uint64_t> chunks;
  std::vector<std::uint64_t> syncs;
  bool hasSyncs = false;
};

struct TrackView {
  std::uint32_t id = 0;
  std::uint32_t timeScale = 0;
  std::uint64_t duration = 0;       // mdhd
  std::string entry;
  Tables tables;
  std::vector<Sample> samples;
};

// One record inside the media data: "vemo", "tbgp", "user" or "frame".
struct Record {
  std::string kind;
  std::uint64_t offset;  // of its first byte, private header included
  std::uint64_t size;    // private header included
  std::uint32_t trackId = 0;
  bool key = false;
  std::uint64_t pts = 0;
};

// A file, box by box. Only what is asked for is read, so that sparse files of any size will do.
class RecordedFile {
 public:
  explicit RecordedFile(const std::string& path);
  RecordedFile(const RecordedFile&) = delete;
  RecordedFile& operator=(const RecordedFile&) = delete;
  ~RecordedFile();

  std::uint64_t size() const { return mRoot.size; }
  Data bytes(std::uint64_t offset, std::uint64_t length) const;
  Data bytes(const Sample& sample) const { return bytes(sample.offset, sample.size); }
  std::uint64_t number(std::uint64_t offset, int width) const;
  std::string text(std::uint64_t offset, std::size_t length) const;

  const Box& root() const { return mRoot; }
  // "moov/trak[1]/mdia/mdhd", or null.
  const Box* find(const std::string& path) const;
  std::vector<TrackView> tracks() const;
  // What stands in the media data of a recording with backups, up to its end or to where the file was cut.
  std::vector<Record> records() const;

  // The first thing that is wrong with a finished file, empty when all is well: boxes tile their parents and the
  // file, tables agree with each other, samples lie in the media data, durations add up.
  std::string problem() const;

 private:
  Box readBox(std::uint64_t offset, std::uint64_t end);
  void readChildren(Box& parent, std::uint64_t from);
  std::vector<std::uint64_t> entries(const Box* box, int width, std::uint64_t perEntry = 1) const;
  Tables tables(const std::string& stbl) const;
  std::string problemIn(const TrackView& track) const;

  int mFile;
  std::string mProblem;  // the first with the boxes
  Box mRoot;
};

// What is wrong with a file, but for the end of reserved space: a free box has no room in less than its header.
std::string ProblemOf(const RecordedFile& file);
