// Writes what the fuzzer starts from into FOLDER/TARGET: the recordings of the tests, whole and cut, and their calls.
#include <filesystem>
#include <fstream>

#include "tests/support/bytes.h"
#include "tests/support/parameter_set_bytes.h"
#include "tests/support/session.h"

namespace {

constexpr std::size_t kLargest = 24000;  // two or three small units; larger ones are mutated slowly

std::filesystem::path gFolder;

void Write(const std::string& target, const std::string& name, const Data& data) {
  std::filesystem::create_directories(gFolder / target);
  std::ofstream(gFolder / target / name, std::ios::binary)
      .write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
}

// As write_frames decodes it.
Data Encode(const Session& session) {
  Bytes bytes;
  bytes.u8(session.wide | session.constantRate << 1 | (session.preAlloc != 0 ? 0x10u : 0u));
  bytes.u8(session.tracks.size() - 1);
  for (const zrMP4_TRACK_INFO_S& track : session.tracks) {
    switch (track.enTrackType) {
      case ZR_MP4_TRACK_VIDEO: bytes.u8(std::min<unsigned>(track.stVideoInfo.enCodecID, 2)); break;
      case ZR_MP4_TRACK_AUDIO: bytes.u8(track.stAudioInfo.enCodecID == ZR_MP4_CODEC_AAC ? 3 : 5); break;
      default: bytes.u8(7);
    }
  }
  for (std::size_t i = 0; i < session.calls.size() && bytes.size() < 2000; ++i) {
    const Call& call = session.calls[i];
    bytes.u8(call.track == Call::kBox ? 7u : static_cast<unsigned>(call.track) | (call.key ? 8u : 0u));
    bytes.be16(call.data.size()).add(call.data);
  }
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  gFolder = argv[1];
  int number = 0;
  for (const Session& session : Sessions()) {
    const std::string name = std::to_string(number++);
    Write("write_frames", name, Encode(session));
    for (std::size_t calls = 0; calls <= session.calls.size(); calls = calls * 3 + 2) {
      const MemoryFile file;
      const std::string step = name + "-" + std::to_string(calls);
      if (Play(session, file.path(), calls, true).status != 0) return 1;
      if (file.bytes().size() > kLargest) break;
      Write("open_file", step, file.bytes());
      Play(session, file.path(), calls, false);
      Data data = file.bytes();
      Write("repair_file", step, data);
      data.resize(data.size() - std::min<std::size_t>(data.size(), 11));
      Write("repair_file", step + "-cut", data);
    }
    for (const Call& call : session.calls) {
      if (call.key && call.data.size() < 200) Write("parse_codec", name + "-" + std::to_string(call.track), call.data);
    }
  }
  const Nal sps = HevcSpsBits().bytes();
  for (const Nal& nal : {kHevcVps, kHevcSps, kHevcPps, sps}) {
    Write("parse_codec", "nal-" + std::to_string(nal.size()), nal);
    Write("parse_codec", "frame-" + std::to_string(nal.size()), Bytes().be32(1).add(nal));
  }
  Write("parse_codec", "aac", AacFrame());
  // Create, two tracks, frames, a box, the end, and the file read and repaired.
  Write("call_sequence", "record", Bytes().u8(0).u8(0).u8(0).u8(0).u8(0).u8(3)    // with backups
                                       .u8(3).u8(0).u8(0).u8(0).u8(3).u8(1).u8(1).u8(0)
                                       .u8(5).u8(0).u8(60).u8(2).u8(0).u8(1)  // a key frame
                                       .u8(5).u8(2).u8(60).u8(0).u8(0).u8(0).u8(5).u8(3).be16(0xFFFF).u8(0).u8(0).u8(0)
                                       .u8(10).u8(1).be16(5).text("notes").u8(0).u8(0).u8(0).u8(1)
                                       .u8(19).u8(0).be16(0xFFFF).u8(0)
                                       .u8(15).be64(0).u8(0).u8(0).u8(16).u8(0).u8(0)
                                       .u8(2).u8(0).u8(0).u8(2).u8(12).u8(0).u8(0).u8(1).u8(13).u8(0).u8(8)
                                       .u8(14).u8(0).u8(1).u8(16).u8(0).u8(0).u8(17).u8(0).u8(1));
  return 0;
}
