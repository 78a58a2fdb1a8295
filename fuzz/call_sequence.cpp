// Public calls in any order, with good and bad arguments, dead handles among them. What any bytes do in frames, boxes
// and files is told by the other targets.
#include <cstring>
#include <deque>
#include <utility>

#include "fuzz/fuzz.h"

namespace {

constexpr const char* kPaths[] = {"/",    "/moov",      "/moov/trak[0]", "/moov/trak[1]/mdia/minf", "/moov/udta",
                                  "note", "/moov/trak", "/mdat",         "/moov/trak[0]/mdia/hdlr", "/free",
                                  "",     "/moov/note", "/mdat/vemo",    "/moov/trak[9]"};
constexpr const char* kTypes[] = {"note", "udta", "free", "trak", "moov", "uuid", "abc"};
constexpr ZR_U32 kSizes[] = {65536, 1, 0, 524288, 5242880, 5242881, 524287, 0xFFFFFFFF};

ZR_U64 gHookDuration;

ZR_U32 Hook(ZR_MP4_HANDLE, ZR_U32, ZR_U64* duration) {
  *duration += gHookDuration;
  return 1;
}

class Caller {
 public:
  explicit Caller(Input in) : mIn(in) {}

  void run() {
    while (!mIn.empty() && mCalls++ < 48) call(mIn.byte());
    for (const ZR_MP4_HANDLE handle : mHandles) ZR_MP4_Destroy(handle, nullptr);
    for (const MemoryFile& file : mFiles) RecordedFile(file.path()).tracks();
    MP4_PROC_DestroyTrack(mMuxer);
    MP4_PROC_Remove(mMuxer);
  }

 private:
  void call(unsigned kind) {
    switch (kind % 19) {
      case 0: case 1: return create(true);
      case 2: return create(false);
      case 3: case 4: return createTrack();
      case 5: case 6: case 7: case 8: case 9: return writeFrame();
      case 10: case 11: return addAtom();
      case 12: ZR_MP4_GetTrackByIndex(handle(), mIn.byte(), mIn.byte() % 8 ? &mInfo : nullptr, &mFound); return;
      case 13: return GetPayload(handle(), path(), 1 << 20);
      case 14: ZR_MP4_GetFileInfo(handle(), mIn.byte() % 8 ? &mFileInfo : nullptr); return;
      case 15:
        gHookDuration = mIn.number(8);
        ZR_MP4_DestroyAllTracks(handle(), mIn.byte() % 2 ? Hook : nullptr);
        return;
      case 16: ZR_MP4_Destroy(handle(), mIn.byte() % 2 ? &mDuration : nullptr); return;
      case 17: return repair();
      default: return statistics();
    }
  }

  // Every recording has its own file: what two of them make of one is any bytes.
  MemoryFile& file(unsigned which) {
    if (mFiles.empty()) mFiles.emplace_back();
    return mFiles[mFiles.size() - 1 - which % mFiles.size()];
  }

  static std::string BadName(unsigned which) { return std::string(which % 2 * which, '/'); }
  std::string fileName() {
    const unsigned which = mIn.byte();
    return which >= 0xF8 ? BadName(which) : file(which).path();
  }

  void create(bool writes) {
    zrMP4_CONFIG_S config = {};
    if (writes) mFiles.emplace_back();
    const std::string name = writes ? mFiles.back().path() : fileName();
    const unsigned flags = mIn.byte();
    name.copy(config.aszFileName, flags == 0xF7 ? 0 : sizeof(config.aszFileName));
    config.s32Fd = flags & 1u ? file(0).descriptor() : flags & 2u ? -2 : -1;
    config.enConfigType = writes ? ZR_MP4_CONFIG_MUXER : ZR_MP4_CONFIG_DEMUXER;
    if (flags >= 0xF8) config.enConfigType = static_cast<zrMP4_CONFIG_TYPE_E>(flags);
    const ZR_U32 size = mIn.oneOf(kSizes);
    config.stDemuxerConfig.u32VBufSize = size;
    if (writes) {
      const auto profile = static_cast<zrMP4_FORMAT_PROFILE_E>(flags >> 5 & 1u);
      const ZR_U32 buffer = mIn.oneOf(kSizes), unit = mIn.oneOf(kSizes);
      config.stMuxerConfig = {size & 0x1FFFFFu, buffer, flags >> 2 & 3u, flags >> 4 & 1u, unit, profile};
    }
    ZR_MP4_HANDLE made = 0;
    if (ZR_MP4_Create(flags % 16 == 9 ? nullptr : &made, &config) == 0) mHandles.push_back(made);
  }

  // One that is or was live, or none at all.
  template <typename Handle>
  Handle oneOf(const std::vector<Handle>& handles) {
    const unsigned which = mIn.byte();
    return handles.empty() || which >= 0xF8 ? which & 7u : handles[handles.size() - 1 - which % handles.size()];
  }
  ZR_MP4_HANDLE handle() { return oneOf(mHandles); }

