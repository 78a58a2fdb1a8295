#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

// What a caller hands in, checked rule by rule: 0, or -1 after the first broken rule was logged.
int CheckConfig(const zrMP4_CONFIG_S* config);
int Check_TrackInfo(const zrMP4_TRACK_INFO_S* info);
int MP4_CheckAtomInfo(const char* path, const zrMP4_ATOM_INFO_S* info);

// The path of a box query.
int CheckQueryPath(const char* path);

}  // namespace zrmp4
