#pragma once

#include "box/atom.h"
#include "stream/field_io.h"

namespace zrmp4 {

// Sample descriptions: the sample entries are the children, and their number is the entry count.
class StsdAtom : public Atom {
 public:
  StsdAtom() : Atom("stsd", 16) {}
  explicit StsdAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;
  Atom* ReadChild(IOStream* stream) override;
  bool fields(FieldIo& io);

 private:
  ZR_U8 mVersion = 0;
  ZR_U32 mFlags = 0;
};

// Sample entry of opaque timed metadata.
class GpmdAtom : public Atom {
 public:
  GpmdAtom() : Atom("gpmd", 20) {}
  explicit GpmdAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;
  bool fields(FieldIo& io);
};

}  // namespace zrmp4
