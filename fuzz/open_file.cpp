// A file is read: every query, every box by its path, and the tree that the command prints.
#include "engine/mp4_file.h"
#include "fuzz/fuzz.h"

namespace {

void GetBoxesBelow(ZR_MP4_HANDLE file, const zrmp4::Atom& parent, const std::string& path, std::size_t most) {
  std::map<std::string, int> seen;
  for (const zrmp4::Atom* box = parent.firstChild(); box != nullptr; box = box->nextSibling()) {
    const int index = seen[box->type()]++;
    if (index > 9) continue;  // paths do not reach it
    const std::string name = path + "/" + box->type() + (index > 0 ? "[" + std::to_string(index) + "]" : "");
    GetPayload(file, name, most);
    GetBoxesBelow(file, *box, name, most);
  }
}

void Query(ZR_MP4_HANDLE file, std::size_t most) {
  zrMP4_FILE_INFO_S info = {};
  ZR_MP4_GetFileInfo(file, &info);
  for (ZR_U32 i = 0; i <= std::min(info.u32TrackNum, 20u); ++i) {
    zrMP4_TRACK_INFO_S track = {};
    ZR_MP4_TRACK_HANDLE handle = 0;
    ZR_MP4_GetTrackByIndex(file, i, &track, &handle);
  }
  auto* engine = reinterpret_cast<zrmp4::MP4File*>(file);  // what a handle is
  GetBoxesBelow(file, *engine, "", most);
  engine->Dump(engine->stream(), 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFile file;
  const Data bytes(data, data + size);
  file.set(bytes, size);
  zrMP4_CONFIG_S config = DemuxerConfig(file.path());
  config.stDemuxerConfig.u32VBufSize = size % 2;  // the library's choice, or next to none
  {
    const MemoryBound bound(128 << 10, size);
    const Muxer reader(config);
    if (reader.status() == 0) Query(reader.handle(), size);
  }
  Require(file.bytes() == bytes, "reading changed the file");
  return 0;
}
