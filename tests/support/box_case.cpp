#include "tests/support/box_case.h"

#include <gtest/gtest.h>

#include "tests/support/log_capture.h"

using zrmp4::Atom;
using zrmp4::AtomHeader;

namespace {

std::unique_ptr<Atom> ReadBox(const BoxCase& box, ShortStream& stream) {
  AtomHeader header;
  if (header.Read(&stream) != 0) return nullptr;
  std::unique_ptr<Atom> read = box.read(header);
  return read->ReadContent(&stream) == 0 ? std::move(read) : nullptr;
}

}  // namespace

std::vector<std::uint8_t> Written(Atom& box) {
  ShortStream out;
  EXPECT_EQ(box.Write(&out), 0);
  return out.data();
}

void CheckBox(const BoxCase& box) {
  SCOPED_TRACE(box.name);
  const LogCapture log;

  const std::unique_ptr<Atom> made = box.make();
  ShortStream out;
  ASSERT_EQ(made->Write(&out), 0);
  EXPECT_EQ(box.bytes.difference(out.data()), "");
  EXPECT_EQ(made->header().Length(out.size()), box.bytes.size());

  ShortStream in(box.bytes.data());
  const std::unique_ptr<Atom> read = ReadBox(box, in);
  ASSERT_NE(read, nullptr) << log.all();
  EXPECT_EQ(in.getCurPos(), box.bytes.size());
  ShortStream again;
  ASSERT_EQ(read->Write(&again), 0);
  EXPECT_EQ(Bytes().add(box.bytes.data()).difference(again.data()), "");
  EXPECT_EQ(log.transferFailures(), 0) << log.all();

  for (std::size_t cut = 0; cut < box.bytes.size(); ++cut) {
    log.clear();
    ShortStream fullCard({}, cut);
    EXPECT_EQ(made->Write(&fullCard), -1) << "written up to " << cut;
    EXPECT_EQ(log.transferFailures(), 1) << "written up to " << cut << "\n" << log.all();

    log.clear();
    ShortStream brokenFile(box.bytes.data(), cut);
    EXPECT_EQ(ReadBox(box, brokenFile), nullptr) << "read up to " << cut;
    EXPECT_EQ(log.transferFailures(), 1) << "read up to " << cut << "\n" << log.all();
  }
}
