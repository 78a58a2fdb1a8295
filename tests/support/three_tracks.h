#pragma once

#include <gtest/gtest.h>

#include "tests/support/recording.h"

inline constexpr ZR_U64 kFrameTime = 40000;  // 25 a second: 4800 ticks of 1/120000, 3600 of 1/90000

// The samples of one track as they must be found in the file.
struct Expected {
  ZR_U32 duration;
  std::vector<Data> samples = {};
  std::vector<bool> sync = {};

  void add(const Data& sample, bool isSync) {
    samples.push_back(sample);
    sync.push_back(isSync);
  }

  void findIn(const RecordedFile& file, const TrackView& track) const {
    ASSERT_EQ(track.samples.size(), samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
      ASSERT_EQ(file.bytes(track.samples[i]), samples[i]) << "sample " << i;
      ASSERT_EQ(track.samples[i].sync, sync[i]) << "sample " << i;
      ASSERT_EQ(track.samples[i].duration, duration) << "sample " << i;
    }
  }
};

// Video, AAC and metadata side by side, every frame with bytes of its own.
class ThreeTracks {
 public:
  explicit ThreeTracks(Muxer& muxer)
      : video(muxer.add(VideoTrack())),
        audio(muxer.add(AudioTrack(ZR_MP4_CODEC_AAC))),
        meta(muxer.add(MetaTrack())),
        mMuxer(muxer) {}

  void write(int frames) {
    for (; frames > 0; --frames, ++mWritten) {
      const ZR_U64 pts = ZR_U64{mWritten} * kFrameTime;
      const bool key = mWritten % 10 == 0;
      const auto fill = static_cast<std::uint8_t>(mWritten + 2);
      const Data picture = key ? KeyFrame(9000 + mWritten, fill) : DeltaFrame(3000 + mWritten, fill);
      const Data sound = AacFrame(90 + mWritten % 7, fill);
      const Data text(mWritten % 5 * 10, fill);
      ASSERT_EQ(mMuxer.write(video, picture, pts, key), 0u);
      ASSERT_EQ(mMuxer.write(audio, sound, pts), 0u);
      ASSERT_EQ(mMuxer.write(meta, text, pts), 0u);
      mExpected[0].add(Stored(picture), key);
      mExpected[1].add(Data(sound.begin() + 7, sound.end()), true);
      mExpected[2].add(text, true);
    }
  }

  void findIn(const RecordedFile& file) const {
    EXPECT_EQ(file.problem(), "");
    const std::vector<TrackView> tracks = file.tracks();
    ASSERT_EQ(tracks.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
      SCOPED_TRACE("track " + std::to_string(i));
      mExpected[i].findIn(file, tracks[i]);
    }
  }

  const ZR_MP4_TRACK_HANDLE video, audio, meta;

 private:
  Muxer& mMuxer;
  std::size_t mWritten = 0;
  Expected mExpected[3] = {{4800}, {1024}, {3600}};
};
