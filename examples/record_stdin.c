/* Records H.264 with start codes from standard input until it ends or a signal comes, then finishes the file:
 *   ffmpeg -i in.mkv -c copy -f h264 - | record_stdin out.mp4 1280 720 30
 * The frames must come in the order in which they are shown (no B-frames). */
#define _POSIX_C_SOURCE 200809L
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "zr_mp4_ext.h"

enum { kLargestFrame = 4 << 20, kBackupUnit = 4 * kLargestFrame };

static ZR_MP4_HANDLE file;
static ZR_MP4_TRACK_HANDLE track;
static ZR_U64 frames, rate;
static volatile sig_atomic_t stopped;

static void stop(int number) { stopped = number; }

static ZR_U32 openFile(char** words) {
    zrMP4_CONFIG_S config = {.s32Fd = -1, .enConfigType = ZR_MP4_CONFIG_MUXER,
                             .stMuxerConfig = {.u32VBufSize = 65536, .u32BackupUnit = kBackupUnit}};
    zrMP4_TRACK_INFO_S info = {.enTrackType = ZR_MP4_TRACK_VIDEO, .u32TimeScale = 90000, .fSpeed = 1.0f,
                               .aszHdlrName = "camera"};
    rate = strtoul(words[4], NULL, 10);
    info.stVideoInfo = (zrMP4_VIDEO_INFO_S){(ZR_U32)atoi(words[2]), (ZR_U32)atoi(words[3]), 1, (ZR_U32)rate,
                                            ZR_MP4_CODEC_H264};
    snprintf(config.aszFileName, sizeof config.aszFileName, "%s", words[1]);
    const ZR_U32 status = ZR_MP4_Create(&file, &config);
    return status != 0 ? status : ZR_MP4_CreateTrack(file, &track, &info);
}

static ZR_U32 writeFrame(ZR_U8* data, size_t length, ZR_BOOL isKey) {
    const zrMP4_FRAME_DATA_S frame = {frames++ * 1000000 / rate, data, (ZR_U32)length, isKey};
    return ZR_MP4_WriteFrame(file, track, &frame);
}

/* Writes every frame that ends inside the input: where, behind a slice, a NAL unit begins the next one. */
static ZR_U32 record(void) {
    static ZR_U8 input[kLargestFrame];
    size_t end = 0, at = 0;
    ZR_BOOL hasSlice = ZR_FALSE, isKey = ZR_FALSE;
    ZR_U32 status = 0;
    while (status == 0) {
        const ssize_t count = read(STDIN_FILENO, input + end, sizeof input - end);
        if (stopped || count < 0) return 0; /* the frame at hand may be a piece of one */
        if (count == 0) return end == sizeof input ? ZR_ERR_MP4_ILLEGAL_PARAM
                                                   : hasSlice ? writeFrame(input, end, isKey) : 0;
        for (end += (size_t)count; at + 5 <= end && status == 0; ++at) {
            if (input[at] != 0 || input[at + 1] != 0 || input[at + 2] != 1) continue;
            const int type = input[at + 3] & 31;
            const int isSlice = type == 1 || type == 5;
            const int begins = (type >= 6 && type <= 9) || (isSlice && input[at + 4] >> 7);
            if (hasSlice && begins) {
                const size_t length = at > 0 && input[at - 1] == 0 ? at - 1 : at; /* a code of four bytes */
                status = writeFrame(input, length, isKey);
                memmove(input, input + length, end -= length);
                at -= length;
                hasSlice = isKey = ZR_FALSE;
            }
            hasSlice |= (ZR_BOOL)isSlice;
            isKey |= type == 5;
        }
    }
    return status;
}

int main(int count, char** words) {
    if (count != 5 || atoi(words[4]) < 1) return fprintf(stderr, "usage: record_stdin FILE WIDTH HEIGHT FPS\n"), 2;
    sigaction(SIGINT, &(struct sigaction){.sa_handler = stop}, NULL);  /* without SA_RESTART: a read ends at once */
    sigaction(SIGTERM, &(struct sigaction){.sa_handler = stop}, NULL);
    ZR_U32 status = openFile(words);
    if (status == 0) status = record();
    zrMP4_ATOM_INFO_S left = {0};
    ZR_MP4_DestroyAllTracks(file, NULL); /* also after a failure: what was recorded stays */
    /* It answers 0 in any case: a track that is left tells that the index could not be written. */
    if (ZR_MP4_GetAtom(file, "/moov/trak", &left) == ZR_ERR_MP4_ATOM_BUF) status = ZR_ERR_MP4_WRITE_TAIL;
    const ZR_U32 closed = ZR_MP4_Destroy(file, NULL);
    fprintf(stderr, "%llu frames, %s\n", (unsigned long long)frames, ZR_MP4_StatusName(status ? status : closed));
    return status != 0 || closed != 0;
}
