#include "engine/iso_base_media_file.h"

#include <strings.h>

#include <cerrno>

#include "base/log.h"
#include "base/make_or_null.h"
#include "zr_mp4.h"

namespace zrmp4 {

ISOBaseMediaFile::ISOBaseMediaFile() : RootAtom("FILE", 1) {}

ISOBaseMediaFile::~ISOBaseMediaFile() = default;

ZR_U32 ISOBaseMediaFile::Open(const std::string& path, int fd, const std::string& mode, ZR_U32 preAllocUnit,
                              ZR_U32 vbufSize) {
  mPath = path;
  if (mStream != nullptr) return static_cast<ZR_U32>(-1);
  if (mode.find('w') != std::string::npos) mPreAllocLen = preAllocUnit;
  auto stream = MakeOrNull<FileIOStream>();
  if (stream == nullptr) return ZR_ERR_MP4_NO_MEMORY;
  if (stream->open(path, fd, preAllocUnit, vbufSize, mode) != 0) return ZR_ERR_MP4_OPEN_FILE;
  mStream = std::move(stream);
  if (InitAfterOpen(mode) != 0) {
    Close();
    return ZR_ERR_MP4_OPEN;
  }
  return 0;
}

ZR_U32 ISOBaseMediaFile::Close() {
  if (mStream == nullptr) return ZR_ERR_MP4_HANDLE_INVALID;
  const int result = mStream->close();
  const int error = errno;
  mStream.reset();
  return result == 0 ? 0 : ZR_IO_FAIL(ZR_ERR_MP4_CLOSE, "close fail:%d\n", error);
}

int ISOBaseMediaFile::Flush() {
  if (mStream->flush() == 0) return 0;
  return ZR_IO_FAIL(-1, "offset:%lld, flush fail:%d\n", static_cast<long long>(mStream->getCurPos()), errno);
}

int ISOBaseMediaFile::Sync() {
  if (mStream->sync() == 0) return 0;
  return ZR_IO_FAIL(-1, "offset:%lld, sync fail:%d\n", static_cast<long long>(mStream->getCurPos()), errno);
}

int ISOBaseMediaFile::Truncate(ZR_U64 length) {
  return mStream->truncFile(static_cast<long long>(length)) == 0 ? 0 : ZR_FAIL(-1, "truncate file fail\n");
}

int ISOBaseMediaFile::RegistProcOpt(const ZrOUTPUTStreamProcOptS* opt) {
  return mStream != nullptr ? mStream->RegistProcOpt(opt) : -1;
}

int ISOBaseMediaFile::IsISOBaseMediaFile() const {
  for (const Atom* box = firstChild(); box != nullptr; box = box->nextSibling()) {
    if (strncasecmp(box->type().c_str(), "moov", 4) == 0) return 1;
  }
  return ZR_FAIL(0, "have no moov box error\n");
}

int ISOBaseMediaFile::OutputTopUserAtom(IOStream* stream) {
  for (Atom* box = firstChild(); box != nullptr; box = box->nextSibling()) {
    const std::string& type = box->type();
    if (type.empty()) return ZR_FAIL(-1, "could not find child atom type error\n");
    if (type == "ftyp" || type == "mdat" || type == "moov") continue;
    if (box->Write(stream) != 0) return -1;
  }
  return 0;
}

}  // namespace zrmp4
