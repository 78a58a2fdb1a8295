#include "track/prores_track.h"

#include <string>

#include "codec/prores_parser.h"
#include "track/record_walker.h"

namespace zrmp4 {
namespace {

ProresAtom* FindEntry(TrakAtom* trak) {
  const char* type = TrakAtom::ProresType(trak->codecType());
  return type != nullptr ? trak->Find<ProresAtom>((std::string("mdia/minf/stbl/stsd/") + type).c_str()) : nullptr;
}

}  // namespace

PRORESTrack::PRORESTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate,
                         ZR_BOOL constantRate)
    : VideoTrack(stream, trak, mdat, speed, frameRate, constantRate), mEntry(FindEntry(trak)) {}

int PRORESTrack::FrameToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out) {
  const int begun = beginSample(data, len, pts, isKey, out);
  return begun != 0 || data == nullptr ? begun : cutStoredFrame(data, len, out);
}

int PRORESTrack::cutStoredFrame(const ZR_U8* data, ZR_U32 len, Mp4Sample* out) {
  out->partCount = 1;
  out->partData[0] = data;
  out->partSize[0] = len;
  out->totalSize = len;
  return 0;
}

// The first frame that has data tells the format; an empty one in front of it does not.
ZR_U32 PRORESTrack::ExamineSample(const Mp4Sample& sample) {
  if (mHasData || sample.totalSize == 0) return 0;
  return ParseSample(sample) == 0 ? 0 : ZR_ERR_MP4_WRITE_BACKUP;
}

ZR_U32 PRORESTrack::WriteSample(const Mp4Sample& sample) {
  const ZR_U32 result = VideoTrack::WriteSample(sample);
  if (result == 0 && sample.totalSize != 0) mHasData = true;
  return result;
}

int PRORESTrack::ParseSample(const Mp4Sample& sample) {
  ProresInfo info = {};
  if (ProresParser::ParseProres(sample.partData[0], sample.partSize[0], info) != 0) return -1;
  if (mEntry == nullptr) return 0;
  if (auto* fiel = mEntry->Find<FielAtom>("fiel")) fiel->setFiel(info.interlaceMode);
  if (auto* colr = mEntry->Find<ColrAtom>("colr")) colr->setColr(info.colourCode);
  if (auto* pasp = mEntry->Find<PaspAtom>("pasp")) pasp->setPasp(info.width, info.height);
  return 0;
}

int PRORESTrack::ParseMediaParameter(RecordWalker& walker) {
  for (RecordWalker::Record record; (record = walker.next()) != RecordWalker::Record::kEnd;) {
    const PrivSampleHeader header = walker.header();
    if (record != RecordWalker::Record::kFrame || header.trackId != trackId() || header.size == 0) continue;
    bool parsed = false;
    return parseStoredFrame(header, walker.dataOffset(), &parsed);
  }
  return searchEnd(walker);
}

}  // namespace zrmp4
