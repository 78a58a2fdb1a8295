#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "box/mdat_atom.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording.h"
#include "tests/support/short_stream.h"
#include "track/annexb.h"
#include "track/nal_track.h"
#include "track/sample_clock.h"

using namespace zrmp4;

namespace {

TEST(StartCodes, EverySearchFindsThemEverywhere) {
  StartCodeSearch searches[kMaxStartCodeSearches];
  const ZR_U32 count = StartCodeSearches(searches);
#if defined(__SSE2__)
  ASSERT_GE(count, 3u);
#endif
  std::mt19937 random(1);
  const auto check = [&](const Data& bytes) {
    static constexpr ZR_U8 kCode[] = {0, 0, 1};
    const ZR_U8* const end = bytes.data() + bytes.size();
    for (const ZR_U8 *from = bytes.data(), *one = nullptr; one != end; from = one + 1) {
      const ZR_U8* code = std::search(from, end, kCode, kCode + 3);
      one = code != end ? code + 2 : end;
      for (ZR_U32 i = 0; i < count; ++i) {
        ASSERT_EQ(searches[i](from, end), one) << "search " << i << ", " << end - from << " of " << bytes.size();
      }
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
  auto& nal = static_cast<NalTrack&>(*track);
  Data frame = KeyFrame();
  for (const bool several : {false, true}) {
    Track::Mp4Sample sample;
    ASSERT_EQ(track->FrameToSample(frame.data(), static_cast<ZR_U32>(frame.size()), 0, ZR_TRUE, &sample), 0);
    ASSERT_EQ(track->ExamineSample(sample), 0u);
    EXPECT_EQ(nal.multiSliceKey(), several);
    frame.insert(frame.end(), {0, 0, 0, 1, 0x65, 9, 9, 9, 9});
  }
  EXPECT_EQ(nal.GetNaluType(nullptr, 1, frame.data()) + nal.GetNaluType(frame.data(), 1, nullptr), -2);
  for (const auto& [rate, speed] : {std::pair(0, 1.0f), {25, 0.0f}}) {
    const std::unique_ptr<TrakAtom> data(TrakAtom::create(TrakAtom::TRAK_META, 2, "", TrakAtom::CODEC_META, 1, ZR_TRUE));
    EXPECT_NE(std::unique_ptr<Track>(Track::create(&stream, data.get(), &mdat, speed, rate, ZR_TRUE)), nullptr);
  }
}

}  // namespace
