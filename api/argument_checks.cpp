#include "api/argument_checks.h"

#include <cstring>

#include "base/log.h"
#include "box/user_def_atom.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kMaxVBufSize = 5 * 1024 * 1024;
constexpr ZR_U32 kMaxPreAllocUnit = 100 * 1024 * 1024;
constexpr ZR_U32 kMinBackupUnit = 512 * 1024;
constexpr ZR_U32 kMaxBackupUnit = 500 * 1024 * 1024;
constexpr ZR_U32 kMinTimeScale = 1000;
constexpr std::size_t kMinQueryPath = 5;

template <std::size_t kRoom>
bool IsTerminated(const char (&text)[kRoom]) {
  return std::memchr(text, '\0', kRoom) != nullptr;
}

int CheckMuxerConfig(const zrMP4_MUXER_CONFIG_S& muxer) {
  if (muxer.u32VBufSize < 1 || muxer.u32VBufSize > kMaxVBufSize) {
    return ZR_FAIL(-1, "vbuf size illegal %u  \n", muxer.u32VBufSize);
  }
  if (muxer.u32PreAllocUnit > kMaxPreAllocUnit) {
    return ZR_FAIL(-1, "u32PreAllocUnit size illegal %u  \n", muxer.u32PreAllocUnit);
  }
  if (muxer.u32BackupUnit != 0 && (muxer.u32BackupUnit < kMinBackupUnit || muxer.u32BackupUnit > kMaxBackupUnit)) {
    return ZR_FAIL(-1, "u32BackupUnit size illegal %u  \n", muxer.u32BackupUnit);
  }
  if (muxer.enFormatProfile > ZR_MP4_PROFILE_MOV) {
    return ZR_FAIL(-1, "enFormatProfile enFormatProfile illegal %d  \n", static_cast<int>(muxer.enFormatProfile));
  }
  return 0;
}

int CheckDemuxerConfig(const zrMP4_DEMUXER_CONFIG_S& demuxer) {
  if (demuxer.u32VBufSize <= kMaxVBufSize) return 0;
  return ZR_FAIL(-1, "vbuf size illegal %d  \n", static_cast<int>(demuxer.u32VBufSize));
}

bool IsVideoCodec(zrMP4_CODECID_E codec) { return codec <= ZR_MP4_CODEC_PRORES_HQ && codec != ZR_MP4_CODEC_RESERVED_2; }

bool IsAudioCodec(zrMP4_CODECID_E codec) {
  return codec >= ZR_MP4_CODEC_AAC && codec <= ZR_MP4_CODEC_G711U && codec != ZR_MP4_CODEC_RESERVED_9;
}

int CheckVideoInfo(const zrMP4_VIDEO_INFO_S& video) {
  const int codec = static_cast<int>(video.enCodecID);
  if (!IsVideoCodec(video.enCodecID)) {
    ZR_NOTE(ZR_LOG_LEVEL_ERROR, "video codecid not support %d \n", codec);
    return ZR_FAIL(-1, "video info codecid illegal %d \n", codec);
  }
  if (video.u32BitRate == 0 || video.u32FrameRate == 0) {
    return ZR_FAIL(-1, "video info illegal bitrate %u framerate%u\n", video.u32BitRate, video.u32FrameRate);
  }
  return 0;
}

int CheckAudioInfo(const zrMP4_AUDIO_INFO_S& audio) {
  const int codec = static_cast<int>(audio.enCodecID);
  if (!IsAudioCodec(audio.enCodecID)) {
    ZR_NOTE(ZR_LOG_LEVEL_ERROR, "audio codecid not support %d \n", codec);
    return ZR_FAIL(-1, "audio info codecid illegal %d \n", codec);
  }
  if (audio.u32SamplePerFrame == 0 || audio.u16SampleSize == 0) {
    return ZR_FAIL(-1, "audio info  illegal u32SamplePerFrame %u u16SampleSize:%d\n", audio.u32SamplePerFrame,
                   audio.u16SampleSize);
  }
  if (audio.u32Channels == 0 || audio.u32SampleRate == 0) {
    return ZR_FAIL(-1, "audio info illegal channels %u samplerate%u \n", audio.u32Channels, audio.u32SampleRate);
  }
  return 0;
}

int CheckMetaInfo(const zrMP4_META_INFO_S& meta) {
  return meta.u32FrameRate != 0 ? 0 : ZR_FAIL(-1, "meta info illegal framerate\n");
}

}  // namespace

int CheckConfig(const zrMP4_CONFIG_S* config) {
  if (!IsTerminated(config->aszFileName)) return ZR_FAIL(-1, "file name illegal \n");
  if (config->aszFileName[0] == '\0' && config->s32Fd == -1) return ZR_FAIL(-1, "file name or file fd null  \n");
  switch (config->enConfigType) {
    case ZR_MP4_CONFIG_MUXER:
      return CheckMuxerConfig(config->stMuxerConfig);
    case ZR_MP4_CONFIG_DEMUXER:
      return CheckDemuxerConfig(config->stDemuxerConfig);
    default:
      return ZR_FAIL(-1, "file config type ilegal %d\n", static_cast<int>(config->enConfigType));
  }
}

int Check_TrackInfo(const zrMP4_TRACK_INFO_S* info) {
  const zrMP4_TRACK_TYPE_E type = info->enTrackType;
  if (type < ZR_MP4_TRACK_VIDEO || type > ZR_MP4_TRACK_META) {
    return ZR_FAIL(-1, "stream info type illegal %d \n", static_cast<int>(type));
  }
  // Written so that a speed that is not a number is refused as well.
  if (type != ZR_MP4_TRACK_AUDIO && !(info->fSpeed > 0.0f)) {
    return ZR_FAIL(-1, "stream info fspeed illegal %f \n", static_cast<double>(info->fSpeed));
  }
  if (!IsTerminated(info->aszHdlrName)) return ZR_FAIL(-1, "handlr name illegal \n");
  if (info->u32TimeScale < kMinTimeScale) return ZR_FAIL(-1, "track info timescale %u\n", info->u32TimeScale);
  if (type == ZR_MP4_TRACK_VIDEO) return CheckVideoInfo(info->stVideoInfo);
  if (type == ZR_MP4_TRACK_AUDIO) return CheckAudioInfo(info->stAudioInfo);
  return CheckMetaInfo(info->stMetaInfo);
}

int MP4_CheckAtomInfo(const char* path, const zrMP4_ATOM_INFO_S* info) {
  if (info->pu8DataBuf != nullptr && info->u32DataLen == 0) {
    return ZR_FAIL(-1, "user define box  u32DataLen  illegal\n");
  }
  if (info->pu8DataBuf == nullptr && info->u32DataLen != 0) return ZR_FAIL(-1, "user define box data null \n");
  if (CheckUserBoxPath(path) != 0 || CheckUserBoxType(info->aszType) != 0) return -1;
  if (info->u32DataLen > ZR_MP4_BOX_MAX_DATALEN) {
    return ZR_FAIL(-1, "user define box data len illegal %u \n", info->u32DataLen);
  }
  return 0;
}

int CheckQueryPath(const char* path) {
  const std::size_t length = std::strlen(path);
  if (length < kMinQueryPath || length > kMaxUserBoxPath) {
    return ZR_FAIL(-1, "input box pattern len: %u min:%d max %d\n", static_cast<ZR_U32>(length),
                   static_cast<int>(kMinQueryPath), static_cast<int>(kMaxUserBoxPath));
  }
  if (std::strcmp(path, "/mdat") == 0) return ZR_FAIL(-1, "can not read mdat atom out error \n");
  return 0;
}

}  // namespace zrmp4
