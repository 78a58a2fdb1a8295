#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "tests/support/bytes.h"
#include "tests/support/log_capture.h"
#include "tests/support/track_rig.h"

using zrmp4::Co64Atom;
using zrmp4::StcoAtom;
using zrmp4::StscAtom;
using zrmp4::StssAtom;
using zrmp4::StszAtom;
using zrmp4::SttsAtom;
using zrmp4::Track;
using zrmp4::TrakAtom;

namespace {

using Durations = std::vector<ZR_U32>;
using Times = std::vector<ZR_U64>;

constexpr ZR_U64 kLast = std::numeric_limits<ZR_U64>::max();

struct TimingCase {
  const char* name;
  float speed;
  Times times;          // microseconds
  Durations durations;  // at 120000 ticks per second, jitter up to 120 ticks
};

const TimingCase kTimings[] = {
    {"a recording that starts at 0 has a duration for every sample", 1, {0, 40000, 80000}, {4800, 4800, 4800}},
    {"a single sample lasts 0", 1, {5000}, {0}},
    {"rounded stamps of a fixed rate give one duration", 1, {0, 33333, 66667, 100000}, {3999, 3999, 3999, 3999}},
    {"jitter of the tolerance keeps the duration", 1, {0, 40000, 81000}, {4800, 4800, 4800}},
    {"jitter of a tick more changes it", 1, {0, 40000, 81009}, {4800, 4921, 4921}},
    {"the time advances by durations, not to the stamps", 1, {0, 40000, 81000, 122000}, {4800, 4800, 5040, 5040}},
    {"double speed halves the durations", 2, {0, 40000, 80000, 200000}, {2400, 2400, 7200, 7200}},
    {"speed 0 makes every duration 1", 0, {0, 40000, 20, kLast}, {1, 1, 1, 1}},
    {"equal stamps last a tick", 1, {7, 7, 7}, {1, 1, 1}},
    {"a small step back lasts a tick, and the time waits", 1, {0, 40000, 39000, 80000}, {4800, 1, 4799, 4799}},
    {"a step back counts with its sign", 1, {0, 833, 815, 1650 + 825}, {99, 99, 99, 99}},
    {"back by a second is a small step", 1, {5000000, 5040000, 4040000, 5080000}, {4800, 1, 4799, 4799}},
    {"back by more is a discontinuity", 1, {5000000, 5040000, 4039999, 4079999}, {4800, 4800, 4800, 4800}},
    {"so it is for the second sample", 1, {5000000, 1000, 41000}, {1, 4800, 4800}},
    {"forward by what fits", 1, {0, 35791392000}, {4294967040, 4294967040}},
    {"forward by more", 1, {0, 40000, 35791434134, 35791474134}, {4800, 4800, 4800, 4800}},
    {"forward to where single precision rounds beyond 32 bits", 1, {0, 40000, 35791434133}, {4800, 4800, 4800}},
    {"over the end of the clock", 1, {kLast - 39999, 0, 40000}, {4800, 4800, 4800}},
    {"from end to end", 1, {0, kLast / 2, kLast}, {1, 1, 1}},
    {"a speed that makes durations endless", 1e-38f, {0, 40000, 80000}, {1, 1, 1}},
    {"a speed that makes them nothing", 3e38f, {0, 40000, 80000}, {1, 1, 1}},
    {"no number as speed", std::numeric_limits<float>::quiet_NaN(), {0, 40000, 80000}, {1, 1, 1}},
};

TEST(TrackTiming, DurationsFollowTheTimeStamps) {
  for (const TimingCase& row : kTimings) {
    TrackRig::Options options;
    options.speed = row.speed;
    TrackRig rig(TrakAtom::CODEC_META, options);
    for (ZR_U64 time : row.times) ASSERT_EQ(rig.write({1}, time), 0u);
    ASSERT_EQ(rig.track->FinishWrite(), 0);
    EXPECT_EQ(rig.durations(), row.durations) << row.name;
    EXPECT_EQ(rig.track->FinishWrite(), 0);
    EXPECT_EQ(rig.durations(), row.durations) << "finished twice: " << row.name;
  }
}

TEST(TrackTiming, FixedRatesIgnoreTheTimeStamps) {
  struct {
    TrakAtom::CodecType codec;
    ZR_U32 timescale;
    int frameRate;
    float speed;
    bool constantRate;
    ZR_U32 duration;
  } const rows[] = {
      {TrakAtom::CODEC_AVC, 90000, 25, 2, true, 3600},  // the speed is not for video
      {TrakAtom::CODEC_AVC, 100, 30, 1, true, 3},        {TrakAtom::CODEC_AVC, 90000, 0, 1, true, 0},
      {TrakAtom::CODEC_META, 1000, 30, 2, true, 16},     {TrakAtom::CODEC_META, 1000, 30, 0, true, 0},
      {TrakAtom::CODEC_META, 1000, 30, 1e-9f, true, 0},  {TrakAtom::CODEC_G711A, 48000, 0, 1, false, 1024},
      {TrakAtom::CODEC_G711A, 90000, 0, 1, false, 1024}, {TrakAtom::CODEC_G711A, 8000, 0, 1, false, 0},
  };
  for (const auto& row : rows) {
    TrackRig::Options options;
    options.timescale = row.timescale;
    options.frameRate = row.frameRate;
    options.speed = row.speed;
    options.constantRate = row.constantRate;
    TrackRig rig(row.codec, options);
    const Data frame = row.codec == TrakAtom::CODEC_AVC ? DeltaFrame() : Data{1};
    for (ZR_U64 time : {5u, 0u, 900000u}) ASSERT_EQ(rig.write(frame, time), 0u);
    ASSERT_EQ(rig.track->FinishWrite(), 0);
    EXPECT_EQ(rig.durations(), Durations(3, row.duration)) << "codec " << row.codec << " at " << row.timescale;
  }
}

TEST(TrackTiming, NothingIsAddedToATrackWithoutSamples) {
  for (const bool constantRate : {false, true}) {
    TrackRig::Options options;
    options.constantRate = constantRate;
    options.frameRate = 25;
    TrackRig rig(TrakAtom::CODEC_AVC, options);
    ASSERT_EQ(rig.track->FinishWrite(), 0);
    EXPECT_TRUE(rig.durations().empty() && rig.chunks().empty() && rig.runs().empty());
    EXPECT_EQ(rig.track->AvgBitrate(), 0u);
  }
}

TEST(TrackTiming, BitRateIsThatOfAllSamplesAndZeroWhenItDoesNotFit) {
  TrackRig rig(TrakAtom::CODEC_META);
  for (ZR_U64 time : {0u, 500000u}) ASSERT_EQ(rig.write(Data(1000), time), 0u);
  rig.track->FinishWrite();
  EXPECT_EQ(rig.track->Duration(), 120000u);
  EXPECT_EQ(rig.track->AvgBitrate(), 16000u);

  TrackRig fast(TrakAtom::CODEC_META);
  for (ZR_U64 time : {0u, 1u}) ASSERT_EQ(fast.write(Data(9000), time), 0u);
  fast.track->FinishWrite();
  EXPECT_EQ(fast.track->AvgBitrate(), 0u);  // 8.6 Gbit/s
}

struct ChunkStep {
  ZR_U32 size;
  ZR_U64 pts;
  ZR_U32 gap;  // bytes that are not the track's, in front of the sample
};

struct ChunkCase {
  const char* name;
  std::vector<ChunkStep> steps;
  std::vector<ZR_U32> samplesPerChunk;
};

const ChunkCase kChunks[] = {
    {"contiguous samples share a chunk", {{10, 0, 0}, {20, 1, 0}, {0, 2, 0}, {5, 3, 0}}, {4}},
    {"any gap starts a chunk", {{10, 0, 0}, {20, 1, 1}, {5, 2, 20}, {5, 3, 0}}, {1, 1, 2}},
    {"a chunk stays below 1 MiB", {{0xFFFFE, 0, 0}, {1, 0, 0}, {1, 0, 0}, {1, 0, 0}}, {2, 2}},
    {"a sample above it stands alone", {{0x180000, 0, 0}, {1, 0, 0}, {1, 0, 0}}, {1, 2}},
    {"a chunk stays below half a second", {{1, 7, 0}, {1, 500006, 0}, {1, 500007, 0}}, {2, 1}},
    {"a step back in time starts a chunk", {{1, 7, 0}, {1, 6, 0}}, {1, 1}},
};

TEST(TrackChunks, JoinWhatStandsTogether) {
  for (const ChunkCase& row : kChunks) {
    TrackRig rig(TrakAtom::CODEC_META);
    std::vector<ZR_U64> starts;  // of every sample
    for (const ChunkStep& step : row.steps) {
      rig.stream.seek(step.gap, SEEK_CUR);
      starts.push_back(rig.stream.getCurPos());
      ASSERT_EQ(rig.write(Data(step.size), step.pts), 0u);
    }
    rig.track->FinishWrite();
    std::vector<ZR_U64> offsets;
    std::vector<std::pair<ZR_U32, ZR_U32>> runs;
    ZR_U32 sample = 0;
    for (ZR_U32 chunk = 0; chunk < row.samplesPerChunk.size(); ++chunk) {
      offsets.push_back(starts[sample]);
      sample += row.samplesPerChunk[chunk];
      if (runs.empty() || runs.back().second != row.samplesPerChunk[chunk]) {
        runs.emplace_back(chunk + 1, row.samplesPerChunk[chunk]);
      }
    }
    EXPECT_EQ(rig.chunks(), offsets) << row.name;
    EXPECT_EQ(rig.runs(), runs) << row.name;
  }
}

TEST(TrackWrite, StreamFailureLeavesNoTraceOfTheSample) {
  const Data key = KeyFrame();
  for (std::uint64_t breaksAfter = 0; breaksAfter < Stored(key).size(); ++breaksAfter) {
    TrackRig::Options options;
    options.breaksAfter = breaksAfter;
    TrackRig rig(TrakAtom::CODEC_AVC, options);
    const ZR_U64 size = rig.mdat.header().largeSize;
    const LogCapture log;
    EXPECT_EQ(rig.write(key, 0, true), ZR_ERR_MP4_WRITE_BACKUP) << breaksAfter;
    EXPECT_EQ(log.ofModule("IO"), 1) << log.all();
    EXPECT_TRUE(rig.sizes().empty() && rig.syncs().empty() && rig.track->sampleCount() == 0);
    EXPECT_EQ(rig.track->curChunk().chunkCount, 0u);
    EXPECT_EQ(rig.mdat.header().largeSize, size);
  }
}

TEST(TrackWrite, PrivateHeaderStandsInFrontOfTheSample) {
  TrackRig::Options options;
  options.backups = true;
  TrackRig rig(TrakAtom::CODEC_META, options);
  ASSERT_EQ(rig.write({0xAB, 0xCD}, 0x0102030405060708, true), 0u);
  EXPECT_EQ(Bytes()
                .be32(TrackRig::kTrackId)
                .be32(1)
                .be64(0x0102030405060708)
                .be32(2)
                .be16(0xABCD)
                .difference(rig.stream.data()),
            "");
  EXPECT_EQ(rig.mdat.header().largeSize, 16u + 20 + 2);
}

TEST(TrackWrite, EmptyKeyFrameIsNoSyncSampleUnlessRepairFindsIt) {
  TrackRig::Options options;
  options.backups = true;
  TrackRig rig(TrakAtom::CODEC_AVC, options);
  ASSERT_EQ(rig.write({}, 0, true), 0u);
  ASSERT_EQ(rig.write(KeyFrame(), 40000, true), 0u);
  EXPECT_EQ(rig.sizes().size(), 2u);
  EXPECT_EQ(rig.syncs(), (std::vector<ZR_U32>{2}));
  EXPECT_EQ(TrackRig::Entries(rig.track->tmpStbl()->Find<StssAtom>("stss")), (std::vector<ZR_U32>{1, 2}));

  Track::Mp4Sample empty;
  empty.partCount = empty.totalSize = 0;
  empty.pts = 80000;
  empty.isKey = ZR_TRUE;
  ASSERT_TRUE(rig.track->ReserveEntries());
  ASSERT_EQ(rig.track->update(empty), 0);
  EXPECT_EQ(rig.syncs(), (std::vector<ZR_U32>{2, 3}));
}

TEST(TemporaryTables, BeginEmptyAfterEverySnapshot) {
  TrackRig::Options options;
  options.backups = true;
  TrackRig rig(TrakAtom::CODEC_AVC, options);
  EXPECT_EQ(rig.track->CreateTmpStbl(), -1) << "there is one";
  const ZR_U32 emptySize = rig.track->tmpStbl()->header().size;
  EXPECT_EQ(emptySize, 8u + 16 + 28 + 20 + 16 + 16);

  ASSERT_EQ(rig.write(KeyFrame(), 0, true), 0u);
  EXPECT_EQ(rig.track->tmpStbl()->header().size, emptySize + 4 + 4 + 4) << "the first sample has no duration yet";
  rig.track->ClearTmpStbl();
  EXPECT_EQ(rig.track->tmpStbl()->header().size, emptySize);

  ASSERT_EQ(rig.write(DeltaFrame(), 0), 0u) << "a stamp like the first sample's does not make it the first";
  ASSERT_EQ(rig.write(KeyFrame(), 40000, true), 0u);
  EXPECT_EQ(rig.track->tmpStbl()->header().size, emptySize + 2 * 8 + 2 * 4 + 2 * 4 + 4);
  EXPECT_EQ(TrackRig::Entries(rig.track->tmpStbl()->Find<StssAtom>("stss")), (std::vector<ZR_U32>{3}));
  EXPECT_EQ(rig.trak->snapshotSamples(), 3u);

  Track::Mp4Sample sample = {};
  const LogCapture log;
  EXPECT_EQ(rig.track->UpdateTmpStbl(ZR_U64{1} << 32, sample), -1);
  EXPECT_TRUE(log.has("chunkOffset (4294967296) exceeds ZR_U32 maximum\n")) << log.all();
  rig.track->DestroyTmpStbl();
  EXPECT_EQ(rig.track->tmpStbl(), nullptr);
  EXPECT_EQ(rig.track->UpdateTmpStbl(0, sample), -1);
  EXPECT_TRUE(log.has("no stco\n")) << log.all();
}

// The steps that a recorder meets: steady with jitter, new rates, small steps back, and discontinuities both ways.
ZR_U64 NextTime(ZR_U64 now, std::mt19937& random) {
  switch (random() % 16) {
    case 0:
      return now + 1000 + random() % 3000000;
    case 1:
      return now - random() % 900000;
    case 2:
      return now - 2000000 - random() % 100000000;
    case 3:
      return now + (random() % 8 == 0 ? ZR_U64{1} << 40 : 40000);
    default:
      return now + 39900 + random() % 200;
  }
}

// A recorder with backups whose snapshots are merged into the tables of another track, which then goes on.
class RestoredRecording : public testing::TestWithParam<bool> {
 protected:
  RestoredRecording() { reset(); }

