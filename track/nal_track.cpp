#include "track/nal_track.h"

#include <cstring>

#include "base/log.h"
#include "base/make_or_null.h"
#include "track/annexb.h"
#include "track/record_walker.h"

namespace zrmp4 {
namespace {

ZR_U32 ReadBe32(const ZR_U8* data) {
  return static_cast<ZR_U32>(data[0]) << 24 | static_cast<ZR_U32>(data[1]) << 16 | static_cast<ZR_U32>(data[2]) << 8 |
         data[3];
}

// Four bytes hold a start code of three at their front or at their end, the latter with a zero in front or not.
bool BeginsWithStartCode(const ZR_U8* data) {
  const ZR_U32 word = ReadBe32(data);
  return word >> 8 == 1 || (word & 0xFFFFFF) == 1;
}

// Deliberate: the number printed is that of the unit too many.
int TooManyNalus() {
  return ZR_FAIL(-1, "mp4 access unit nalu count has reach the max(%d)\n",
                 static_cast<int>(Track::Mp4Sample::kMaxParts));
}

}  // namespace

// Frames to samples --------------------------------------------------------------------------------------------------

inline int NalTrack::cutAtStartCodes(const ZR_U8* data, ZR_U32 len, Mp4Sample* out) {
  const ZR_U8* const frameEnd = data + len;
  // Deliberate: a start code that reaches into the last four bytes belongs to the unit in front of it.
  const ZR_U8* const scanEnd = len > kStartCodeScanLen ? frameEnd - kStartCodeScanLen : data;
  ZR_U32 count = 0;
  ZR_U64 total = 0;
  const ZR_U8* unit = nullptr;  // the last one begun
  const auto endUnit = [&](const ZR_U8* end) {
    const ZR_U32 size = static_cast<ZR_U32>(end - unit);
    out->partData[count] = unit;
    out->partSize[count++] = size;
    total += kNalLengthSize + size;
  };
  const ZR_U8* scanned = data;
  // Nearly every frame begins with the long form, which needs no search.
  if (scanEnd - data >= 4 && ReadBe32(data) == 1) unit = scanned = data + 4;
  for (const ZR_U8* code; (code = FindStartCode(scanned, scanEnd)) != scanEnd;) {  // its last byte
    const bool longCode = code - scanned >= 3 && code[-3] == 0;
    if (unit != nullptr) endUnit(code - (longCode ? 3 : 2));
    if (count == kMaxNalus) return TooManyNalus();
    unit = scanned = code + 1;
  }
  // Deliberate: a frame too short for its start code to be seen is an empty sample.
  if (unit != nullptr) endUnit(frameEnd);
  if (total > 0xFFFFFFFFu) return -1;
  out->partCount = count;
  out->totalSize = static_cast<ZR_U32>(total);
  return 0;
}

int NalTrack::FrameToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out) {
  constexpr int kRefused = static_cast<int>(ZR_ERR_MP4_ILLEGAL_PARAM);
  const int begun = beginSample(data, len, pts, isKey, out);
  if (begun != 0 || data == nullptr) return begun;
  if (len < kMinFrameLen) return ZR_FAIL(kRefused, "input video frame len(%u) is too short\n", len);
  if (!BeginsWithStartCode(data)) return ZR_FAIL(kRefused, "input video frame is not annexb format\n");
  if (cutAtStartCodes(data, len, out) == 0) return 0;
  return ZR_FAIL(kRefused, "can not convert annexb to mp4 access unit, len is:%u\n", len);
}

int NalTrack::cutStoredFrame(const ZR_U8* data, ZR_U32 len, Mp4Sample* out) {
  return Mp4AuToSample(data, len, out->pts, out->isKey, *out);
}

bool NalTrack::IsAnnexbFrame(const ZR_U8* data) {
  if (data == nullptr) {
    LogTrackArgument(nullptr, "IsAnnexbFrame");
    return false;
  }
  return BeginsWithStartCode(data);
}

int NalTrack::AnnexbToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out) {
  if (data == nullptr || out == nullptr) {
    LogTrackArgument(nullptr, "AnnexbToSample");
    return -1;
  }
  out->pts = pts;
  out->isKey = isKey;
  return cutAtStartCodes(data, len, out);
}

int NalTrack::Mp4AuToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample& out) {
  if (data == nullptr) {
    LogTrackArgument(nullptr, "Mp4AuToSample");
    return -1;
  }
  out.pts = pts;
  out.isKey = isKey;
  ZR_U64 at = 0;
  while (at + kNalLengthSize < len) {
    if (out.partCount == kMaxNalus) return TooManyNalus();
    const ZR_U32 size = ReadBe32(data + at);
    at += kNalLengthSize;
    if (size > len - at) break;
    out.partData[out.partCount] = data + at;
    out.partSize[out.partCount++] = size;
    at += size;
  }
  if (at != len) return ZR_FAIL(-1, "sum of nalu len is not equal to frame len\n");
  out.totalSize = len;
  return 0;
}

