// Applications are built against the sizes and offsets of the public structures, so a change of one does not compile.
#include <cstddef>

#include "zr_mp4.h"

namespace {

constexpr std::size_t kPointer = sizeof(void*);

static_assert(sizeof(ZR_BOOL) == 4, "");
static_assert(sizeof(ZR_MP4_HANDLE) == kPointer && sizeof(ZR_MP4_TRACK_HANDLE) == kPointer, "");
static_assert(sizeof(zrMP4_CONFIG_TYPE_E) == 4 && sizeof(zrMP4_FORMAT_PROFILE_E) == 4, "");
static_assert(sizeof(zrMP4_TRACK_TYPE_E) == 4 && sizeof(zrMP4_CODECID_E) == 4, "");

static_assert(offsetof(zrMP4_MUXER_CONFIG_S, u32PreAllocUnit) == 0, "");
static_assert(offsetof(zrMP4_MUXER_CONFIG_S, u32VBufSize) == 4, "");
static_assert(offsetof(zrMP4_MUXER_CONFIG_S, bCo64Flag) == 8, "");
static_assert(offsetof(zrMP4_MUXER_CONFIG_S, bConstantRate) == 12, "");
static_assert(offsetof(zrMP4_MUXER_CONFIG_S, u32BackupUnit) == 16, "");
static_assert(offsetof(zrMP4_MUXER_CONFIG_S, enFormatProfile) == 20, "");
static_assert(sizeof(zrMP4_MUXER_CONFIG_S) == 24 && sizeof(zrMP4_DEMUXER_CONFIG_S) == 4, "");

static_assert(offsetof(zrMP4_CONFIG_S, aszFileName) == 0, "");
static_assert(offsetof(zrMP4_CONFIG_S, s32Fd) == 256, "");
static_assert(offsetof(zrMP4_CONFIG_S, enConfigType) == 260, "");
static_assert(offsetof(zrMP4_CONFIG_S, stMuxerConfig) == 264, "");
static_assert(offsetof(zrMP4_CONFIG_S, stDemuxerConfig) == 264, "");
static_assert(sizeof(zrMP4_CONFIG_S) == 288, "");

static_assert(offsetof(zrMP4_VIDEO_INFO_S, u32BitRate) == 8 && offsetof(zrMP4_VIDEO_INFO_S, u32FrameRate) == 12, "");
static_assert(offsetof(zrMP4_VIDEO_INFO_S, enCodecID) == 16 && sizeof(zrMP4_VIDEO_INFO_S) == 20, "");
static_assert(offsetof(zrMP4_AUDIO_INFO_S, u32SampleRate) == 4, "");
static_assert(offsetof(zrMP4_AUDIO_INFO_S, u32SamplePerFrame) == 8, "");
static_assert(offsetof(zrMP4_AUDIO_INFO_S, u16SampleSize) == 12, "");
static_assert(offsetof(zrMP4_AUDIO_INFO_S, enCodecID) == 16 && sizeof(zrMP4_AUDIO_INFO_S) == 20, "");
static_assert(offsetof(zrMP4_META_INFO_S, u32FrameRate) == 8, "");
static_assert(offsetof(zrMP4_META_INFO_S, enCodecID) == 12 && sizeof(zrMP4_META_INFO_S) == 20, "");

static_assert(offsetof(zrMP4_TRACK_INFO_S, u32TimeScale) == 4 && offsetof(zrMP4_TRACK_INFO_S, fSpeed) == 8, "");
static_assert(offsetof(zrMP4_TRACK_INFO_S, aszHdlrName) == 12, "");
static_assert(offsetof(zrMP4_TRACK_INFO_S, stVideoInfo) == 268, "");
static_assert(offsetof(zrMP4_TRACK_INFO_S, stAudioInfo) == 268, "");
static_assert(offsetof(zrMP4_TRACK_INFO_S, stMetaInfo) == 268, "");
static_assert(sizeof(zrMP4_TRACK_INFO_S) == 288, "");

static_assert(offsetof(zrMP4_FRAME_DATA_S, pu8DataBuffer) == 8, "");
static_assert(offsetof(zrMP4_FRAME_DATA_S, u32DataLength) == 8 + kPointer, "");
static_assert(offsetof(zrMP4_FRAME_DATA_S, bKeyFrameFlag) == 12 + kPointer, "");
static_assert(sizeof(zrMP4_FRAME_DATA_S) == 24 || (kPointer == 4 && alignof(zrMP4_FRAME_DATA_S) == 4), "");

static_assert(offsetof(zrMP4_ATOM_INFO_S, aszType) == 4, "");
static_assert(offsetof(zrMP4_ATOM_INFO_S, pu8DataBuf) == (kPointer == 4 ? 12 : 16), "");
static_assert(sizeof(zrMP4_ATOM_INFO_S) == offsetof(zrMP4_ATOM_INFO_S, pu8DataBuf) + kPointer, "");

static_assert(offsetof(zrMP4_FILE_INFO_S, aszHdlrName) == 4 && offsetof(zrMP4_FILE_INFO_S, bCo64Flag) == 260, "");
static_assert(offsetof(zrMP4_FILE_INFO_S, u32TrackNum) == 264, "");
static_assert(offsetof(zrMP4_FILE_INFO_S, u32BackupUnit) == 268 && sizeof(zrMP4_FILE_INFO_S) == 272, "");

}  // namespace