  void reset() {
    mOptions.backups = true;
    mOptions.co64 = GetParam();
    recorder = std::make_unique<TrackRig>(TrakAtom::CODEC_AVC, mOptions);
    mMerged = std::make_unique<TrackRig>(TrakAtom::CODEC_AVC, mOptions);
  }
  void recordRandomly(std::mt19937& random, std::size_t samples, bool steady) {
    now = random() % 3 == 0 ? 0 : ZR_U64{1} << 36;
    for (std::size_t i = 0; i < samples; ++i) {
      const bool key = random() % 4 == 0;
      ASSERT_EQ(recorder->write(key ? KeyFrame() : random() % 8 == 0 ? Data() : DeltaFrame(), now, key), 0u);
      now = steady ? now + 39900 + random() % 200 : NextTime(now, random);
      if (random() % 8 == 0) snapshot();
    }
    snapshot();
  }

  void snapshot() {
    zrmp4::StblAtom& from = *recorder->track->tmpStbl();
    const ZR_U32 n = from.Find<StszAtom>("stsz")->getCount();
    const ZR_U32 m = mMerged->table<StszAtom>("stsz")->getCount();
    mMerged->table<StscAtom>("stsc")->merge(from.Find<StscAtom>("stsc"), 1, n);
    mMerged->table<SttsAtom>("stts")->merge(from.Find<SttsAtom>("stts"), 1, n);
    mMerged->table<StssAtom>("stss")->merge(from.Find<StssAtom>("stss"), m + 1, m + n, m);
    mMerged->table<StszAtom>("stsz")->merge(from.Find<StszAtom>("stsz"), 1, n);
    if (GetParam()) {
      const auto* offsets = from.Find<Co64Atom>("co64");
      mMerged->table<Co64Atom>("co64")->merge(offsets, 1, n, offsets->getStartOffset());
    } else {
      const auto* offsets = from.Find<StcoAtom>("stco");
      mMerged->table<StcoAtom>("stco")->merge(offsets, 1, n, offsets->getStartOffset());
    }
    recorder->track->ClearTmpStbl();
  }
  // The track on the merged tables and on what the recorder wrote.
  std::unique_ptr<TrackRig> restored(const Data& file) {
    auto rig = std::make_unique<TrackRig>(TrakAtom::CODEC_AVC, mOptions, file);
    rig->trak = std::move(mMerged->trak);
    rig->track.reset(Track::create(&rig->stream, rig->trak.get(), &rig->mdat, 1.0f, 0, ZR_FALSE));
    EXPECT_EQ(rig->track->RestoreAfterMerge(), 0);
    return rig;
  }

