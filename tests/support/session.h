#pragma once

#include <functional>
#include <map>
#include <memory>

#include "tests/support/recording.h"

namespace zrmp4 {
class MP4File;
class UserDefAtom;
}  // namespace zrmp4

// Recordings with small backup units as lists of calls, and what must come of them after a cut.

// A file in memory that has a name.
class MemoryFile {
 public:
  MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile();

  std::string path() const { return "/proc/self/fd/" + std::to_string(mFile); }
  int descriptor() const { return mFile; }
  Data bytes() const;
  // The first bytes of data, and zeros behind them.
  void set(const Data& data, std::size_t length, std::size_t zeros = 0);

 private:
  int mFile;
};

struct Call {
  int track;  // index, or a box
  Data data;
  ZR_U64 pts = 0;
  bool key = false;
  std::string path = {};  // of a box

  static constexpr int kBox = -1;
};

struct Session {
  std::string name;
  ZR_U32 unit = 8192;
  ZR_U32 buffer = 65536;
  ZR_U32 preAlloc = 0;
  ZR_BOOL wide = ZR_FALSE;
  ZR_BOOL constantRate = ZR_FALSE;
  std::vector<zrMP4_TRACK_INFO_S> tracks = {};
  std::size_t leading = 0;  // calls before the first track
  std::vector<Call> calls = {};
  bool refuses = false;   // some frames, which are larger than the unit allows
  bool telling = false;   // a frame that was cut in front of zeros shows it
};

// Sessions of every codec, with and without each option.
const std::vector<Session>& Sessions();
// One of many pages between two snapshots.
Session LongIntervals(int rounds = 30);

// Records a session step by step. What failed can be tried again.
class Recorder {
 public:
  Recorder(const Session& session, const std::string& path);
  ~Recorder();

  // Opening, the tracks where they belong, each call, finishing and closing.
  std::size_t steps() const { return mSession.calls.size() + 4; }
  ZR_U32 run(std::size_t step);
  std::uint64_t position() const;

 private:
  ZR_U32 open();
  ZR_U32 addTracks();
  ZR_U32 make(const Call& call);

  const Session& mSession;
  std::string mPath;
  std::unique_ptr<zrmp4::MP4File> mFile;
  zrmp4::UserDefAtom* mAdded = nullptr;  // the box of the current call, when only its copy is missing
};

struct Outcome {
  std::vector<std::uint64_t> ends;  // of the file after each call
  std::vector<ZR_U32> statuses;     // of each call
  ZR_U32 status = 0;                // of opening, of a track or of closing
};

// Makes the first calls of a session, and finishes the file or leaves it as after a crash.
Outcome Play(const Session& session, const std::string& path, std::size_t calls, bool finish);

// What repair must make of a cut session.
class Model {
 public:
  explicit Model(const Session& session);

  const Data& whole() const { return mWhole; }  // not finished
  const std::vector<Record>& records() const { return mRecords; }
  // Where the media data of a file of this session begins, and ends by its size.
  std::uint64_t mediaStart() const { return mMdat + 16; }
  std::uint64_t mediaEnd(const Data& file) const;
  std::vector<std::uint64_t> boundaries() const;
  std::uint64_t endOf(std::size_t calls) const { return mOutcome.ends[calls - 1]; }
  ZR_U32 status(std::uint64_t cut) const;
  std::size_t keptCalls(std::uint64_t cut, bool extraFrames) const;
  std::uint64_t keptEnd(std::uint64_t cut, bool extraFrames) const;
  // What is wrong with a recording finished after so many calls, or empty.
  std::string problemAfter(std::size_t calls);
  // The first difference of a repaired file to what it must be, or empty. sameMedia asks for the media data as well.
  std::string difference(const Data& repaired, std::uint64_t cut, bool extraFrames, bool sameMedia = true);

 private:
  const std::string& tailAfter(std::size_t calls);
  std::uint64_t lastGroup(std::uint64_t cut, std::uint64_t* end) const;

  const Session& mSession;
  Data mWhole;
  Outcome mOutcome;
  std::vector<Record> mRecords;
  std::uint64_t mHeadEnd = 0;   // of ftyp
  std::uint64_t mMdat = 0;      // offset
  std::uint64_t mVemo = 0;      // offset
  std::uint64_t mVemoEnd = 0;
  std::map<std::size_t, std::string> mTails;
};
