#include "zr_mp4.h"

#include <cstring>
#include <string>
#include <utility>

#include "api/argument_checks.h"
#include "api/call_guard.h"
#include "api/muxer_registry.h"
#include "base/annex_k.h"
#include "base/make_or_null.h"
#include "base/memory_out.h"
#include "box/user_def_atom.h"
#include "stream/mem_io_stream.h"

namespace zrmp4 {
namespace {

constexpr char kVersion[] = "MORVALE MP4 MW Version: " ZR_MP4_VERSION;
constexpr char kBuildDate[] = "MORVALE MP4 Build Date:Aug 25 2020 Time:20:52:29";
constexpr int kNoDescriptor = -1;
constexpr ZR_U32 kRepairBuffer = 1024 * 1024;
constexpr std::size_t kMaxFileName = 255;
constexpr ZR_U32 kInternalFailure = 0xFFFFFFFF;

MuxerRegistry& Muxers() { return MuxerRegistry::instance(); }

// Ends a handle when the scope is left, however it is left.
class HandleEnd {
 public:
  explicit HandleEnd(ZR_MP4_HANDLE handle) : mHandle(handle) {}
  HandleEnd(const HandleEnd&) = delete;
  HandleEnd& operator=(const HandleEnd&) = delete;
  ~HandleEnd() { Muxers().remove(mHandle); }

 private:
  ZR_MP4_HANDLE mHandle;
};

ZR_U32 OpenForWriting(MP4File& file, const zrMP4_CONFIG_S& config) {
  const zrMP4_MUXER_CONFIG_S& muxer = config.stMuxerConfig;
  file.setBackupUnit(muxer.u32BackupUnit);
  file.setConstantRate(muxer.bConstantRate);
  file.setFormatProfile(muxer.enFormatProfile);
  file.setUseCo64(muxer.bCo64Flag);
  // Deliberate: any other true value gives 64-bit offsets, but not the large limit.
  file.setMaxFileSize(muxer.bCo64Flag == ZR_TRUE ? MP4File::MP4_MAX_FILE_SIZE_CO64 : MP4File::MP4_MAX_FILE_SIZE);
  return file.Open(config.aszFileName, config.s32Fd, "w", muxer.u32PreAllocUnit, muxer.u32VBufSize);
}

ZR_U32 OpenForReading(MP4File& file, const zrMP4_CONFIG_S& config) {
  return file.Open(config.aszFileName, config.s32Fd, "r", 0, config.stDemuxerConfig.u32VBufSize);
}

ZR_U32 Create(ZR_MP4_HANDLE* handle, const zrMP4_CONFIG_S& config) {
  ZR_NOTE(ZR_LOG_LEVEL_NOTICE, "version: %s build date: %s\n", kVersion, kBuildDate);
  if (Muxers().full()) return ZR_FAIL(ZR_ERR_MP4_OPEN, " MP4 reach max count %d \n", MuxerRegistry::MAX_COUNT);
  if (CheckConfig(&config) != 0) return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, " mp4 cfg illegal\n");

  auto muxer = MakeOrNull<MuxerRegistry::Muxer>();
  if (muxer == nullptr) return ZR_FAIL(ZR_ERR_MP4_NO_MEMORY, "new MP4File failed\n");
  const bool writing = config.enConfigType == ZR_MP4_CONFIG_MUXER;
  const ZR_U32 status = writing ? OpenForWriting(muxer->file, config) : OpenForReading(muxer->file, config);
  if (status != 0) return ZR_FAIL(status, "MP4File open failed\n");
  *handle = Muxers().add(std::move(muxer));
  return 0;
}

ZR_U32 Destroy(ZR_MP4_HANDLE handle, ZR_U64* duration) {
  const std::lock_guard<std::mutex> guard(Muxers().interfaceLock());
  MP4File* file = Muxers().find(handle);
  if (file == nullptr) return ZR_FAIL(ZR_ERR_MP4_HANDLE_INVALID, "ZR_MP4_Destroy cant find muxer \n");
  const HandleEnd end(handle);
  if (duration != nullptr) *duration = file->Duration();
  return file->Close();
}

ZR_U32 AddAtom(ZR_MP4_HANDLE handle, const char* path, const zrMP4_ATOM_INFO_S& info) {
  const std::lock_guard<std::mutex> guard(Muxers().interfaceLock());
  MP4File* file = Muxers().find(handle);
  if (file == nullptr) return ZR_FAIL(ZR_ERR_MP4_HANDLE_INVALID, "can't find muxer\n");
  if (MP4_CheckAtomInfo(path, &info) != 0) return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "MP4_CheckAtomInfo failed\n");

