#include "box/audio_entry.h"

#include "base/log.h"
#include "box/child_types.h"
#include "codec/aac_parser.h"

namespace zrmp4 {
namespace {

constexpr ZR_U8 kEsDescriptorTag = 3;
constexpr ZR_U8 kDecoderConfigTag = 4;
constexpr ZR_U8 kDecoderSpecificTag = 5;
constexpr ZR_U8 kSlConfigTag = 6;
constexpr ZR_U8 kMpeg4Audio = 0x40;
constexpr ZR_U8 kMpeg1Audio = 0x6B;
constexpr ZR_U8 kAudioStream = 0x15;  // stream type 5, not upstream, one reserved bit
constexpr ZR_U32 kDecoderSpecificLength = 5;

}  // namespace

void AudioEntryAtom::SetAudioConfig(ZR_U16 channels, ZR_U16 sampleSize, ZR_U32 sampleRate, ZR_U32 samplesPerFrame) {
  mChannels = channels;
  mSampleSize = sampleSize;
  mSampleRate = sampleRate;
  mSamplesPerFrame = samplesPerFrame;
}

bool AudioEntryAtom::fieldsBeforeRate(FieldIo& io, ZR_U16 compressionId) {
  if (!io.fixed32(0) || !io.fixed16(0) || !io.fixed16(1) || !io.fixed32(0) || !io.fixed32(0)) return false;
  if (!io.be16(mChannels) || !io.be16(mSampleSize) || !io.fixed16(compressionId) || !io.fixed16(0)) return false;
  constexpr ZR_U16 kUsualSampleSize = 16;
  if (io.reading() && mSampleSize == 0) mSampleSize = kUsualSampleSize;
  return true;
}

bool Mp4aAtom::fields(FieldIo& io) {
  constexpr ZR_U16 kVariableBitRate = 0xFFFE;
  ZR_U32 fixedPointRate = mSampleRate << 16;  // Deliberate: of a rate above 65535 the low 16 bits remain.
  if (!fieldsBeforeRate(io, kVariableBitRate) || !io.be32(fixedPointRate)) return false;
  if (io.reading()) mSampleRate = fixedPointRate >> 16;
  return true;
}

Atom* Mp4aAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {{"esds", NewChild<EsdsAtom>}};
  return ReadChildOf(stream, kChildren);
}

bool G711Atom::fields(FieldIo& io) {
  ZR_U16 wholeRate = static_cast<ZR_U16>(mSampleRate);  // Deliberate: of a rate above 65535 the low 16 bits remain.
  if (!fieldsBeforeRate(io, 0) || !io.be16(wholeRate) || !io.fixed16(0)) return false;
  if (io.reading()) mSampleRate = wholeRate;
  return true;
}

void EsdsAtom::InitDescription() {
  mDetailInfo = {};
  mDecoderConfig = {};
}

int EsdsAtom::ReadTagSize(IOStream* stream, ZR_U32& size, ZR_U8& width) {
  FieldIo io = FieldIo::Reading(stream);
  size = 0;
  for (width = 1; width <= TAG_SIZE_WIDTH; ++width) {
    ZR_U8 group = 0;
    if (!io.byte(group)) return -1;
    size = size << 7 | (group & 0x7Fu);
    if ((group & 0x80) == 0) break;
  }
  return 0;
}

int EsdsAtom::WriteTagSize(IOStream* stream, ZR_U32 size, ZR_U8 width) {
  FieldIo io = FieldIo::Writing(stream);
  const ZR_U8 bytes = width < TAG_SIZE_WIDTH ? width : TAG_SIZE_WIDTH;
  for (ZR_U8 at = 1; at <= bytes; ++at) {
    const ZR_U32 group = size >> 7 * (bytes - at) & 0x7Fu;
    if (!io.fixed8(static_cast<ZR_U8>(group | (at < width ? 0x80u : 0u)))) return -1;
  }
  return 0;
}

