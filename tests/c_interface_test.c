/* A recording and its reading back from a C program, with a log of its own in place of the library's. */
#include <stdio.h>
#include <string.h>

#include "zr_log.h"
#include "zr_mp4.h"
#include "zr_mp4_ext.h"

static int gLines[8];

void ZR_LOG_Printf(const char* pszModule, int s32Level, const char* pszFormat, ...) {
    ++gLines[s32Level];
    if (s32Level == ZR_LOG_LEVEL_ERROR) fprintf(stderr, "%s: %s", pszModule, pszFormat);
}

static int gHookCalls;

static ZR_U32 countCalls(ZR_MP4_HANDLE handle, ZR_U32 timeScale, ZR_U64* duration) {
    gHookCalls += handle != 0 && timeScale == 90000 && *duration == 50 * 3600;
    return 0;
}

#define EXPECT(condition)                                                 \
    do {                                                                  \
        if (!(condition)) {                                               \
            fprintf(stderr, "line %d: not %s\n", __LINE__, #condition);   \
            return 1;                                                     \
        }                                                                 \
    } while (0)

int main(int argc, char** argv) {
    zrMP4_CONFIG_S config = {0};
    zrMP4_TRACK_INFO_S track = {0};
    zrMP4_FRAME_DATA_S frame = {0};
    zrMP4_ATOM_INFO_S box = {0};
    zrMP4_FILE_INFO_S info = {0};
    ZR_MP4_HANDLE file = 0;
    ZR_MP4_TRACK_HANDLE video = 0;
    /* SPS, PPS, IDR slice */
    ZR_U8 bytes[] = {0, 0, 0, 1, 0x67, 0x64, 0x00, 0x1F, 0xAC, 0, 0, 0, 1, 0x68, 0xEE,
                     0x3C, 0x80, 0, 0, 0, 1, 0x65, 9, 8, 7, 6, 5, 4, 3, 2, 1};
    ZR_U8 read[5];
    int i;

    EXPECT(argc == 2);
    strcpy(config.aszFileName, argv[1]);
    config.s32Fd = -1;
    config.enConfigType = ZR_MP4_CONFIG_MUXER;
    config.stMuxerConfig.u32VBufSize = 4096;
    config.stMuxerConfig.u32BackupUnit = 524288;
    EXPECT(ZR_MP4_Create(&file, &config) == 0);
    track.enTrackType = ZR_MP4_TRACK_VIDEO;
    track.u32TimeScale = 90000;
    track.fSpeed = 1.0f;
    strcpy(track.aszHdlrName, "Picture");
    track.stVideoInfo.u32BitRate = 1000000;
    track.stVideoInfo.u32FrameRate = 25;
    track.stVideoInfo.enCodecID = ZR_MP4_CODEC_H264;
    EXPECT(ZR_MP4_CreateTrack(file, &video, &track) == 0);
    frame.pu8DataBuffer = bytes;
    frame.u32DataLength = sizeof(bytes);
    frame.bKeyFrameFlag = ZR_TRUE;
    for (i = 0; i < 50; ++i) {
        frame.u64TimeStamp = (ZR_U64)i * 40000;
        EXPECT(ZR_MP4_WriteFrame(file, video, &frame) == 0);
    }
    box.u32DataLen = 5;
    strcpy(box.aszType, "note");
    box.pu8DataBuf = bytes;
    EXPECT(ZR_MP4_AddAtom(file, "/moov", &box) == 0);
    EXPECT(ZR_MP4_DestroyAllTracks(file, countCalls) == 0 && gHookCalls == 1);
    EXPECT(ZR_MP4_Destroy(file, NULL) == 0);
    EXPECT(ZR_MP4_RepairFile(argv[1], ZR_TRUE) == 0);

    config.enConfigType = ZR_MP4_CONFIG_DEMUXER;
    EXPECT(ZR_MP4_Create(&file, &config) == 0);
    EXPECT(ZR_MP4_GetFileInfo(file, &info) == 0);
    EXPECT(info.u32TrackNum == 1 && info.u32BackupUnit == 524288 && info.u32Duration == 2000);
    EXPECT(strcmp(info.aszHdlrName, "Picture") == 0);
    box.pu8DataBuf = read;
    EXPECT(ZR_MP4_GetAtom(file, "/moov/note", &box) == 0 && memcmp(read, bytes, 5) == 0);
    EXPECT(ZR_MP4_Destroy(file, NULL) == 0);
    EXPECT(gLines[ZR_LOG_LEVEL_NOTICE] >= 2 && gLines[ZR_LOG_LEVEL_ERROR] == 0); /* the banner of both files */
    EXPECT(strcmp(ZR_MP4_StatusName(ZR_ERR_MP4_OPEN), "ZR_ERR_MP4_OPEN") == 0);
    return remove(argv[1]) != 0;
}
