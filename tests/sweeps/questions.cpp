#include "tests/sweeps/questions.h"

#include <map>

#include "engine/mp4_file.h"
#include "zr_mp4_ext.h"

namespace {

std::vector<std::string> BoxPaths(const Box& parent, const std::string& path = "") {
  std::vector<std::string> paths;
  std::map<std::string, int> seen;
  for (const Box& box : parent.children) {
    const std::string own = path + "/" + box.type + "[" + std::to_string(seen[box.type]++) + "]";
    paths.push_back(own);
    const std::vector<std::string> below = BoxPaths(box, own);
    paths.insert(paths.end(), below.begin(), below.end());
  }
  return paths;
}

}  // namespace

bool Documented(ZR_U32 status) {
  return ZR_MP4_StatusName(status) != ZR_MP4_StatusName(1);  // the name of those that are not
}

std::string At(const char* what, std::uint64_t number) { return std::string(what) + " " + std::to_string(number); }

Questions::Questions(const std::string& path)
    : mConfig(DemuxerConfig(path)), mPaths(BoxPaths(RecordedFile(path).root())), mPayload(1 << 20) {
  mConfig.stDemuxerConfig.u32VBufSize = 512;
  mAnswers.reserve(mPaths.size() + 20);
}

const std::vector<Answer>& Questions::ask(const Cause& cause) {
  mAnswers.clear();
  const std::shared_ptr<void> failing = cause ? cause() : nullptr;
  askAll();
  return mAnswers;
}

// Takes no memory of its own, which may be what fails.
void Questions::askAll() {
  ZR_MP4_HANDLE file = 0;
  note(ZR_MP4_Create(&file, &mConfig));
  if (file == 0) return;
  zrMP4_FILE_INFO_S about = {};
  const ZR_U32 status = ZR_MP4_GetFileInfo(file, &about);
  note(status, &about, sizeof(about));
  for (ZR_U32 i = 0; i < 8; ++i) {
    zrMP4_TRACK_INFO_S track = {};
    ZR_MP4_TRACK_HANDLE handle;
    const ZR_U32 found = ZR_MP4_GetTrackByIndex(file, i, &track, &handle);
    note(found, &track, sizeof(track));
  }
  for (const std::string& path : mPaths) {
    zrMP4_ATOM_INFO_S box = {static_cast<ZR_U32>(mPayload.size()), "", mPayload.data()};
    const ZR_U32 found = ZR_MP4_GetAtom(file, path.c_str(), &box);
    note(found, mPayload.data(), box.u32DataLen);
  }
  auto* engine = reinterpret_cast<zrmp4::MP4File*>(file);
  engine->Dump(engine->stream(), 0);
  note(ZR_MP4_Destroy(file, nullptr));
}

void Questions::note(ZR_U32 status, const void* data, std::size_t size) {
  std::uint64_t hash = 14695981039346656037u;
  for (std::size_t i = 0; status == 0 && i < size; ++i) {
    hash = (hash ^ static_cast<const std::uint8_t*>(data)[i]) * 1099511628211u;
  }
  mAnswers.push_back({status, hash});
}
