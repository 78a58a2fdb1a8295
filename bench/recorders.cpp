#include "bench/recorders.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "track/annexb.h"
#include "zr_mp4.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace bench {
namespace {

constexpr uint32_t kMiB = 1u << 20;

void Check(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "bench: %s failed\n", what);
  std::_Exit(3);
}

bool IsNal(Codec codec) { return codec == Codec::kH264 || codec == Codec::kH265; }

class FileRecorder : public Recorder {
 public:
  void open(const Workload& work, const std::string& path) override {
    mWork = &work;
    mFd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    Check(mFd >= 0, "open");
  }
  void close() override { ::close(mFd); }

 protected:
  void put(const uint8_t* data, size_t size) {
    while (size != 0) {
      const ssize_t written = ::write(mFd, data, size);
      Check(written > 0, "write");
      data += written;
      size -= static_cast<size_t>(written);
    }
  }

  const Workload* mWork = nullptr;
  int mFd = -1;
};

// write(2) of the same bytes, a MiB at a time, straight from the frames.
class RawRecorder : public FileRecorder {
 public:
  void write(const Frame& frame) override {
    if (mEnd == mStart) mEnd = mStart = frame.data;
    mEnd += frame.size;
    for (; mEnd - mStart >= kMiB; mStart += kMiB) put(mStart, kMiB);
  }
  void close() override {
    put(mStart, static_cast<size_t>(mEnd - mStart));
    FileRecorder::close();
  }

 private:
  const uint8_t* mStart = nullptr;
  const uint8_t* mEnd = nullptr;
};

// One writev for every frame: a length and its bytes.
class WritevRecorder : public FileRecorder {
 public:
  void write(const Frame& frame) override {
    uint8_t length[4];
    const uint32_t big = __builtin_bswap32(frame.size);
    std::memcpy(length, &big, 4);
    const iovec pieces[] = {{length, 4}, {frame.data, frame.size}};
    Check(::writev(mFd, pieces, 2) == static_cast<ssize_t>(frame.size + 4), "writev");
  }
};

// The least that a recorder which looks for start codes itself can do: scan, copy once, write, append to a table.
class FloorRecorder : public FileRecorder {
 public:
  void open(const Workload& work, const std::string& path) override {
    FileRecorder::open(work, path);
    mBuffer.reset(new uint8_t[kMiB]);
    mSizes.reserve(work.frames.size());
    mOffsets.reserve(work.frames.size());
  }
  void write(const Frame& frame) override {
    mOffsets.push_back(static_cast<uint32_t>(mPosition));
    const uint64_t before = mPosition;
    const uint8_t* const end = frame.data + frame.size;
    if (IsNal(mWork->tracks[frame.track].codec)) {
      const uint8_t* unit = zrmp4::FindStartCode(frame.data, end) + 1;
      for (;;) {
        const uint8_t* code = zrmp4::FindStartCode(unit, end);
        if (code == end) break;
        putUnit(unit, code[-3] == 0 ? code - 3 : code - 2);
        unit = code + 1;
      }
      putUnit(unit, end);
    } else {
      copy(frame.data, frame.size);
    }
    mSizes.push_back(static_cast<uint32_t>(mPosition - before));
  }
  void close() override {
    put(mBuffer.get(), mUsed);
    FileRecorder::close();
  }

 private:
  void putUnit(const uint8_t* from, const uint8_t* end) {
    const uint32_t size = static_cast<uint32_t>(end - from);
    const uint32_t big = __builtin_bswap32(size);
    copy(reinterpret_cast<const uint8_t*>(&big), 4);
    copy(from, size);
  }
  void copy(const uint8_t* data, size_t size) {
    mPosition += size;
    while (size != 0) {
      const size_t part = std::min<size_t>(size, kMiB - mUsed);
      std::memcpy(mBuffer.get() + mUsed, data, part);
      mUsed += part;
      data += part;
      size -= part;
      if (mUsed == kMiB) {
        put(mBuffer.get(), mUsed);
        mUsed = 0;
      }
    }
  }

  std::unique_ptr<uint8_t[]> mBuffer;
  size_t mUsed = 0;
  uint64_t mPosition = 0;
  std::vector<uint32_t> mSizes;
  std::vector<uint32_t> mOffsets;
};

class Zrmp4Recorder : public Recorder {
 public:
  explicit Zrmp4Recorder(const Setup& setup) : mSetup(setup) {}

