#include <cstdio>

#include "tools/box_reader.h"
#include "tools/commands.h"
#include "tools/file_words.h"
#include "tools/status.h"

namespace tool {
namespace {

const char* CodecName(zrMP4_CODECID_E codec) {
  static constexpr const char* kNames[] = {"h264",      "h265", "unknown", "prores-proxy", "prores-lt", "prores-422",
                                           "prores-hq", "aac",  "mp3",     "unknown",      "g711a",     "g711u",
                                           "meta"};
  return codec < sizeof kNames / sizeof *kNames ? kNames[codec] : "unknown";
}

struct TrackReport {
  ZR_U32 status = 0;
  std::string error;
  zrMP4_TRACK_INFO_S info = {};
};

std::vector<TrackReport> ReportTracks(const Reader& reader, const std::string& file) {
  std::vector<TrackReport> reports;
  std::vector<ZR_U8> box;
  while (reader.payload("/moov/trak[" + std::to_string(reports.size()) + "]/tkhd", box) == 0) {
    TrackReport report;
    ZR_MP4_TRACK_HANDLE handle = 0;
    const ZR_U32 index = static_cast<ZR_U32>(reports.size());
    report.status = ZR_MP4_GetTrackByIndex(reader.handle(), index, &report.info, &handle);
    if (report.status != 0) report.error = Describe(file + ": track " + std::to_string(index), report.status);
    reports.push_back(report);
  }
  return reports;
}

void PrintInfoText(const std::string& file, const zrMP4_FILE_INFO_S& info, const std::vector<TrackReport>& tracks) {
  std::printf("%s\n", file.c_str());
  std::printf("  duration     %u ms\n  handler      %s\n  offsets      %d bits\n  tracks       %u\n",
              info.u32Duration, info.aszHdlrName, info.bCo64Flag ? 64 : 32, info.u32TrackNum);
  std::printf("  backup unit  %u bytes%s\n", info.u32BackupUnit, info.u32BackupUnit == 0 ? " (none)" : "");
  for (size_t i = 0; i < tracks.size(); ++i) {
    const zrMP4_TRACK_INFO_S& track = tracks[i].info;
    if (tracks[i].status != 0) {
      std::printf("track %zu: %s\n", i, tracks[i].error.c_str());
      continue;
    }
    std::printf("track %zu: ", i);
    if (track.enTrackType == ZR_MP4_TRACK_VIDEO)
      std::printf("video, %s, %ux%u pixels, %u bit/s (whole file), %u frames/s", CodecName(track.stVideoInfo.enCodecID),
                  track.stVideoInfo.u32Width, track.stVideoInfo.u32Height, track.stVideoInfo.u32BitRate,
                  track.stVideoInfo.u32FrameRate);
    else if (track.enTrackType == ZR_MP4_TRACK_AUDIO)
      std::printf("audio, %s, %u channels, %u Hz, %u samples/frame%s, %u bits/sample",
                  CodecName(track.stAudioInfo.enCodecID), track.stAudioInfo.u32Channels,
                  track.stAudioInfo.u32SampleRate, track.stAudioInfo.u32SamplePerFrame,
                  track.stAudioInfo.u32SamplePerFrame == 0 ? " (not known)" : "", track.stAudioInfo.u16SampleSize);
    else
      std::printf("metadata, %s, %ux%u pixels, %u samples/s", CodecName(track.stMetaInfo.enCodecID),
                  track.stMetaInfo.u32Width, track.stMetaInfo.u32Height, track.stMetaInfo.u32FrameRate);
    std::printf(", %u ticks/s, speed %g, handler %s\n", track.u32TimeScale, static_cast<double>(track.fSpeed),
                track.aszHdlrName);
  }
}

void PrintInfoJson(const std::string& file, const zrMP4_FILE_INFO_S& info, const std::vector<TrackReport>& tracks) {
  std::printf("{\n  \"file\": %s,\n  \"duration_ms\": %u,\n  \"handler\": %s,\n  \"co64\": %s,\n", Quoted(file).c_str(),
              info.u32Duration, Quoted(info.aszHdlrName).c_str(), info.bCo64Flag ? "true" : "false");
  std::printf("  \"track_count\": %u,\n  \"backup_unit_bytes\": %u,\n  \"tracks\": [", info.u32TrackNum,
              info.u32BackupUnit);
  for (size_t i = 0; i < tracks.size(); ++i) {
    const zrMP4_TRACK_INFO_S& track = tracks[i].info;
    std::printf("%s\n    {\"index\": %zu, ", i == 0 ? "" : ",", i);
    if (tracks[i].status != 0) {
      std::printf("\"error\": %s}", Quoted(tracks[i].error).c_str());
      continue;
    }
    if (track.enTrackType == ZR_MP4_TRACK_VIDEO)
      std::printf("\"type\": \"video\", \"codec\": \"%s\", \"width\": %u, \"height\": %u, \"bit_rate_bps\": %u, "
                  "\"frame_rate_fps\": %u",
                  CodecName(track.stVideoInfo.enCodecID), track.stVideoInfo.u32Width, track.stVideoInfo.u32Height,
                  track.stVideoInfo.u32BitRate, track.stVideoInfo.u32FrameRate);
    else if (track.enTrackType == ZR_MP4_TRACK_AUDIO)
      std::printf("\"type\": \"audio\", \"codec\": \"%s\", \"channels\": %u, \"sample_rate_hz\": %u, "
                  "\"samples_per_frame\": %u, \"sample_size_bits\": %u",
                  CodecName(track.stAudioInfo.enCodecID), track.stAudioInfo.u32Channels,
                  track.stAudioInfo.u32SampleRate, track.stAudioInfo.u32SamplePerFrame,
                  track.stAudioInfo.u16SampleSize);
    else
      std::printf("\"type\": \"meta\", \"codec\": \"%s\", \"width\": %u, \"height\": %u, \"frame_rate_fps\": %u",
                  CodecName(track.stMetaInfo.enCodecID), track.stMetaInfo.u32Width, track.stMetaInfo.u32Height,
                  track.stMetaInfo.u32FrameRate);
    std::printf(", \"time_scale\": %u, \"speed\": %g, \"handler\": %s}", track.u32TimeScale,
                static_cast<double>(track.fSpeed), Quoted(track.aszHdlrName).c_str());
  }
  std::printf("\n  ]\n}\n");
}

}  // namespace

int Info(Arguments arguments) {
  const FileWords words = TakeFiles(arguments, nullptr);
  if (words.files.size() != 1) throw UsageError("info takes one FILE");
  const std::string& file = words.files[0];
  const Reader reader(file);
  zrMP4_FILE_INFO_S info = {};
  Check(file, ZR_MP4_GetFileInfo(reader.handle(), &info));
  const std::vector<TrackReport> tracks = ReportTracks(reader, file);
  if (words.json) PrintInfoJson(file, info, tracks);
  else PrintInfoText(file, info, tracks);
  return 0;
}

int Get(Arguments arguments) {
  const FileWords words = TakeFiles(arguments, nullptr);
  if (words.files.size() != 2 || words.json) throw UsageError("get takes FILE and PATH");
  const std::string path = words.files[1][0] == '/' ? words.files[1] : "/" + words.files[1];
  const Reader reader(words.files[0]);
  std::vector<ZR_U8> payload;
  Check(words.files[0] + ": " + path, reader.payload(path, payload));
  if (std::fwrite(payload.data(), 1, payload.size(), stdout) != payload.size() || std::fflush(stdout) != 0)
    throw SystemFailure("standard output", "cannot be written");
  return 0;
}

}  // namespace tool
