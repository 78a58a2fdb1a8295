#include "tests/support/session.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "api/call_guard.h"
#include "box/user_def_atom.h"
#include "engine/mp4_file.h"
#include "tests/support/bytes.h"
#include "tests/support/parameter_set_bytes.h"

MemoryFile::MemoryFile() : mFile(memfd_create("zrmp4", MFD_CLOEXEC)) {}

MemoryFile::~MemoryFile() { close(mFile); }

Data MemoryFile::bytes() const {
  Data data(static_cast<std::size_t>(lseek(mFile, 0, SEEK_END)));
  data.resize(static_cast<std::size_t>(pread(mFile, data.data(), data.size(), 0)));
  return data;
}

void MemoryFile::set(const Data& data, std::size_t length, std::size_t zeros) {
  const bool done = ftruncate(mFile, 0) == 0 && pwrite(mFile, data.data(), length, 0) == static_cast<ssize_t>(length) &&
                    ftruncate(mFile, static_cast<off_t>(length + zeros)) == 0;
  if (!done) abort();
}

// Sessions -----------------------------------------------------------------------------------------------------------

namespace {

Data Unit(const Nal& nal) { return Bytes().be32(1).add(nal).data(); }

Data HevcKeyFrame(std::size_t size) {
  return Bytes()
      .add(Unit(kHevcVps)).add(Unit(kHevcSps)).add(Unit(kHevcPps))
      .be32(1).be16(0x2601).fill(size, 0x77)  // IDR_W_RADL
      .data();
}

Data HevcDeltaFrame(std::size_t size) { return Bytes().be32(1).be16(0x0201).fill(size, 0x78).data(); }

Data ProresFrame(std::size_t size, std::uint8_t fill) {
  return Bytes()
      .be32(28 + size).type("icpf").be16(20).be16(0)
      .type("test").be16(640).be16(360).u8(0x80).u8(0).u8(1).u8(1).u8(1).u8(0).be16(0)
      .fill(size, fill)
      .data();
}

// Frames of any codec; every third metadata sample is empty.
Data FrameOf(const zrMP4_TRACK_INFO_S& track, bool key, std::size_t size, std::uint8_t fill) {
  if (track.enTrackType == ZR_MP4_TRACK_META) return Data(fill % 3 == 0 ? 0 : size, fill);
  if (track.enTrackType == ZR_MP4_TRACK_AUDIO) {
    return track.stAudioInfo.enCodecID == ZR_MP4_CODEC_AAC ? AacFrame(size, fill) : Data(size, fill);
  }
  switch (track.stVideoInfo.enCodecID) {
    case ZR_MP4_CODEC_H264:
      return key ? KeyFrame(size, fill) : DeltaFrame(size, fill);
    case ZR_MP4_CODEC_H265:
      return key ? HevcKeyFrame(size) : HevcDeltaFrame(size);
    default:
      return ProresFrame(size, fill);
  }
}

// Rounds of a frame for each track, with boxes in between at paths that take turns.
class SessionBuilder {
 public:
  SessionBuilder(const char* name, ZR_U32 unit, std::vector<zrMP4_TRACK_INFO_S> tracks) {
    mSession.name = name;
    mSession.unit = unit;
    mSession.tracks = std::move(tracks);
  }

  SessionBuilder& box(const std::string& path) {
    ++mBoxes;
    mSession.calls.push_back({Call::kBox, Data(mBoxes * 3 % 40, static_cast<std::uint8_t>(mBoxes)), 0, false, path});
    return *this;
  }
  SessionBuilder& rounds(int count, std::size_t size, std::vector<std::string> paths = {}) {
    for (; count > 0; --count, ++mRound) {
      for (std::size_t i = 0; i < mSession.tracks.size(); ++i) {
        const bool key = mRound % 5 == 0;
        const auto fill = static_cast<std::uint8_t>((mRound * 7 + i) % 200 + 3);
        add(static_cast<int>(i), FrameOf(mSession.tracks[i], key, size + mRound % 4 * 5 + i, fill), key);
      }
      if (!paths.empty()) box(paths[mRound % paths.size()]);
      mTime += 40000;
    }
    return *this;
  }
  SessionBuilder& frame(int track, Data data, bool key) {
    add(track, std::move(data), key);
    mTime += 40000;
    return *this;
  }
  SessionBuilder& jump(std::int64_t microseconds) {
    mTime = static_cast<ZR_U64>(static_cast<std::int64_t>(mTime) + microseconds);
    return *this;
  }
  SessionBuilder& with(const std::function<void(Session&)>& change) {
    change(mSession);
    return *this;
  }
  operator Session() const { return mSession; }

