#pragma once

#include <string>

#include "box/atom_header.h"

namespace zrmp4 {

// One box of the file: a header, a link to its parent and an ordered list of children that it owns. A concrete box
// overrides readData and writeData for its own fields, a container overrides ReadChild.
//
// Sizes are exact at all times: adding or removing a child, or growing by some bytes, changes this box and every
// ancestor, so that a tree can be written at any moment without being measured. The one exception, keepGrowth, is for
// the tables of a recording, and settled before anyone looks.
class Atom {
 public:
  Atom(const char* type, ZR_U32 size) : mHeader(type, size) {}
  explicit Atom(const AtomHeader& header) : mHeader(header) {}
  Atom(const Atom&) = delete;
  Atom& operator=(const Atom&) = delete;
  virtual ~Atom();

  virtual int Write(IOStream* stream);
  virtual int Read(IOStream* stream);
  virtual int Dump(IOStream* stream, ZR_U32 depth);
  virtual int readData(IOStream*) { return 0; }
  virtual int writeData(IOStream*) { return 0; }
  // The next child at the stream's position, or null when there is none or it cannot be read.
  virtual Atom* ReadChild(IOStream*) { return nullptr; }
  virtual int writeChildren(IOStream* stream);

  int ReadHeader(IOStream* stream) { return mHeader.Read(stream); }
  int WriteHeader(IOStream* stream) { return mHeader.Write(stream); }
  int ReadContent(IOStream* stream);
  int WriteContent(IOStream* stream);
  int SeekToEnd(IOStream* stream);

  // The wall clock as seconds since 1904-01-01 UTC.
  static ZR_U64 LocalTime();

  Atom* GetChild(int index) const;
  // By type with an optional index: "trak" or "trak[1]".
  Atom* GetChild(const std::string& childType) const;
  // By path: "moov/trak[0]/mdia/hdlr".
  Atom* GetDescendant(const std::string& path);

  // The same as a box of a known class; the caller knows what stands at the path.
  template <typename Box>
  Box* Find(const char* path) {
    return dynamic_cast<Box*>(GetDescendant(path));
  }

  void AddChild(Atom* child);
  void AddChildToFront(Atom* child);
  void InsertChild(ZR_U32 position, Atom* child);
  // Unlinks the child, which is the caller's from here on.
  void RemoveChild(Atom* child);

  // Inline because tables grow with every frame.
  void IncreaseSize(ZR_U32 n) {
    for (Atom* box = this; box != nullptr; box = box->mGrowsInto) box->mHeader.increaseAtomSize(n);
  }
  void DecreaseSize(ZR_U32 n) {
    for (Atom* box = this; box != nullptr; box = box->mGrowsInto) box->mHeader.decreaseAtomSize(n);
  }

  // For a box that grows too often to tell every ancestor each time: from now on these learn of its growth by
  // settleGrowth only.
  void keepGrowth() {
    mGrowsInto = nullptr;
    mToldSize = mHeader.size;
  }
  void settleGrowth();

  const AtomHeader& header() const { return mHeader; }
  AtomHeader& header() { return mHeader; }
  const std::string& type() const { return mHeader.type; }
  Atom* parent() const { return mParent; }
  Atom* firstChild() const { return mFirstChild; }
  Atom* nextSibling() const { return mNextSibling; }
  ZR_U32 childCount() const { return mChildCount; }

 protected:
  // Appends a child that was read: the size of this box counts it already, whatever that size says.
  void adopt(Atom* child);

 private:
  void link(Atom* child, Atom* after);
  int seekOrLog(IOStream* stream, long long offset, int whence);

  AtomHeader mHeader;
  Atom* mParent = nullptr;
  Atom* mGrowsInto = nullptr;   // the parent, unless growth is kept from it
  ZR_U32 mToldSize = 0;         // what the ancestors count of a size whose growth is kept
  Atom* mFirstChild = nullptr;  // a list through the boxes themselves: adding one cannot fail
  Atom* mLastChild = nullptr;
  Atom* mNextSibling = nullptr;
  ZR_U32 mChildCount = 0;
};

// A whole stream as a sequence of boxes.
class RootAtom : public Atom {
 public:
  RootAtom(const char* type, ZR_U32 size) : Atom(type, size) {}
  int Read(IOStream* stream) override;
};

}  // namespace zrmp4
