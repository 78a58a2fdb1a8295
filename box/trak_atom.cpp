#include "box/trak_atom.h"

#include "base/log.h"
#include "base/make_or_null.h"
#include "box/add_box.h"
#include "box/audio_entry.h"
#include "box/avc_entry.h"
#include "box/child_types.h"
#include "box/hevc_entry.h"
#include "box/prores_entry.h"
#include "box/sample_tables.h"
#include "box/stsd_atom.h"
#include "box/track_boxes.h"

namespace zrmp4 {
namespace {

// Which codec an elementary stream descriptor's object type indication means.
struct OtiEntry {
  TrakAtom::CodecType codec;
  ZR_U8 oti;
};
constexpr OtiEntry kOtiTable[] = {
    {TrakAtom::CODEC_AVC, 0x21}, {TrakAtom::CODEC_HEVC, 0x23}, {TrakAtom::CODEC_AAC, 0x40}, {TrakAtom::CODEC_AAC, 0x66},
    {TrakAtom::CODEC_AAC, 0x67}, {TrakAtom::CODEC_AAC, 0x68},  {TrakAtom::CODEC_MP3, 0x69}, {TrakAtom::CODEC_MP3, 0x6B},
};

// Which codec the type of a sample entry means, esds aside.
struct EntryType {
  const char* type;
  TrakAtom::CodecType codec;
};
constexpr EntryType kEntryTypes[] = {
    {"avc1", TrakAtom::CODEC_AVC},          {"hvc1", TrakAtom::CODEC_HEVC},      {"hev1", TrakAtom::CODEC_HEVC},
    {"alaw", TrakAtom::CODEC_G711A},        {"ulaw", TrakAtom::CODEC_G711U},     {"apcn", TrakAtom::CODEC_PRORES_422},
    {"apco", TrakAtom::CODEC_PRORES_PROXY}, {"apcs", TrakAtom::CODEC_PRORES_LT}, {"apch", TrakAtom::CODEC_PRORES_HQ},
};

constexpr char kStsdPath[] = "mdia/minf/stbl/stsd";

// The media header stands first in minf.
template <typename Box>
Box* InsertMediaHeader(Atom& minf, const char* type) {
  auto box = MakeOrNull<Box>();
  if (box == nullptr) return ZR_FAIL(nullptr, "no memory:%s\n", type);
  Box* inserted = box.release();
  minf.InsertChild(1, inserted);
  return inserted;
}

int BuildDataReference(Atom& minf) {
  auto* dinf = AddBox<DinfAtom>(minf, "dinf");
  auto* dref = dinf != nullptr ? AddBox<DrefAtom>(*dinf, "dref") : nullptr;
  constexpr ZR_U32 kInThisFile = 1;
  return dref != nullptr ? dref->addEntry("url ", 0, kInThisFile) : -1;
}

int BuildSampleTables(Atom& minf, ZR_BOOL useCo64) {
  auto* stbl = AddBox<StblAtom>(minf, "stbl");
  const bool built =
      stbl != nullptr && AddBox<StsdAtom>(*stbl, "stsd") != nullptr && AddBox<SttsAtom>(*stbl, "stts") != nullptr &&
      AddBox<StscAtom>(*stbl, "stsc") != nullptr && AddBox<StszAtom>(*stbl, "stsz") != nullptr &&
      (useCo64 ? AddBox<Co64Atom>(*stbl, "co64") != nullptr : AddBox<StcoAtom>(*stbl, "stco") != nullptr);
  return built ? 0 : -1;
}

template <typename Entry>
void SetEntryPicSize(TrakAtom& trak, const char* path, ZR_U32 width, ZR_U32 height) {
  auto* entry = trak.Find<Entry>(path);
  if (entry != nullptr) entry->setPicSize(static_cast<ZR_U16>(width), static_cast<ZR_U16>(height));
}

}  // namespace

TrakAtom::TrakAtom(TrakType type, ZR_U32 trackId, const std::string& handlerName, CodecType codec, ZR_U32 timeScale,
                   ZR_BOOL useCo64)
    : Atom("trak", 8),
      mTrackId(trackId),
      mHandlerName(handlerName),
      mCodecType(codec),
      mTimeScale(timeScale),
      mUseCo64(useCo64),
      mTrakType(type) {}

TrakAtom* TrakAtom::create(TrakType type, ZR_U32 trackId, const std::string& handlerName, CodecType codec,
                           ZR_U32 timeScale, ZR_BOOL useCo64) {
  TrakAtom* trak = nullptr;
  switch (type) {
    case TRAK_VIDEO:
      trak = NewOrNull<VideoTrakAtom>(trackId, handlerName, codec, timeScale, useCo64);
      break;
    case TRAK_AUDIO:
      trak = NewOrNull<AudioTrakAtom>(trackId, handlerName, codec, timeScale, useCo64);
      break;
    case TRAK_META:
      trak = NewOrNull<MetadataTrakAtom>(trackId, handlerName, codec, timeScale, useCo64);
      break;
    default:
      return ZR_FAIL(nullptr, "not support %d trak type\n", static_cast<int>(type));
  }
  return trak != nullptr ? trak : ZR_FAIL(nullptr, "new %d type trak no memory\n", static_cast<int>(type));
}

int TrakAtom::init() {
  constexpr ZR_U16 kFullVolume = 0x0100;
  auto* tkhd = AddBox<TkhdAtom>(*this, "tkhd", mTrackId, 0u, 0u, 0u);
  if (tkhd == nullptr) return -1;
  tkhd->setVolume(mTrakType == TRAK_AUDIO ? kFullVolume : 0);
  auto* edts = AddBox<EdtsAtom>(*this, "edts");
  if (edts == nullptr || AddBox<ElstAtom>(*edts, "elst") == nullptr) return -1;
  auto* mdia = AddBox<MdiaAtom>(*this, "mdia");
  return mdia != nullptr ? initMedia(*mdia) : -1;
}

int TrakAtom::initMedia(Atom& media) {
  if (AddBox<MdhdAtom>(media, "mdhd", mTimeScale, mUseCo64) == nullptr) return -1;
  if (AddBox<HdlrAtom>(media, "hdlr") == nullptr) return -1;
  auto* minf = AddBox<MinfAtom>(media, "minf");
  if (minf == nullptr || BuildDataReference(*minf) != 0) return -1;
  return BuildSampleTables(*minf, mUseCo64);
}

Atom* TrakAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {{"tkhd", NewChild<TkhdAtom>}, {"mdia", NewChild<MdiaAtom>}};
  return ReadChildOf(stream, kChildren);
}

