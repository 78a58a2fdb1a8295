#include "tests/support/recording.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "tests/support/bytes.h"

Data KeyFrame(std::size_t sliceSize, std::uint8_t fill) {
  Bytes frame;
  frame.be32(1).u8(0x67).u8(0x64).u8(0x00).u8(0x1F).u8(0xAC);  // SPS, High profile, level 3.1
  frame.be32(1).u8(0x68).u8(0xEE).u8(0x3C).u8(0x80);           // PPS
  frame.be24(1).u8(0x65).fill(sliceSize - 1, fill);            // IDR slice
  return frame.data();
}

Data DeltaFrame(std::size_t sliceSize, std::uint8_t fill) {
  return Bytes().be32(1).u8(0x41).fill(sliceSize - 1, fill).data();
}

Data Stored(const Data& frame) {
  Bytes stored;
  for (std::size_t at = 0; at < frame.size();) {
    at += frame[at + 2] == 1 ? 3 : 4;
    std::size_t end = at;
    while (end < frame.size() && !(end + 3 < frame.size() && frame[end] == 0 && frame[end + 1] == 0 &&
                                   (frame[end + 2] == 1 || (frame[end + 2] == 0 && frame[end + 3] == 1)))) {
      ++end;
    }
    stored.be32(end - at).add(Data(frame.begin() + static_cast<long>(at), frame.begin() + static_cast<long>(end)));
    at = end;
  }
  return stored.data();
}

Data AacFrame(std::size_t payloadSize, std::uint8_t fill) {
  const std::size_t length = payloadSize + 7;
  return Bytes()
      .be16(0xFFF1)  // no CRC
      .u8(0x4C)      // LC, 48 kHz
      .u8(0x80 | length >> 11)
      .u8(length >> 3)
      .u8(length << 5 | 0x1F)
      .u8(0xFC)
      .fill(payloadSize, fill)
      .data();
}

zrMP4_CONFIG_S MuxerConfig(const std::string& path, ZR_U32 backupUnit) {
  zrMP4_CONFIG_S config = {};
  path.copy(config.aszFileName, sizeof(config.aszFileName) - 1);
  config.s32Fd = -1;
  config.enConfigType = ZR_MP4_CONFIG_MUXER;
  config.stMuxerConfig.u32VBufSize = 65536;
  config.stMuxerConfig.u32BackupUnit = backupUnit;
  return config;
}

zrMP4_CONFIG_S DemuxerConfig(const std::string& path) {
  zrMP4_CONFIG_S config = MuxerConfig(path);
  config.enConfigType = ZR_MP4_CONFIG_DEMUXER;
  config.stDemuxerConfig.u32VBufSize = 0;
  return config;
}

namespace {

zrMP4_TRACK_INFO_S TrackOf(zrMP4_TRACK_TYPE_E type, ZR_U32 timeScale, const char* handler) {
  zrMP4_TRACK_INFO_S track = {};
  track.enTrackType = type;
  track.u32TimeScale = timeScale;
  track.fSpeed = 1.0f;
  std::strcpy(track.aszHdlrName, handler);
  return track;
}

}  // namespace

zrMP4_TRACK_INFO_S VideoTrack(zrMP4_CODECID_E codec) {
  zrMP4_TRACK_INFO_S track = TrackOf(ZR_MP4_TRACK_VIDEO, 120000, "VideoHandler");
  track.stVideoInfo = {640, 360, 1000000, 25, codec};
  return track;
}

zrMP4_TRACK_INFO_S AudioTrack(zrMP4_CODECID_E codec) {
  zrMP4_TRACK_INFO_S track = TrackOf(ZR_MP4_TRACK_AUDIO, 48000, "SoundHandler");
  track.stAudioInfo = {1, 48000, 1024, 16, codec};
  return track;
}

zrMP4_TRACK_INFO_S MetaTrack() {
  zrMP4_TRACK_INFO_S track = TrackOf(ZR_MP4_TRACK_META, 90000, "MetaHandler");
  track.stMetaInfo = {0, 0, 25, ZR_MP4_CODEC_META, 0};
  return track;
}

TempFile::TempFile() {
  static std::atomic<int> made{0};
  const char* folder = std::getenv("TMPDIR");
  mPath = std::string(folder != nullptr ? folder : "/tmp") + "/zrmp4_test_" + std::to_string(getpid()) + "_" +
          std::to_string(++made) + ".mp4";
}