  auto box = MakeOrNull<UserDefAtom>(info.aszType, info.u32DataLen);
  if (box == nullptr) return ZR_FAIL(ZR_ERR_MP4_NO_MEMORY, "new %s atom no memory\n", info.aszType);
  if (box->InputData(info.pu8DataBuf, info.u32DataLen) != 0) return ZR_ERR_MP4_ATOM_DATA;
  const ZR_U32 status = file->AddAtom(path, box.get());
  if (status != 0) return ZR_FAIL(status, "addAtom failed\n");
  UserDefAtom* added = box.release();  // the tree owns it from here
  // Deliberate: a box without a copy for repair is still a box of the file.
  static_cast<void>(CallGuarded([&] { return file->BackupAtom(path, added); }));
  return 0;
}

// Hands the payload of a box to the caller.
ZR_U32 CopyPayload(Atom& box, ZR_U32 length, zrMP4_ATOM_INFO_S* info) {
  MemIOStream payload;
  if (payload.open() != 0) return ZR_FAIL(ZR_ERR_MP4_NO_MEMORY, "open stream for writing atom error\n");
  TakeMemoryOut();
  if (box.WriteContent(&payload) != 0 || payload.getCurPos() != length) {
    return ZR_FAIL(TakeMemoryOut() ? ZR_ERR_MP4_NO_MEMORY : ZR_ERR_MP4_ATOM_NOT_FOUND, "write atom data error\n");
  }
  if (CopyText(info->aszType, sizeof(info->aszType), box.type().data(), box.type().size()) != 0) {
    return ZR_FAIL(ZR_ERR_MP4_ATOM_NOT_FOUND, "copy atom type failed\n");
  }
  const ZR_U32 room = info->u32DataLen;
  info->u32DataLen = length;
  if (length != 0 && info->pu8DataBuf != nullptr && memcpy_s(info->pu8DataBuf, room, payload.data(), length) != 0) {
    return ZR_FAIL(ZR_ERR_MP4_ATOM_NOT_FOUND, "copy atom data failed\n");
  }
  return 0;
}

ZR_U32 GetAtom(ZR_MP4_HANDLE handle, const char* path, zrMP4_ATOM_INFO_S* info) {
  MP4File* file = Muxers().find(handle);
  if (file == nullptr) return ZR_FAIL(ZR_ERR_MP4_HANDLE_INVALID, "cant find muxer \n");
  if (info->pu8DataBuf == nullptr && info->u32DataLen != 0) {
    return ZR_FAIL(ZR_ERR_MP4_NULL_PTR, "atom info buf null \n");
  }
  if (CheckQueryPath(path) != 0) return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "atom path illegal\n");

  const std::lock_guard<std::mutex> guard(file->queryLock());
  Atom* box = file->GetAtom(path + 1);
  if (box == nullptr) return ZR_FAIL(ZR_ERR_MP4_ATOM_NOT_FOUND, "atom not found\n");
  const ZR_U64 declared = box->header().Length(file->stream()->size());
  const ZR_U64 length = declared - box->header().Size();
  if (declared < box->header().Size() || length > 0xFFFFFFFFu || declared > file->longestBox()) {
    return ZR_FAIL(ZR_ERR_MP4_ATOM_NOT_FOUND, "atom size illegal\n");
  }
  if (info->u32DataLen < length) {
    info->u32DataLen = static_cast<ZR_U32>(length);
    return ZR_ERR_MP4_ATOM_BUF;
  }
  return CopyPayload(*box, static_cast<ZR_U32>(length), info);
}