 private:
  void add(int track, Data data, bool key) { mSession.calls.push_back({track, std::move(data), mTime, key, {}}); }

  Session mSession;
  std::size_t mBoxes = 0;
  std::size_t mRound = 0;
  ZR_U64 mTime = 7000000000;
};

// Longer than what a string holds without memory of its own.
zrMP4_TRACK_INFO_S Named(zrMP4_TRACK_INFO_S track) {
  std::strcpy(track.aszHdlrName, "the handler of this track");
  return track;
}

zrMP4_TRACK_INFO_S AtSpeed(zrMP4_TRACK_INFO_S track, float speed) {
  track.fSpeed = speed;
  return track;
}

std::vector<Session> MakeSessions() {
  const std::vector<std::string> everywhere = {"/", "/moov", "/moov/trak[0]", "/moov/trak[0]/mdia/minf"};
  const auto video = VideoTrack();
  const auto hevc = VideoTrack(ZR_MP4_CODEC_H265);
  const auto prores = VideoTrack(ZR_MP4_CODEC_PRORES_HQ);
  const auto aac = AudioTrack(ZR_MP4_CODEC_AAC);
  const auto meta = MetaTrack();
  return {
      SessionBuilder("six tracks", 16384, {video, video, aac, AudioTrack(), meta, prores})
          .box("/").box("/moov").rounds(40, 60, everywhere)
          .with([](Session& s) { s.leading = 2; s.buffer = 1; }),
      SessionBuilder("H.265, wide", 8192, {hevc, aac, meta}).box("/").box("/").rounds(50, 90, {"/moov/trak[2]"})
          .with([](Session& s) { s.wide = ZR_TRUE; s.preAlloc = 131072; }),
      SessionBuilder("constant rate", 8192, {video, meta}).rounds(70, 80, {"/moov/trak[1]"})
          .with([](Session& s) { s.constantRate = ZR_TRUE; s.preAlloc = 4096; s.buffer = 100; }),
      SessionBuilder("H.264 and AAC", 8192, {Named(video), aac}).rounds(60, 120, everywhere)
          .with([](Session& s) { s.telling = true; s.buffer = 4096; }),
      SessionBuilder("discontinuities", 4096, {AtSpeed(video, 2.0f), AtSpeed(meta, 0.5f), video})
          .rounds(12, 60).jump(-5000000).rounds(3, 60).jump(3600000000).rounds(1, 60).jump(500).rounds(20, 60)
          .jump(-900000).rounds(1, 60).jump(-7000000000).rounds(12, 50),
      SessionBuilder("sound alone", 4096, {AudioTrack(ZR_MP4_CODEC_MP3)}).rounds(120, 70)
          .with([](Session& s) { s.buffer = 5242880; }),
      SessionBuilder("large frames", 4096, {video, AudioTrack()})
          .rounds(3, 900).frame(1, Data(5000, 9), false).rounds(4, 300).frame(0, KeyFrame(9000), true).rounds(9, 700)
          .frame(1, Data(3900, 9), false).rounds(12, 200, {"/"})
          .with([](Session& s) { s.refuses = true; }),
      SessionBuilder("late parameters", 4096, {video, hevc, prores})
          .frame(0, {}, false).frame(0, DeltaFrame(300), false).frame(1, {}, false).frame(1, HevcDeltaFrame(700), false)
          .frame(2, {}, false)
          .frame(0, Bytes().be32(1).be32(0x67640028).u8(0xAC).be32(1).u8(0x41).fill(50, 7).data(), false)
          .rounds(30, 250),
  };
}

}  // namespace

