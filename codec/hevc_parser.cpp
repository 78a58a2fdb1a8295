#include "codec/hevc_parser.h"

#include "codec/bit_reader.h"

namespace zrmp4 {
namespace {

// Names are those of ITU-T H.265; values that no stream can have end the parsing, so that every loop is bounded.
constexpr ZR_U32 kNalHeaderBits = 16;
constexpr ZR_U32 kMaxSubLayersMinus1 = 6;
constexpr ZR_U32 kMaxRefPics = 16;

ZR_U8 Byte(ZR_U32 value) { return static_cast<ZR_U8>(value); }

void SkipCodes(BitReader& in, unsigned count) {
  for (unsigned i = 0; i < count; ++i) in.ue();
}

ZR_U8 MaxSubLayersMinus1(BitReader& in) {
  const ZR_U32 value = in.bits(3);
  if (value > kMaxSubLayersMinus1) in.fail();
  return Byte(value);
}

void ProfileTierLevelOf(BitReader& in, ZR_U32 maxSubLayersMinus1, HevcParser::ProfileTierLevel& ptl) {
  ptl.general_profile_space = Byte(in.bits(2));
  ptl.general_tier_flag = Byte(in.bits(1));
  ptl.general_profile_idc = Byte(in.bits(5));
  ptl.general_profile_compatibility_flags = in.bits(32);
  ptl.general_constraint_indicator_flags_high = in.bits(32);
  ptl.general_constraint_indicator_flags_low = static_cast<ZR_U16>(in.bits(16));
  ptl.general_level_idc = Byte(in.bits(8));
  if (maxSubLayersMinus1 == 0 || in.failed()) return;

  constexpr unsigned kSubLayerSlots = 8;
  bool profilePresent[kSubLayerSlots];
  bool levelPresent[kSubLayerSlots];
  for (unsigned i = 0; i < kSubLayerSlots; ++i) {
    profilePresent[i] = in.flag();
    levelPresent[i] = in.flag();
  }
  for (ZR_U32 i = 0; i < maxSubLayersMinus1; ++i) {
    if (profilePresent[i]) {
      in.skip(32);
      in.skip(32);
      in.skip(24);
    }
    if (levelPresent[i]) in.skip(8);
  }
}

void SkipScalingListData(BitReader& in) {
  for (unsigned sizeId = 0; sizeId < 4; ++sizeId) {
    const unsigned coefficients = sizeId == 0 ? 16 : 64;
    const unsigned step = sizeId == 3 ? 3 : 1;
    for (unsigned matrixId = 0; matrixId < 6; matrixId += step) {
      const bool coded = in.flag();                       // scaling_list_pred_mode_flag
      const unsigned dcCoefficient = sizeId > 1 ? 1 : 0;  // scaling_list_dc_coef_minus8
      SkipCodes(in, coded ? dcCoefficient + coefficients : 1);
    }
  }
}

// A short-term reference picture set: distances in picture order, first those before the picture, then those after.
// Only the number and order of its pictures matter here, for a later set that is predicted from it.
struct RefPicSet {
  ZR_S32 delta[kMaxRefPics];
  ZR_U32 before = 0;
  ZR_U32 count = 0;