ZR_U32 GetFileInfo(ZR_MP4_HANDLE handle, zrMP4_FILE_INFO_S* info) {
  MP4File* file = Muxers().find(handle);
  // Deliberate: named after another function, as some of the messages below.
  if (file == nullptr) return ZR_FAIL(ZR_ERR_MP4_HANDLE_INVALID, "ZR_MP4_WriteFrame cant find muxer \n");
  info->u32Duration = file->Duration();
  info->u32TrackNum = file->trackCount();
  info->bCo64Flag = file->useCo64();
  info->u32BackupUnit = file->backupUnit();
  std::string name;
  const ZR_U32 status = file->GetHandleName(name);
  if (status != 0) return ZR_FAIL(status, "fail to get mp4 track hdlr info\n");
  if (CopyText(info->aszHdlrName, sizeof(info->aszHdlrName), name.data(), name.size()) != 0) {
    return ZR_FAIL(kInternalFailure, "snprintf_s HandlrName error\n");
  }
  return 0;
}

ZR_U32 RepairFile(const char* name, ZR_BOOL parseExtraFrames) {
  // Deliberate: the number printed is the size of the name's buffer, not the limit.
  if (std::strlen(name) > kMaxFileName) return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, " file name reach max %d\n", 256);
  auto file = MakeOrNull<MP4File>();
  if (file == nullptr) return ZR_FAIL(ZR_ERR_MP4_NO_MEMORY, "new MP4File failed\n");
  file->setRepairMode();
  if (file->Open(name, kNoDescriptor, "r+", 0, kRepairBuffer) != 0) {
    return ZR_FAIL(ZR_ERR_MP4_OPEN_FILE, "MP4File open failed\n");
  }
  const ZR_U32 status = file->Repair(parseExtraFrames);
  if (status != 0) ZR_NOTE(ZR_LOG_LEVEL_ERROR, "MP4File repair failed\n");
  // Deliberate: a repair that succeeded stays one when the close fails.
  if (file->Close() != 0) ZR_NOTE(ZR_LOG_LEVEL_ERROR, "MP4File repair close failed\n");
  return status;
}

}  // namespace
}  // namespace zrmp4

using zrmp4::CallGuarded;
using zrmp4::MP4File;

ZR_U32 ZR_MP4_Create(ZR_MP4_HANDLE* phMP4, const zrMP4_CONFIG_S* pstMP4Cfg) noexcept {
  if (phMP4 == nullptr || pstMP4Cfg == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&] { return zrmp4::Create(phMP4, *pstMP4Cfg); });
}

ZR_U32 ZR_MP4_Destroy(ZR_MP4_HANDLE hMP4, ZR_U64* pu64Duration) noexcept {
  if (hMP4 == 0) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&] { return zrmp4::Destroy(hMP4, pu64Duration); });
}

ZR_U32 ZR_MP4_DestroyAllTracks(ZR_MP4_HANDLE hMP4, ZR_MP4_DURATION_CALLBACK fnDuration) noexcept {
  if (hMP4 == 0) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&]() -> ZR_U32 {
    const std::lock_guard<std::mutex> guard(zrmp4::Muxers().interfaceLock());
    MP4File* file = zrmp4::Muxers().find(hMP4);
    if (file == nullptr) return ZR_FAIL(ZR_ERR_MP4_HANDLE_INVALID, "ZR_MP4_CreateTrack cant find muxer \n");
    file->setRemoveHook(fnDuration);
    // Deliberate: what became of the writing is logged, not answered.
    static_cast<void>(CallGuarded([&] { return file->RemoveAllTrack(); }));
    return 0;
  });
}

