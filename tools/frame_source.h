#pragma once

#include <cstdint>
#include <memory>

#include "tools/byte_stream.h"
#include "zr_mp4.h"

namespace tool {

// Cuts an input into the frames of one track.
class FrameSource {
 public:
  virtual ~FrameSource() = default;

  // Finds the next frame; false at the end of the input, whose last frame is left out, with a warning, when it is
  // cut off. An input that is not what it should be is a Failure.
  bool load();
  // The frame that load has found, valid until the next call of load or pass on any source.
  zrMP4_FRAME_DATA_S frame() const;
  void pass();

  // Of audio, known once the first frame is loaded.
  virtual uint32_t samplesPerFrame() const { return 0; }

 protected:
  struct Extent {
    size_t size = 0;  // bytes of the frame
    size_t skip = 0;  // and bytes behind it that belong to no frame
    bool isKey = true;
  };

  explicit FrameSource(ByteStream& stream) : mStream(stream) {}
  // Measures the frame that begins at the front of the stream; false when none is left.
  virtual bool measure(Extent& extent) = 0;
  // Waits for size bytes, as the frame's own header promises them.
  bool needFrame(size_t size);
  // For the message of a Failure: "in.aac: no ADTS header at byte 1234".
  [[noreturn]] void refuse(const char* cause) const;

  ByteStream& mStream;

 private:
  Extent mExtent;
  bool mLoaded = false;
};

// Frames larger than this are taken for damage: it bounds the memory that an input can claim.
constexpr size_t kMaxFrame = 64u << 20;

// The rate and channels of an audio input are checked against what its frames say, where they do.
std::unique_ptr<FrameSource> MakeFrameSource(ByteStream& stream, zrMP4_CODECID_E codec, uint32_t sampleRate,
                                             uint32_t channels);

}  // namespace tool
