#include "tools/box_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "tools/status.h"

namespace tool {
namespace {

// Big-endian fields of a payload; those beyond its end read as 0.
uint64_t Field(const std::vector<ZR_U8>& bytes, size_t offset, size_t width) {
  uint64_t value = 0;
  for (size_t i = offset; i < offset + width; ++i) value = value << 8 | (i < bytes.size() ? bytes[i] : 0u);
  return value;
}

std::string TypeOf(const std::vector<ZR_U8>& hdlr) {
  constexpr uint32_t kVide = 0x76696465;
  constexpr uint32_t kSoun = 0x736F756E;
  const uint64_t handler = Field(hdlr, 8, 4);
  return handler == kVide ? "video" : handler == kSoun ? "audio" : "meta";
}

double SecondsOf(const std::vector<ZR_U8>& mdhd) {
  const bool isWide = Field(mdhd, 0, 1) == 1;
  const uint64_t timeScale = isWide ? Field(mdhd, 20, 4) : Field(mdhd, 12, 4);
  const uint64_t duration = isWide ? Field(mdhd, 24, 8) : Field(mdhd, 16, 4);
  return timeScale == 0 ? 0 : static_cast<double>(duration) / static_cast<double>(timeScale);
}

}  // namespace

Reader::Reader(const std::string& file) {
  zrMP4_CONFIG_S config = {};
  if (file.size() >= sizeof config.aszFileName) throw Failure(file + ": the name has more than 255 characters");
  std::memcpy(config.aszFileName, file.c_str(), file.size() + 1);
  config.s32Fd = -1;
  config.enConfigType = ZR_MP4_CONFIG_DEMUXER;
  Check(file, ZR_MP4_Create(&mHandle, &config));
}

Reader::~Reader() { ZR_MP4_Destroy(mHandle, nullptr); }

ZR_U32 Reader::payload(const std::string& path, std::vector<ZR_U8>& bytes) const {
  zrMP4_ATOM_INFO_S info = {};
  ZR_U32 status = ZR_MP4_GetAtom(mHandle, path.c_str(), &info);
  bytes.resize(status == ZR_ERR_MP4_ATOM_BUF ? info.u32DataLen : 0);
  if (bytes.empty()) return status;
  info.pu8DataBuf = bytes.data();
  status = ZR_MP4_GetAtom(mHandle, path.c_str(), &info);
  return status;
}

std::vector<TrackContent> ReadTracks(const std::string& file) {
  const Reader reader(file);
  std::vector<TrackContent> tracks;
  std::vector<ZR_U8> box;
  for (size_t index = 0;; ++index) {
    const std::string media = "/moov/trak[" + std::to_string(index) + "]/mdia/";
    if (reader.payload(media + "mdhd", box) != 0) return tracks;
    TrackContent track;
    track.seconds = SecondsOf(box);
    if (reader.payload(media + "hdlr", box) == 0) track.type = TypeOf(box);
    if (reader.payload(media + "minf/stbl/stsz", box) == 0) track.frames = Field(box, 8, 4);
    // Without a table of them, all frames are key frames.
    track.keyFrames = reader.payload(media + "minf/stbl/stss", box) == 0 ? Field(box, 4, 4) : track.frames;
    tracks.push_back(track);
  }
}

FileLayout ReadLayout(const std::string& file) {
  FileLayout layout;
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status = {};
  if (fd < 0 || ::fstat(fd, &status) != 0) throw SystemFailure(file, "cannot be opened");
  layout.size = static_cast<uint64_t>(status.st_size);
  bool hasMovie = false;
  uint64_t position = 0;
  std::vector<ZR_U8> header(16);
  while (position < layout.size) {
    const ssize_t count = ::pread(fd, header.data(), header.size(), static_cast<off_t>(position));
    if (count < 8) break;
    uint64_t size = Field(header, 0, 4);
    if (size == 1 && count == 16) size = Field(header, 8, 8);
    if (size == 0) size = layout.size - position;
    if (size < 8 || size > layout.size - position) break;
    position += size;
    if (std::memcmp(header.data() + 4, "mdat", 4) == 0) layout.mediaEnd = position;
    if (std::memcmp(header.data() + 4, "moov", 4) == 0) hasMovie = true;
  }
  ::close(fd);
  layout.isFinished = hasMovie && layout.mediaEnd > 0 && position == layout.size;
  return layout;
}

}  // namespace tool
