/* Forks a recorder, kills it at a random moment, repairs its file and counts, again and again:
 *   kill_and_repair out.mp4 [ROUNDS]
 * Fails when nothing is recorded, a repair fails, or it gives back fewer frames than had reached the kernel. */
#define _POSIX_C_SOURCE 200809L
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "zr_mp4_ext.h"

enum { kFrameSize = 16384, kBuffer = 65536, kBuffered = kBuffer / kFrameSize + 1 };

static zrMP4_CONFIG_S configFor(const char* name, zrMP4_CONFIG_TYPE_E type) {
    zrMP4_CONFIG_S config = {.s32Fd = -1, .enConfigType = type};
    snprintf(config.aszFileName, sizeof config.aszFileName, "%s", name);
    if (type == ZR_MP4_CONFIG_MUXER)
        config.stMuxerConfig = (zrMP4_MUXER_CONFIG_S){.u32VBufSize = kBuffer, .u32BackupUnit = 1 << 20};
    return config;
}

/* Metadata samples stand for frames. After each one that was taken a byte goes to the parent. */
static void record(const char* name, int acknowledge) {
    static ZR_U8 data[kFrameSize];
    const zrMP4_CONFIG_S config = configFor(name, ZR_MP4_CONFIG_MUXER);
    const zrMP4_TRACK_INFO_S info = {.enTrackType = ZR_MP4_TRACK_META, .u32TimeScale = 1000, .fSpeed = 1.0f,
                                     .aszHdlrName = "frames", .stMetaInfo = {16, 16, 1000, ZR_MP4_CODEC_META, 0}};
    ZR_MP4_HANDLE file = 0;
    ZR_MP4_TRACK_HANDLE track = 0;
    if (ZR_MP4_Create(&file, &config) != 0 || ZR_MP4_CreateTrack(file, &track, &info) != 0) _exit(1);
    for (ZR_U64 i = 0;; ++i) {
        const zrMP4_FRAME_DATA_S frame = {i * 1000, data, kFrameSize, ZR_TRUE};
        if (ZR_MP4_WriteFrame(file, track, &frame) != 0 || write(acknowledge, "", 1) != 1) _exit(1);
    }
}

static long framesIn(const char* name) {
    const zrMP4_CONFIG_S config = configFor(name, ZR_MP4_CONFIG_DEMUXER);
    ZR_MP4_HANDLE file = 0;
    ZR_U8 sizes[12] = {0}; /* of stsz: version and flags, common size, count */
    static ZR_U8 table[1 << 20];
    zrMP4_ATOM_INFO_S box = {sizeof table, "", table};
    if (ZR_MP4_Create(&file, &config) != 0) return 0;
    if (ZR_MP4_GetAtom(file, "/moov/trak[0]/mdia/minf/stbl/stsz", &box) == 0 && box.u32DataLen >= sizeof sizes)
        for (unsigned i = 0; i < sizeof sizes; ++i) sizes[i] = table[i];
    ZR_MP4_Destroy(file, NULL);
    return (long)((ZR_U32)sizes[8] << 24 | (ZR_U32)sizes[9] << 16 | (ZR_U32)sizes[10] << 8 | sizes[11]);
}

int main(int count, char** words) {
    if (count < 2) return fprintf(stderr, "usage: kill_and_repair FILE [ROUNDS]\n"), 2;
    const int rounds = count > 2 ? atoi(words[2]) : 10;
    long written = 0, kept = 0, bad = 0;
    setenv("ZR_LOG_LEVEL", "4", 1); /* messages about cut files are expected here */
    srand((unsigned)time(NULL));
    for (int round = 0; round < rounds; ++round) {
        int ends[2];
        long acknowledged = 0, got;
        char bytes[4096];
        if (pipe(ends) != 0) return 1;
        const pid_t child = fork();
        if (child == 0) record(words[1], ends[1]);
        close(ends[1]);
        const long last = 1 + rand() % 400; /* kill it when it has written about this many */
        while (acknowledged < last && (got = read(ends[0], bytes, sizeof bytes)) > 0) acknowledged += got;
        kill(child, SIGKILL);
        while ((got = read(ends[0], bytes, sizeof bytes)) > 0) acknowledged += got;
        waitpid(child, NULL, 0);
        close(ends[0]);
        const ZR_U32 status = ZR_MP4_RepairFile(words[1], ZR_TRUE);
        const long frames = status == 0 || status == ZR_ERR_MP4_NO_TRACK_CFG ? framesIn(words[1]) : 0;
        if (acknowledged == 0 || frames + kBuffered < acknowledged) ++bad, printf("%s\n", ZR_MP4_StatusName(status));
        written += acknowledged, kept += frames;
    }
    printf("%d kills: %ld frames acknowledged, %ld recovered, %ld bad\n", rounds, written, kept, bad);
    return bad != 0;
}
