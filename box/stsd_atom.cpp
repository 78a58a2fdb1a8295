#include "box/stsd_atom.h"

#include "base/log.h"
#include "box/audio_entry.h"
#include "box/avc_entry.h"
#include "box/child_types.h"
#include "box/hevc_entry.h"
#include "box/prores_entry.h"

namespace zrmp4 {

int StsdAtom::readData(IOStream* stream) { return ReadFields(*this, stream, 111); }

int StsdAtom::writeData(IOStream* stream) { return WriteFields(*this, stream, 120); }

bool StsdAtom::fields(FieldIo& io) {
  ZR_U32 entryCount = childCount();  // when read not kept: the entries found decide
  return io.versionAndFlags(mVersion, mFlags) && io.be32(entryCount);
}

Atom* StsdAtom::ReadChild(IOStream* stream) {
  static constexpr ChildType kChildren[] = {
      {"gpmd", NewChild<GpmdAtom>},   {"mp4a", NewChild<Mp4aAtom>},   {"alaw", NewChild<AlawAtom>},
      {"ulaw", NewChild<UlawAtom>},   {"avc1", NewChild<Avc1Atom>},   {"hvc1", NewChild<Hvc1Atom>},
      {"apch", NewChild<ProresAtom>}, {"apcn", NewChild<ProresAtom>}, {"apcs", NewChild<ProresAtom>},
      {"apco", NewChild<ProresAtom>},
  };
  if (stream == nullptr) {
    LogNullArgument("ReadChild", 130);
    return nullptr;
  }
  return ReadChildOf(stream, kChildren);
}

int GpmdAtom::readData(IOStream* stream) { return ReadFields(*this, stream, 967); }

int GpmdAtom::writeData(IOStream* stream) { return WriteFields(*this, stream, 976); }

bool GpmdAtom::fields(FieldIo& io) {
  // Reserved, the data reference index in the low half of the second word, reserved.
  return io.fixed32(0) && io.fixed32(1) && io.fixed32(0);
}

}  // namespace zrmp4
