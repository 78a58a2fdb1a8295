#include "tests/sweeps/judge.h"

#include <algorithm>

#include "tests/support/alloc_faults.h"
#include "tests/sweeps/questions.h"

ZR_U32 Judge::repair(const Data& crashed, bool extraFrames) {
  file.set(crashed, crashed.size());
  const std::string path = file.path();
  const auto watched = [&] {
    const AllocFaults watch;
    return ZR_MP4_RepairFile(path.c_str(), extraFrames);
  };
  const ZR_U32 status = watched();
  mRepaired = file.bytes();
  return status;
}

std::string Judge::again(bool extraFrames) {
  const bool same = ZR_MP4_RepairFile(file.path().c_str(), extraFrames) == 0 && file.bytes() == mRepaired;
  return same ? "" : "a second repair changed the file";
}

std::string Judge::exact(const Data& crashed, std::uint64_t cut, bool extraFrames) {
  const ZR_U32 status = repair(crashed, extraFrames);
  if (status != model.status(cut)) return At("status", status);
  if (status != 0) return mRepaired == crashed ? "" : "changed without success";
  const bool finished = mRepaired == crashed && model.mediaEnd(crashed) == model.whole().size();
  const std::string wrong = model.difference(mRepaired, cut, extraFrames || finished);
  return wrong.empty() ? again(extraFrames) : wrong;
}

std::string Judge::reserved(std::uint64_t cut, std::size_t zeros) {
  Data crashed(model.whole().begin(), model.whole().begin() + static_cast<long>(cut));
  crashed.resize(cut + zeros);
  const ZR_U32 status = repair(crashed, true);
  return status != 0 ? At("status", status) : model.difference(mRepaired, cut, true, false);
}

std::string Judge::atLeast(const Data& crashed, std::uint64_t sure, bool extraFrames, bool zeros) {
  const ZR_U32 status = repair(crashed, extraFrames);
  if (status != 0) {
    if (model.status(sure) == 0 || !Documented(status)) return At("status", status);
    return mRepaired == crashed ? "" : "changed without success";
  }
  const std::uint64_t end = model.mediaEnd(mRepaired);
  const bool finished = mRepaired == crashed;
  if (model.keptCalls(end, extraFrames || finished) < model.keptCalls(sure, extraFrames)) {
    return At("lost more than it may: ends at", end);
  }
  const std::string wrong = zeros ? differenceOfCoded(end, extraFrames || finished) : problemBehind(sure, end);
  return wrong.empty() ? again(extraFrames) : wrong;
}

std::string Judge::valid(const Data& crashed, bool extraFrames) {
  const ZR_U32 status = repair(crashed, extraFrames);
  if (status != 0) return Documented(status) && mRepaired == crashed ? "" : At("status", status);
  if (mRepaired == crashed && model.mediaEnd(crashed) == model.whole().size()) return "";
  const std::string problem = ProblemOf(RecordedFile(file.path()));
  if (!problem.empty()) return problem;
  const std::uint64_t end = model.mediaEnd(mRepaired);
  return end <= crashed.size() && sameBytes(crashed, model.mediaStart(), end) ? again(extraFrames)
                                                                              : "media data was changed";
}

std::string Judge::differenceOfCoded(std::uint64_t end, bool extraFrames) {
  const Data& whole = model.whole();
  Data judged = mRepaired;
  for (const Record& record : model.records()) {
    if (record.offset >= end) break;
    // A box that lost its path is passed over, and a header that lost its length is that of an empty frame.
    const std::uint64_t kept = record.kind == "user" ? record.size : 20;
    if (!sameBytes(whole, record.offset, std::min(record.offset + kept, end))) return problemBehind(record.offset, end);
    if (record.kind != "frame" || isCoded(record) || record.offset + record.size > end) continue;
    std::copy_n(whole.begin() + static_cast<long>(record.offset) + 20, record.size - 20,
                judged.begin() + static_cast<long>(record.offset) + 20);
  }
  return model.difference(judged, end, extraFrames);
}

std::string Judge::problemBehind(std::uint64_t sure, std::uint64_t end) {
  const bool same = sameBytes(model.whole(), model.mediaStart(), std::min(sure, end));
  return same ? RecordedFile(file.path()).problem() : "media data differs";
}

bool Judge::sameBytes(const Data& wanted, std::uint64_t from, std::uint64_t to) const {
  return to <= from || std::equal(wanted.begin() + static_cast<long>(from), wanted.begin() + static_cast<long>(to),
                                  mRepaired.begin() + static_cast<long>(from));
}

bool Judge::isCoded(const Record& record) const {
  const zrMP4_TRACK_INFO_S& track = session.tracks[record.trackId - 1];
  return track.enTrackType == ZR_MP4_TRACK_VIDEO ||
         (track.enTrackType == ZR_MP4_TRACK_AUDIO && track.stAudioInfo.enCodecID <= ZR_MP4_CODEC_MP3);
}
