#pragma once

#include "stream/field_io.h"

namespace zrmp4 {

// A compressor name as a sample entry carries it: a length byte and that many characters, zeros up to 32 bytes.
struct CompressorName {
  const char* text;  // the length byte included
  const char* notPrepared;
  const char* notWritten;
  const char* notSkipped;
};

// The part of a video sample entry from the width on, the same for H.264 and H.265.
struct PictureFields {
  ZR_U16 width = 0;
  ZR_U16 height = 0;
  ZR_U32 horizontalResolution = 0x00480000;  // 16.16 fixed point, 72 dots per inch
  ZR_U32 verticalResolution = 0x00480000;
  ZR_U32 dataSize = 0;
  ZR_U16 frameCount = 1;
  ZR_U16 depth = 0x0018;
  ZR_U16 preDefined = 0xFFFF;

  // The name is written, and skipped when reading.
  bool fields(FieldIo& io, const CompressorName& name);
};

}  // namespace zrmp4