  std::unique_ptr<TrackRig> recorder;
  ZR_U64 now = 0;  // the time stamp of the frame that comes next

 private:
  TrackRig::Options mOptions;
  std::unique_ptr<TrackRig> mMerged;
};

TEST_P(RestoredRecording, GoesOnAsTheRecorderWould) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    std::mt19937 random(seed);
    const std::size_t samples = seed < 4 ? seed : 4 + random() % 60;
    recordRandomly(random, samples, seed % 2 == 0);
    const auto rebuilt = restored(recorder->stream.data());
    EXPECT_EQ(rebuilt->track->sampleCount(), samples);
    EXPECT_EQ(rebuilt->track->sampleDuration(), recorder->track->sampleDuration()) << seed;
    EXPECT_EQ(rebuilt->track->firstPts(), recorder->track->firstPts());
    EXPECT_EQ(rebuilt->track->nextPts(), recorder->track->nextPts()) << seed;
    EXPECT_EQ(rebuilt->trak->snapshotSamples(), samples);
    EXPECT_EQ(rebuilt->track->curChunk().chunkCount, samples);
    EXPECT_EQ(rebuilt->track->curChunk().sampleCount, 0u);

    Track::Mp4Sample extra;
    extra.partCount = 0;
    extra.totalSize = 100;
    extra.isKey = ZR_TRUE;
    extra.pts = now;
    for (TrackRig* rig : {recorder.get(), rebuilt.get()}) {
      rig->stream.seek(0x10000, SEEK_SET);
      ASSERT_TRUE(rig->track->ReserveEntries());
      ASSERT_EQ(rig->track->update(extra), 0);
      ASSERT_EQ(rig->track->FinishWrite(), 0);
    }
    EXPECT_EQ(rebuilt->durations(), recorder->durations()) << seed;
    EXPECT_EQ(rebuilt->durations().size(), samples + 1);
    EXPECT_EQ(rebuilt->sizes(), recorder->sizes());
    EXPECT_EQ(rebuilt->runs(), recorder->runs());
    EXPECT_EQ(rebuilt->syncs(), recorder->syncs());
    EXPECT_EQ(rebuilt->chunks(), recorder->chunks());
    reset();
  }
}