int TrakAtom::Parse() {
  auto* hdlr = Find<HdlrAtom>("mdia/hdlr");
  if (hdlr == nullptr) return ZR_FAIL(-1, "get mdia/hdlr failed\n");
  const HdlrAtom::Kind kind = hdlr->kind();
  mTrakType = kind == HdlrAtom::KIND_VIDEO ? TRAK_VIDEO : kind == HdlrAtom::KIND_SOUND ? TRAK_AUDIO : TRAK_META;
  return ParseCodecType();
}

int TrakAtom::ParseCodecType() {
  Atom* stsd = GetDescendant(kStsdPath);
  if (stsd == nullptr) return ZR_FAIL(-1, "could not find mdia/minf/stbl/stsd atom\n");
  Atom* entry = stsd->firstChild();
  if (entry == nullptr) return ZR_FAIL(-1, "stsd atom have no child atom error\n");
  if (entry->type().empty()) return ZR_FAIL(-1, "could not find child atom type error\n");
  if (entry->type() == "mp4a") {
    auto* esds = entry->Find<EsdsAtom>("esds");
    if (esds == nullptr) return ZR_FAIL(-1, "get esds of mp4a failed\n");
    if (GetCodecByIndication(esds->objectTypeIndication(), mCodecType) == 0) return 0;
    return ZR_FAIL(-1, "get codec type of mp4a failed\n");
  }
  mCodecType = CODEC_UNKNOWN;
  for (const EntryType& known : kEntryTypes) {
    if (entry->type() == known.type) mCodecType = known.codec;
  }
  return 0;
}

