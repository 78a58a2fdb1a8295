#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using Nal = std::vector<std::uint8_t>;

// Bits written by hand, blanks ignored, zeros to the end of the last byte: FromBits("0 100001 1") is 0x43.
inline Nal FromBits(const std::string& bits) {
  Nal bytes;
  std::size_t count = 0;
  for (char bit : bits) {
    if (bit == ' ') continue;
    if (count % 8 == 0) bytes.push_back(0);
    if (bit == '1') bytes.back() = static_cast<std::uint8_t>(bytes.back() | 0x80 >> count % 8);
    ++count;
  }
  return bytes;
}

inline std::string Times(std::size_t count, const std::string& bits) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += bits;
  return all;
}

// The parameter sets of a 320x240 stream as a common encoder writes them: main profile, level 2, wavefronts.
const Nal kHevcVps = {0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00,
                      0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x3C, 0x95, 0x98, 0x09};
const Nal kHevcSps = {0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00,
                      0x00, 0x03, 0x00, 0x3C, 0xA0, 0x0A, 0x08, 0x0F, 0x16, 0x59, 0x59, 0xA4, 0x93, 0x2B,
                      0xC0, 0x5A, 0x02, 0x00, 0x00, 0x03, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x32, 0x10};
const Nal kHevcPps = {0x44, 0x01, 0xC1, 0x72, 0xB4, 0x62, 0x40};

// An H.265 sequence parameter set with every optional part, field by field; a test changes the field that it is about.
struct HevcSpsBits {
  std::string subLayers = "001";                            // sps_max_sub_layers_minus1
  std::string profile = "01 1 00010";                       // space, tier, idc
  std::string compatibility = "00100000" + Times(24, "0");  // 32 flags
  std::string constraints = "10010000" + Times(40, "1");    // 48 flags
  std::string level = "01011101";                           // 93
  std::string chroma = "00100 0";                           // 4:4:4, separate_colour_plane_flag
  std::string depths = "011 00101";                         // luma 10, chroma 12 bits
  std::string pocLsb = "00101";                             // log2_max_pic_order_cnt_lsb_minus4
  std::string refPicSets =
      "00101"                   // four sets
      "011 010  1 1  1 1  1 1"  // -1, -2, +1
      "1 1 010  1 1 1 1"        // that moved by -2, and -2 itself, all kept: -1, -2, -3, -4
      "1 0 010  1 1 00 00 01"   // that moved by 2, keeping +1, 0 and 2 itself, where 0 is no reference: 1, 2
      "1 1 1    01 1 00";       // so that there are three flags here
  std::string longTerm = "1 011  10101010 1  01010101 0";  // two, of 8 bits
  std::string cpbCount = "010";                            // cpb_cnt_minus1 of the second sub-layer
  std::string segmentation = "000000 1100101";             // min_spatial_segmentation_idc 100

  Nal bytes() const {
    const std::string subLayer = "1 1" + Times(7, "00") + Times(88, "1") + "00111100";  // one, with profile and level
    const std::string scaling = "1 1" +                                                 //
                                ("1" + Times(16, "1") + Times(5, "0 1")) +              // 4x4: one coded, five copied
                                Times(6, "0 1") +                                       // 8x8
                                ("1 1" + Times(64, "1") + Times(5, "0 1")) +            // 16x16, with a DC value
                                Times(2, "0 1");                                        // 32x32
    const std::string pcm = "1 0111 0111 1 010 0";
    const std::string cpb = Times(4, "010") + "1";
    const std::string hrd = "1 1 1" + Times(8 + 5 + 1 + 5, "1") + Times(4 + 4 + 4 + 15, "0") +  //
                            "0 0 1" + Times(2, cpb) +                                           // low delay: one buffer
                            "1 1" + cpbCount + Times(2 * 2, cpb);
    const std::string vui = "1  1 11111111" + Times(32, "0") +       // sample aspect ratio
                            "1 0  1 101 0 1" + Times(24, "0") +      // overscan, video signal type
                            "1 1 1  000  1 1 1 1 1" +                // chroma location, display window
                            "1" + Times(64, "1") + "1 1  1" + hrd +  // timing
                            "1 000" + segmentation;                  // bitstream restriction
    return FromBits("0 100001 000000 001  0000" + subLayers + "1" + profile + compatibility + constraints + level +
                    subLayer + "1" + chroma + "00000000101000001 000000011110001  1 1 010 011 00100" + depths + pocLsb +
                    "1" + Times(2, "00101 011 1") +  // pictures per sub-layer
                    "1 011 1 00100 1 1" + scaling + "0 1" + pcm + refPicSets + longTerm + "1 0" + vui);
  }
};
