#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

// What the sample entry takes from a ProRes frame.
struct ProresInfo {
  ZR_U16 width;
  ZR_U16 height;
  ZR_U8 interlaceMode;  // 0 progressive, 1 top field first, 2 bottom field first
  ZR_U8 colourCode;     // as ColrAtom::setColr takes it, 0 for a colour that it does not know
};

class ProresParser {
 public:
  // Reads the header of a whole frame. 0, or -1 when it is none or is damaged; info is then as before.
  static int ParseProres(const ZR_U8* frame, ZR_U32 size, ProresInfo& info);
};

}  // namespace zrmp4
