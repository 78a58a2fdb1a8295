#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include "box/child_types.h"
#include "box/mdat_atom.h"
#include "box/stsd_atom.h"
#include "box/track_boxes.h"
#include "engine/mp4_file.h"
#include "tests/support/alloc_faults.h"
#include "tests/support/bytes.h"
#include "tests/support/full_at.h"
#include "tests/support/log_capture.h"
#include "tests/support/parameter_set_bytes.h"
#include "tests/support/session.h"
#include "tests/support/short_stream.h"
#include "zr_mp4_ext.h"

// Runs the texts of tests/cases: commands behind ">", and below each what came of it when somebody looked at it. With
// ZRMP4_REWRITE=1 in the environment what comes of them now is written in its place, to be looked at in its turn.
// tests/cases/README.md tells the commands.

namespace {

using Words = std::vector<std::string>;

std::string Hex(const Data& data, std::size_t from = 0, std::size_t count = ~std::size_t{0}) {
  std::string text;
  char digits[3];
  for (std::size_t i = from; i < data.size() && i - from < count; ++i) {
    std::snprintf(digits, sizeof(digits), "%02x", data[i]);
    text += (i - from) % 4 == 0 && i != from ? " " : "";
    text += digits;
  }
  return text;
}

std::uint64_t Hash(const Data& data) {  // FNV-1a
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const std::uint8_t byte : data) hash = (hash ^ byte) * 0x100000001b3;
  return hash;
}

// Words are apart by blanks, but those inside quotation marks. A bracket that closes bytes and a semicolon stand alone.
Words Split(const std::string& line) {
  Words words;
  std::string word;
  bool quoted = false;
  for (const char c : line + " ") {
    quoted ^= c == '"';
    const bool closes = (c == ']' && word.rfind('[') + 1 <= 1) || (c == ')' && word.find('(') == std::string::npos);
    if (closes && !quoted && !word.empty()) words.push_back(word), word.clear();
    const bool ends = !quoted && (c == ' ' || c == ';');
    if (!ends) word += c;
    if (ends && !word.empty()) words.push_back(word), word.clear();
    if (ends && c == ';') words.push_back(";");
  }
  return words;
}