TempFile::~TempFile() { unlink(mPath.c_str()); }

ZR_MP4_TRACK_HANDLE Muxer::add(const zrMP4_TRACK_INFO_S& track) {
  ZR_MP4_TRACK_HANDLE handle = 0;
  mStatus = ZR_MP4_CreateTrack(mHandle, &handle, &track);
  return handle;
}

ZR_U32 Muxer::write(ZR_MP4_TRACK_HANDLE track, const Data& frame, ZR_U64 pts, bool key) {
  Data copy = frame;  // the library may not write to it, nor keep it
  const zrMP4_FRAME_DATA_S data = {pts, copy.empty() ? nullptr : copy.data(), static_cast<ZR_U32>(copy.size()), key};
  return ZR_MP4_WriteFrame(mHandle, track, &data);
}

ZR_U32 Muxer::destroy() {
  if (mHandle == 0) return 0;
  const ZR_U32 status = ZR_MP4_Destroy(mHandle, nullptr);
  mHandle = 0;
  return status;
}

namespace {

constexpr std::uint64_t kRecordHeader = 20;

// Where the children of a box begin, behind its header; -1 when it has none.
int ChildrenAt(const std::string& type) {
  for (const char* container : {"moov", "trak", "edts", "mdia", "minf", "gmhd", "dinf", "stbl"}) {
    if (type == container) return 0;
  }
  if (type == "stsd" || type == "dref") return 8;
  for (const char* entry : {"avc1", "hvc1", "apco", "apcs", "apcn", "apch"}) {
    if (type == entry) return 78;
  }
  return type == "mp4a" ? 28 : -1;
}

}  // namespace

RecordedFile::RecordedFile(const std::string& path) : mFile(open(path.c_str(), O_RDONLY | O_CLOEXEC)), mRoot{} {
  const off_t size = mFile >= 0 ? lseek(mFile, 0, SEEK_END) : 0;
  mRoot = {"FILE", 0, 0, static_cast<std::uint64_t>(size), {}};
  readChildren(mRoot, 0);
}

RecordedFile::~RecordedFile() { close(mFile); }

Data RecordedFile::bytes(std::uint64_t offset, std::uint64_t length) const {
  if (offset > size()) return {};
  Data data(std::min(length, size() - offset));
  const ssize_t moved = pread(mFile, data.data(), data.size(), static_cast<off_t>(offset));
  data.resize(moved > 0 ? static_cast<std::size_t>(moved) : 0);
  return data;
}

std::uint64_t RecordedFile::number(std::uint64_t offset, int width) const {
  std::uint64_t value = 0;
  Data data = bytes(offset, static_cast<std::uint64_t>(width));
  data.resize(static_cast<std::size_t>(width));
  for (const std::uint8_t byte : data) value = value << 8 | byte;
  return value;
}

std::string RecordedFile::text(std::uint64_t offset, std::size_t length) const {
  const Data data = bytes(offset, length);
  return {data.begin(), data.end()};
}

Box RecordedFile::readBox(std::uint64_t offset, std::uint64_t end) {
  Box box = {text(offset + 4, 4), offset, 8, number(offset, 4), {}};
  if (box.size == 1) {
    box.headerSize = 16;
    box.size = number(offset + 8, 8);
  }
  const int children = ChildrenAt(box.type);
  if (children < 0 || box.size < box.headerSize || box.end() > end) return box;
  readChildren(box, box.payload() + static_cast<std::uint64_t>(children));
  return box;
}

// Stops at the first thing that cannot be a box.
void RecordedFile::readChildren(Box& parent, std::uint64_t from) {
  std::uint64_t at = from;
  const auto note = [&](const std::string& problem) {
    if (mProblem.empty()) mProblem = problem;
  };
  while (at + 8 <= parent.end()) {
    const Box child = readBox(at, parent.end());
    parent.children.push_back(child);
    const std::string name = child.type + " at " + std::to_string(at);
    if (child.size < child.headerSize) return note(name + " is smaller than its header");
    if (child.end() > parent.end()) return note(name + " goes beyond " + parent.type);
    at = child.end();
  }
  if (at != parent.end()) note(std::to_string(parent.end() - at) + " bytes at the end of " + parent.type);
}

