#include <unistd.h>

#include <csignal>
#include <cstring>

#include "tools/commands.h"
#include "tools/recorder.h"
#include "tools/status.h"

namespace tool {
namespace {

volatile std::sig_atomic_t stopped = 0;

void Stop(int) { stopped = 1; }

void StopOnSignals() {
  struct sigaction action = {};
  action.sa_handler = Stop;
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
}

const struct {
  const char* name;
  zrMP4_TRACK_TYPE_E type;
  zrMP4_CODECID_E codec;
} kCodecs[] = {
    {"h264", ZR_MP4_TRACK_VIDEO, ZR_MP4_CODEC_H264},
    {"h265", ZR_MP4_TRACK_VIDEO, ZR_MP4_CODEC_H265},
    {"prores-proxy", ZR_MP4_TRACK_VIDEO, ZR_MP4_CODEC_PRORES_PROXY},
    {"prores-lt", ZR_MP4_TRACK_VIDEO, ZR_MP4_CODEC_PRORES_LT},
    {"prores-422", ZR_MP4_TRACK_VIDEO, ZR_MP4_CODEC_PRORES_422},
    {"prores-hq", ZR_MP4_TRACK_VIDEO, ZR_MP4_CODEC_PRORES_HQ},
    {"aac", ZR_MP4_TRACK_AUDIO, ZR_MP4_CODEC_AAC},
    {"mp3", ZR_MP4_TRACK_AUDIO, ZR_MP4_CODEC_MP3},
    {"g711a", ZR_MP4_TRACK_AUDIO, ZR_MP4_CODEC_G711A},
    {"g711u", ZR_MP4_TRACK_AUDIO, ZR_MP4_CODEC_G711U},
};

void SetCodec(TrackOptions& track, const std::string& name) {
  for (const auto& entry : kCodecs) {
    if (name != entry.name || track.type != entry.type) continue;
    track.codec = entry.codec;
    track.codecName = entry.name;
    return;
  }
  throw UsageError("--codec " + name + " is not one for " + track.file);
}

BoxOptions ParseBox(const std::string& text) {
  const size_t path = text.find(':');
  const size_t type = path == std::string::npos ? path : text.find(':', path + 1);
  if (type == std::string::npos || type - path - 1 != 4) throw UsageError("--box takes PATH:TYPE:FILE, not " + text);
  return {text.substr(0, path), text.substr(path + 1, 4), text.substr(type + 1)};
}

zrMP4_FORMAT_PROFILE_E ParseProfile(const std::string& name) {
  if (name == "mp4") return ZR_MP4_PROFILE_MP4;
  if (name == "mov") return ZR_MP4_PROFILE_MOV;
  throw UsageError("--profile is mp4 or mov, not " + name);
}

// An option that describes the track named last; false when it is none of these.
bool TakeTrackOption(const std::string& option, Arguments& arguments, std::vector<TrackOptions>& tracks) {
  static const struct {
    const char* option;
    bool ofVideo, ofAudio, ofMeta;
  } kOptions[] = {{"--codec", true, true, false},  {"--fps", true, false, true},     {"--size", true, false, false},
                  {"--rate", false, true, false}, {"--channels", false, true, false}};
  for (const auto& entry : kOptions) {
    if (option != entry.option) continue;
    if (tracks.empty()) throw UsageError(option + " stands before the track that it describes");
    TrackOptions& track = tracks.back();
    const bool fits = track.type == ZR_MP4_TRACK_VIDEO   ? entry.ofVideo
                      : track.type == ZR_MP4_TRACK_AUDIO ? entry.ofAudio
                                                         : entry.ofMeta;
    if (!fits) throw UsageError(option + " does not describe the track of " + track.file);
    const std::string value = arguments.value(option);
    if (option == "--codec") SetCodec(track, value);
    if (option == "--fps") track.rate = ParseRate(option, value);
    if (option == "--size") ParsePicture(value, track.width, track.height);
    if (option == "--rate") track.sampleRate = ParseNumber(option, value);
    if (option == "--channels") track.channels = ParseNumber(option, value);
    return true;
  }
  return false;
}

bool TakeTrack(const std::string& option, Arguments& arguments, std::vector<TrackOptions>& tracks) {
  TrackOptions track;
  if (option == "--audio") track.type = ZR_MP4_TRACK_AUDIO;
  else if (option == "--meta") track.type = ZR_MP4_TRACK_META;
  else if (option != "--video") return false;
  track.file = arguments.value(option);
  tracks.push_back(track);
  return true;
}

void CheckComplete(const TrackOptions& track) {
  constexpr uint32_t kMaxChannels = 255;
  const auto need = [&](bool given, const char* option) {
    if (!given) throw UsageError("the track of " + track.file + " needs " + option);
  };
  const bool isAudio = track.type == ZR_MP4_TRACK_AUDIO;
  need(track.codecName || track.type == ZR_MP4_TRACK_META, "--codec");
  need(isAudio || track.rate.frames > 0, "--fps");
  need(track.type != ZR_MP4_TRACK_VIDEO || track.width > 0, "--size");
  need(!isAudio || track.sampleRate >= 1000, "--rate, at least 1000");
  need(!isAudio || (track.channels > 0 && track.channels <= kMaxChannels), "--channels, 1 to 255");
}

RecordOptions ParseOptions(Arguments& arguments) {
  constexpr uint32_t kDefaultBuffer = 65536;
  constexpr size_t kMaxName = sizeof(zrMP4_CONFIG_S::aszFileName) - 1;
  RecordOptions options;
  options.muxer.u32VBufSize = kDefaultBuffer;
  while (!arguments.empty()) {
    const std::string option = arguments.take();
    if (option == "-o") options.output = arguments.value(option);
    else if (option == "--profile") options.muxer.enFormatProfile = ParseProfile(arguments.value(option));
    else if (option == "--co64") options.muxer.bCo64Flag = ZR_TRUE;
    else if (option == "--constant-rate") options.muxer.bConstantRate = ZR_TRUE;
    else if (option == "--backup-unit") options.muxer.u32BackupUnit = ParseSize(option, arguments.value(option));
    else if (option == "--pre-alloc") options.muxer.u32PreAllocUnit = ParseSize(option, arguments.value(option));
    else if (option == "--buffer") options.muxer.u32VBufSize = ParseSize(option, arguments.value(option));
    else if (option == "--timing") options.timing = true;
    else if (option == "--no-finish") options.finish = false;
    else if (option == "--box") options.boxes.push_back(ParseBox(arguments.value(option)));
    else if (!TakeTrack(option, arguments, options.tracks) && !TakeTrackOption(option, arguments, options.tracks))
      throw UsageError("unknown option " + option);
  }
  if (options.output.empty()) throw UsageError("-o is missing");
  if (options.output.size() > kMaxName) throw UsageError("the name of the output has more than 255 characters");
  if (options.tracks.empty()) throw UsageError("there is no track to record");
  for (const TrackOptions& track : options.tracks) CheckComplete(track);
  return options;
}

}  // namespace

int Record(Arguments arguments) {
  const RecordOptions options = ParseOptions(arguments);
  StopOnSignals();
  Recorder(options, &stopped).run();
  return 0;
}

}  // namespace tool
