/* Records made-up video, audio and metadata with a box of its own, and shows live statistics:  record_av out.mp4
 * An application puts its encoders in the place of the bytes below. */
#include <stdio.h>
#include <string.h>

#include "zr_mp4_ext.h"

/* A grey picture of 16 x 16 pixels in H.264: parameter sets and a key frame. */
static ZR_U8 picture[] = {0, 0, 0, 1, 0x67, 0x42, 0xC0, 0x0A, 0xD9, 0x1E, 0xC0, 0x44, 0, 0, 3, 0, 4, 0, 0, 3, 0, 0xC8,
                          0x3C, 0x48, 0x99, 0x20, 0, 0, 0, 1, 0x68, 0xCB, 0x83, 0xCB, 0x20, 0, 0, 1, 0x65, 0x88, 0x84,
                          0x0A, 0xF2, 0x62, 0x80, 0x01, 0x7C};
static ZR_U8 sound[160];
static char position[] = "48.8584 N 2.2945 E";

enum { kVideo, kAudio, kMeta, kTracks };

static ZR_MP4_HANDLE file;
static ZR_MP4_TRACK_HANDLE tracks[kTracks];
static zrMP4_PROC_MUXER_S* figures;
static zrMP4_PROC_TRACK_S* trackFigures[kTracks];

static ZR_U32 openFile(const char* name) {
    zrMP4_CONFIG_S config = {.s32Fd = -1, .enConfigType = ZR_MP4_CONFIG_MUXER,
                             .stMuxerConfig = {.u32VBufSize = 65536, .u32BackupUnit = 1 << 20}};
    zrMP4_TRACK_INFO_S infos[kTracks] = {
        {.enTrackType = ZR_MP4_TRACK_VIDEO, .u32TimeScale = 90000, .fSpeed = 1.0f, .aszHdlrName = "camera",
         .stVideoInfo = {16, 16, 10000, 25, ZR_MP4_CODEC_H264}},
        {.enTrackType = ZR_MP4_TRACK_AUDIO, .u32TimeScale = 8000, .fSpeed = 1.0f, .aszHdlrName = "microphone",
         .stAudioInfo = {1, 8000, 160, 16, ZR_MP4_CODEC_G711U}},
        {.enTrackType = ZR_MP4_TRACK_META, .u32TimeScale = 1000, .fSpeed = 1.0f, .aszHdlrName = "position",
         .stMetaInfo = {16, 16, 1, ZR_MP4_CODEC_META, 0}}};
    snprintf(config.aszFileName, sizeof config.aszFileName, "%s", name);
    ZR_U32 status = ZR_MP4_Create(&file, &config);
    if (status == 0) status = MP4_PROC_Add(&figures, &config);
    for (int i = 0; i < kTracks && status == 0; ++i) {
        status = ZR_MP4_CreateTrack(file, &tracks[i], &infos[i]);
        if (status == 0) status = MP4_PROC_CreateTrack(figures, &trackFigures[i], &infos[i]);
    }
    return status;
}

static ZR_U32 writeFrame(int track, ZR_U64 microseconds, void* data, ZR_U32 length) {
    const zrMP4_FRAME_DATA_S frame = {microseconds, data, length, track == kVideo};
    const ZR_U32 status = ZR_MP4_WriteFrame(file, tracks[track], &frame);
    if (status == 0) MP4_PROC_WriteFrame(figures, trackFigures[track], microseconds, length, 0);
    return status;
}

/* Ten seconds in steps of 20 ms: a piece of sound each, a picture every second one, a position every second. */
static ZR_U32 record(void) {
    ZR_U32 status = 0;
    for (ZR_U64 step = 0; step < 500 && status == 0; ++step) {
        const ZR_U64 now = step * 20000;
        if (step % 2 == 0) status = writeFrame(kVideo, now, picture, sizeof picture);
        if (status == 0) status = writeFrame(kAudio, now, sound, sizeof sound);
        if (status == 0 && step % 50 == 0) status = writeFrame(kMeta, now, position, sizeof position - 1);
        if (step % 100 == 99)
            printf("%2u s: %u pictures, %u pieces of sound, %u positions\n", (unsigned)(step + 1) / 50,
                   trackFigures[kVideo]->frameCount, trackFigures[kAudio]->frameCount,
                   trackFigures[kMeta]->frameCount);
    }
    return status;
}

int main(int count, char** words) {
    static char owner[] = "recorded by an example";
    const zrMP4_ATOM_INFO_S box = {sizeof owner - 1, "ownr", (ZR_U8*)owner};
    if (count != 2) return fprintf(stderr, "usage: record_av FILE\n"), 2;
    memset(sound, 0xFF, sizeof sound); /* silence */
    ZR_U32 status = openFile(words[1]);
    if (status == 0) status = ZR_MP4_AddAtom(file, "/moov", &box);
    if (status == 0) status = record();
    zrMP4_ATOM_INFO_S left = {0};
    ZR_MP4_DestroyAllTracks(file, NULL);
    /* It answers 0 in any case: a track that is left tells that the index could not be written. */
    if (ZR_MP4_GetAtom(file, "/moov/trak", &left) == ZR_ERR_MP4_ATOM_BUF) status = ZR_ERR_MP4_WRITE_TAIL;
    const ZR_U32 closed = ZR_MP4_Destroy(file, NULL);
    if (status != 0 || closed != 0) fprintf(stderr, "%s\n", ZR_MP4_StatusName(status != 0 ? status : closed));
    if (figures != NULL) MP4_PROC_DestroyTrack(figures), MP4_PROC_Remove(figures);
    return status != 0 || closed != 0;
}
