#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "zr_mp4_ext.h"

// Reads the header, so that a code that is added there cannot be forgotten here.
TEST(StatusNames, EveryCodeOfTheHeaderHasTheNameThatItHasThere) {
  std::ifstream header(ZRMP4_SOURCE_DIR "/include/zr_mp4.h");
  int codes = 0;
  for (std::string line; std::getline(header, line);) {
    char name[64];
    unsigned status = 0;
    if (std::sscanf(line.c_str(), "#define %63s 0x%x", name, &status) != 2) continue;
    EXPECT_STREQ(ZR_MP4_StatusName(status), name);
    ++codes;
  }
  EXPECT_EQ(codes, 19);
  EXPECT_STREQ(ZR_MP4_StatusName(0), "success");
  EXPECT_STREQ(ZR_MP4_StatusName(0xA1298003), "unknown status");
}
