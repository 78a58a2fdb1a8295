#include "box/child_types.h"

#include <memory>

#include "base/log.h"
#include "box/user_def_atom.h"

namespace zrmp4 {

void LogNoMemoryForChild(const char* type) { ZR_LOG_Printf("MP4", ZR_LOG_LEVEL_ERROR, "new %s atom no memory\n", type); }

Atom* ReadChildOf(IOStream* stream, const ChildType* types, ZR_U32 count, void (*noMemory)(const char* type)) {
  AtomHeader header;
  if (header.Read(stream) != 0) return nullptr;
  // A box that ends inside its own header leads nowhere.
  if (header.Length(stream->size()) < header.Size()) return nullptr;

  Atom* (*make)(const AtomHeader&) = NewChild<UserDefAtom>;
  for (ZR_U32 i = 0; i < count; ++i) {
    if (header.type == types[i].type) make = types[i].make;
  }
  std::unique_ptr<Atom> child(make(header));
  if (child == nullptr) {
    noMemory(header.type.c_str());
    return nullptr;
  }
  return child->ReadContent(stream) == 0 ? child.release() : nullptr;
}

}  // namespace zrmp4
