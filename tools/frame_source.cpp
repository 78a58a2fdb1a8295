#include "tools/frame_source.h"

#include <cstring>

#include "tools/nal_source.h"
#include "tools/status.h"

namespace tool {
namespace {

uint32_t ReadBe32(const uint8_t* data) {
  return uint32_t{data[0]} << 24 | uint32_t{data[1]} << 16 | uint32_t{data[2]} << 8 | data[3];
}

std::string RateMismatch(const std::string& name, uint32_t inStream, uint32_t given) {
  return name + ": its frames say " + std::to_string(inStream) + " Hz, --rate says " + std::to_string(given);
}

void CheckChannels(const std::string& name, uint32_t inStream, uint32_t given) {
  if (inStream == given) return;
  throw Failure(name + ": its frames have " + std::to_string(inStream) + " channels, --channels says " +
                std::to_string(given));
}

// Every frame begins with its own size and "icpf".
class ProResSource : public FrameSource {
 public:
  explicit ProResSource(ByteStream& stream) : FrameSource(stream) {}

 private:
  bool measure(Extent& extent) override {
    constexpr size_t kHeader = 8;
    if (!needFrame(kHeader)) return false;
    extent.size = ReadBe32(mStream.data());
    if (std::memcmp(mStream.data() + 4, "icpf", 4) != 0 || extent.size < kHeader) refuse("no ProRes frame");
    return needFrame(extent.size);
  }
};

class AdtsSource : public FrameSource {
 public:
  AdtsSource(ByteStream& stream, uint32_t sampleRate, uint32_t channels)
      : FrameSource(stream), mSampleRate(sampleRate), mChannels(channels) {}
  uint32_t samplesPerFrame() const override { return mSamplesPerFrame; }

 private:
  bool measure(Extent& extent) override {
    constexpr size_t kHeader = 7;
    if (!needFrame(kHeader)) return false;
    const uint8_t* const data = mStream.data();
    extent.size = (data[3] & 3u) << 11 | uint32_t{data[4]} << 3 | data[5] >> 5;
    if (data[0] != 0xFF || (data[1] & 0xF6) != 0xF0 || extent.size < kHeader) refuse("no ADTS header");
    if (mSamplesPerFrame == 0) readFormat(data);
    return needFrame(extent.size);
  }

  void readFormat(const uint8_t* data) {
    static constexpr uint32_t kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                          22050, 16000, 12000, 11025, 8000,  7350};
    constexpr uint32_t kBlockSamples = 1024;
    const size_t index = data[2] >> 2 & 0xFu;
    if (index >= sizeof kRates / sizeof *kRates) refuse("reserved sampling rate");
    // With spectral band replication the header has half the rate that is heard.
    const uint32_t coreRate = kRates[index];
    if (mSampleRate != coreRate && mSampleRate != 2 * coreRate)
      throw Failure(RateMismatch(mStream.name(), coreRate, mSampleRate));
    const uint32_t channels = (data[2] & 1u) << 2 | data[3] >> 6;  // 0 where the stream tells them otherwise
    // With parametric stereo, which needs that replication, one channel is heard as two.
    const bool isParametric = channels == 1 && mChannels == 2 && mSampleRate == 2 * coreRate;
    if (channels != 0 && !isParametric) CheckChannels(mStream.name(), channels == 7 ? 8 : channels, mChannels);
    mSamplesPerFrame = kBlockSamples * ((data[6] & 3u) + 1) * (mSampleRate / coreRate);
  }

  const uint32_t mSampleRate;
  const uint32_t mChannels;
  uint32_t mSamplesPerFrame = 0;
};

// MPEG audio layer III, with the tags and the index frame that files have around it left out.
class Mp3Source : public FrameSource {
 public:
  Mp3Source(ByteStream& stream, uint32_t sampleRate, uint32_t channels)
      : FrameSource(stream), mSampleRate(sampleRate), mChannels(channels) {}
  uint32_t samplesPerFrame() const override { return mSamplesPerFrame; }

 private:
  static constexpr size_t kHeader = 4;

  bool measure(Extent& extent) override {
    if (!skipTags() || !needFrame(kHeader)) return false;
    const bool isFirst = mSamplesPerFrame == 0;
    if (!readHeader(extent.size)) refuse("no MP3 frame header");
    if (!needFrame(extent.size)) return false;
    if (!isFirst || !isIndex(extent.size)) return true;
    mStream.drop(extent.size);
    return measure(extent);
  }

  // ID3 in front, "TAG" and APE behind. The sizes in ID3 have seven bits a byte.
  bool skipTags() {
    constexpr size_t kTagHeader = 10;
    constexpr size_t kTrailerTag = 128;
    while (mStream.need(kHeader)) {
      const uint8_t* const data = mStream.data();
      if (std::memcmp(data, "TAG", 3) == 0) return skip(kTrailerTag);
      if (std::memcmp(data, "APET", 4) == 0) return skip(kMaxFrame);
      if (std::memcmp(data, "ID3", 3) != 0) return true;
      if (!mStream.need(kTagHeader)) return false;
      const uint8_t* const size = mStream.data() + 6;
      skip(kTagHeader + (size[0] << 21 | size[1] << 14 | size[2] << 7 | size[3]));
    }
    return mStream.available() > 0;
  }

  // Passes count bytes or what is left; false at the end of the input.
  bool skip(size_t count) {
    while (count > 0 && mStream.need(1)) {
      const size_t step = count < mStream.available() ? count : mStream.available();
      mStream.drop(step);
      count -= step;
    }
    return mStream.need(1);
  }