// Recording ----------------------------------------------------------------------------------------------------------

ZR_U32 NalTrack::ExamineSample(const Mp4Sample& sample) {
  if (sample.totalSize == 0 || ParseSample(sample) == 0) return 0;
  return ZR_FAIL(ZR_ERR_MP4_WRITE_BACKUP, "%s", texts().badSample);
}

int NalTrack::writePieces(const Mp4Sample& sample) {
  constexpr ZR_U32 kSmall = 2048;  // larger units may have a shorter way than through the buffer
  for (ZR_U32 i = 0; i < sample.partCount; ++i) {
    const ZR_U32 size = sample.partSize[i];
    ZR_U8* const space = size <= kSmall ? mStream->claim(kNalLengthSize + size) : nullptr;
    if (space != nullptr) {
      IOStream::storeBe32(space, size);
      std::memcpy(space + kNalLengthSize, sample.partData[i], size);
      continue;
    }
    if (mStream->writeBe32(sample.partSize[i]) != kNalLengthSize) {
      return ZR_IO_FAIL(-1, "offset:%lld, writeBe32 fail\n", static_cast<long long>(mStream->getCurPos()));
    }
    if (!writeBytes(sample.partData[i], sample.partSize[i])) return -1;
  }
  return 0;
}

// Repair -------------------------------------------------------------------------------------------------------------

// Parameter sets may come before the first key frame; that one has them all. A frame that is no whole access unit was
// cut off.
int NalTrack::ParseMediaParameter(RecordWalker& walker) {
  for (RecordWalker::Record record; (record = walker.next()) != RecordWalker::Record::kEnd;) {
    const PrivSampleHeader header = walker.header();
    if (record != RecordWalker::Record::kFrame || header.trackId != trackId() || header.size == 0) continue;
    StoredUnits sets;
    if (!findParameterSets(header, walker.dataOffset(), &sets)) continue;
    if (!header.isKey) {
      takeParameterSets(sets);
      continue;
    }
    bool parsed = false;
    if (parseStoredFrame(header, walker.dataOffset(), &parsed) != 0) return -1;
    if (parsed) return 0;
  }
  return searchEnd(walker);
}

bool NalTrack::RecoverFrame(const PrivSampleHeader& header, ZR_U64 dataOffset, bool lastBeforeZeros) {
  if (header.size == 0) return !lastBeforeZeros;
  StoredUnits sets;
  if (!findParameterSets(header, dataOffset, &sets)) return false;
  if (lastBeforeZeros && !endsInData(header, dataOffset)) return false;
  takeParameterSets(sets);
  return true;
}

// Steps over a frame in the file from length to length; false when the units do not tile it.
bool NalTrack::findParameterSets(const PrivSampleHeader& header, ZR_U64 dataOffset, StoredUnits* sets) {
  ZR_U64 at = dataOffset;
  const ZR_U64 end = dataOffset + header.size;
  for (ZR_U32 units = 0; at != end; ++units) {
    ZR_U32 size = 0;
    ZR_U8 head = 0;
    ZR_U8 type = 0;
    if (units == kMaxNalus || end - at <= kNalLengthSize) return false;
    if (mStream->seek(static_cast<long long>(at), 0) != 0 || mStream->readBe32(&size) != kNalLengthSize) return false;
    at += kNalLengthSize;
    if (size == 0 || size > end - at || mStream->readByte(&head) != 1) return false;
    if (GetNaluType(&head, 1, &type) == 0 && IsParameterSetNalu(type)) {
      sets->offset[sets->count] = at;
      sets->size[sets->count] = size;
      sets->type[sets->count++] = type;
    }
    at += size;
  }
  return true;
}

// A set that cannot be taken does not make its frame worthless.
void NalTrack::takeParameterSets(const StoredUnits& sets) {
  constexpr ZR_U32 kLongestSet = 65535;
  for (ZR_U32 i = 0; i < sets.count; ++i) {
    auto unit = sets.size[i] <= kLongestSet ? MakeArrayOrNull<ZR_U8>(sets.size[i]) : nullptr;
    const bool read = unit != nullptr && mStream->seek(static_cast<long long>(sets.offset[i]), 0) == 0 &&
                      mStream->readBytes(unit.get(), sets.size[i]) == sets.size[i];
    if (read) HandleParameterSetNalu(unit.get(), sets.size[i], sets.type[i]);
  }
}

}  // namespace zrmp4