class Script {
 public:
  // The text with what comes of its commands.
  std::string run(const std::string& text) {
    mOut.str("");
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      if (line.empty() || line[0] == '#') {
        mOut << line << '\n';
      } else if (line[0] == '>') {
        mOut << line << '\n';
        commands(line.substr(1));
      }
    }
    return mOut.str();
  }

 private:
  void commands(const std::string& line) {
    const Words words = Split(line);
    for (auto at = words.begin(); at < words.end();) {
      const auto end = std::find(at, words.end(), ";");
      mWords.assign(at, end);
      mAt = 0;
      command();
      at = end + (end != words.end());
    }
  }
  void command() {
    const std::string name = next();
    const auto found = kCommands.find(name);
    if (found == kCommands.end()) {
      mOut << "no such command\n";
      return;
    }
    LogCapture::clear();
    found->second(*this);
    if (more()) mOut << "not understood: " << next() << '\n';
    for (const LogCapture::Line& logged : LogCapture::lines()) {
      if (logged.text.rfind("version: ", 0) != 0) mOut << Told(logged) << '\n';
    }
  }

  // Words of the command ----------------------------------------------------------------------------------------------

  bool more() const { return mAt < mWords.size(); }
  std::string next() { return more() ? mWords[mAt++] : ""; }
  // A word that may stand in quotation marks.
  std::string nextText() {
    const std::string word = next();
    return word.empty() || word[0] != '"' ? word : word.substr(1, word.size() - 2);
  }
  std::uint64_t nextNumber() { return std::stoull(next(), nullptr, 0); }
  // Takes a word away from wherever it stands.
  bool flag(const std::string& name) {
    const auto found = std::find(mWords.begin() + static_cast<long>(mAt), mWords.end(), name);
    if (found == mWords.end()) return false;
    mWords.erase(found);
    return true;
  }
  // The same of name=value.
  bool value(const std::string& name, std::string* text) {
    for (std::size_t i = mAt; i < mWords.size(); ++i) {
      if (mWords[i].rfind(name + "=", 0) != 0) continue;
      *text = mWords[i].substr(name.size() + 1);
      mWords.erase(mWords.begin() + static_cast<long>(i));
      return true;
    }
    return false;
  }
  template <typename Number>
  void set(const char* name, Number& number) {
    std::string text;
    if (!value(name, &text)) return;
    number = std::is_floating_point_v<Number> ? static_cast<Number>(std::stod(text))
                                              : static_cast<Number>(std::stoll(text, nullptr, 0));
  }
  template <std::size_t kSize>
  void setText(const char* name, char (&field)[kSize]) {
    std::string text;
    if (!value(name, &text)) return;
    const Data data = term(text);
    std::memset(field, 0, kSize);
    std::copy_n(data.begin(), std::min(data.size(), kSize), field);
  }

  // Bytes up to the end of the command or of a bracket.
  Data bytes() {
    Data all;
    while (more()) {
      const std::string word = next();
      if (word[0] == ']' || word[0] == ')') {
        mClosed = word;
        break;
      }
      const Data data = word[0] == '[' ? box(word.substr(1)) : word == "(" ? group() : term(word);
      all.insert(all.end(), data.begin(), data.end());
    }
    return all;
  }
  Data box(const std::string& type) {
    const std::size_t slash = type.find('/');
    const Data payload = slash != std::string::npos ? box(type.substr(slash + 1)) : bytes();
    return Bytes().be32(8 + payload.size()).type(type.substr(0, slash).c_str()).add(payload).data();
  }
  // As often as its end says, and read anew each time because of what it may count.
  Data group() {
    const std::size_t from = mAt;
    Data all = bytes();
    for (std::size_t left = mClosed.size() > 2 ? std::stoull(mClosed.substr(2)) : 1; left > 1; --left) {
      mAt = from;
      const Data again = bytes();
      all.insert(all.end(), again.begin(), again.end());
    }
    return all;
  }
  static Data repeated(const Data& one, const std::string& times) {
    Data all;
    const std::size_t count = times.empty() ? 1 : std::stoull(times.substr(1));
    for (std::size_t i = 0; i < count; ++i) all.insert(all.end(), one.begin(), one.end());
    return all;
  }
  // Hexadecimal digits, "text", $name, b:bits or a number as d8:, d16:, d32: or d64:; with *N so many times.
  Data term(const std::string& word) {
    const std::size_t star = word.rfind('*');
    if (star != std::string::npos && word.back() != '"') return repeated(term(word.substr(0, star)), word.substr(star));
    if (word[0] == '"') return {word.begin() + 1, word.end() - 1};
    if (word == "#") return Bytes().be16(0x8000u | ++mCounted).data();
    if (word[0] == '$') return mNames.at(word.substr(1));
    if (word.rfind("b:", 0) == 0) return FromBits(bitsOf(word.substr(2)));
    if (word[0] == 'd' && word.find(':') != std::string::npos) {
      const std::uint64_t number = std::stoull(word.substr(word.find(':') + 1), nullptr, 0);
      Bytes all;
      for (int bits = std::stoi(word.substr(1)); bits > 0; bits -= 8) all.u8(number >> (bits - 8));
      return all;
    }
    Data data;
    for (std::size_t i = 0; i + 1 < word.size(); i += 2) {
      data.push_back(static_cast<std::uint8_t>(std::stoul(word.substr(i, 2), nullptr, 16)));
    }
    return data;
  }

  // Bits of words as they are now: 0110, $name, and so many times with *N.
  std::string bitsOf(const std::string& text) const {
    std::string all;
    for (const std::string& word : Split(text)) {
      const std::size_t star = word.find('*');
      const std::string one = word[0] == '$' ? bitsOf(mBits.at(word.substr(1, star - 1))) : word.substr(0, star);
      all += Times(star != std::string::npos ? std::stoul(word.substr(star + 1)) : 1, one);
    }
    return all;
  }

  // What commands print -----------------------------------------------------------------------------------------------

  static std::string Quoted(std::string text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) text.replace(at, 1, "\\n");
    return '"' + text + '"';
  }
  static std::string Told(const LogCapture::Line& line) {
    return line.module + " " + std::to_string(line.level) + " " + Quoted(line.text);
  }
  void answer(ZR_U32 status) {
    if (status != 0) mOut << ZR_MP4_StatusName(status) << '\n';
  }
  static std::string Tree(const zrmp4::Atom& box) {
    std::string text;
    for (const zrmp4::Atom* child = box.firstChild(); child != nullptr; child = child->nextSibling()) {
      const std::string below = Tree(*child);
      text += (text.empty() ? "" : " ") + child->type() + (below.empty() ? "" : "(" + below + ")");
    }
    return text;
  }
  // Boxes with their bytes; the times of day are left out, and of media data all but a hash.
  void print(const RecordedFile& file, const Box& box, std::size_t depth) {
    mOut << std::string(2 * depth, ' ') << box.type << ' ' << box.size;
    const std::uint64_t end = box.children.empty() ? box.end() : box.children.front().offset;
    Data own = file.bytes(box.payload(), end - box.payload());
    std::string hex = box.type == "mdat" || box.type == "free" ? "" : Hex(own);
    if (box.type == "mdat" && box.size > 16) mOut << " hash " << std::hex << Hash(own) << std::dec;
    if (box.type == "mvhd" || box.type == "tkhd" || box.type == "mdhd") {
      const std::size_t times = own[0] == 1 ? 36 : 18;
      hex = Hex(own, 0, 4) + " " + std::string(times - 1, '.') + hex.substr(std::min(hex.size(), 8 + times));
    }
    for (std::size_t at = 0; at < hex.size(); at += kHexLine) {
      mOut << (hex.size() > kHexLine ? "\n" + std::string(2 * depth + 2, ' ') : " ") << hex.substr(at, kHexLine - 1);
    }
    mOut << '\n';
    for (const Box& child : box.children) print(file, child, depth + 1);
  }
  void printProblem(const RecordedFile& file) {
    const std::string problem = file.problem();
    if (!problem.empty()) mOut << "problem: " << problem << '\n';
  }
  // What a tree read from these bytes is, what is logged of it, and what it is written as if that differs.
  std::string readBack(const Data& data) {
    LogCapture::clear();
    ShortStream in(data), out;
    zrmp4::MP4File file;
    int status;
    {
      const AllocFaults watch;
      status = file.Read(&in);
    }
    std::string text = status == 0 ? Tree(file) : "failed";
    if (AllocFaults::largest() > 1024 + 16 * data.size()) text += ", taking much memory";
    if (file.writeChildren(&out) != 0 || out.data() != data) {
      const Data& written = out.data();
      const std::size_t most = std::min(data.size(), written.size());
      std::size_t same = 0;
      while (same < most && written[same] == data[same]) ++same;
      text += ", written up to " + std::to_string(same);
      if (same < written.size()) text += ", then " + Hex(written, same);
    }
    for (const LogCapture::Line& line : LogCapture::lines()) text += '\n' + Told(line);
    LogCapture::clear();
    return text;
  }

  // The commands ------------------------------------------------------------------------------------------------------

  void let() {
    const std::string name = next();
    mNames[name] = bytes();
  }
  void bits() {
    const std::string name = next();
    mBits[name].clear();
    while (more()) mBits[name] += next() + " ";
  }
  void read() { mOut << readBack(bytes()) << '\n'; }
  // Reads and writes boxes with a stream that breaks after 0, 1, 2 ... bytes, and tells how often each message came.
  void breaks() {
    const Data data = bytes();
    ShortStream whole(data);
    zrmp4::MP4File written;
    EXPECT_EQ(written.Read(&whole), 0);
    std::map<std::string, int> messages;
    for (std::size_t n = 0; n < data.size(); ++n) {
      LogCapture::clear();
      ShortStream in(data, n), out({}, n);
      zrmp4::MP4File read;
      read.Read(&in);
      EXPECT_EQ(written.writeChildren(&out), -1) << n;
      for (const LogCapture::Line& line : LogCapture::lines()) {
        ++messages[line.module == "IO" ? "IO" : Quoted(line.text)];
      }
    }
    LogCapture::clear();
    for (const auto& [message, count] : messages) mOut << count << " times " << message << '\n';
  }
  void setFile() {
    const Data data = bytes();
    mFile.set(data, data.size());
  }
  // A number, or a place in a box: "moov/mvhd+12".
  std::uint64_t place(const std::string& text) {
    if (std::isdigit(text[0])) return std::stoull(text, nullptr, 0);
    const std::size_t plus = std::min(text.find('+'), text.size());
    const RecordedFile file(mFile.path());
    const Box* box = file.find(text.substr(0, plus));
    EXPECT_NE(box, nullptr) << text;
    return (box != nullptr ? box->offset : 0) + (plus < text.size() ? std::stoull(text.substr(plus), nullptr, 0) : 0);
  }
  void patch() {
    const std::uint64_t at = place(next());
    const Data data = bytes();
    EXPECT_EQ(pwrite(mFile.descriptor(), data.data(), data.size(), static_cast<off_t>(at)),
              static_cast<ssize_t>(data.size()));
  }
  void keep() {
    Data& kept = mNames[next()];
    const RecordedFile file(mFile.path());
    const Box* box = more() ? file.find(next()) : &file.root();
    if (box != nullptr) kept = file.bytes(box->offset, box->size);
  }
  void same() {
    const Data now = mFile.bytes(), &then = mNames.at(next());
    const auto at = std::mismatch(now.begin(), now.end(), then.begin(), then.end()).first - now.begin();
    mOut << (now == then ? "the same\n" : "differs at " + std::to_string(at) + '\n');
  }
  void room() {
    mFull.reset();
    if (more()) mFull = std::make_unique<FullAt>(nextNumber());
  }
  // As if media data that nothing was written of reached up to there.
  void skip() {
    zrmp4::MP4File& file = engine();
    const std::uint64_t to = nextNumber();
    for (std::uint64_t gap = to - file.stream()->getCurPos(), step; gap > 0; gap -= step) {
      step = std::min<std::uint64_t>(gap, 0xFFFFFFFF);
      file.GetAtom("mdat")->IncreaseSize(static_cast<ZR_U32>(step));
    }
    EXPECT_EQ(file.stream()->seek(static_cast<long long>(to), SEEK_SET), 0);
  }
  void resize() { EXPECT_EQ(ftruncate(mFile.descriptor(), static_cast<off_t>(place(next()))), 0); }

  void create(zrMP4_CONFIG_S config) {
    setText("name", config.aszFileName);
    set("type", config.enConfigType);
    set("buffer", config.enConfigType == ZR_MP4_CONFIG_DEMUXER ? config.stDemuxerConfig.u32VBufSize
                                                               : config.stMuxerConfig.u32VBufSize);
    set("prealloc", config.stMuxerConfig.u32PreAllocUnit);
    set("unit", config.stMuxerConfig.u32BackupUnit);
    set("profile", config.stMuxerConfig.enFormatProfile);
    if (flag("co64")) config.stMuxerConfig.bCo64Flag = ZR_TRUE;
    set("co64", config.stMuxerConfig.bCo64Flag);
    if (flag("constant")) config.stMuxerConfig.bConstantRate = ZR_TRUE;
    if (flag("fd")) config.s32Fd = mFile.descriptor();
    mTracks.clear();
    mMuxer.reset();
    LogCapture::clear();
    mMuxer = std::make_unique<Muxer>(config);
    answer(mMuxer->status());
  }
  void muxer() { create(MuxerConfig(mFile.path())); }
  void reader() { create(DemuxerConfig(mFile.path())); }
  void track() {
    const std::string kind = next();
    zrMP4_TRACK_INFO_S info = kind == "video" ? VideoTrack() : kind == "audio" ? AudioTrack() : MetaTrack();
    set("kind", info.enTrackType);
    set("scale", info.u32TimeScale);
    set("speed", info.fSpeed);
    setText("name", info.aszHdlrName);
    if (kind == "video") {
      set("width", info.stVideoInfo.u32Width), set("height", info.stVideoInfo.u32Height);
      set("rate", info.stVideoInfo.u32BitRate), set("frames", info.stVideoInfo.u32FrameRate);
      set("codec", info.stVideoInfo.enCodecID);
    } else if (kind == "audio") {
      set("channels", info.stAudioInfo.u32Channels), set("rate", info.stAudioInfo.u32SampleRate);
      set("samples", info.stAudioInfo.u32SamplePerFrame), set("bits", info.stAudioInfo.u16SampleSize);
      set("codec", info.stAudioInfo.enCodecID);
    } else {
      set("width", info.stMetaInfo.u32Width), set("height", info.stMetaInfo.u32Height);
      set("frames", info.stMetaInfo.u32FrameRate), set("codec", info.stMetaInfo.enCodecID);
    }
    const ZR_MP4_TRACK_HANDLE handle = mMuxer->add(info);
    if (handle != 0) mTracks.push_back(handle);
    answer(mMuxer->status());
  }
  ZR_MP4_TRACK_HANDLE handleOf(std::size_t number) const { return number <= mTracks.size() ? mTracks[number - 1] : 8; }
  // Track, times that commas separate or that are START+STEP*COUNT, bytes.
  void frame() {
    const ZR_MP4_TRACK_HANDLE track = handleOf(nextNumber());
    std::istringstream times(next());
    const bool key = flag("key");
    const Data data = bytes();
    for (std::string time; std::getline(times, time, ',');) {
      unsigned long long start = 0, step = 0, count = 1;
      std::sscanf(time.c_str(), "%llu+%llu*%llu", &start, &step, &count);
      for (; count > 0; --count, start += step) answer(mMuxer->write(track, data, start, key));
    }
  }
  void add() {
    const std::string path = nextText(), type = nextText();
    zrMP4_ATOM_INFO_S box = {};
    std::memcpy(box.aszType, type.data(), std::min(type.size(), sizeof(box.aszType)));
    std::string length;
    const bool given = value("length", &length);
    Data data = bytes();
    box.u32DataLen = static_cast<ZR_U32>(given ? std::stoul(length) : data.size());
    box.pu8DataBuf = data.empty() ? nullptr : data.data();
    answer(ZR_MP4_AddAtom(mMuxer->handle(), path.c_str(), &box));
  }
  void finish() { answer(mMuxer->finish(flag("drop") ? DropDuration : nullptr)); }
  // The handle goes on to be used.
  void close() {
    ZR_U64 duration = 0;
    answer(ZR_MP4_Destroy(mMuxer->handle(), &duration));
    if (flag("duration")) mOut << "duration " << duration << '\n';
  }
  void repair() {
    std::string name;
    const Data given = value("name", &name) ? term(name) : Data();
    name = given.empty() ? mFile.path() : std::string(given.begin(), given.end());
    answer(ZR_MP4_RepairFile(name.c_str(), flag("extra")));
  }

  void info() {
    zrMP4_FILE_INFO_S file = {};
    answer(ZR_MP4_GetFileInfo(mMuxer->handle(), &file));
    mOut << "duration " << file.u32Duration << " name " << file.aszHdlrName << " co64 " << file.bCo64Flag << " tracks "
         << file.u32TrackNum << " unit " << file.u32BackupUnit << '\n';
    for (ZR_U32 i = 0; i <= file.u32TrackNum; ++i) {
      zrMP4_TRACK_INFO_S track = {};
      ZR_MP4_TRACK_HANDLE handle = 0;
      const ZR_U32 status = ZR_MP4_GetTrackByIndex(mMuxer->handle(), i, &track, &handle);
      answer(status);
      if (status != 0) continue;
      mTracks.resize(std::max<std::size_t>(mTracks.size(), i + 1));
      mTracks[i] = handle;
      mOut << "kind " << track.enTrackType << " scale " << track.u32TimeScale << " speed " << track.fSpeed << " name "
           << track.aszHdlrName << ':';
      const auto fields = {track.stVideoInfo.u32Width, track.stVideoInfo.u32Height, track.stVideoInfo.u32BitRate,
                           track.stVideoInfo.u32FrameRate, static_cast<ZR_U32>(track.stVideoInfo.enCodecID)};
      for (const ZR_U32 field : fields) mOut << ' ' << field;
      mOut << (handle != 0 ? "\n" : ", no track\n");
    }
  }
  void get() {
    const std::string path = next();
    ZR_U32 room = 4096;
    set("room", room);
    Data payload(room);
    zrMP4_ATOM_INFO_S box = {room, "", room != 0 ? payload.data() : nullptr};
    const ZR_U32 status = ZR_MP4_GetAtom(mMuxer->handle(), path.c_str(), &box);
    answer(status);
    EXPECT_TRUE(status == 0 || payload == Data(room)) << "something was copied";
    if (status == 0) mOut << box.aszType << ' ' << Hex(payload, 0, box.u32DataLen) << '\n';
    if (status == ZR_ERR_MP4_ATOM_BUF) mOut << "needs " << box.u32DataLen << '\n';
  }
  void boxes() {
    const std::string path = next();
    const RecordedFile file(mFile.path());
    const Box* box = path.empty() ? nullptr : file.find(path);
    if (box != nullptr) return print(file, *box, 0);
    if (!path.empty()) mOut << "no " << path << '\n';
    if (!path.empty()) return;
    for (const Box& child : file.root().children) print(file, child, 0);
    printProblem(file);
  }
  void records() {
    for (const Record& record : RecordedFile(mFile.path()).records()) {
      mOut << record.kind << ' ' << record.offset << '+' << record.size << " track " << record.trackId << " key "
           << record.key << " pts " << record.pts << '\n';
    }
  }
  void samples() {
    const RecordedFile file(mFile.path());
    printProblem(file);
    for (const TrackView& track : file.tracks()) {
      mOut << "track " << track.id << " duration " << track.duration << ':';
      for (const Sample& sample : track.samples) {
        mOut << ' ' << sample.offset << '+' << sample.size << (sample.sync ? "k" : "") << '/' << sample.duration;
      }
      mOut << '\n';
    }
  }
  zrmp4::MP4File& engine() { return *reinterpret_cast<zrmp4::MP4File*>(mMuxer->handle()); }
  void dump() {
    if (mMuxer->handle() == 0) return answer(ZR_ERR_MP4_HANDLE_INVALID);
    testing::internal::CaptureStdout();
    answer(static_cast<ZR_U32>(engine().Dump(engine().stream(), 0)));
    mOut << testing::internal::GetCapturedStdout();
  }

  static ZR_U32 DropDuration(ZR_MP4_HANDLE, ZR_U32, ZR_U64* duration) {
    *duration = 0;
    return 0;
  }

  static constexpr std::size_t kHexLine = 108;
  static const std::map<std::string, std::function<void(Script&)>> kCommands;

  std::ostringstream mOut;
  Words mWords;
  std::size_t mAt = 0;
  std::string mClosed;
  unsigned mCounted = 0;
  std::map<std::string, Data> mNames;
  std::map<std::string, std::string> mBits;  // the words, so that they may name bits that change later
  LogCapture mLog;
  MemoryFile mFile;
  std::unique_ptr<FullAt> mFull;
  std::unique_ptr<Muxer> mMuxer;
  std::vector<ZR_MP4_TRACK_HANDLE> mTracks;
};

