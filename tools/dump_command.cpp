#include "engine/mp4_file.h"
#include "tools/commands.h"
#include "tools/status.h"

namespace tool {

// The one command that looks inside the library: the public interface has no call for the box tree.
int Dump(Arguments arguments) {
  constexpr ZR_U32 kReadBuffer = 1048576;
  const std::string file = arguments.empty() ? "" : arguments.take();
  if (file.empty() || !arguments.empty()) throw UsageError("dump takes one FILE");
  zrmp4::MP4File engine;
  Check(file, engine.Open(file, -1, "r", 0, kReadBuffer));
  const int result = engine.Dump(engine.stream(), 0);
  Check(file, engine.Close());
  if (result != 0) throw Failure(Describe(file, ZR_ERR_MP4_READ));
  return 0;
}

}  // namespace tool