const std::vector<Session>& Sessions() {
  static const std::vector<Session> sessions = MakeSessions();
  return sessions;
}

Session LongIntervals(int rounds) {
  const auto prores = VideoTrack(ZR_MP4_CODEC_PRORES_HQ);
  const auto hevc = VideoTrack(ZR_MP4_CODEC_H265);
  return SessionBuilder("long intervals", 65536, {VideoTrack(), hevc, AudioTrack(ZR_MP4_CODEC_AAC), prores})
      .rounds(rounds, 1900, {"/"});
}

// Recording ----------------------------------------------------------------------------------------------------------

Recorder::Recorder(const Session& session, const std::string& path) : mSession(session), mPath(path) {}

Recorder::~Recorder() = default;

ZR_U32 Recorder::open() {
  mFile.reset(new (std::nothrow) zrmp4::MP4File);
  if (mFile == nullptr) return ZR_ERR_MP4_NO_MEMORY;
  mFile->setBackupUnit(mSession.unit);
  mFile->setConstantRate(mSession.constantRate);
  mFile->setUseCo64(mSession.wide);
  mFile->setFormatProfile(0);
  return mFile->Open(mPath, -1, "w", mSession.preAlloc, mSession.buffer);
}

ZR_U32 Recorder::addTracks() {
  for (std::size_t i = mFile->trackCount(); i < mSession.tracks.size(); ++i) {
    if (mFile->AddTrack(&mSession.tracks[i]) == nullptr) return ZR_ERR_MP4_CREATE_TRACK;
  }
  return 0;
}

ZR_U32 Recorder::make(const Call& call) {
  const auto size = static_cast<ZR_U32>(call.data.size());
  auto* data = const_cast<ZR_U8*>(call.data.empty() ? nullptr : call.data.data());
  if (call.track != Call::kBox) {
    return mFile->WriteFrame(mFile->GetTrackHandle(static_cast<ZR_U32>(call.track)), data, size, call.pts, call.key);
  }
  if (mAdded == nullptr) {
    std::unique_ptr<zrmp4::UserDefAtom> box(new (std::nothrow) zrmp4::UserDefAtom("note", size));
    if (box == nullptr) return ZR_ERR_MP4_NO_MEMORY;
    if (size != 0 && box->InputData(data, size) != 0) return ZR_ERR_MP4_ATOM_DATA;
    const ZR_U32 status = mFile->AddAtom(call.path, box.get());
    if (status != 0) return status;
    mAdded = box.release();
  }
  const ZR_U32 status = mFile->BackupAtom(call.path, mAdded);
  if (status == 0) mAdded = nullptr;
  return status;
}

std::uint64_t Recorder::position() const { return mFile->stream()->getCurPos(); }

ZR_U32 Recorder::run(std::size_t step) {
  return zrmp4::CallGuarded([&]() -> ZR_U32 {
    if (step == 0) return open();
    if (step == mSession.leading + 1) return addTracks();
    const std::size_t call = step - (step > mSession.leading ? 2 : 1);
    if (call < mSession.calls.size()) return make(mSession.calls[call]);
    return call == mSession.calls.size() ? mFile->RemoveAllTrack() : mFile->Close();
  });
}

Outcome Play(const Session& session, const std::string& path, std::size_t calls, bool finish) {
  Session part = session;
  part.calls.resize(calls);
  part.leading = std::min(part.leading, calls);
  Outcome outcome;
  Recorder recorder(part, path);
  const std::size_t ending = recorder.steps() - 2;
  for (std::size_t step = 0; step < recorder.steps(); ++step) {
    if (step == ending && !finish) continue;
    const ZR_U32 status = recorder.run(step);
    if (step != 0 && step != part.leading + 1 && step < ending) {
      outcome.statuses.push_back(status);
      outcome.ends.push_back(recorder.position());
    } else if (status != 0) {
      outcome.status = status;
      break;
    }
  }
  return outcome;
}

// What repair must answer --------------------------------------------------------------------------------------------