  bool readHeader(size_t& size) {
    static constexpr uint32_t kBitRates1[] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    static constexpr uint32_t kBitRates2[] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    static constexpr uint32_t kRates[] = {44100, 48000, 32000};
    const uint8_t* const data = mStream.data();
    const unsigned version = data[1] >> 3 & 3u;  // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
    const unsigned layer = data[1] >> 1 & 3u;    // 1: layer III
    const unsigned bitRate = data[2] >> 4;
    const unsigned rate = data[2] >> 2 & 3u;
    if (data[0] != 0xFF || data[1] < 0xE0 || version == 1 || layer != 1) return false;
    if (bitRate == 0 || bitRate == 15 || rate == 3) return false;

    const bool isMpeg1 = version == 3;
    const uint32_t sampleRate = kRates[rate] / (isMpeg1 ? 1 : version == 2 ? 2 : 4);
    if (sampleRate != mSampleRate) throw Failure(RateMismatch(mStream.name(), sampleRate, mSampleRate));
    if (mSamplesPerFrame == 0) CheckChannels(mStream.name(), data[3] >> 6 == 3 ? 1 : 2, mChannels);
    mSamplesPerFrame = isMpeg1 ? 1152 : 576;
    const uint32_t bitsPerSecond = 1000 * (isMpeg1 ? kBitRates1 : kBitRates2)[bitRate];
    size = mSamplesPerFrame / 8 * bitsPerSecond / sampleRate + (data[2] >> 1 & 1u);
    return true;
  }

  // The first frame of a file often holds an index for players and no sound.
  bool isIndex(size_t size) const {
    const uint8_t* const data = mStream.data();
    const bool isMono = data[3] >> 6 == 3;
    const bool isMpeg1 = (data[1] >> 3 & 3) == 3;
    const size_t sideInfo = isMpeg1 ? (isMono ? 17 : 32) : (isMono ? 9 : 17);
    const auto has = [&](size_t at, const char* name) {
      return at + 4 <= size && std::memcmp(data + at, name, 4) == 0;
    };
    return has(kHeader + sideInfo, "Xing") || has(kHeader + sideInfo, "Info") || has(kHeader + 32, "VBRI");
  }

  const uint32_t mSampleRate;
  const uint32_t mChannels;
  uint32_t mSamplesPerFrame = 0;
};

// G.711 has a byte per sample and no frames: pieces of 20 milliseconds are as good as any.
class PieceSource : public FrameSource {
 public:
  PieceSource(ByteStream& stream, uint32_t sampleRate, uint32_t channels)
      : FrameSource(stream), mSamples(sampleRate < 50 ? 1 : sampleRate / 50), mChannels(channels) {}
  uint32_t samplesPerFrame() const override { return mSamples; }

 private:
  bool measure(Extent& extent) override {
    const size_t piece = size_t{mSamples} * mChannels;
    mStream.need(piece);
    extent.size = mStream.available() < piece ? mStream.available() : piece;
    return extent.size > 0;
  }

  const uint32_t mSamples;
  const uint32_t mChannels;
};

// A 4-byte big-endian length before each sample, which may be empty.
class LengthPrefixedSource : public FrameSource {
 public:
  explicit LengthPrefixedSource(ByteStream& stream) : FrameSource(stream) {}

 private:
  static constexpr size_t kPrefix = 4;

  bool measure(Extent& extent) override {
    if (!needFrame(kPrefix)) return false;
    extent.size = ReadBe32(mStream.data());
    if (!needFrame(kPrefix + extent.size)) return false;
    mStream.drop(kPrefix);
    return true;
  }
};

}  // namespace

bool FrameSource::load() {
  if (mLoaded) return true;
  mExtent = Extent();
  mLoaded = measure(mExtent);
  return mLoaded;
}

zrMP4_FRAME_DATA_S FrameSource::frame() const {
  zrMP4_FRAME_DATA_S frame = {};
  frame.u32DataLength = static_cast<ZR_U32>(mExtent.size);
  // The library only reads what it is given.
  if (mExtent.size > 0) frame.pu8DataBuffer = const_cast<ZR_U8*>(mStream.data());
  frame.bKeyFrameFlag = mExtent.isKey ? ZR_TRUE : ZR_FALSE;
  return frame;
}

void FrameSource::pass() {
  mStream.drop(mExtent.size + mExtent.skip);
  mLoaded = false;
}

bool FrameSource::needFrame(size_t size) {
  if (size > kMaxFrame) refuse("a frame of more than 64 MiB");
  if (mStream.need(size)) return true;
  if (mStream.available() > 0) Warn(mStream.name() + ": the last frame is cut off and left out");
  mStream.drop(mStream.available());
  return false;
}

void FrameSource::refuse(const char* cause) const {
  throw Failure(mStream.name() + ": " + cause + " at byte " + std::to_string(mStream.position()));
}

std::unique_ptr<FrameSource> MakeFrameSource(ByteStream& stream, zrMP4_CODECID_E codec, uint32_t sampleRate,
                                             uint32_t channels) {
  switch (codec) {
    case ZR_MP4_CODEC_H264:
      return std::make_unique<AnnexBSource>(stream, false);
    case ZR_MP4_CODEC_H265:
      return std::make_unique<AnnexBSource>(stream, true);
    case ZR_MP4_CODEC_AAC:
      return std::make_unique<AdtsSource>(stream, sampleRate, channels);
    case ZR_MP4_CODEC_MP3:
      return std::make_unique<Mp3Source>(stream, sampleRate, channels);
    case ZR_MP4_CODEC_G711A:
    case ZR_MP4_CODEC_G711U:
      return std::make_unique<PieceSource>(stream, sampleRate, channels);
    case ZR_MP4_CODEC_META:
      return std::make_unique<LengthPrefixedSource>(stream);
    default:
      return std::make_unique<ProResSource>(stream);
  }
}

}  // namespace tool
