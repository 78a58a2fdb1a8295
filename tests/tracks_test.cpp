#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "box/mdat_atom.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording.h"
#include "tests/support/short_stream.h"
#include "track/annexb.h"
#include "track/nal_track.h"
#include "track/priv_sample_header.h"
#include "track/sample_clock.h"

using namespace zrmp4;

namespace {

// Where the start codes of a frame end as a shift register finds them, byte by byte.
std::vector<long> CodesByRegister(const Data& frame) {
  std::vector<long> ends;
  std::uint32_t seen = 0xFFFFFFFF;
  for (std::size_t at = 0; at < frame.size(); ++at) {
    seen = seen << 8 | frame[at];
    if ((seen & 0xFFFFFF) == 1) ends.push_back(static_cast<long>(at) + 1);
  }
  return ends;
}

TEST(StartCodes, EverySearchFindsThemEverywhere) {
  StartCodeSearch searches[kMaxStartCodeSearches];
  const ZR_U32 count = StartCodeSearches(searches);
#if defined(__SSE2__)
  ASSERT_GE(count, 3u);
#endif
  std::mt19937 random(1);
  const auto check = [&](const Data& bytes) {
    const ZR_U8* end = bytes.data() + bytes.size();
    for (ZR_U32 i = 0; i < count; ++i) {
      const ZR_U8* at = searches[i](bytes.data(), end);
      for (const long code : CodesByRegister(bytes)) {
        ASSERT_EQ(at - bytes.data() + 1, code) << "search " << i << ", " << bytes.size();
        at = searches[i](at + 1, end);
      }
      ASSERT_EQ(at, end) << "search " << i << ", " << bytes.size() << " bytes";
    }
  };
  for (std::size_t size = 3; size <= 150; ++size) {
    for (std::size_t at = 0; at + 3 <= size; ++at) {
      Data bytes(size, 0xFF);
      bytes[at] = bytes[at + 1] = 0;
      check(bytes);
      bytes[at + 2] = 1;
      check(bytes);
    }
  }
  for (int round = 0; round < 3000; ++round) {
    Data bytes(random() % 300);
    const auto kinds = 4 + random() % 20;  // two of them are zeros, one is a 1
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random() % kinds * 2 / 3);
    check(bytes);
  }
}

// Neither recordings nor their configuration have such speeds.
TEST(PrivSampleHeader, TellsWhichFieldItsTransferBrokeIn) {
  for (unsigned room = 0; room < PrivSampleHeader::kSize; ++room) {
    const LogCapture log;
    ShortStream out({}, room);
    EXPECT_EQ(PrivSampleHeader(1, ZR_TRUE, 2, 3).Write(&out), -1);
    const char* field = room >= 8 && room < 16 ? ", writeBe64 fail\n" : ", writeBe32 fail\n";
    EXPECT_EQ(log.all(), "IO 3 offset:" + std::to_string(room) + field);
  }
}

TEST(SampleClock, AnImpossibleSpeedMakesEveryDurationOne) {
  for (const float speed : {0.0f, std::nanf("")}) {
    SampleClock clock(120000, speed);
    clock.start(0);
    for (const ZR_U64 time : {ZR_U64{40000}, ZR_U64{20}, ~ZR_U64{0}}) EXPECT_EQ(clock.advanceTo(time), 1u) << speed;
  }
}

TEST(Tracks, AreMadeForKnownKindsAndTellOfSeveralSlices) {
  const LogCapture log;
  EXPECT_EQ(TrakAtom::create(static_cast<TrakAtom::TrakType>(3), 1, "", TrakAtom::CODEC_AVC, 1, ZR_FALSE), nullptr);
  EXPECT_TRUE(log.has("not support 3 trak type\n")) << log.all();
  ShortStream stream;
  MdatAtom mdat;
  const std::unique_ptr<TrakAtom> trak(
      TrakAtom::create(TrakAtom::TRAK_VIDEO, 1, "", TrakAtom::CODEC_AVC, 120000, ZR_FALSE));
  ASSERT_EQ(trak->init(), 0);
  const std::unique_ptr<Track> track(Track::create(&stream, trak.get(), &mdat, 1, 0, ZR_FALSE));
  const Data slice = {0, 0, 0, 1, 0x65, 9, 9, 9, 9};
  for (Data frame = KeyFrame(); frame.size() < 90; frame.insert(frame.end(), slice.begin(), slice.end())) {
    Track::Mp4Sample sample;
    ASSERT_EQ(track->FrameToSample(frame.data(), static_cast<ZR_U32>(frame.size()), 0, ZR_TRUE, &sample), 0);
    ASSERT_EQ(track->ExamineSample(sample), 0u);
    EXPECT_EQ(static_cast<NalTrack&>(*track).multiSliceKey(), frame.size() > KeyFrame().size());
  }
}

}  // namespace