  void open(const Workload& work, const std::string& path) override {
    setenv("ZR_MP4_SYNC", mSetup.sync ? "on" : "off", 1);
    zrMP4_CONFIG_S config = {};
    std::snprintf(config.aszFileName, sizeof(config.aszFileName), "%s", path.c_str());
    config.s32Fd = -1;
    config.enConfigType = ZR_MP4_CONFIG_MUXER;
    config.stMuxerConfig.u32VBufSize = mSetup.buffer;
    config.stMuxerConfig.u32BackupUnit = mSetup.backupUnit;
    config.stMuxerConfig.u32PreAllocUnit = mSetup.preAlloc;
    config.stMuxerConfig.bCo64Flag = mSetup.co64 ? ZR_TRUE : ZR_FALSE;
    config.stMuxerConfig.enFormatProfile =
        work.tracks[0].codec == Codec::kProres ? ZR_MP4_PROFILE_MOV : ZR_MP4_PROFILE_MP4;
    Check(ZR_MP4_Create(&mHandle, &config) == 0, "ZR_MP4_Create");
    for (const TrackSpec& track : work.tracks) addTrack(track);
  }
  void write(const Frame& frame) override {
    const zrMP4_FRAME_DATA_S data = {frame.pts, frame.data, frame.size, frame.key ? ZR_TRUE : ZR_FALSE};
    Check(ZR_MP4_WriteFrame(mHandle, mTracks[frame.track], &data) == 0, "ZR_MP4_WriteFrame");
  }
  void finish() override { Check(ZR_MP4_DestroyAllTracks(mHandle, nullptr) == 0, "ZR_MP4_DestroyAllTracks"); }
  void close() override { Check(ZR_MP4_Destroy(mHandle, nullptr) == 0, "ZR_MP4_Destroy"); }

 private:
  void addTrack(const TrackSpec& spec) {
    zrMP4_TRACK_INFO_S info = {};
    info.fSpeed = 1.0f;
    info.u32TimeScale = spec.codec == Codec::kAac ? spec.rate : 120000;
    std::snprintf(info.aszHdlrName, sizeof(info.aszHdlrName), "bench");
    if (spec.codec == Codec::kAac) {
      info.enTrackType = ZR_MP4_TRACK_AUDIO;
      info.stAudioInfo = {2, spec.rate, 1024, 16, ZR_MP4_CODEC_AAC};
    } else if (spec.codec == Codec::kMeta) {
      info.enTrackType = ZR_MP4_TRACK_META;
      info.stMetaInfo = {spec.width, spec.height, spec.rate, ZR_MP4_CODEC_META, 0};
    } else {
      info.enTrackType = ZR_MP4_TRACK_VIDEO;
      const zrMP4_CODECID_E codec = spec.codec == Codec::kH264   ? ZR_MP4_CODEC_H264
                                    : spec.codec == Codec::kH265 ? ZR_MP4_CODEC_H265
                                                                 : ZR_MP4_CODEC_PRORES_HQ;
      info.stVideoInfo = {spec.width, spec.height, spec.bitRate, spec.rate, codec};
    }
    mTracks.push_back(0);
    Check(ZR_MP4_CreateTrack(mHandle, &mTracks.back(), &info) == 0, "ZR_MP4_CreateTrack");
  }

  Setup mSetup;
  ZR_MP4_HANDLE mHandle = 0;
  std::vector<ZR_MP4_TRACK_HANDLE> mTracks;
};

// The system's libavformat, from the same frames without a copy. It has no place for metadata samples in MP4, so
// those are left out.
class LavfRecorder : public Recorder {
 public:
  explicit LavfRecorder(bool fragmented) : mFragmented(fragmented) {}

