#pragma once

#include <memory>
#include <string>

#include "box/atom.h"

namespace zrmp4 {

// A box whose payload the library does not interpret: one that the caller adds, or one that a reader does not know.
class UserDefAtom : public Atom {
 public:
  UserDefAtom(const std::string& type, ZR_U32 dataSize) : Atom(type.c_str(), dataSize + 8) {}
  explicit UserDefAtom(const AtomHeader& header) : Atom(header) {}

  // Copies the payload, once.
  int InputData(const ZR_U8* data, ZR_U32 size);

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;

 private:
  std::unique_ptr<ZR_U8[]> mData;
  ZR_U32 mDataLength = 0;
};

constexpr ZR_U32 kMaxUserBoxPath = 64;  // characters

// Where a box of the caller's may stand, and what it may be called: 0, or -1 after the first broken rule was logged.
int CheckUserBoxPath(const char* path);
int CheckUserBoxType(const char (&type)[5]);

}  // namespace zrmp4
