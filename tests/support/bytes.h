#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Bytes of a file, written by hand: Bytes().be32(16).type("smhd").be32(0).be16(0).be16(0).
class Bytes {
 public:
  Bytes& u8(std::uint64_t value) { return bigEndian(value, 1); }
  Bytes& be16(std::uint64_t value) { return bigEndian(value, 2); }
  Bytes& be24(std::uint64_t value) { return bigEndian(value, 3); }
  Bytes& be32(std::uint64_t value) { return bigEndian(value, 4); }
  Bytes& be64(std::uint64_t value) { return bigEndian(value, 8); }
  Bytes& text(const std::string& value) { return add({value.begin(), value.end()}); }
  Bytes& type(const char* value) { return text(value); }
  Bytes& fill(std::size_t count, std::uint8_t value = 0) { return add(std::vector<std::uint8_t>(count, value)); }
  Bytes& add(const Bytes& more) {
    mAny.insert(mAny.end(), more.mAny.begin(), more.mAny.end());
    mData.insert(mData.end(), more.mData.begin(), more.mData.end());
    return *this;
  }
  Bytes& add(const std::vector<std::uint8_t>& more) {
    mAny.insert(mAny.end(), more.size(), false);
    mData.insert(mData.end(), more.begin(), more.end());
    return *this;
  }
  // Bytes that depend on the clock: some value here, any value in what they are compared with.
  Bytes& any(std::size_t count) {
    mData.insert(mData.end(), count, 0x5A);
    mAny.resize(mData.size(), true);
    return *this;
  }

  const std::vector<std::uint8_t>& data() const { return mData; }
  std::size_t size() const { return mData.size(); }
  operator const std::vector<std::uint8_t>&() const { return mData; }

  // Empty when they are the same, otherwise where they first differ.
  std::string difference(const std::vector<std::uint8_t>& other) const {
    for (std::size_t i = 0; i < mData.size() && i < other.size(); ++i) {
      if (mAny[i] || mData[i] == other[i]) continue;
      return "at " + std::to_string(i) + " " + std::to_string(mData[i]) + ", but got " + std::to_string(other[i]);
    }
    if (mData.size() == other.size()) return "";
    return std::to_string(mData.size()) + " bytes, but got " + std::to_string(other.size());
  }

 private:
  Bytes& bigEndian(std::uint64_t value, int width) {
    for (int i = width - 1; i >= 0; --i) mData.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    mAny.resize(mData.size());
    return *this;
  }

  std::vector<std::uint8_t> mData;
  std::vector<bool> mAny;
};
