#pragma once

#include "stream/io_stream.h"

namespace zrmp4 {

// Moves the fields of a box between memory and a stream, in a direction fixed when it is made, so that one list of
// fields is a box's layout both ways. Each field is checked: a short transfer is logged with its offset and answers
// false, which ends the list. A null stream is logged once and makes every field false.
class FieldIo {
 public:
  static FieldIo Reading(IOStream* stream, int line = __builtin_LINE()) {
    return FieldIo(stream, true, "readData", line);
  }
  static FieldIo Writing(IOStream* stream, int line = __builtin_LINE()) {
    return FieldIo(stream, false, "writeData", line);
  }

  [[nodiscard]] bool byte(ZR_U8& value);
  [[nodiscard]] bool be16(ZR_U16& value);
  [[nodiscard]] bool be24(ZR_U32& value);  // low 24 bits
  [[nodiscard]] bool be32(ZR_U32& value);
  [[nodiscard]] bool be64(ZR_U64& value);
  [[nodiscard]] bool bytes(ZR_U8* data, ZR_U32 length);

  // A type or brand, moved byte by byte.
  [[nodiscard]] bool fourCharacters(ZR_U8 (&value)[4]) {
    return byte(value[0]) && byte(value[1]) && byte(value[2]) && byte(value[3]);
  }

  // A version byte and 24 bits of flags, as every full box begins.
  [[nodiscard]] bool versionAndFlags(ZR_U8& version, ZR_U32& flags) { return byte(version) && be24(flags); }

  // 64 bits when wide, otherwise the low 32, read back with a zero high word.
  [[nodiscard]] bool time(bool wide, ZR_U64& value);

  // A constant: written as it is, and read past whatever stands there.
  [[nodiscard]] bool fixed8(ZR_U8 value) { return byte(value); }
  [[nodiscard]] bool fixed16(ZR_U16 value) { return be16(value); }
  [[nodiscard]] bool fixed32(ZR_U32 value) { return be32(value); }

  // The transformation matrix that leaves a picture as it is: nine 32-bit words.
  [[nodiscard]] bool unityMatrix();

  bool reading() const { return mReading; }
  bool ok() const { return mStream != nullptr; }
  IOStream* stream() { return mStream; }

 private:
  FieldIo(IOStream* stream, bool reading, const char* operation, int line);

  IOStream* mStream;
  bool mReading;
};

// The two directions of a box whose layout is one list.
template <typename Box>
int ReadFields(Box& box, IOStream* stream, int line = __builtin_LINE()) {
  FieldIo io = FieldIo::Reading(stream, line);
  return io.ok() && box.fields(io) ? 0 : -1;
}

template <typename Box>
int WriteFields(Box& box, IOStream* stream, int line = __builtin_LINE()) {
  FieldIo io = FieldIo::Writing(stream, line);
  return io.ok() && box.fields(io) ? 0 : -1;
}

}  // namespace zrmp4
