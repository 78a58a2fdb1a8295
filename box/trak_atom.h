#pragma once

#include <string>

#include "box/atom.h"

namespace zrmp4 {

// One track of the movie: builds the boxes of a track that is going to be recorded, and recognises the kind and codec
// of one that was read. The media-specific boxes are the subclasses'.
class TrakAtom : public Atom {
 public:
  enum TrakType : ZR_U32 { TRAK_VIDEO = 0, TRAK_AUDIO = 1, TRAK_META = 2 };

  enum CodecType : ZR_U32 {
    CODEC_AVC = 0,
    CODEC_HEVC = 1,
    CODEC_PRORES_PROXY = 2,
    CODEC_PRORES_LT = 3,
    CODEC_PRORES_422 = 4,
    CODEC_PRORES_HQ = 5,
    CODEC_AAC = 6,
    CODEC_MP3 = 7,
    CODEC_RESERVED = 8,
    CODEC_G711A = 9,
    CODEC_G711U = 10,
    CODEC_META = 11,
    CODEC_NONE = 12,
    CODEC_UNKNOWN = 13,
  };

  TrakAtom() : Atom("trak", 8) {}
  explicit TrakAtom(const AtomHeader& header) : Atom(header) {}

  // A trak for recording, empty until init(); null for an unknown type or when memory is out.
  static TrakAtom* create(TrakType type, ZR_U32 trackId, const std::string& handlerName, CodecType codec,
                          ZR_U32 timeScale, ZR_BOOL useCo64);

  // Builds the boxes. A trak whose init failed is only good for being deleted.
  virtual int init();
  virtual void setPicSize(ZR_U32 /*width*/, ZR_U32 /*height*/) {}
  virtual void SetAudioConfig(ZR_U16 /*channels*/, ZR_U16 /*sampleSize*/, ZR_U32 /*sampleRate*/,
                              ZR_U32 /*samplesPerFrame*/) {}

  Atom* ReadChild(IOStream* stream) override;

  // Recognise a trak that was read. 0 or -1.
  int Parse();
  int ParseCodecType();
  static int GetCodecByIndication(ZR_U8 oti, CodecType& out);
  // "apco", "apcs", "apcn" or "apch"; null for any other codec.
  static const char* ProresType(CodecType codec);

  void setTkhdDuration(ZR_U64 duration);  // movie time scale
  void setMdhdDuration(ZR_U64 duration);  // the track's time scale
  ZR_U64 mdhdDuration();

  ZR_U32 trackId() const { return mTrackId; }
  TrakType trakType() const { return mTrakType; }
  CodecType codecType() const { return mCodecType; }
  ZR_U32 timeScale() const { return mTimeScale; }
  ZR_BOOL useCo64() const { return mUseCo64; }
  ZR_U32 sampleRate() const { return mSampleRate; }            // Hz, of audio
  ZR_U32 samplesPerFrame() const { return mSamplesPerFrame; }  // of audio
  float speed() const { return mSpeed; }
  void setSpeed(float speed) { mSpeed = speed; }

  // Samples of the track that were put into tables of snapshots.
  ZR_U32 snapshotSamples() const { return mSnapshotSamples; }
  void setSnapshotSamples(ZR_U32 count) { mSnapshotSamples = count; }

 protected:
  TrakAtom(TrakType type, ZR_U32 trackId, const std::string& handlerName, CodecType codec, ZR_U32 timeScale,
           ZR_BOOL useCo64);

  const std::string& handlerName() const { return mHandlerName; }

  ZR_U32 mSampleRate = 48000;
  ZR_U32 mSamplesPerFrame = 0;

 private:
  int initMedia(Atom& media);

  ZR_U32 mTrackId = 0;
  std::string mHandlerName;
  CodecType mCodecType = CODEC_UNKNOWN;
  ZR_U32 mTimeScale = 12000;
  ZR_BOOL mUseCo64 = ZR_FALSE;
  ZR_U32 mSnapshotSamples = 0;
  float mSpeed = 1.0f;
  TrakType mTrakType = TRAK_VIDEO;
};

class VideoTrakAtom : public TrakAtom {
 public:
  VideoTrakAtom(ZR_U32 trackId, const std::string& handlerName, CodecType codec, ZR_U32 timeScale, ZR_BOOL useCo64)
      : TrakAtom(TRAK_VIDEO, trackId, handlerName, codec, timeScale, useCo64) {}

  int init() override;
  void setPicSize(ZR_U32 width, ZR_U32 height) override;

 private:
  int addSampleEntry(Atom& stsd);
};

class AudioTrakAtom : public TrakAtom {
 public:
  AudioTrakAtom(ZR_U32 trackId, const std::string& handlerName, CodecType codec, ZR_U32 timeScale, ZR_BOOL useCo64)
      : TrakAtom(TRAK_AUDIO, trackId, handlerName, codec, timeScale, useCo64) {}

  int init() override;
  void SetAudioConfig(ZR_U16 channels, ZR_U16 sampleSize, ZR_U32 sampleRate, ZR_U32 samplesPerFrame) override;

 private:
  int addSampleEntry(Atom& stsd);
};

class MetadataTrakAtom : public TrakAtom {
 public:
  MetadataTrakAtom(ZR_U32 trackId, const std::string& handlerName, CodecType codec, ZR_U32 timeScale, ZR_BOOL useCo64)
      : TrakAtom(TRAK_META, trackId, handlerName, codec, timeScale, useCo64) {}

  int init() override;
  void setPicSize(ZR_U32 width, ZR_U32 height) override;
};

}  // namespace zrmp4
