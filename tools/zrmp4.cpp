// zrmp4: records, repairs and shows MP4 and QuickTime files.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "tools/commands.h"
#include "tools/status.h"

namespace {

constexpr char kOverview[] =
    "zrmp4 - crash-safe recording of MP4 and QuickTime files (library %s)\n"
    "\n"
    "  zrmp4 record -o OUT [OPTION]... TRACK...   record encoded frames\n"
    "  zrmp4 repair FILE...                       make cut recordings playable, in place\n"
    "  zrmp4 info FILE                            describe a file and its tracks\n"
    "  zrmp4 dump FILE                            print the box tree\n"
    "  zrmp4 get FILE PATH                        print the payload of a box\n"
    "\n"
    "zrmp4 COMMAND --help tells more, zrmp4 --version the version. Exit status: 0 done, 1 failed, 2 wrong usage.\n"
    "With ZR_LOG_LEVEL=n in the environment the library's messages of level n and up are printed: 0, 1 or 3.\n";

constexpr char kRecordHelp[] =
    "zrmp4 record -o OUT [OPTION]... TRACK...\n"
    "\n"
    "Tracks, one or more, each followed by what describes it (FILE is - for standard input):\n"
    "  --video FILE --codec h264|h265|prores-proxy|prores-lt|prores-422|prores-hq --fps F --size WxH\n"
    "  --audio FILE --codec aac|mp3|g711a|g711u --rate HZ --channels N\n"
    "  --meta FILE --fps F\n"
    "H.264 and H.265 come with start codes, ProRes as frames one behind the other, AAC with ADTS headers, MP3 as a\n"
    "file, G.711 as raw bytes, metadata with a 4-byte big-endian length before each sample. F is a number such as\n"
    "30 or 29.97, or a fraction such as 30000/1001.\n"
    "\n"
    "Options (N takes k and M for 1024 and 1048576):\n"
    "  --profile mp4|mov   brand of the file; mp4 unless given\n"
    "  --co64              64-bit offsets, for files beyond 4 GiB\n"
    "  --constant-rate     frames last 1/F whatever happens\n"
    "  --backup-unit N     bytes between snapshots, 512k to 500M: makes the recording repairable. A frame and a\n"
    "                      snapshot must fit between two of them: at least four times the largest frame\n"
    "  --pre-alloc N       file space to reserve at a time, up to 100M\n"
    "  --buffer N          write buffer, 1 to 5M; 64k unless given\n"
    "  --box PATH:TYPE:FILE  add a box with the bytes of FILE; PATH is / or such as /moov or /moov/trak[0]\n"
    "  --timing            tell at the end how long the calls took that wrote the frames\n"
    "  --no-finish         close the file as a cut recording leaves it\n"
    "\n"
    "Ctrl-C ends the recording and finishes the file.\n"
    "For a file without B-frames:\n"
    "  ffmpeg -i IN -c copy -f h264 - | zrmp4 record -o out.mp4 --video - --codec h264 --fps 30 --size 1280x720\n";

constexpr char kRepairHelp[] =
    "zrmp4 repair FILE... [--no-extra-frames] [--json]\n"
    "\n"
    "Makes recordings that were cut off playable, in place, and tells what they hold afterwards. They need to have\n"
    "been recorded with --backup-unit. A finished file is left alone.\n"
    "  --no-extra-frames  keep only what the snapshots cover\n"
    "  --json             print a list with one object per file\n";

constexpr char kInfoHelp[] =
    "zrmp4 info FILE [--json]\n"
    "\n"
    "Prints duration, offsets, backup unit and the description of each track.\n";

constexpr char kDumpHelp[] =
    "zrmp4 dump FILE\n"
    "\n"
    "Prints the tree of boxes, with the snapshots inside the media data.\n";

constexpr char kGetHelp[] =
    "zrmp4 get FILE PATH\n"
    "\n"
    "Writes the payload of the box at PATH, such as /moov/trak[0]/mdia/hdlr, to standard output.\n";

const struct {
  const char* name;
  int (*run)(tool::Arguments);
  const char* help;
} kCommands[] = {
    {"record", tool::Record, kRecordHelp}, {"repair", tool::Repair, kRepairHelp}, {"info", tool::Info, kInfoHelp},
    {"dump", tool::Dump, kDumpHelp},       {"get", tool::Get, kGetHelp},
};

bool IsAny(const char* word, const char* one, const char* other) {
  return std::strcmp(word, one) == 0 || std::strcmp(word, other) == 0;
}

bool IsHelp(const char* word) { return IsAny(word, "--help", "-h"); }

int RunCommand(int (*run)(tool::Arguments), int count, char** words) {
  try {
    return run(tool::Arguments(count, words));
  } catch (const tool::UsageError& error) {
    tool::Warn(error.what() + std::string("; try --help"));
    return 2;
  } catch (const tool::Failure& error) {
    tool::Warn(error.what());
  } catch (const std::bad_alloc&) {
    tool::Warn("memory is out");
  }
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && IsAny(argv[1], "--version", "-V")) {
    std::printf("zrmp4 %s\n", ZR_MP4_VERSION);
    return 0;
  }
  if (argc < 2 || IsHelp(argv[1]) || std::strcmp(argv[1], "help") == 0) {
    std::fprintf(argc < 2 ? stderr : stdout, kOverview, ZR_MP4_VERSION);
    return argc < 2 ? 2 : 0;
  }
  for (const auto& command : kCommands) {
    if (std::strcmp(argv[1], command.name) != 0) continue;
    if (std::any_of(argv + 2, argv + argc, IsHelp)) {
      std::fputs(command.help, stdout);
      return 0;
    }
    return RunCommand(command.run, argc - 2, argv + 2);
  }
  tool::Warn(std::string("unknown command ") + argv[1] + "; try --help");
  return 2;
}
