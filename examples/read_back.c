/* Describes a recording and shows one of its boxes:  read_back out.mp4 [/moov/ownr] */
#include <stdio.h>
#include <stdlib.h>

#include "zr_mp4_ext.h"

static const char* const kCodecs[] = {"H.264", "H.265", "?", "ProRes proxy", "ProRes LT", "ProRes 422", "ProRes HQ",
                                      "AAC", "MP3", "?", "G.711 A-law", "G.711 u-law"};

static const char* codecName(zrMP4_CODECID_E codec) {
    return codec < sizeof kCodecs / sizeof *kCodecs ? kCodecs[codec] : "?";
}

static void showTrack(ZR_U32 index, const zrMP4_TRACK_INFO_S* track) {
    printf("track %u: %s, ", index, track->aszHdlrName);
    if (track->enTrackType == ZR_MP4_TRACK_VIDEO)
        printf("%s, %u x %u, %u frames/s\n", codecName(track->stVideoInfo.enCodecID), track->stVideoInfo.u32Width,
               track->stVideoInfo.u32Height, track->stVideoInfo.u32FrameRate);
    else if (track->enTrackType == ZR_MP4_TRACK_AUDIO)
        printf("%s, %u Hz, %u channels\n", codecName(track->stAudioInfo.enCodecID), track->stAudioInfo.u32SampleRate,
               track->stAudioInfo.u32Channels);
    else
        printf("metadata, %u samples/s\n", track->stMetaInfo.u32FrameRate);
}

static ZR_U32 showTracks(ZR_MP4_HANDLE file) {
    zrMP4_FILE_INFO_S info = {0};
    ZR_U32 status = ZR_MP4_GetFileInfo(file, &info);
    if (status != 0) return status;
    printf("%u.%03u s, %u tracks, backup unit %u bytes\n", info.u32Duration / 1000, info.u32Duration % 1000,
           info.u32TrackNum, info.u32BackupUnit);
    for (ZR_U32 i = 0; i < info.u32TrackNum && status == 0; ++i) {
        zrMP4_TRACK_INFO_S track = {0};
        ZR_MP4_TRACK_HANDLE handle = 0;
        status = ZR_MP4_GetTrackByIndex(file, i, &track, &handle);
        if (status == 0) showTrack(i, &track);
    }
    return status;
}

/* The first call tells the length, the second brings the bytes. */
static ZR_U32 showBox(ZR_MP4_HANDLE file, const char* path) {
    zrMP4_ATOM_INFO_S box = {0};
    ZR_U32 status = ZR_MP4_GetAtom(file, path, &box);
    if (status == ZR_ERR_MP4_ATOM_BUF) {
        box.pu8DataBuf = malloc(box.u32DataLen);
        status = box.pu8DataBuf != NULL ? ZR_MP4_GetAtom(file, path, &box) : ZR_ERR_MP4_NO_MEMORY;
    }
    if (status == 0) {
        printf("%s: ", path);
        fwrite(box.pu8DataBuf, 1, box.u32DataLen, stdout);
        printf("\n");
    }
    free(box.pu8DataBuf);
    return status;
}

int main(int count, char** words) {
    if (count != 2 && count != 3) return fprintf(stderr, "usage: read_back FILE [BOX]\n"), 2;
    zrMP4_CONFIG_S config = {.s32Fd = -1, .enConfigType = ZR_MP4_CONFIG_DEMUXER};
    ZR_MP4_HANDLE file = 0;
    snprintf(config.aszFileName, sizeof config.aszFileName, "%s", words[1]);
    ZR_U32 status = ZR_MP4_Create(&file, &config);
    if (status == 0) {
        status = showTracks(file);
        if (status == 0 && count == 3) status = showBox(file, words[2]);
        ZR_MP4_Destroy(file, NULL);
    }
    if (status != 0) fprintf(stderr, "%s: %s\n", words[1], ZR_MP4_StatusName(status));
    return status != 0;
}