const Box* RecordedFile::find(const std::string& path) const {
  const Box* box = &mRoot;
  for (std::size_t at = 0; at < path.size() && box != nullptr;) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string type = path.substr(at, 4);
    int index = end - at > 4 ? std::atoi(path.c_str() + at + 5) : 0;
    const auto found = std::find_if(box->children.begin(), box->children.end(),
                                    [&](const Box& child) { return child.type == type && index-- == 0; });
    box = found != box->children.end() ? &*found : nullptr;
    at = end + 1;
  }
  return box;
}

// The numbers of a table's entries, which stand behind their count.
std::vector<std::uint64_t> RecordedFile::entries(const Box* box, int width, std::uint64_t perEntry) const {
  std::vector<std::uint64_t> all;
  if (box == nullptr) return all;
  const std::uint64_t from = box->payload() + (box->type == "stsz" ? 12 : 8), size = static_cast<std::uint64_t>(width);
  const std::uint64_t room = box->end() > from ? box->end() - from : 0;
  const Data data = bytes(from, std::min(number(from - 4, 4) * perEntry * size, room / size * size));
  for (std::size_t at = 0; at < data.size(); ++at) {
    if (at % size == 0) all.push_back(0);
    all.back() = all.back() << 8 | data[at];
  }
  return all;
}

Tables RecordedFile::tables(const std::string& stbl) const {
  Tables tables;
  const std::vector<std::uint64_t> times = entries(find(stbl + "/stts"), 4, 2), runs = entries(find(stbl + "/stsc"), 4, 3);
  for (std::size_t i = 1; i < times.size(); i += 2) tables.durations.emplace_back(times[i - 1], times[i]);
  for (std::size_t i = 2; i < runs.size(); i += 3) tables.runs.emplace_back(runs[i - 2], runs[i - 1]);
  tables.sizes = entries(find(stbl + "/stsz"), 4);
  const Box* wide = find(stbl + "/co64");
  tables.chunks = wide != nullptr ? entries(wide, 8) : entries(find(stbl + "/stco"), 4);
  tables.syncs = entries(find(stbl + "/stss"), 4);
  tables.hasSyncs = find(stbl + "/stss") != nullptr;
  return tables;
}

std::vector<TrackView> RecordedFile::tracks() const {
  std::vector<TrackView> tracks;
  for (int i = 0;; ++i) {
    const std::string trak = "moov/trak[" + std::to_string(i) + "]";
    const Box* mdhd = find(trak + "/mdia/mdhd");
    const std::string stbl = trak + "/mdia/minf/stbl";
    const Box* tkhd = find(trak + "/tkhd");
    const Box* stsd = find(stbl + "/stsd");
    if (mdhd == nullptr || tkhd == nullptr || stsd == nullptr || stsd->children.empty()) return tracks;
    TrackView track;
    const bool wide = number(mdhd->payload(), 1) == 1;
    track.timeScale = static_cast<std::uint32_t>(number(mdhd->payload() + (wide ? 20 : 12), 4));
    track.duration = number(mdhd->payload() + (wide ? 24 : 16), wide ? 8 : 4);
    track.id = static_cast<std::uint32_t>(number(tkhd->payload() + 12, 4));
    track.entry = stsd->children[0].type;
    track.tables = tables(stbl);

    const Tables& all = track.tables;
    std::vector<std::uint32_t> durations;
    for (const auto& [count, delta] : all.durations) {
      durations.resize(std::min<std::size_t>(durations.size() + count, all.sizes.size()), delta);
    }
    durations.resize(all.sizes.size());
    std::size_t sample = 0, run = 0;
    std::uint64_t time = 0;
    for (std::size_t chunk = 0; chunk < all.chunks.size(); ++chunk) {
      while (run + 1 < all.runs.size() && all.runs[run + 1].first <= chunk + 1) ++run;
      std::uint64_t offset = all.chunks[chunk];
      const std::uint32_t inChunk = all.runs.empty() ? 0 : all.runs[run].second;
      for (std::uint32_t k = 0; k < inChunk && sample < all.sizes.size(); ++k, ++sample) {
        const bool sync = !all.hasSyncs || std::binary_search(all.syncs.begin(), all.syncs.end(), sample + 1);
        track.samples.push_back({offset, all.sizes[sample], time, durations[sample], sync});
        offset += all.sizes[sample];
        time += durations[sample];
      }
    }
    tracks.push_back(std::move(track));
  }
}

