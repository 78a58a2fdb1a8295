#pragma once

#include <memory>
#include <vector>

#include "tests/support/recording.h"
#include "tests/support/short_stream.h"
#include "track/track.h"

// One track over a file in memory, fed as a session feeds it.
class TrackRig {
 public:
  struct Options {
    ZR_U32 timescale = 120000;
    float speed = 1.0f;
    int frameRate = 0;
    bool constantRate = false;
    bool co64 = false;
    bool backups = false;  // private headers and temporary tables
    std::uint64_t breaksAfter = ShortStream::kNever;
  };

  explicit TrackRig(zrmp4::TrakAtom::CodecType codec) : TrackRig(codec, Options()) {}
  TrackRig(zrmp4::TrakAtom::CodecType codec, const Options& options)
      : TrackRig(codec, options, std::vector<std::uint8_t>()) {}
  TrackRig(zrmp4::TrakAtom::CodecType codec, const Options& options, const std::vector<std::uint8_t>& file)
      : stream(file, options.breaksAfter), mBackups(options.backups) {
    const auto kind = codec <= zrmp4::TrakAtom::CODEC_PRORES_HQ ? zrmp4::TrakAtom::TRAK_VIDEO
                      : codec <= zrmp4::TrakAtom::CODEC_G711U   ? zrmp4::TrakAtom::TRAK_AUDIO
                                                                : zrmp4::TrakAtom::TRAK_META;
    trak.reset(zrmp4::TrakAtom::create(kind, kTrackId, "a handler of more than 31 characters", codec, options.timescale,
                                       options.co64 ? ZR_TRUE : ZR_FALSE));
    if (trak->init() != 0) throw std::bad_alloc();
    trak->SetAudioConfig(2, 16, 48000, 1024);
    track.reset(zrmp4::Track::create(&stream, trak.get(), &mdat, options.speed, options.frameRate,
                                     options.constantRate ? ZR_TRUE : ZR_FALSE));
    if (mBackups) track->CreateTmpStbl();
  }

  ZR_U32 write(const Data& frame, ZR_U64 pts, bool key = false) {
    zrmp4::Track::Mp4Sample sample;
    const ZR_U8* data = frame.empty() ? nullptr : frame.data();
    const int cut =
        track->FrameToSample(data, static_cast<ZR_U32>(frame.size()), pts, key ? ZR_TRUE : ZR_FALSE, &sample);
    if (cut != 0) return static_cast<ZR_U32>(cut);
    const ZR_U32 refused = track->ExamineSample(sample);
    if (refused != 0) return refused;
    if (!track->ReserveEntries()) return ZR_ERR_MP4_NO_MEMORY;
    if (mBackups && track->WritePrivSampleHeader(sample) != 0) return ZR_ERR_MP4_WRITE_BACKUP;
    const ZR_U64 offset = stream.getCurPos();
    const ZR_U32 result = track->WriteSample(sample);
    if (result != 0) return result;
    return mBackups && track->UpdateTmpStbl(offset, sample) != 0 ? ZR_ERR_MP4_WRITE_BACKUP : 0;
  }

  template <typename Table>
  Table* table(const char* type) const {
    return trak->Find<Table>((std::string("mdia/minf/stbl/") + type).c_str());
  }
  template <typename Table>
  static auto Entries(const Table* table) {
    std::vector<std::decay_t<decltype(*table->entries().begin())>> all;
    for (const auto& entry : table->entries()) all.push_back(entry);
    return all;
  }
  // One for each sample that has one.
  std::vector<ZR_U32> durations() const {
    std::vector<ZR_U32> all;
    for (const auto& run : table<zrmp4::SttsAtom>("stts")->entries())
      all.insert(all.end(), run.sampleCount, run.sampleDelta);
    return all;
  }
  std::vector<ZR_U32> sizes() const { return Entries(table<zrmp4::StszAtom>("stsz")); }
  std::vector<ZR_U32> syncs() const { return Entries(table<zrmp4::StssAtom>("stss")); }
  std::vector<ZR_U64> chunks() const {
    if (trak->useCo64()) return Entries(table<zrmp4::Co64Atom>("co64"));
    const auto offsets = Entries(table<zrmp4::StcoAtom>("stco"));
    return {offsets.begin(), offsets.end()};
  }
  std::vector<std::pair<ZR_U32, ZR_U32>> runs() const {
    std::vector<std::pair<ZR_U32, ZR_U32>> all;
    for (const auto& run : table<zrmp4::StscAtom>("stsc")->entries())
      all.emplace_back(run.firstChunk, run.samplesPerChunk);
    return all;
  }

  static constexpr ZR_U32 kTrackId = 7;

  ShortStream stream;
  zrmp4::MdatAtom mdat;
  std::unique_ptr<zrmp4::TrakAtom> trak;
  std::unique_ptr<zrmp4::Track> track;

 private:
  bool mBackups;
};