  void add(BitReader& in, ZR_S32 deltaPoc) {
    if (count == kMaxRefPics) return in.fail();
    delta[count++] = deltaPoc;
    if (deltaPoc < 0) ++before;
  }
};

ZR_S32 DeltaPoc(BitReader& in) { return static_cast<ZR_S32>(in.ueUpTo(0x7FFF)) + 1; }

void ReadRefPicSet(BitReader& in, RefPicSet& set) {
  const ZR_U32 before = in.ueUpTo(kMaxRefPics);
  const ZR_U32 after = in.ueUpTo(kMaxRefPics);
  ZR_S32 deltaPoc = 0;
  for (ZR_U32 i = 0; i < before && !in.failed(); ++i) {
    deltaPoc -= DeltaPoc(in);
    in.flag();  // used_by_curr_pic_s0_flag
    set.add(in, deltaPoc);
  }
  deltaPoc = 0;
  for (ZR_U32 i = 0; i < after && !in.failed(); ++i) {
    deltaPoc += DeltaPoc(in);
    in.flag();  // used_by_curr_pic_s1_flag
    set.add(in, deltaPoc);
  }
}

// A set that repeats the pictures of another, moved by deltaRps, with some left out, and the one at deltaRps itself.
void PredictRefPicSet(BitReader& in, const RefPicSet& from, RefPicSet& set) {
  const bool negative = in.flag();  // delta_rps_sign
  const ZR_S32 distance = DeltaPoc(in);
  const ZR_S32 deltaRps = negative ? -distance : distance;
  bool kept[kMaxRefPics + 1];
  for (ZR_U32 i = 0; i <= from.count; ++i) {
    const bool used = in.flag();  // used_by_curr_pic_flag
    kept[i] = used || in.flag();  // use_delta_flag
  }
  const auto take = [&](ZR_U32 i, bool isBefore) {
    const ZR_S32 deltaPoc = (i < from.count ? from.delta[i] : 0) + deltaRps;
    if (kept[i] && (isBefore ? deltaPoc < 0 : deltaPoc > 0)) set.add(in, deltaPoc);
  };
  for (ZR_U32 i = from.count; i > from.before; --i) take(i - 1, true);
  take(from.count, true);
  for (ZR_U32 i = 0; i < from.before; ++i) take(i, true);
  for (ZR_U32 i = from.before; i > 0; --i) take(i - 1, false);
  take(from.count, false);
  for (ZR_U32 i = from.before; i < from.count; ++i) take(i, false);
}

void SkipShortTermRefPicSets(BitReader& in) {
  const ZR_U32 sets = in.ueUpTo(64);
  RefPicSet previous;
  for (ZR_U32 i = 0; i < sets && !in.failed(); ++i) {
    RefPicSet set;
    const bool predicted = i > 0 && in.flag();  // inter_ref_pic_set_prediction_flag
    if (predicted) {
      PredictRefPicSet(in, previous, set);
    } else {
      ReadRefPicSet(in, set);
    }
    previous = set;
  }
}

void SkipLongTermRefPics(BitReader& in, unsigned pocLsbBits) {
  const ZR_U32 pictures = in.ueUpTo(32);
  for (ZR_U32 i = 0; i < pictures; ++i) in.skip(pocLsbBits + 1);
}

struct HrdFlags {
  bool nal;
  bool vcl;
  bool subPicture;
};

void SkipSubLayerHrd(BitReader& in, ZR_U32 cpbCount, bool subPicture) {
  for (ZR_U32 i = 0; i < cpbCount; ++i) {
    SkipCodes(in, subPicture ? 4 : 2);  // bit rates and buffer sizes
    in.skip(1);                         // cbr_flag
  }
}

void SkipHrdSubLayer(BitReader& in, const HrdFlags& hrd) {
  const bool fixedGeneral = in.flag();
  const bool fixedWithinCvs = fixedGeneral || in.flag();
  bool lowDelay = false;
  if (fixedWithinCvs) {
    in.ue();  // elemental_duration_in_tc_minus1
  } else {
    lowDelay = in.flag();
  }
  const ZR_U32 cpbCount = lowDelay ? 1 : in.ueUpTo(31) + 1;
  if (hrd.nal) SkipSubLayerHrd(in, cpbCount, hrd.subPicture);
  if (hrd.vcl) SkipSubLayerHrd(in, cpbCount, hrd.subPicture);
}

void SkipHrd(BitReader& in, ZR_U32 maxSubLayersMinus1) {
  HrdFlags hrd = {};
  hrd.nal = in.flag();
  hrd.vcl = in.flag();
  if (hrd.nal || hrd.vcl) {
    hrd.subPicture = in.flag();
    if (hrd.subPicture) in.skip(8 + 5 + 1 + 5);  // tick divisor, delay lengths
    in.skip(4 + 4);                              // bit_rate_scale, cpb_size_scale
    if (hrd.subPicture) in.skip(4);              // cpb_size_du_scale
    in.skip(5 + 5 + 5);                          // delay lengths
  }
  for (ZR_U32 i = 0; i <= maxSubLayersMinus1; ++i) SkipHrdSubLayer(in, hrd);
}

void SkipVideoSignalType(BitReader& in) {
  in.skip(3 + 1);                 // video_format, video_full_range_flag
  if (in.flag()) in.skip(3 * 8);  // colour description
}

void ReadVui(BitReader& in, HevcParser::SpsInfo& info) {
  constexpr ZR_U32 kExtendedSar = 255;
  if (in.flag() && in.bits(8) == kExtendedSar) in.skip(16 + 16);  // aspect ratio
  if (in.flag()) in.skip(1);                                      // overscan
  if (in.flag()) SkipVideoSignalType(in);
  if (in.flag()) SkipCodes(in, 2);  // chroma sample location
  in.skip(3);                       // neutral chroma, field_seq, frame_field_info
  if (in.flag()) SkipCodes(in, 4);  // default display window
  if (in.flag()) {                  // timing
    in.skip(32);
    in.skip(32);
    if (in.flag()) in.ue();  // vui_num_ticks_poc_diff_one_minus1
    if (in.flag()) SkipHrd(in, info.sps_max_sub_layers_minus1);
  }
  info.min_spatial_segmentation_present = in.flag();  // bitstream_restriction_flag
  if (!info.min_spatial_segmentation_present) return;
  in.skip(3);  // tiles_fixed_structure, motion_vectors_over_pic_boundaries, restricted_ref_pic_lists
  info.min_spatial_segmentation_idc = static_cast<ZR_U16>(in.ueUpTo(4095));
}

void SkipPcm(BitReader& in) {
  in.skip(4 + 4);    // sample bit depths
  SkipCodes(in, 2);  // block sizes
  in.skip(1);        // pcm_loop_filter_disabled_flag
}

void ReadPictureFormat(BitReader& in, HevcParser::SpsInfo& info) {
  constexpr ZR_U32 kChroma444 = 3;
  info.chroma_format_idc = Byte(in.ueUpTo(kChroma444));
  if (info.chroma_format_idc == kChroma444) in.skip(1);  // separate_colour_plane_flag
  SkipCodes(in, 2);                                      // width, height
  if (in.flag()) SkipCodes(in, 4);                       // conformance window
  info.bit_depth_luma_minus8 = Byte(in.ueUpTo(8));
  info.bit_depth_chroma_minus8 = Byte(in.ueUpTo(8));
}

// From the picture order count to what stands before the VUI.
void SkipCodingTools(BitReader& in, ZR_U32 maxSubLayersMinus1) {
  const unsigned pocLsbBits = in.ueUpTo(12) + 4;
  const ZR_U32 orderedLayers = in.flag() ? maxSubLayersMinus1 + 1 : 1;  // sps_sub_layer_ordering_info_present_flag
  SkipCodes(in, 3 * orderedLayers);
  SkipCodes(in, 6);  // block sizes and transform depths
  if (in.flag() && in.flag()) SkipScalingListData(in);
  in.skip(2);  // amp_enabled_flag, sample_adaptive_offset_enabled_flag
  if (in.flag()) SkipPcm(in);
  SkipShortTermRefPicSets(in);
  if (in.flag()) SkipLongTermRefPics(in, pocLsbBits);
  in.skip(2);  // sps_temporal_mvp_enabled_flag, strong_intra_smoothing_enabled_flag
}

}  // namespace

int HevcParser::ParseVps(const ZR_U8* sodb, ZR_U32 size, VpsInfo* info) const {
  if (sodb == nullptr || info == nullptr) return -1;
  BitReader in(sodb, size);
  in.skip(kNalHeaderBits);
  in.skip(4 + 2 + 6);  // vps_video_parameter_set_id, base layer flags, vps_max_layers_minus1
  info->vps_max_sub_layers_minus1 = MaxSubLayersMinus1(in);
  in.skip(1 + 16);  // vps_temporal_id_nesting_flag, reserved
  ProfileTierLevelOf(in, info->vps_max_sub_layers_minus1, info->profile);
  return in.failed() ? -1 : 0;
}

int HevcParser::ParseSps(const ZR_U8* sodb, ZR_U32 size, SpsInfo* info) const {
  if (sodb == nullptr || info == nullptr) return -1;
  BitReader in(sodb, size);
  in.skip(kNalHeaderBits);
  in.skip(4);  // sps_video_parameter_set_id
  info->sps_max_sub_layers_minus1 = MaxSubLayersMinus1(in);
  info->sps_temporal_id_nesting_flag = Byte(in.bits(1));
  ProfileTierLevelOf(in, info->sps_max_sub_layers_minus1, info->profile);
  in.ue();  // sps_seq_parameter_set_id
  ReadPictureFormat(in, *info);
  SkipCodingTools(in, info->sps_max_sub_layers_minus1);
  if (in.flag()) ReadVui(in, *info);
  return in.failed() ? -1 : 0;
}

int HevcParser::ParsePps(const ZR_U8* sodb, ZR_U32 size, PpsInfo* info) const {
  if (sodb == nullptr || info == nullptr) return -1;
  BitReader in(sodb, size);
  in.skip(kNalHeaderBits);
  SkipCodes(in, 2);        // pps_pic_parameter_set_id, pps_seq_parameter_set_id
  in.skip(2 + 3 + 2);      // slice segments, output flag, extra slice header bits, sign hiding, CABAC initialisation
  SkipCodes(in, 3);        // default numbers of reference pictures, init_qp_minus26
  in.skip(2);              // constrained_intra_pred_flag, transform_skip_enabled_flag
  if (in.flag()) in.ue();  // diff_cu_qp_delta_depth
  SkipCodes(in, 2);        // pps_cb_qp_offset, pps_cr_qp_offset
  in.skip(1 + 2 + 1);      // chroma offsets, weighted prediction, transquant bypass
  info->tiles_enabled_flag = Byte(in.bits(1));
  info->entropy_coding_sync_enabled_flag = Byte(in.bits(1));
  return in.failed() ? -1 : 0;
}

}  // namespace zrmp4