int TrakAtom::GetCodecByIndication(ZR_U8 oti, CodecType& out) {
  for (const OtiEntry& known : kOtiTable) {
    if (known.oti != oti) continue;
    out = known.codec;
    return 0;
  }
  return ZR_FAIL(-1, "unknown obj type indication[%d]\n", oti);
}

const char* TrakAtom::ProresType(CodecType codec) {
  switch (codec) {
    case CODEC_PRORES_PROXY:
      return "apco";
    case CODEC_PRORES_LT:
      return "apcs";
    case CODEC_PRORES_422:
      return "apcn";
    case CODEC_PRORES_HQ:
      return "apch";
    default:
      return nullptr;
  }
}

void TrakAtom::setTkhdDuration(ZR_U64 duration) {
  auto* tkhd = Find<TkhdAtom>("tkhd");
  // Deliberate: an overlong duration keeps its low 32 bits here and all of them in mdhd.
  if (tkhd != nullptr) tkhd->setDuration(static_cast<ZR_U32>(duration));
}

void TrakAtom::setMdhdDuration(ZR_U64 duration) {
  auto* mdhd = Find<MdhdAtom>("mdia/mdhd");
  if (mdhd != nullptr) mdhd->setDuration(duration);
}

ZR_U64 TrakAtom::mdhdDuration() {
  auto* mdhd = Find<MdhdAtom>("mdia/mdhd");
  return mdhd != nullptr ? mdhd->duration() : 0;
}

// Video --------------------------------------------------------------------------------------------------------------

int VideoTrakAtom::init() {
  if (TrakAtom::init() != 0) return -1;
  auto* hdlr = Find<HdlrAtom>("mdia/hdlr");
  Atom* minf = GetDescendant("mdia/minf");
  Atom* stbl = GetDescendant("mdia/minf/stbl");
  Atom* stsd = GetDescendant(kStsdPath);
  if (hdlr == nullptr || minf == nullptr || stbl == nullptr || stsd == nullptr) {
    return ZR_FAIL(-1, "get mdia/hdlr failed\n");
  }
  if (hdlr->setHdlrAtom("vide", handlerName()) != 0) return ZR_FAIL(-1, "set video trak hdlr fail\n");
  if (InsertMediaHeader<VmhdAtom>(*minf, "vmhd") == nullptr) return -1;
  // Every ProRes frame is a sync sample, which is what a track without the table says.
  const bool hasSyncTable = codecType() == CODEC_AVC || codecType() == CODEC_HEVC;
  if (hasSyncTable && AddBox<StssAtom>(*stbl, "stss") == nullptr) return -1;
  return addSampleEntry(*stsd);
}

int VideoTrakAtom::addSampleEntry(Atom& stsd) {
  if (codecType() == CODEC_AVC) {
    auto* entry = AddBox<Avc1Atom>(stsd, "avc1");
    return entry != nullptr && AddBox<AvccAtom>(*entry, "avcC") != nullptr ? 0 : -1;
  }
  if (codecType() == CODEC_HEVC) {
    auto* entry = AddBox<Hvc1Atom>(stsd, "hvc1");
    return entry != nullptr && AddBox<HvccAtom>(*entry, "hvcC") != nullptr ? 0 : -1;
  }
  const char* type = ProresType(codecType());
  if (type == nullptr) return 0;
  constexpr std::size_t kLongestCompressorName = 31;
  auto* entry = AddBox<ProresAtom>(stsd, type, type, handlerName().substr(0, kLongestCompressorName));
  const bool built = entry != nullptr && AddBox<FielAtom>(*entry, "fiel") != nullptr &&
                     AddBox<ColrAtom>(*entry, "colr") != nullptr && AddBox<PaspAtom>(*entry, "pasp") != nullptr;
  return built ? 0 : -1;
}

void VideoTrakAtom::setPicSize(ZR_U32 width, ZR_U32 height) {
  auto* tkhd = Find<TkhdAtom>("tkhd");
  if (tkhd != nullptr) tkhd->setPicSize(width, height);
  if (codecType() == CODEC_AVC) return SetEntryPicSize<Avc1Atom>(*this, "mdia/minf/stbl/stsd/avc1", width, height);
  if (codecType() == CODEC_HEVC) return SetEntryPicSize<Hvc1Atom>(*this, "mdia/minf/stbl/stsd/hvc1", width, height);
  const char* type = ProresType(codecType());
  if (type == nullptr) return;
  SetEntryPicSize<ProresAtom>(*this, (std::string(kStsdPath) + "/" + type).c_str(), width, height);
}

