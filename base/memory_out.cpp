#include "base/memory_out.h"

namespace zrmp4 {
namespace {

#if defined(__GLIBC__)
// glibc finds room for a thread's variables of a library that was loaded later when they are first used, and ends the
// process where it cannot: too late for this one.
__attribute__((tls_model("initial-exec")))
#endif
thread_local bool memoryWasOut = false;

}  // namespace

void NoteMemoryOut() { memoryWasOut = true; }

bool TakeMemoryOut() {
  const bool was = memoryWasOut;
  memoryWasOut = false;
  return was;
}

}  // namespace zrmp4