Model::Model(const Session& session) : mSession(session) {
  const MemoryFile file;
  mOutcome = Play(session, file.path(), session.calls.size(), false);
  mWhole = file.bytes();
  const RecordedFile recorded(file.path());
  mRecords = recorded.records();
  mHeadEnd = recorded.root().children.at(0).end();
  mMdat = recorded.find("mdat")->offset;
  for (const auto& record : mRecords) {
    if (record.kind != "vemo") continue;
    mVemo = record.offset;
    mVemoEnd = record.offset + record.size;
  }
}

std::vector<std::uint64_t> Model::boundaries() const {
  std::vector<std::uint64_t> all = {0, 8, mHeadEnd, mHeadEnd + 8, mHeadEnd + 16, mVemo + 8, mVemo + 26};
  for (const auto& record : mRecords) {
    all.push_back(record.offset);
    all.push_back(record.offset + (record.kind == "frame" || record.kind == "user" ? 20 : 12));
    all.push_back(record.offset + record.size);
  }
  return all;
}

ZR_U32 Model::status(std::uint64_t cut) const {
  if (cut < mHeadEnd) return ZR_ERR_MP4_OPEN_FILE;
  if (cut < mVemo + 8) return ZR_ERR_MP4_ATOM_NOT_FOUND;
  return cut < mVemoEnd ? ZR_ERR_MP4_NO_TRACK_CFG : 0;
}

// Offset and end of the last table group before the cut; 0 when there is none.
std::uint64_t Model::lastGroup(std::uint64_t cut, std::uint64_t* end) const {
  std::uint64_t offset = *end = 0;
  for (const auto& record : mRecords) {
    if (record.kind != "tbgp" || record.offset + record.size > cut) continue;
    offset = record.offset;
    *end = offset + record.size;
  }
  return offset;
}

std::size_t Model::keptCalls(std::uint64_t cut, bool extraFrames) const {
  std::uint64_t end;
  const std::uint64_t group = lastGroup(cut, &end);
  const std::uint64_t last = group == 0 || extraFrames ? cut : group;
  const auto calls = static_cast<std::size_t>(
      std::count_if(mOutcome.ends.begin(), mOutcome.ends.end(), [&](std::uint64_t at) { return at <= last; }));
  if (mSession.unit == 0 || calls == 0 || last != cut || mSession.calls[calls - 1].track == Call::kBox) return calls;
  // An empty frame in front of zeros could be a header that was cut.
  const std::uint64_t at = mOutcome.ends[calls - 1];
  const std::uint64_t multiple = (at + mSession.unit - 1) / mSession.unit * mSession.unit;
  const bool zeros = at + 20 <= cut && cut < multiple + 8 && std::count(mWhole.begin() + static_cast<long>(at),
                                                  mWhole.begin() + static_cast<long>(at) + 20, 0) == 20;
  return zeros && mSession.calls[calls - 1].data.empty() ? calls - 1 : calls;
}

std::uint64_t Model::keptEnd(std::uint64_t cut, bool extraFrames) const {
  std::uint64_t groupEnd;
  lastGroup(cut, &groupEnd);
  const std::size_t calls = keptCalls(cut, extraFrames);
  return std::max({mVemoEnd, groupEnd, calls != 0 ? mOutcome.ends[calls - 1] : 0});
}

namespace {

std::uint64_t Number(const Data& data, std::size_t at, int width) {
  std::uint64_t value = 0;
  for (; width > 0 && at < data.size(); --width) value = value << 8 | data[at++];
  return value;
}

// Everything behind the media data but the free box, without the times of day.
std::string Tail(const Data& file, std::uint64_t mdat) {
  std::uint64_t at = mdat + Number(file, mdat, 4);
  if (Number(file, mdat, 4) == 1) at = mdat + Number(file, mdat + 8, 8);
  if (at > file.size()) return "the media data goes beyond the file";
  std::string tail(file.begin() + static_cast<long>(at), file.end());
  for (const char* type : {"mvhd", "tkhd", "mdhd"}) {
    for (std::size_t box = tail.find(type); box != std::string::npos; box = tail.find(type, box + 4)) {
      const std::size_t times = tail[box + 4] == 1 ? 16 : 8;
      tail.replace(box + 8, times, times, '\0');
    }
  }
  std::size_t end = 0;
  while (end + 8 <= tail.size() && tail.compare(end + 4, 4, "free") != 0) {
    const Data size(tail.begin() + static_cast<long>(end), tail.begin() + static_cast<long>(end) + 4);
    end += std::max<std::size_t>(Number(size, 0, 4), 8);
  }
  return tail.substr(0, end);
}

Data StoredAs(const zrMP4_TRACK_INFO_S& track, const Data& frame) {
  const bool video = track.enTrackType == ZR_MP4_TRACK_VIDEO && track.stVideoInfo.enCodecID <= ZR_MP4_CODEC_H265;
  const bool aac = track.enTrackType == ZR_MP4_TRACK_AUDIO && track.stAudioInfo.enCodecID == ZR_MP4_CODEC_AAC;
  if (video) return Stored(frame);
  return aac ? Data(frame.begin() + 7, frame.end()) : frame;
}

}  // namespace

