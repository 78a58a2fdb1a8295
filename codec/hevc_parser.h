#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

// Reads from H.265 parameter sets what a decoder configuration record needs. The input is a whole NAL unit, its
// two-byte header included, without emulation prevention. 0, or -1 when it ends early or holds what cannot be; the
// result is then undefined.
class HevcParser {
 public:
  struct ProfileTierLevel {
    ZR_U8 general_profile_space = 0;
    ZR_U8 general_tier_flag = 0;
    ZR_U8 general_profile_idc = 0;
    ZR_U32 general_profile_compatibility_flags = 0;
    ZR_U32 general_constraint_indicator_flags_high = 0;  // the first 32 of the 48 bits
    ZR_U16 general_constraint_indicator_flags_low = 0;   // the last 16
    ZR_U8 general_level_idc = 0;
  };

  struct VpsInfo {
    ZR_U8 vps_max_sub_layers_minus1 = 0;
    ProfileTierLevel profile;
  };

  struct SpsInfo {
    ZR_U8 sps_max_sub_layers_minus1 = 0;
    ZR_U8 sps_temporal_id_nesting_flag = 0;
    ProfileTierLevel profile;
    ZR_U8 chroma_format_idc = 0;
    ZR_U8 bit_depth_luma_minus8 = 0;
    ZR_U8 bit_depth_chroma_minus8 = 0;
    bool min_spatial_segmentation_present = false;
    ZR_U16 min_spatial_segmentation_idc = 0;
  };

  struct PpsInfo {
    ZR_U8 entropy_coding_sync_enabled_flag = 0;
    ZR_U8 tiles_enabled_flag = 0;
  };

  int ParseVps(const ZR_U8* sodb, ZR_U32 size, VpsInfo* info) const;
  int ParseSps(const ZR_U8* sodb, ZR_U32 size, SpsInfo* info) const;
  int ParsePps(const ZR_U8* sodb, ZR_U32 size, PpsInfo* info) const;
};

}  // namespace zrmp4