const std::map<std::string, std::function<void(Script&)>> Script::kCommands = {
    {"let", &Script::let}, {"bits", &Script::bits}, {"read", &Script::read}, {"breaks", &Script::breaks},
    {"file", &Script::setFile}, {"patch", &Script::patch}, {"resize", &Script::resize}, {"muxer", &Script::muxer},
    {"reader", &Script::reader}, {"track", &Script::track}, {"frame", &Script::frame}, {"add", &Script::add},
    {"finish", &Script::finish}, {"close", &Script::close}, {"repair", &Script::repair}, {"info", &Script::info},
    {"get", &Script::get}, {"boxes", &Script::boxes}, {"records", &Script::records}, {"samples", &Script::samples},
    {"dump", &Script::dump}, {"keep", &Script::keep}, {"same", &Script::same}, {"room", &Script::room},
    {"skip", &Script::skip},
};

std::string Text(const std::filesystem::path& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

class Cases : public testing::TestWithParam<std::string> {};

TEST_P(Cases, ComeToWhatTheySay) {
  const std::filesystem::path path = std::filesystem::path(ZRMP4_SOURCE_DIR "/tests/cases") / GetParam();
  const std::string expected = Text(path);
  Script script;
  script.run(Text(path.parent_path() / "names"));
  const std::string found = script.run(expected);
  if (std::getenv("ZRMP4_REWRITE") != nullptr) {
    std::ofstream(path) << found;
    return;
  }
  std::istringstream was(expected), is(found);
  std::string wanted, got;
  for (int line = 1; std::getline(was, wanted) && std::getline(is, got); ++line) {
    ASSERT_EQ(got, wanted) << "line " << line;
  }
  EXPECT_EQ(found.size(), expected.size());
}

std::vector<std::string> Names() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(ZRMP4_SOURCE_DIR "/tests/cases")) {
    if (entry.path().extension() == ".txt") names.push_back(entry.path().filename());
  }
  return names;
}

INSTANTIATE_TEST_SUITE_P(All, Cases, testing::ValuesIn(Names()), [](const auto& test) {
  return test.param.substr(0, test.param.size() - 4);
});

}  // namespace
