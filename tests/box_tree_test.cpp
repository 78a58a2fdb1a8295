#include <gtest/gtest.h>

#include <memory>

#include "box/atom.h"
#include "box/child_types.h"
#include "box/file_boxes.h"
#include "box/track_boxes.h"
#include "box/user_def_atom.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/short_stream.h"

namespace zrmp4 {
namespace {

struct HugeStream : ShortStream {
  using ShortStream::ShortStream;
  ZR_U64 size() override { return 1ull << 40; }
};

Bytes Box(const char* type, const Bytes& payload) { return Bytes().be32(8 + payload.size()).type(type).add(payload); }

// The types of a box's children, in order.
std::string Children(const Atom& box) {
  std::string types;
  for (Atom* child = box.firstChild(); child != nullptr; child = child->nextSibling()) types += child->type() + " ";
  return types;
}

TEST(AtomHeader, HasTwoForms) {
  const struct {
    Bytes bytes;
    ZR_U32 headerSize;
    ZR_U64 length;  // in a stream of 1 TiB
    std::string type;
  } kRows[] = {
      {Bytes().be32(24).type("ftyp"), 8, 24, "ftyp"},
      {Bytes().be32(1).type("mdat").be64(0x100000010), 16, 0x100000010, "mdat"},
      {Bytes().be32(1).type("mdat").be64(0), 8, 0, "mdat"},
      {Bytes().be32(0).type("mdat"), 8, 1ull << 40, "mdat"},
      {Bytes().be32(8).text("ab").be16(0), 8, 8, "ab"},  // a type ends at its first zero
  };
  for (const auto& row : kRows) {
    HugeStream stream(row.bytes);
    AtomHeader header;
    ASSERT_EQ(header.Read(&stream), 0);
    EXPECT_EQ(header.Size(), row.headerSize);
    EXPECT_EQ(header.Length(stream.size()), row.length);
    EXPECT_EQ(header.type, row.type);
    ShortStream out;
    EXPECT_EQ(header.Write(&out), 0);
    EXPECT_EQ(row.bytes.difference(out.data()), "");
  }
}

TEST(AtomHeader, BreaksWithOneMessage) {
  const Bytes bytes = Bytes().be32(1).type("mdat").be64(16);
  for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
    const LogCapture log;
    ShortStream in(bytes, cut);
    AtomHeader header;
    EXPECT_EQ(header.Read(&in), -1);
    EXPECT_EQ(log.transferFailures(), 1) << log.all();
    log.clear();
    AtomHeader whole("mdat", 1);
    ShortStream out({}, cut);
    EXPECT_EQ(whole.Write(&out), -1);
    EXPECT_EQ(log.transferFailures(), 1) << log.all();
  }
}

TEST(AtomTree, SizesFollowUpTheChain) {
  Atom root("root", 0);  // to the end of the stream: has no size to change
  auto* top = new Atom("mdat", 1);
  auto* middle = new Atom("mid ", 8);
  auto* inner = new Atom("inn ", 8);
  root.AddChild(top);
  top->AddChild(middle);
  middle->AddChild(inner);
  const auto sizes = [&] {
    return std::vector<ZR_U64>{root.header().size, top->header().largeSize, middle->header().size,
                               inner->header().size};
  };
  EXPECT_EQ(sizes(), (std::vector<ZR_U64>{0, 16, 16, 8}));
  auto* leaf = new UserDefAtom("leaf", 0x18);
  inner->AddChild(leaf);
  EXPECT_EQ(sizes(), (std::vector<ZR_U64>{0, 48, 48, 40}));
  inner->AddChildToFront(new Atom("big ", 1));  // Deliberate: only the 32-bit field counts
  EXPECT_EQ(sizes(), (std::vector<ZR_U64>{0, 49, 49, 41}));
  inner->RemoveChild(leaf);
  EXPECT_EQ(sizes(), (std::vector<ZR_U64>{0, 17, 17, 9}));
  EXPECT_EQ(leaf->parent(), nullptr);
  inner->RemoveChild(leaf);  // Deliberate: also when it was not there
  EXPECT_EQ(sizes(), (std::vector<ZR_U64>{0, ZR_U64{17} - 32, 0xFFFFFFF1, 0xFFFFFFE9}));
  delete leaf;
}

TEST(AtomTree, InsertsBeforeTheNth) {
  const struct {
    ZR_U32 position;
    const char* order;
  } kRows[] = {
      {0, "new  one two "}, {1, "new  one two "}, {2, "one new  two "}, {3, "one two new  "}, {9, "one two new  "}};
  for (const auto& row : kRows) {
    Atom box("mdia", 8);
    box.AddChild(new Atom("one", 8));
    box.AddChild(new Atom("two", 8));
    box.InsertChild(row.position, new Atom("new ", 8));
    EXPECT_EQ(Children(box), row.order) << row.position;
    EXPECT_EQ(box.childCount(), 3u);
    box.AddChild(new Atom("end", 8));  // the end of the list is still known
    EXPECT_EQ(Children(box), std::string(row.order) + "end ");
  }
}

TEST(AtomTree, NullArgumentsHaveOneMessage) {
  const LogCapture log;
  Atom box("moov", 8);
  box.AddChild(nullptr);
  box.AddChildToFront(nullptr);
  box.InsertChild(1, nullptr);
  box.RemoveChild(nullptr);
  EXPECT_EQ(box.ReadContent(nullptr), -1);
  EXPECT_EQ(box.SeekToEnd(nullptr), -1);
  EXPECT_EQ(log.all(),
            "MP4 3 HvccAtom::AddChild:174 input parameter null \n"
            "MP4 3 HvccAtom::AddChildToFront:182 input parameter null \n"
            "MP4 3 HvccAtom::InsertChild:191 input parameter null \n"
            "MP4 3 HvccAtom::RemoveChild:203 input parameter null \n"
            "MP4 3 HvccAtom::ReadContent:118 input parameter null \n"
            "MP4 3 HvccAtom::SeekToEnd:91 input parameter null \n");
  EXPECT_EQ(box.header().size, 8u);
}

TEST(AtomTree, FindsBoxesByTypeIndexAndPath) {
  RootAtom root("root", 8);
  auto* moov = new MoovAtom;
  root.AddChild(moov);
  moov->AddChild(new Atom("mvhd", 8));
  Atom* traks[] = {new Atom("trak", 8), new Atom("trak", 8)};
  for (Atom* trak : traks) {
    moov->AddChild(trak);
    trak->AddChild(new TkhdAtom(1, 0, 0, 0));
  }
  EXPECT_EQ(root.GetDescendant("moov/trak[1]/tkhd"), traks[1]->firstChild());
  EXPECT_EQ(root.GetDescendant("moov/trak/tkhd"), traks[0]->firstChild());
  EXPECT_EQ(moov->GetChild(2), traks[1]);
  EXPECT_EQ(moov->GetChild(3), nullptr);
  EXPECT_EQ(moov->GetChild(-1), nullptr);
  EXPECT_EQ(moov->Find<MvhdAtom>("mvhd"), nullptr);  // of another class

  const struct {
    const char* path;
    const char* message;
  } kMisses[] = {
      {"moov/trak[2]", ""},
      {"moov/udta/meta", ""},
      {"moov/trak[a]", "MP4 3 childType[trak[a]] invalid\n"},
      {"moov/trak(1)", "MP4 3 childType[trak(1)] invalid\n"},
      {"moov/tra", "MP4 3 childType[tra] len err\n"},
      {"moov/trak[10]", "MP4 3 childType[trak[10]] len err\n"},
      {"/moov", "MP4 3 childType[] len err\n"},
      {"moov/", "MP4 3 childType[] len err\n"},
      {"moov//trak", "MP4 3 childType[] len err\n"},
  };
  for (const auto& row : kMisses) {
    const LogCapture log;
    EXPECT_EQ(root.GetDescendant(row.path), nullptr) << row.path;
    EXPECT_EQ(log.all(), row.message);
  }
  const LogCapture log;
  moov->AddChildToFront(new Atom("", 8));
  EXPECT_EQ(moov->GetChild("trak"), nullptr);
  EXPECT_EQ(log.all(), "MP4 3 child pAtom type is NULL\n");
}

TEST(AtomTree, SeeksToTheEndThatIsThere) {
  const struct {
    ZR_U32 size;
    ZR_U64 largeSize;
    ZR_U64 streamEnd;  // 0: the stream of 1 TiB
    ZR_U64 end;
  } kRows[] = {
      {40, 0, 100, 50},   {90, 0, 100, 100}, {91, 0, 100, 100},          {0, 0, 100, 100},
      {1, 40, 100, 50},   {1, 91, 100, 100}, {1, ~ZR_U64{0}, 100, 100},  {1, 0x100000010, 0, 10 + 0x100000010},
  };
  for (const auto& row : kRows) {
    HugeStream huge;
    ShortStream file(Bytes().fill(static_cast<std::size_t>(row.streamEnd)));
    IOStream& stream = row.streamEnd == 0 ? static_cast<IOStream&>(huge) : file;
    Atom box("free", row.size);
    box.header().largeSize = row.largeSize;
    box.header().offset = 10;
    EXPECT_EQ(box.SeekToEnd(&stream), 0);
    EXPECT_EQ(stream.getCurPos(), row.end);
  }
  const LogCapture log;
  ShortStream stuck(Bytes().fill(100));
  stuck.failSeeks();
  EXPECT_EQ(Atom("free", 50).SeekToEnd(&stuck), -1);
  EXPECT_EQ(log.all(), "MP4 3 seek offset:0, whence(0) fail:22\n");
}

TEST(ReadContent, AContainerSurvivesWhatItHolds) {
  const Bytes good = Box("mdhd", Bytes().fill(24));
  const Bytes unknown = Box("abcd", Bytes().text("kept"));
  const struct {
    const char* name;
    Bytes payload;
    const char* children;
  } kRows[] = {
      {"known and unknown", Bytes().add(good).add(unknown), "mdhd abcd "},
      {"an unreadable child ends it", Bytes().add(good).add(Box("hdlr", Bytes().fill(24 + 256))).add(good),
       "mdhd "},
      {"a child that runs past the stream", Bytes().add(good).be32(5000).type("mdhd").fill(24), "mdhd mdhd "},
      {"a child longer than its bytes", Bytes().add(good).be32(5000).type("abcd").text("x"), "mdhd "},
      {"a child to the end", Bytes().add(good).be32(0).type("minf"), "mdhd minf "},
      {"a child of 64 bits", Bytes().be32(1).type("mdhd").be64(40).fill(24).add(good), "mdhd mdhd "},
      {"a child that ends inside its header", Bytes().add(good).be32(7).type("mdhd").fill(8), "mdhd "},
      {"the same with 64 bits", Bytes().add(good).be32(1).type("mdhd").be64(15).fill(8), "mdhd "},
      {"a rest too short for a header", Bytes().add(good).fill(3), "mdhd "},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    const LogCapture log;
    const Bytes file = Bytes().add(Box("mdia", row.payload)).add(Box("next", Bytes()));
    // Once with a sibling behind it and once as the last box of the file.
    for (const std::size_t cut : {std::size_t{0}, std::size_t{8}}) {
      std::vector<std::uint8_t> bytes = file;
      bytes.resize(bytes.size() - cut);
      ShortStream in(bytes);
      AtomHeader header;
      ASSERT_EQ(header.Read(&in), 0);
      MdiaAtom mdia(header);
      EXPECT_EQ(mdia.ReadContent(&in), 0);
      EXPECT_EQ(Children(mdia), row.children) << log.all();
      EXPECT_EQ(mdia.header().size, 8 + row.payload.size());
    }
  }
}

TEST(ReadContent, TheSizeOfWhatWasReadStays) {
  const Bytes child = Box("abcd", Bytes());
  // Where a size that grew by the child's would become one of the two special ones, and shrink no more.
  for (const ZR_U32 size : {0u, 16u, 0xFFFFFFF8u, 0xFFFFFFF9u}) {
    ShortStream in(Bytes().be32(size).type("mdia").add(child));
    MdiaAtom mdia{AtomHeader()};
    EXPECT_EQ(mdia.Read(&in), 0);
    EXPECT_EQ(Children(mdia), "abcd ");
    EXPECT_EQ(mdia.header().size, size);
    EXPECT_EQ(mdia.header().largeSize, 0u);
  }
}

TEST(ReadContent, TheRootReadsAWholeStream) {
  const LogCapture log;
  struct Root : RootAtom {
    Root() : RootAtom("FILE", 1) {}
    Atom* ReadChild(IOStream* stream) override {
      static constexpr ChildType kChildren[] = {{"ftyp", NewChild<FtypAtom>}, {"free", NewChild<FreeAtom>}};
      return ReadChildOf(stream, kChildren);
    }
  } root;
  const Bytes ftyp = Bytes().be32(24).type("ftyp").text("mp42").be32(0).text("mp42").text("isom");
  ShortStream file(Bytes().add(ftyp).add(Box("free", Bytes().fill(20))).add(Box("abcd", Bytes().text("x"))));
  EXPECT_EQ(root.Read(&file), 0);
  EXPECT_EQ(Children(root), "ftyp free abcd ");
  EXPECT_EQ(root.header().largeSize, file.size());

  testing::internal::CaptureStdout();
  EXPECT_EQ(root.Dump(&file, 0), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "+root\n+-ftyp\n+-free\n+-abcd\n");

  file.pretendFileSize(0x100000000);
  EXPECT_EQ(Root().Read(&file), -1);
}

TEST(UserDefAtom, TakesItsPayloadOnce) {
  const LogCapture log;
  const ZR_U8 data[] = {1, 2, 3};
  UserDefAtom box("abcd", 3);
  EXPECT_EQ(box.InputData(nullptr, 0), 0);
  EXPECT_EQ(box.InputData(nullptr, 5), -1);
  EXPECT_EQ(box.InputData(data, 0), -1);
  EXPECT_NE(log.all().find("is not match datasize(5)\n"), std::string::npos);
  EXPECT_NE(log.all().find("is not match datasize(0)\n"), std::string::npos);
  EXPECT_EQ(box.InputData(data, 3), 0);
  EXPECT_EQ(box.InputData(data, 2), -1);
  EXPECT_TRUE(log.has("mData has already contains data\n"));
  ShortStream out;
  EXPECT_EQ(box.Write(&out), 0);
  EXPECT_EQ(Box("abcd", Bytes().u8(1).u8(2).u8(3)).difference(out.data()), "");
}

TEST(UserDefAtom, KeepsNoPayloadOfASizeThatIsNone) {
  const struct {
    ZR_U32 size;
    ZR_U64 read;  // bytes of the payload
    int result;
  } kRows[] = {{8, 0, 0}, {7, 0, 0}, {1, 0, 0}, {0, 0, 0}, {0xFFFFFFF7, 0, 0}, {12, 4, 0}, {0xFFFFFFF6, 0, -1}};
  for (const auto& row : kRows) {
    const LogCapture log;
    ShortStream in(Bytes().fill(30, 'x'));
    UserDefAtom box(AtomHeader("abcd", row.size));
    EXPECT_EQ(box.readData(&in), row.result) << row.size;
    EXPECT_EQ(in.getCurPos(), row.read) << row.size;
    EXPECT_EQ(log.ofModule("IO"), row.result == 0 ? 0 : 1);
  }
}

}  // namespace
}  // namespace zrmp4