TEST_P(RestoredRecording, DamagedHeadersCostExactnessOnly) {
  // Bit 0 the first header's track, bit 1 the last one's, bit 2 a second more in the last one's time stamp.
  for (const unsigned damaged : {0u, 1u, 2u, 3u, 4u}) {
    std::vector<std::size_t> headers;
    for (ZR_U64 i = 0; i < 5; ++i) {
      headers.push_back(recorder->stream.data().size());
      ASSERT_EQ(recorder->write(DeltaFrame(), i * 40000), 0u);
    }
    snapshot();
    Data file = recorder->stream.data();
    if (damaged & 1) file[headers.front() + 3] ^= 1;
    if (damaged & 2) file[headers.back() + 3] ^= 1;
    if (damaged & 4) file[headers.back() + 13] ^= 0x10;
    const auto rebuilt = restored(file);
    EXPECT_EQ(rebuilt->track->sampleDuration(), 4800u) << "as the tables say";
    if (damaged & 4) continue;
    ASSERT_TRUE(rebuilt->track->ReserveEntries());
    rebuilt->track->AddSamplePts(200000);
    EXPECT_EQ(rebuilt->durations(), Durations(5, 4800)) << damaged;
    reset();
  }
}

INSTANTIATE_TEST_SUITE_P(OffsetWidths, RestoredRecording, testing::Bool());

}  // namespace
