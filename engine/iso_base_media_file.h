#pragma once

#include <memory>
#include <string>

#include "box/atom.h"
#include "stream/file_io_stream.h"

namespace zrmp4 {

class FtypAtom;
class MdatAtom;
class MoovAtom;

// A root box over a file stream, opened in one of the stream's modes.
class ISOBaseMediaFile : public RootAtom {
 public:
  ISOBaseMediaFile();
  ~ISOBaseMediaFile() override;

  // Opens the stream and prepares the session: 0, or a status code and no stream left behind.
  ZR_U32 Open(const std::string& path, int fd, const std::string& mode, ZR_U32 preAllocUnit, ZR_U32 vbufSize);
  // Closes and deletes the stream; writes nothing of its own.
  ZR_U32 Close();

  virtual ZR_U32 InitAfterOpen(const std::string&) { return 0; }

  Atom* GetAtom(const std::string& path) { return GetDescendant(path); }
  int RegistProcOpt(const ZrOUTPUTStreamProcOptS* opt);
  int IsISOBaseMediaFile() const;
  int OutputTopUserAtom(IOStream* stream);

  FileIOStream* stream() { return mStream.get(); }

 protected:
  // What the stream holds back: 0, or -1 with the system's reason in the log.
  int Flush();
  int Sync();
  int Truncate(ZR_U64 length);

  FtypAtom* mFtyp = nullptr;  // the tree owns these three
  MoovAtom* mMoov = nullptr;
  MdatAtom* mMdat = nullptr;
  std::unique_ptr<FileIOStream> mStream;
  ZR_U64 mFileSize = 0;  // of a file opened for reading or repair
  std::string mPath;
  ZR_U32 mPreAllocLen = 0;
};

}  // namespace zrmp4