bool EsdsAtom::tagSize(FieldIo& io, ZR_U32& size, ZR_U8& width) {
  return (io.reading() ? ReadTagSize(io.stream(), size, width) : WriteTagSize(io.stream(), size, width)) == 0;
}

bool EsdsAtom::fields(FieldIo& io) {
  DetailInformationTag& es = mDetailInfo;
  DecoderConfigDescriptorTag& config = mDecoderConfig;
  return io.versionAndFlags(mVersion, mFlags) &&                                                                  //
         io.byte(es.tag) && tagSize(io, es.length, mDetailInfoWidth) && io.be16(es.esId) && io.byte(es.flags) &&  //
         io.byte(config.tag) && tagSize(io, config.length, mDecoderConfigWidth) &&                                //
         io.byte(config.objectTypeIndication) && io.byte(config.streamType) && io.be24(config.bufferSize) &&      //
         io.be32(config.maxBitrate) && io.be32(config.avgBitrate);
}

int EsdsAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  if (!io.ok() || !fields(io)) return -1;
  const AtomHeader& box = header();
  if (stream->getCurPos() - box.offset > box.Length(stream->size())) {
    return ZR_FAIL(-1, "esds of %u bytes is too short\n", box.size);
  }
  mFromFile = true;
  return ReadDecSpecficTag(stream) == 0 && mRest.read(io, box) ? 0 : -1;
}

int EsdsAtom::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  if (!io.ok() || !fields(io)) return -1;
  if (mFromFile) return mRest.write(io) ? 0 : -1;

  constexpr ZR_U8 kPredefinedForMp4 = 2;
  if (WriteDecSpecficTag(stream) != 0 || !io.fixed8(kSlConfigTag) || WriteTagSize(stream, 1) != 0) return -1;
  return io.fixed8(kPredefinedForMp4) ? 0 : -1;
}

AacAtom::AacAtom() : EsdsAtom(54) {
  SetDetailInfoTag({kEsDescriptorTag, 37, 0, 0});
  SetDecoderConfigTag({kDecoderConfigTag, 23, kMpeg4Audio, kAudioStream, 8192, 128000, 128000});
}

void AacAtom::SetAudioConfig(ZR_U16 channels, ZR_U32 sampleRate, ZR_U32 framesPerSample) {
  mChannels = channels;
  mSampleRate = sampleRate;
  mFramesPerSample = framesPerSample;
  if (AacParser::SampleRatesToFreqIndex(sampleRate, &mFrequencyIndex) != 0) {
    ZR_NOTE(ZR_LOG_LEVEL_NOTICE, "sample rate %u has no frequency index, %u is taken\n", sampleRate, mFrequencyIndex);
  }
}

int AacAtom::WriteDecSpecficTag(IOStream* stream) {
  constexpr ZR_U32 kAacLc = 2u << 11;
  // Deliberate: the channel configuration is the number of channels, for eight as well.
  const ZR_U32 config = kAacLc | (mFrequencyIndex & 0x0Fu) << 7 | (mChannels & 0x0Fu) << 3;
  FieldIo io = FieldIo::Writing(stream);
  if (!io.fixed8(kDecoderSpecificTag) || WriteTagSize(stream, kDecoderSpecificLength) != 0) return -1;
  return io.fixed16(static_cast<ZR_U16>(config)) && io.fixed16(0) && io.fixed8(0) ? 0 : -1;
}

Mp3Atom::Mp3Atom() : EsdsAtom(44) {
  SetDetailInfoTag({kEsDescriptorTag, 27, 0, 0});
  SetDecoderConfigTag({kDecoderConfigTag, 13, kMpeg1Audio, kAudioStream, 0, 0, 0});
}

void Mp3Atom::SetAudioConfig(ZR_U16 channels, ZR_U32 sampleRate, ZR_U32 samplesPerFrame) {
  mChannels = channels;
  mSampleRate = sampleRate;
  mSamplesPerFrame = samplesPerFrame;
}

}  // namespace zrmp4