  void createTrack() {
    const unsigned kind = mIn.byte();
    zrMP4_TRACK_INFO_S info = MetaTrack();
    if (kind % 4 == 0) info = VideoTrack(static_cast<zrMP4_CODECID_E>(mIn.byte() % 8));
    if (kind % 4 == 1) info = AudioTrack(static_cast<zrMP4_CODECID_E>(mIn.byte() % 8 + 6));
    if (kind % 4 == 3) {  // anything
      const Data raw = mIn.bytes();
      std::copy_n(raw.begin(), std::min(raw.size(), sizeof(info)), reinterpret_cast<ZR_U8*>(&info));
    }
    const ZR_MP4_HANDLE file = handle();
    if (ZR_MP4_CreateTrack(file, kind == 0xFF ? nullptr : &mFound, &info) == 0) mTracks.push_back(mFound);
  }

  Data frame() {
    switch (mIn.byte() % 5) {
      case 0: return KeyFrame(mIn.byte() + 1);
      case 1: return DeltaFrame(mIn.byte() + 1);
      case 2: return AacFrame(mIn.byte());
      case 3: return Data(mIn.number(2) * 8, 7);  // snapshots are far apart
      default: return Data(mIn.byte(), 0);
    }
  }

  void writeFrame() {
    Data data = frame();
    const auto size = static_cast<ZR_U32>(data.size());
    const unsigned flags = mIn.byte();
    mTime += flags & 1u ? mIn.number(8) : 33333;
    const zrMP4_FRAME_DATA_S info = {mTime, size == 0 ? nullptr : data.data(), size, flags >> 1 & 1u};
    const ZR_MP4_HANDLE file = handle();
    ZR_MP4_WriteFrame(file, oneOf(mTracks), flags == 0xFF ? nullptr : &info);
  }

  std::string path() {
    const unsigned which = mIn.byte();
    if (which < 0xC0) return kPaths[which % std::size(kPaths)];
    const Data raw = mIn.bytes();
    return {raw.begin(), raw.end()};
  }

  void addAtom() {
    Data data(mIn.number(mIn.byte() % 8 ? 1 : 3), 1);
    zrMP4_ATOM_INFO_S info = {static_cast<ZR_U32>(data.size()), "", data.empty() ? nullptr : data.data()};
    std::memcpy(info.aszType, mIn.oneOf(kTypes), 4);
    if (mIn.byte() == 0xFF) info.aszType[4] = 'x';
    const ZR_MP4_HANDLE file = handle();
    ZR_MP4_AddAtom(file, path().c_str(), &info);
  }

  // Of a copy, as a crash leaves it.
  void repair() {
    const unsigned which = mIn.byte();
    const ZR_BOOL extra = mIn.byte() % 2;
    if (which >= 0xF8) {
      ZR_MP4_RepairFile(BadName(which).c_str(), extra);
      return;
    }
    const Data bytes = file(which).bytes();
    mFiles.emplace_back().set(bytes, bytes.size());
    ZR_MP4_RepairFile(mFiles.back().path().c_str(), extra);
  }

  void statistics() {
    const zrMP4_CONFIG_S config = MuxerConfig(fileName().substr(0, 255));
    const zrMP4_TRACK_INFO_S info = mIn.byte() % 2 ? VideoTrack() : AudioTrack();
    const unsigned kind = mIn.byte() % 5;
    if (kind == 0 && mMuxer == nullptr) MP4_PROC_Add(&mMuxer, &config);
    if (kind == 1) {
      zrMP4_PROC_TRACK_S* track = nullptr;
      MP4_PROC_CreateTrack(mMuxer, &track, &info);
      const std::uint64_t time = mIn.number(8), size = mIn.number(4);
      MP4_PROC_WriteFrame(mMuxer, track, time, static_cast<ZR_U32>(size), mIn.number(8));
    }
    if (kind == 2 || kind == 3) MP4_PROC_DestroyTrack(mMuxer);
    if (kind == 3) MP4_PROC_Remove(std::exchange(mMuxer, nullptr));
    if (kind == 4) {
      MP4_PROC_UpdateWriteTime(config.aszFileName, mIn.number(8));
      MP4_PROC_UpdateAllocTime(config.aszFileName, mIn.number(8));
    }
  }

  Input mIn;
  int mCalls = 0;
  std::deque<MemoryFile> mFiles;
  std::vector<ZR_MP4_HANDLE> mHandles;
  std::vector<ZR_MP4_TRACK_HANDLE> mTracks;
  zrMP4_PROC_MUXER_S* mMuxer = nullptr;
  zrMP4_TRACK_INFO_S mInfo = {};
  zrMP4_FILE_INFO_S mFileInfo = {};
  ZR_MP4_TRACK_HANDLE mFound = 0;
  ZR_U64 mDuration = 0;
  ZR_U64 mTime = 1000000;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Caller(Input(data, size)).run();
  return 0;
}