  void open(const Workload& work, const std::string& path) override {
    mWork = &work;
    const char* format = work.tracks[0].codec == Codec::kProres ? "mov" : "mp4";
    Check(avformat_alloc_output_context2(&mContext, nullptr, format, path.c_str()) >= 0, "alloc context");
    for (const TrackSpec& track : work.tracks) addStream(track);
    Check(avio_open(&mContext->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0, "avio_open");
    AVDictionary* options = nullptr;
    if (mFragmented) av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+default_base_moof", 0);
    Check(avformat_write_header(mContext, &options) >= 0, "write header");
    av_dict_free(&options);
    mPacket = av_packet_alloc();
  }
  void write(const Frame& frame) override {
    AVStream* stream = mStreams[frame.track];
    if (stream == nullptr) return;
    const Codec codec = mWork->tracks[frame.track].codec;
    const uint32_t skip = codec == Codec::kAac ? 7 : 0;
    mPacket->data = frame.data + skip;
    mPacket->size = static_cast<int>(frame.size - skip);
    mPacket->stream_index = stream->index;
    mPacket->flags = frame.key ? AV_PKT_FLAG_KEY : 0;
    mPacket->pts = mPacket->dts = av_rescale_q(static_cast<int64_t>(frame.pts), {1, 1000000}, stream->time_base);
    mPacket->duration = 0;
    Check(av_write_frame(mContext, mPacket) >= 0, "av_write_frame");
  }
  void finish() override { Check(av_write_trailer(mContext) >= 0, "av_write_trailer"); }
  void close() override {
    av_packet_free(&mPacket);
    avio_closep(&mContext->pb);
    avformat_free_context(mContext);
  }

 private:
  void addStream(const TrackSpec& spec) {
    if (spec.codec == Codec::kMeta) return mStreams.push_back(nullptr);
    AVStream* stream = avformat_new_stream(mContext, nullptr);
    Check(stream != nullptr, "new stream");
    AVCodecParameters* parameters = stream->codecpar;
    static const std::vector<uint8_t> audioConfig = {0x11, 0x90};
    const std::vector<uint8_t>* extra = nullptr;
    if (spec.codec == Codec::kAac) {
      parameters->codec_type = AVMEDIA_TYPE_AUDIO;
      parameters->codec_id = AV_CODEC_ID_AAC;
      parameters->sample_rate = static_cast<int>(spec.rate);
      parameters->frame_size = 1024;
      av_channel_layout_default(&parameters->ch_layout, 2);
      stream->time_base = {1, static_cast<int>(spec.rate)};
      extra = &audioConfig;
    } else {
      parameters->codec_type = AVMEDIA_TYPE_VIDEO;
      parameters->codec_id = spec.codec == Codec::kH264   ? AV_CODEC_ID_H264
                             : spec.codec == Codec::kH265 ? AV_CODEC_ID_HEVC
                                                          : AV_CODEC_ID_PRORES;
      if (spec.codec == Codec::kProres) parameters->codec_tag = MKTAG('a', 'p', 'c', 'h');
      parameters->width = static_cast<int>(spec.width);
      parameters->height = static_cast<int>(spec.height);
      stream->time_base = {1, 120000};
      if (spec.codec != Codec::kProres) extra = &ParameterSets(spec.codec);
    }
    if (extra != nullptr) {
      parameters->extradata = static_cast<uint8_t*>(av_mallocz(extra->size() + AV_INPUT_BUFFER_PADDING_SIZE));
      std::memcpy(parameters->extradata, extra->data(), extra->size());
      parameters->extradata_size = static_cast<int>(extra->size());
    }
    mStreams.push_back(stream);
  }

  bool mFragmented;
  const Workload* mWork = nullptr;
  AVFormatContext* mContext = nullptr;
  AVPacket* mPacket = nullptr;
  std::vector<AVStream*> mStreams;
};

}  // namespace

std::unique_ptr<Recorder> MakeZrmp4(const Setup& setup) { return std::make_unique<Zrmp4Recorder>(setup); }

std::unique_ptr<Recorder> MakeRecorder(const std::string& name) {
  constexpr uint32_t kUnit = 16 * kMiB;
  if (name == "raw") return std::make_unique<RawRecorder>();
  if (name == "writev") return std::make_unique<WritevRecorder>();
  if (name == "floor") return std::make_unique<FloorRecorder>();
  if (name == "lavf") return std::make_unique<LavfRecorder>(false);
  if (name == "lavf-frag") return std::make_unique<LavfRecorder>(true);
  Setup setup;
  if (name != "zrmp4") setup.backupUnit = kUnit;
  setup.sync = name == "zrmp4-sync";
  setup.co64 = name == "zrmp4-co64";
  if (name == "zrmp4-64k") setup.buffer = 64 << 10;
  return MakeZrmp4(setup);
}

bool OpenForReading(const std::string& recorder, const std::string& path) {
  if (recorder.rfind("zrmp4", 0) == 0) {
    zrMP4_CONFIG_S config = {};
    std::snprintf(config.aszFileName, sizeof(config.aszFileName), "%s", path.c_str());
    config.s32Fd = -1;
    config.enConfigType = ZR_MP4_CONFIG_DEMUXER;
    ZR_MP4_HANDLE handle = 0;
    Check(ZR_MP4_Create(&handle, &config) == 0, "open for reading");
    ZR_MP4_Destroy(handle, nullptr);
    return true;
  }
  if (recorder.rfind("lavf", 0) != 0) return false;
  AVFormatContext* context = nullptr;
  Check(avformat_open_input(&context, path.c_str(), nullptr, nullptr) >= 0, "avformat_open_input");
  avformat_close_input(&context);
  return true;
}

}  // namespace bench