std::vector<Record> RecordedFile::records() const {
  std::vector<Record> records;
  const Box* mdat = find("mdat");
  if (mdat == nullptr) return records;
  const bool finished = mdat->size > mdat->headerSize && mdat->end() <= size();
  const std::uint64_t end = finished ? mdat->end() : size();
  std::uint64_t unit = 0;
  const auto nextUnit = [&](std::uint64_t at) { return (at / unit + 1) * unit; };
  for (std::uint64_t at = mdat->payload(); at + kRecordHeader <= end;) {
    const std::string type = text(at + 4, 4);
    if (type == "vemo" || (type == "tbgp" && unit != 0 && at % unit == 0)) {
      if (type == "vemo") unit = number(at + 8, 4);
      records.push_back({type, at, number(at, 4)});
    } else {
      Record record = {"frame",
                       at,
                       kRecordHeader + number(at + 16, 4),
                       static_cast<std::uint32_t>(number(at, 4)),
                       number(at + 4, 4) == 1,
                       number(at + 8, 8)};
      if (record.trackId == 0) {
        if (record.size == kRecordHeader) {  // padding, or space that was only reserved
          if (unit == 0) break;
          at = nextUnit(at);
          continue;
        }
        record.kind = "user";
      }
      records.push_back(record);
    }
    if (records.back().size == 0 || at + records.back().size > end) {
      records.pop_back();
      break;
    }
    at += records.back().size;
    // Less than a header may be left of the padding.
    if (unit != 0 && at % unit > unit - kRecordHeader &&
        number(at, static_cast<int>(std::min<std::uint64_t>(unit - at % unit, 8))) == 0) {
      at = nextUnit(at);
    }
  }
  return records;
}

std::string RecordedFile::problem() const {
  if (!mProblem.empty()) return mProblem;
  if (find("moov/mvhd") == nullptr) return "no movie header";
  for (const TrackView& track : tracks()) {
    const std::string wrong = problemIn(track);
    if (!wrong.empty()) return "track " + std::to_string(track.id) + ": " + wrong;
  }
  return "";
}

std::string RecordedFile::problemIn(const TrackView& track) const {
  const Tables& all = track.tables;
  const Box* mdat = find("mdat");
  if (track.samples.size() != all.sizes.size()) return "chunks and sizes disagree";
  std::uint64_t timed = 0, duration = 0, inChunks = 0;
  for (const auto& [count, delta] : all.durations) {
    timed += count;
    duration += count * delta;  // the library's reckoning: each product has 32 bits
  }
  for (std::size_t run = 0; run < all.runs.size(); ++run) {
    const std::uint64_t next = run + 1 < all.runs.size() ? all.runs[run + 1].first : all.chunks.size() + 1;
    if (next <= all.runs[run].first) return "runs of chunks do not ascend";
    inChunks += (next - all.runs[run].first) * all.runs[run].second;
  }
  if (timed != all.sizes.size()) return "durations and sizes disagree";
  if (inChunks != all.sizes.size()) return "runs of chunks and sizes disagree";
  if (duration != track.duration && static_cast<std::uint32_t>(duration) != track.duration) {
    return "duration is not the sum of the samples'";
  }
  std::uint64_t end = mdat->payload();
  for (const Sample& sample : track.samples) {
    if (sample.offset < end || sample.offset + sample.size > mdat->end()) return "samples overlap or leave mdat";
    end = sample.offset + sample.size;
  }
  for (std::size_t i = 0; i < all.syncs.size(); ++i) {
    if (all.syncs[i] <= (i > 0 ? all.syncs[i - 1] : 0) || all.syncs[i] > all.sizes.size()) return "wrong sync samples";
  }
  return "";
}

std::string ProblemOf(const RecordedFile& file) {
  const std::string problem = file.problem();
  const bool noRoom = problem.find("bytes at the end of FILE") != std::string::npos ||
                      (problem.find("free at") == 0 && problem.find("smaller") != std::string::npos);
  return noRoom ? "" : problem;
}