ZR_U32 ZR_MP4_CreateTrack(ZR_MP4_HANDLE hMP4, ZR_MP4_TRACK_HANDLE* phTrack,
                          const zrMP4_TRACK_INFO_S* pstTrackInfo) noexcept {
  if (hMP4 == 0 || phTrack == nullptr || pstTrackInfo == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&]() -> ZR_U32 {
    MP4File* file = zrmp4::Muxers().find(hMP4);
    if (file == nullptr) return ZR_FAIL(ZR_ERR_MP4_HANDLE_INVALID, "can't find muxer\n");
    if (zrmp4::Check_TrackInfo(pstTrackInfo) != 0) return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "Check_TrackInfo error\n");
    zrmp4::Track* track = file->AddTrack(pstTrackInfo);
    if (track == nullptr) return ZR_FAIL(ZR_ERR_MP4_CREATE_TRACK, "create track error\n");
    *phTrack = reinterpret_cast<ZR_MP4_TRACK_HANDLE>(track);
    return 0;
  });
}

ZR_U32 ZR_MP4_WriteFrame(ZR_MP4_HANDLE hMP4, ZR_MP4_TRACK_HANDLE hTrack,
                         const zrMP4_FRAME_DATA_S* pstFrameData) noexcept {
  if (hMP4 == 0 || hTrack == 0 || pstFrameData == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&] {
    MP4File* file = zrmp4::Muxers().find(hMP4);
    if (file == nullptr) return ZR_FAIL(ZR_ERR_MP4_HANDLE_INVALID, "ZR_MP4_WriteFrame cant find muxer \n");
    if (pstFrameData->u32DataLength != 0 && pstFrameData->pu8DataBuffer == nullptr) {
      return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "ZR_MP4_WriteFrame framedata error\n");
    }
    // Only an address until the engine has found it among its tracks.
    return file->WriteFrame(reinterpret_cast<zrmp4::Track*>(hTrack), pstFrameData->pu8DataBuffer,
                            pstFrameData->u32DataLength, pstFrameData->u64TimeStamp, pstFrameData->bKeyFrameFlag);
  });
}

ZR_U32 ZR_MP4_AddAtom(ZR_MP4_HANDLE hMP4, const char* pszAtomPath, const zrMP4_ATOM_INFO_S* pstAtomInfo) noexcept {
  if (hMP4 == 0 || pszAtomPath == nullptr || pstAtomInfo == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&] { return zrmp4::AddAtom(hMP4, pszAtomPath, *pstAtomInfo); });
}

ZR_U32 ZR_MP4_GetTrackByIndex(ZR_MP4_HANDLE hMP4, ZR_U32 u32Index, zrMP4_TRACK_INFO_S* pstTrackInfo,
                              ZR_MP4_TRACK_HANDLE* phTrack) noexcept {
  if (hMP4 == 0 || pstTrackInfo == nullptr || phTrack == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&]() -> ZR_U32 {
    MP4File* file = zrmp4::Muxers().find(hMP4);
    if (file == nullptr) return ZR_FAIL(ZR_ERR_MP4_HANDLE_INVALID, "ZR_MP4_WriteFrame cant find muxer \n");
    if (file->GetTrackInfo(u32Index, pstTrackInfo) != 0) {
      return ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "get track info failed\n");
    }
    *phTrack = reinterpret_cast<ZR_MP4_TRACK_HANDLE>(file->GetTrackHandle(u32Index));
    return 0;
  });
}

ZR_U32 ZR_MP4_GetAtom(ZR_MP4_HANDLE hMP4, const char* pszAtomPath, zrMP4_ATOM_INFO_S* pstAtomInfo) noexcept {
  if (hMP4 == 0 || pszAtomPath == nullptr || pstAtomInfo == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&] { return zrmp4::GetAtom(hMP4, pszAtomPath, pstAtomInfo); });
}

ZR_U32 ZR_MP4_GetFileInfo(ZR_MP4_HANDLE hMP4, zrMP4_FILE_INFO_S* pstFileInfo) noexcept {
  if (hMP4 == 0 || pstFileInfo == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&] { return zrmp4::GetFileInfo(hMP4, pstFileInfo); });
}

ZR_U32 ZR_MP4_RepairFile(const char* pszFileName, ZR_BOOL bParseExtraFrame) noexcept {
  if (pszFileName == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return CallGuarded([&] { return zrmp4::RepairFile(pszFileName, bParseExtraFrame); });
}
