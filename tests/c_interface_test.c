/* A recording and its reading back from a C program, with a log of its own in place of the library's. */
#include <stdio.h>
#include <string.h>

#include "zr_log.h"
#include "zr_mp4.h"
#include "zr_mp4_ext.h"

static int gLines[8];
static int gHookCalls;

void ZR_LOG_Printf(const char* pszModule, int s32Level, const char* pszFormat, ...) {
    gLines[s32Level] += strcmp(pszModule, "MP4") == 0 && pszFormat != NULL;
}

static ZR_U32 countCalls(ZR_MP4_HANDLE handle, ZR_U32 timeScale, ZR_U64* duration) {
    gHookCalls += handle != 0 && timeScale == 90000 && *duration == 2 * 3600;
    return 0;
}

int main(int argc, char** argv) {
    zrMP4_CONFIG_S config = {.s32Fd = -1, .enConfigType = ZR_MP4_CONFIG_MUXER};
    zrMP4_TRACK_INFO_S track = {ZR_MP4_TRACK_VIDEO, 90000, 1.0f, "Picture", .stVideoInfo = {64, 48, 1000, 25, 0}};
    ZR_U8 bytes[] = {0, 0, 0, 1, 0x41, 9, 8, 7, 6, 5}, read[10] = {0}; /* an H.264 slice */
    zrMP4_FRAME_DATA_S frames[] = {{0, bytes, sizeof(bytes), ZR_FALSE}, {40000, bytes, sizeof(bytes), ZR_FALSE}};
    zrMP4_ATOM_INFO_S box = {sizeof(bytes), "note", bytes}, query = {sizeof(read), "", read};
    zrMP4_FILE_INFO_S info;
    ZR_MP4_HANDLE file = 0;
    ZR_MP4_TRACK_HANDLE handle = 0;

    strncpy(config.aszFileName, argc == 2 ? argv[1] : "", sizeof(config.aszFileName) - 1);
    config.stMuxerConfig.u32VBufSize = 4096;
    config.stMuxerConfig.u32BackupUnit = 524288;
    ZR_U32 failed = ZR_MP4_Create(&file, &config) || ZR_MP4_CreateTrack(file, &handle, &track) ||
                    ZR_MP4_WriteFrame(file, handle, &frames[0]) || ZR_MP4_WriteFrame(file, handle, &frames[1]) ||
                    ZR_MP4_AddAtom(file, "/moov", &box) || ZR_MP4_DestroyAllTracks(file, countCalls) ||
                    ZR_MP4_Destroy(file, NULL) || ZR_MP4_RepairFile(argv[1], ZR_TRUE);
    config.enConfigType = ZR_MP4_CONFIG_DEMUXER;
    failed = failed || ZR_MP4_Create(&file, &config) || ZR_MP4_GetFileInfo(file, &info) ||
             ZR_MP4_GetAtom(file, "/moov/note", &query) || ZR_MP4_Destroy(file, NULL) || remove(argv[1]);
    failed = failed || gHookCalls != 1 || info.u32TrackNum != 1 || strcmp(info.aszHdlrName, "Picture") != 0 ||
             memcmp(read, bytes, sizeof(read)) != 0 || gLines[ZR_LOG_LEVEL_NOTICE] < 2 /* of both files */ ||
             strcmp(ZR_MP4_StatusName(ZR_ERR_MP4_OPEN), "ZR_ERR_MP4_OPEN") != 0;
    if (failed) fprintf(stderr, "failed, with %d errors in the log\n", gLines[ZR_LOG_LEVEL_ERROR]);
    return failed != 0;
}