std::string Model::problemAfter(std::size_t calls) {
  const MemoryFile file;
  const Outcome outcome = Play(mSession, file.path(), calls, true);
  if (outcome.status != 0) return "status " + std::to_string(outcome.status);
  const RecordedFile recorded(file.path());
  const std::string problem = ProblemOf(recorded);
  if (!problem.empty()) return problem;
  const std::vector<TrackView> tracks = recorded.tracks();
  if (tracks.size() != mSession.tracks.size()) return std::to_string(tracks.size()) + " tracks";
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    const zrMP4_TRACK_INFO_S& info = mSession.tracks[i];
    std::size_t sample = 0;
    for (std::size_t c = 0; c < calls; ++c) {
      const Call& call = mSession.calls[c];
      if (call.track != static_cast<int>(i) || outcome.statuses[c] != 0) continue;
      const std::string name = "track " + std::to_string(i) + ", sample " + std::to_string(sample);
      if (sample == tracks[i].samples.size()) return name + " is missing";
      const Sample& found = tracks[i].samples[sample++];
      if (recorded.bytes(found) != StoredAs(info, call.data)) return name + " has other bytes";
      const bool everySync = info.enTrackType != ZR_MP4_TRACK_VIDEO || info.stVideoInfo.enCodecID >= 3;
      if (found.sync != (everySync || call.key)) return name + " has another key flag";
    }
    if (sample != tracks[i].samples.size()) return "track " + std::to_string(i) + " has samples too many";
  }
  return "";
}

const std::string& Model::tailAfter(std::size_t calls) {
  constexpr std::size_t kMostKept = 500;
  if (mTails.size() > kMostKept) mTails.clear();
  const auto known = mTails.find(calls);
  if (known != mTails.end()) return known->second;
  const MemoryFile file;
  Play(mSession, file.path(), calls, true);
  return mTails[calls] = Tail(file.bytes(), mMdat);
}

std::uint64_t Model::mediaEnd(const Data& file) const { return mMdat + Number(file, mMdat + 8, 8); }

std::string Model::difference(const Data& repaired, std::uint64_t cut, bool extraFrames, bool sameMedia) {
  const std::uint64_t end = keptEnd(cut, extraFrames);
  if (repaired.size() < end) return "media data is missing";
  const auto media = static_cast<long>(mediaStart());
  const auto last = mWhole.begin() + static_cast<long>(end);
  const auto other = std::mismatch(mWhole.begin() + media, last, repaired.begin() + media).first;
  if (other != last) return "media data differs at " + std::to_string(other - mWhole.begin());
  if (sameMedia && mediaEnd(repaired) != end) {
    return "media data ends at " + std::to_string(mediaEnd(repaired)) + " instead of " + std::to_string(end);
  }
  const std::size_t calls = keptCalls(cut, extraFrames);
  const std::string tail = Tail(repaired, mMdat);
  const std::string& wanted = tailAfter(calls);
  if (tail == wanted) return "";
  const auto same = std::mismatch(tail.begin(), tail.end(), wanted.begin(), wanted.end()).first - tail.begin();
  return "after " + std::to_string(calls) + " calls: the boxes differ after " + std::to_string(same) + " bytes";
}
