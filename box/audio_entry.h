#pragma once

#include "box/atom.h"
#include "box/parameter_sets.h"
#include "stream/field_io.h"

namespace zrmp4 {

// What the sample entries of all audio codecs have in common.
class AudioEntryAtom : public Atom {
 public:
  explicit AudioEntryAtom(const char* type) : Atom(type, 36) {}
  explicit AudioEntryAtom(const AtomHeader& header) : Atom(header) {}

  // sampleSize in bits, sampleRate in Hz. The samples per frame are not part of the box.
  void SetAudioConfig(ZR_U16 channels, ZR_U16 sampleSize, ZR_U32 sampleRate, ZR_U32 samplesPerFrame);

  ZR_U16 channels() const { return mChannels; }
  ZR_U16 sampleSize() const { return mSampleSize; }
  ZR_U32 sampleRate() const { return mSampleRate; }
  ZR_U32 samplesPerFrame() const { return mSamplesPerFrame; }

 protected:
  // Everything in front of the sample rate. A sample size of 0, as some writers leave it, is read as 16.
  bool fieldsBeforeRate(FieldIo& io, ZR_U16 compressionId);

  ZR_U32 mSampleRate = 0;

 private:
  ZR_U16 mChannels = 0;
  ZR_U16 mSampleSize = 0;
  ZR_U32 mSamplesPerFrame = 1024;
};

// The sample entry of AAC and MP3; its child esds tells which.
class Mp4aAtom : public AudioEntryAtom {
 public:
  Mp4aAtom() : AudioEntryAtom("mp4a") {}
  explicit Mp4aAtom(const AtomHeader& header) : AudioEntryAtom(header) {}

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  Atom* ReadChild(IOStream* stream) override;
  bool fields(FieldIo& io);
};

// The sample entry of G.711, which needs no configuration.
class G711Atom : public AudioEntryAtom {
 public:
  using AudioEntryAtom::AudioEntryAtom;

  int readData(IOStream* stream) override { return ReadFields(*this, stream); }
  int writeData(IOStream* stream) override { return WriteFields(*this, stream); }
  bool fields(FieldIo& io);
};

class AlawAtom : public G711Atom {
 public:
  AlawAtom() : G711Atom("alaw") {}
  explicit AlawAtom(const AtomHeader& header) : G711Atom(header) {}
};

class UlawAtom : public G711Atom {
 public:
  UlawAtom() : G711Atom("ulaw") {}
  explicit UlawAtom(const AtomHeader& header) : G711Atom(header) {}
};

// The elementary stream descriptor. One that was read keeps what it does not parse, and the widths of its lengths, so
// that it writes back as it stood in the file.
class EsdsAtom : public Atom {
 public:
  static constexpr ZR_U8 TAG_SIZE_WIDTH = 4;

  struct DetailInformationTag {
    ZR_U8 tag;
    ZR_U32 length;
    ZR_U16 esId;
    ZR_U8 flags;
  };
  struct DecoderConfigDescriptorTag {
    ZR_U8 tag;
    ZR_U32 length;
    ZR_U8 objectTypeIndication;
    ZR_U8 streamType;
    ZR_U32 bufferSize;  // 24 bits
    ZR_U32 maxBitrate;  // bits per second
    ZR_U32 avgBitrate;
  };

  explicit EsdsAtom(ZR_U32 boxSize) : Atom("esds", boxSize) { InitDescription(); }
  explicit EsdsAtom(const AtomHeader& header) : Atom(header) { InitDescription(); }

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;
  virtual int WriteDecSpecficTag(IOStream*) { return 0; }
  virtual int ReadDecSpecficTag(IOStream*) { return 0; }

  void SetDetailInfoTag(const DetailInformationTag& tag) { mDetailInfo = tag; }
  void SetDecoderConfigTag(const DecoderConfigDescriptorTag& tag) { mDecoderConfig = tag; }
  void setBitrates(ZR_U32 maximum, ZR_U32 average) {
    mDecoderConfig.maxBitrate = maximum;
    mDecoderConfig.avgBitrate = average;
  }
  ZR_U8 objectTypeIndication() const { return mDecoderConfig.objectTypeIndication; }

  // A descriptor's length: seven bits a byte, the most significant first, each byte but the last marked. A width of
  // TAG_SIZE_WIDTH + 1 says that none of TAG_SIZE_WIDTH bytes is the last. 0, or -1.
  static int ReadTagSize(IOStream* stream, ZR_U32& size, ZR_U8& width);
  static int WriteTagSize(IOStream* stream, ZR_U32 size, ZR_U8 width = TAG_SIZE_WIDTH);

 private:
  void InitDescription();
  // The part that is the same in both directions, up to the bit rates.
  bool fields(FieldIo& io);
  static bool tagSize(FieldIo& io, ZR_U32& size, ZR_U8& width);

  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 0;
  DetailInformationTag mDetailInfo;
  DecoderConfigDescriptorTag mDecoderConfig;
  ZR_U8 mDetailInfoWidth = TAG_SIZE_WIDTH;
  ZR_U8 mDecoderConfigWidth = TAG_SIZE_WIDTH;
  bool mFromFile = false;
  UnreadRest mRest;  // of one from a file: the decoder specific info and what follows
};

// The descriptor of an AAC LC stream.
class AacAtom : public EsdsAtom {
 public:
  AacAtom();

  void SetAudioConfig(ZR_U16 channels, ZR_U32 sampleRate, ZR_U32 framesPerSample);
  // As the stream itself tells it: what an ADTS header says is more exact than a rate.
  void setFrequencyIndex(ZR_U8 index) { mFrequencyIndex = index; }

  int WriteDecSpecficTag(IOStream* stream) override;

 private:
  ZR_U16 mChannels = 0;
  ZR_U32 mSampleRate = 0;
  ZR_U8 mFrequencyIndex = 0;
  ZR_U32 mFramesPerSample = 1024;
};

// The descriptor of an MP3 stream, which carries its configuration in its frames.
class Mp3Atom : public EsdsAtom {
 public:
  Mp3Atom();

  void SetAudioConfig(ZR_U16 channels, ZR_U32 sampleRate, ZR_U32 samplesPerFrame);

 private:
  ZR_U16 mChannels = 0;
  ZR_U32 mSampleRate = 0;
  ZR_U32 mSamplesPerFrame = 0;
};

}  // namespace zrmp4
