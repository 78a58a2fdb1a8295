#include <gtest/gtest.h>

#include "box/avc_entry.h"
#include "box/file_boxes.h"
#include "box/hevc_entry.h"
#include "box/prores_entry.h"
#include "box/stsd_atom.h"
#include "box/track_boxes.h"
#include "box/user_def_atom.h"
#include "box/vemo_atom.h"
#include "engine/iso_base_media_file.h"
#include "tests/support/alloc_faults.h"
#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/parameter_set_bytes.h"
#include "tests/support/short_stream.h"

// What no session with the library reaches: tests/cases have the rest.

using namespace zrmp4;

namespace {

TEST(Boxes, SizesFollowUpTheChain) {
  Atom root("root", 0);  // to the end of the stream: has no size to change
  Atom *top = new Atom("mdat", 1), *inner = new Atom("inn ", 8), *leaf = new UserDefAtom("leaf", 0x18);
  root.AddChild(top), top->AddChild(inner);
  const auto expect = [&](ZR_U64 size) {
    EXPECT_TRUE(root.header().size == 0 && top->header().largeSize == size) << size;
    EXPECT_EQ(inner->header().size, static_cast<ZR_U32>(size));
  };
  expect(8);
  inner->AddChild(leaf);
  expect(40);
  inner->AddChildToFront(new Atom("big ", 1));  // Deliberate: only the 32-bit field counts
  EXPECT_TRUE(inner->GetChild(1) == leaf && inner->GetChild(2) == nullptr && inner->GetChild(-1) == nullptr);
  expect(41);
  inner->RemoveChild(leaf);
  expect(9);
  EXPECT_EQ(leaf->parent(), nullptr);
  inner->RemoveChild(leaf);  // Deliberate: also when it was not there
  expect(ZR_U64{9} - 32);
  delete leaf;
}

TEST(Boxes, RefuseWhatNobodyGivesThem) {
  const LogCapture log;
  const ZR_U8 bytes[] = {'x', 'y', 'z'};
  MoovAtom box;
  box.AddChild(nullptr), box.AddChildToFront(nullptr), box.InsertChild(1, nullptr), box.RemoveChild(nullptr);
  EXPECT_EQ(box.ReadContent(nullptr) + box.SeekToEnd(nullptr), -2);
  AvccAtom avcc;
  HvccAtom hvcc;
  EXPECT_EQ(avcc.AddSps(nullptr, 4) + avcc.AddPps(bytes, 0) + hvcc.AddSei(nullptr, 5) + hvcc.AddVps(bytes, 0), -4);
  EXPECT_FALSE(avcc.IsParamentSetExist(nullptr, 3, avcc.sps()));
  HdlrAtom hdlr;
  EXPECT_EQ(hdlr.setHdlrAtom("video", "x") + hdlr.setHdlrAtom("vide", std::string(256, 'n')), -2);
  EXPECT_EQ(DrefAtom().addEntry("url  ", 0, 1), -1);
  StsdAtom stsd;
  GpmdAtom gpmd;
  EXPECT_EQ(stsd.readData(nullptr) + stsd.writeData(nullptr) + gpmd.readData(nullptr) + gpmd.writeData(nullptr), -4);
  EXPECT_EQ(stsd.ReadChild(nullptr), nullptr);
  UserDefAtom user("abcd", 3);
  EXPECT_EQ(user.InputData(nullptr, 0) + user.InputData(bytes, 3) + user.InputData(bytes, 2), -1);
  EXPECT_EQ(log.all(),
            "MP4 3 HvccAtom::AddChild:174 input parameter null \n"
            "MP4 3 HvccAtom::AddChildToFront:182 input parameter null \n"
            "MP4 3 HvccAtom::InsertChild:191 input parameter null \n"
            "MP4 3 HvccAtom::RemoveChild:203 input parameter null \n"
            "MP4 3 HvccAtom::ReadContent:118 input parameter null \n"
            "MP4 3 HvccAtom::SeekToEnd:91 input parameter null \nMP4 3 HvccAtom::AddSps:54 input parameter null \n"
            "MP4 3 HvccAtom::AddPps:72 input parameter null \nMP4 3 AddSei:127 input parameter null \n"
            "MP4 3 AddVps:127 input parameter null \nMP4 3 pszCompSubType param invalid\n"
            "MP4 3 mComponentNameLen invalid\nMP4 3 memcpy entry type(url  ) error\n"
            "MP4 3 HvccAtom::readData:111 input parameter null \nMP4 3 HvccAtom::writeData:120 input parameter null \n"
            "MP4 3 HvccAtom::readData:967 input parameter null \nMP4 3 HvccAtom::writeData:976 input parameter null \n"
            "MP4 3 HvccAtom::ReadChild:130 input parameter null \nMP4 3 mData has already contains data\n");
  FieldIo none = FieldIo::Reading(nullptr);
  ZR_U8 byte = 0;
  ZR_U32 word = 0;
  ZR_U64 wide = 0;
  EXPECT_FALSE(none.byte(byte) || none.fixed16(1) || none.be24(word) || none.be32(word) || none.be64(wide) ||
               none.bytes(&byte, 1));
  EXPECT_EQ(user.InputData(nullptr, 5) + user.InputData(bytes, 0), -2);
  EXPECT_TRUE(box.header().size == 8 && hdlr.header().size == 32 && avcc.header().size == 15);
  VemoAtom vemo(0, ZR_FALSE, ZR_FALSE, 0);
  EXPECT_TRUE(vemo.getTrackInfoByIndex(5) == nullptr && !log.has("getTrackInfo fail, index:5\n"));
  EXPECT_TRUE(vemo.getTrackInfoByIndex(6) == nullptr && log.has("getTrackInfo fail, index:6\n"));
  ProresAtom prores("apcn", std::string(32, 'n'));
  ShortStream out;
  EXPECT_TRUE(prores.Write(&out) == -1 && log.has("Prores compress name length:32 is illegal\n"));
}

TEST(Boxes, MakeAFileOfOneThatIsAMovie) {
  const LogCapture log;
  ISOBaseMediaFile file;
  EXPECT_TRUE(file.IsISOBaseMediaFile() == 0 && log.has("have no moov box error\n"));
  file.AddChild(new Atom("MOOV", 8));
  EXPECT_EQ(file.IsISOBaseMediaFile(), 1);
}

TEST(Boxes, DurationsThatDoNotFit) {
  EXPECT_EQ(MvhdAtom(1, 1ull << 42, 1).getDuration() | MvhdAtom(1000, (1ull << 61) + 5000, 1).getDuration(), 0u);
  const LogCapture log;
  ShortStream out;
  EXPECT_EQ(MvhdAtom(1000, 0x100000000, 1).Write(&out) + TkhdAtom(1, 0x100000000, 0, 0).Write(&out), -2);
  EXPECT_EQ(log.all(), "") << "deliberately";
}

// Deliberate: a VPS adds an array header as long as there is no PPS. What is written has always four.
TEST(HvccAtom, GrowsWithItsSetsUntilItIsSettled) {
  HvccAtom box;
  ZR_U32 size = box.header().size;
  const auto vps = &HvccAtom::AddVps, sps = &HvccAtom::AddSps, pps = &HvccAtom::AddPps;
  for (const auto& [add, header] : {std::pair(vps, 3u), {vps, 3}, {pps, 3}, {vps, 0}, {sps, 3}}) {
    Nal set = add == vps ? kHevcVps : add == sps ? kHevcSps : kHevcPps;
    set.push_back(static_cast<ZR_U8>(size));  // another set
    EXPECT_EQ((box.*add)(set.data(), static_cast<ZR_U16>(set.size())), 0);
    size += 2 + static_cast<ZR_U32>(set.size()) + header;
    EXPECT_EQ(box.header().size, size);
  }
  box.settleSize();
  EXPECT_EQ(box.header().size, size);
}

TEST(HvccAtom, CollectsSeiUntilItsCountIsFullOrMemoryIs) {
  HvccAtom box;
  for (unsigned i = 0; i < 0x10010; ++i) {
    const ZR_U8 sei[] = {0x4E, 0x01, static_cast<ZR_U8>(i >> 16), static_cast<ZR_U8>(i >> 8), static_cast<ZR_U8>(i)};
    const AllocFaults noMemory(i % 0x4000 == 1 ? 1 : AllocFaults::kNever);
    EXPECT_EQ(box.AddSei(sei, sizeof(sei)), i % 0x4000 == 1 ? -1 : 0) << i;
  }
  box.settleSize();
  ShortStream out, in(Bytes().be32(33).type("hvcC").fill(25).data());  // one with two bytes that are unknown
  EXPECT_TRUE(box.Write(&out) == 0 && box.header().size == 31u + 12 + 0xFFFF * 7 && out.size() == box.header().size);
  HvccAtom read{AtomHeader()};
  EXPECT_EQ(read.Read(&in), 0);
  read.settleSize();
  EXPECT_EQ(read.header().size, 33u);
}

}  // namespace
