#include "base/memory_out.h"

namespace zrmp4 {
namespace {

thread_local bool memoryWasOut = false;

}  // namespace

void NoteMemoryOut() { memoryWasOut = true; }

bool TakeMemoryOut() {
  const bool was = memoryWasOut;
  memoryWasOut = false;
  return was;
}

}  // namespace zrmp4
