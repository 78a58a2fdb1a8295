#pragma once

#include "base/log.h"
#include "track/track.h"

namespace zrmp4 {

// What the tracks of all video codecs share: frames that come as an Annex B byte stream, or whole; sync samples; and
// the search for the codec's configuration in a file to be repaired.
class VideoTrack : public Track {
 public:
  VideoTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate);

  int CreateTmpStbl() override;
  int UpdateTmpStbl(ZR_U64 chunkOffset, const Mp4Sample& sample) override;

  // Takes the codec's configuration from a sample and checks a key sample. 0 or -1.
  virtual int ParseSample(const Mp4Sample& sample) = 0;

 protected:
  // What every FrameToSample begins with: a sample without pieces, or the result of a refusal.
  static int beginSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out) {
    if (out == nullptr) {
      LogTrackArgument(nullptr, "FrameToSample");
      return -1;
    }
    if ((data == nullptr) != (len == 0)) {
      return ZR_FAIL(static_cast<int>(ZR_ERR_MP4_ILLEGAL_PARAM), "input video frame data not matches len:%u\n", len);
    }
    out->partCount = 0;
    out->totalSize = 0;
    out->pts = pts;
    out->isKey = isKey;
    return 0;
  }
  // Cuts a frame as it stands in the file into pieces.
  virtual int cutStoredFrame(const ZR_U8* data, ZR_U32 len, Mp4Sample* out) = 0;
  virtual bool everySampleIsSync() const = 0;

  // Reads a whole frame from the file and parses it. *parsed says whether it was acceptable; -1 when it could not be
  // read.
  int parseStoredFrame(const PrivSampleHeader& header, ZR_U64 dataOffset, bool* parsed);
  // What a search answers when the walk over the records has ended: -1 when it could not read on.
  static int searchEnd(const RecordWalker& walker);
};

}  // namespace zrmp4
