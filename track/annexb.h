#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

// Finds the first start code 00 00 01 that lies wholly in [from, end): answers where its 01 stands, or end.
const ZR_U8* FindStartCode(const ZR_U8* from, const ZR_U8* end);

// The ways to search that this processor has, best first; FindStartCode takes the first. They answer the same.
using StartCodeSearch = const ZR_U8* (*)(const ZR_U8* from, const ZR_U8* end);
constexpr ZR_U32 kMaxStartCodeSearches = 4;
ZR_U32 StartCodeSearches(StartCodeSearch (&searches)[kMaxStartCodeSearches]);

}  // namespace zrmp4
