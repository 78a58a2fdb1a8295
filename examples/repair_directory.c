/* Makes every recording of a directory playable, as a recorder does when it starts:  repair_directory /media/card
 * One line per file; a file that is finished already is left alone by the library. */
#define _POSIX_C_SOURCE 200809L
#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include "zr_mp4_ext.h"

static int isRecording(const char* name) {
    const size_t length = strlen(name);
    return length > 4 && (strcmp(name + length - 4, ".mp4") == 0 || strcmp(name + length - 4, ".mov") == 0);
}

static double seconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

static ZR_U32 durationOf(const char* path) {
    zrMP4_CONFIG_S config = {.s32Fd = -1, .enConfigType = ZR_MP4_CONFIG_DEMUXER};
    zrMP4_FILE_INFO_S info = {0};
    ZR_MP4_HANDLE file = 0;
    snprintf(config.aszFileName, sizeof config.aszFileName, "%s", path);
    if (ZR_MP4_Create(&file, &config) != 0) return 0;
    ZR_MP4_GetFileInfo(file, &info);
    ZR_MP4_Destroy(file, NULL);
    return info.u32Duration;
}

static const char* meaning(ZR_U32 status) {
    switch (status) {
        case ZR_ERR_MP4_ATOM_NOT_FOUND: return "recorded without a backup unit, or not by this library";
        case ZR_ERR_MP4_NO_TRACK_CFG: return "cut before its first frame: nothing to keep";
        case ZR_ERR_MP4_OPEN_FILE: return "cannot be opened, or is empty";
        case ZR_ERR_MP4_WRITE_TAIL: return "the card is full: make space and start again";
        default: return "stays as it is";
    }
}

static int repair(const char* path) {
    struct stat before, after;
    if (stat(path, &before) != 0) return 1;
    const double start = seconds();
    const ZR_U32 status = ZR_MP4_RepairFile(path, ZR_TRUE);
    if (status != 0) {
        printf("%s: %s, %s\n", path, ZR_MP4_StatusName(status), meaning(status));
        return 1;
    }
    const double took = seconds() - start;
    const int changed = stat(path, &after) != 0 || before.st_size != after.st_size ||
                        before.st_mtim.tv_sec != after.st_mtim.tv_sec ||
                        before.st_mtim.tv_nsec != after.st_mtim.tv_nsec;
    printf("%s: %s, %.1f s of recording", path, changed ? "repaired" : "finished", durationOf(path) / 1000.0);
    if (changed) printf(", in %.2f s", took);
    printf("\n");
    return 0;
}

int main(int count, char** words) {
    DIR* directory = count == 2 ? opendir(words[1]) : NULL;
    if (directory == NULL) return fprintf(stderr, "usage: repair_directory DIRECTORY\n"), 2;
    int files = 0, failures = 0;
    for (struct dirent* entry; (entry = readdir(directory)) != NULL;) {
        char path[256]; /* the longest that the library takes */
        if (!isRecording(entry->d_name)) continue;
        ++files;
        const int length = snprintf(path, sizeof path, "%s/%s", words[1], entry->d_name);
        failures += length >= (int)sizeof path || repair(path);
    }
    closedir(directory);
    printf("%d recordings, %d not repaired\n", files, failures);
    return failures != 0;
}