// Audio --------------------------------------------------------------------------------------------------------------

int AudioTrakAtom::init() {
  if (TrakAtom::init() != 0) return -1;
  auto* hdlr = Find<HdlrAtom>("mdia/hdlr");
  Atom* minf = GetDescendant("mdia/minf");
  Atom* stsd = GetDescendant(kStsdPath);
  if (hdlr == nullptr || minf == nullptr || stsd == nullptr) return ZR_FAIL(-1, "get audio track child atom fail\n");
  if (hdlr->setHdlrAtom("soun", handlerName()) != 0) return ZR_FAIL(-1, "set audio trak hdlr fail\n");
  if (InsertMediaHeader<SmhdAtom>(*minf, "smhd") == nullptr) return -1;
  return addSampleEntry(*stsd);
}

int AudioTrakAtom::addSampleEntry(Atom& stsd) {
  switch (codecType()) {
    case CODEC_AAC: {
      auto* entry = AddBox<Mp4aAtom>(stsd, "mp4a");
      return entry != nullptr && AddBox<AacAtom>(*entry, "esds") != nullptr ? 0 : -1;
    }
    case CODEC_MP3: {
      auto* entry = AddBox<Mp4aAtom>(stsd, "mp4a");
      return entry != nullptr && AddBox<Mp3Atom>(*entry, "esds") != nullptr ? 0 : -1;
    }
    case CODEC_G711A:
      return AddBox<AlawAtom>(stsd, "alaw") != nullptr ? 0 : -1;
    case CODEC_G711U:
      return AddBox<UlawAtom>(stsd, "ulaw") != nullptr ? 0 : -1;
    default:
      return 0;
  }
}

void AudioTrakAtom::SetAudioConfig(ZR_U16 channels, ZR_U16 sampleSize, ZR_U32 sampleRate, ZR_U32 samplesPerFrame) {
  mSampleRate = sampleRate;
  mSamplesPerFrame = samplesPerFrame;
  Atom* stsd = GetDescendant(kStsdPath);
  auto* entry = dynamic_cast<AudioEntryAtom*>(stsd != nullptr ? stsd->firstChild() : nullptr);
  if (entry == nullptr) return;
  entry->SetAudioConfig(channels, sampleSize, sampleRate, samplesPerFrame);
  auto* aac = dynamic_cast<AacAtom*>(entry->firstChild());
  if (aac != nullptr) aac->SetAudioConfig(channels, sampleRate, samplesPerFrame);
  auto* mp3 = dynamic_cast<Mp3Atom*>(entry->firstChild());
  if (mp3 != nullptr) mp3->SetAudioConfig(channels, sampleRate, samplesPerFrame);
}

// Timed metadata -----------------------------------------------------------------------------------------------------

int MetadataTrakAtom::init() {
  if (TrakAtom::init() != 0) return -1;
  auto* hdlr = Find<HdlrAtom>("mdia/hdlr");
  Atom* minf = GetDescendant("mdia/minf");
  Atom* stsd = GetDescendant(kStsdPath);
  if (hdlr == nullptr || minf == nullptr || stsd == nullptr) return ZR_FAIL(-1, "get mdia/hdlr failed\n");
  if (hdlr->setHdlrAtom("meta", handlerName()) != 0) return ZR_FAIL(-1, "set meta trak hdlr failed\n");
  auto* gmhd = InsertMediaHeader<GmhdAtom>(*minf, "gmhd");
  if (gmhd == nullptr || AddBox<GminAtom>(*gmhd, "gmin") == nullptr) return -1;
  return AddBox<GpmdAtom>(*stsd, "gpmd") != nullptr ? 0 : -1;
}

void MetadataTrakAtom::setPicSize(ZR_U32 width, ZR_U32 height) {
  auto* tkhd = Find<TkhdAtom>("tkhd");
  if (tkhd != nullptr) tkhd->setPicSize(width, height);
}

}  // namespace zrmp4
