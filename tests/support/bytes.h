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
  Bytes& type(const std::string& value) { return add({value.begin(), value.end()}); }
  Bytes& fill(std::size_t count, std::uint8_t value = 0) { return add(std::vector<std::uint8_t>(count, value)); }
  Bytes& add(const std::vector<std::uint8_t>& more) {
    mData.insert(mData.end(), more.begin(), more.end());
    return *this;
  }

  const std::vector<std::uint8_t>& data() const { return mData; }
  std::size_t size() const { return mData.size(); }
  operator const std::vector<std::uint8_t>&() const { return mData; }

 private:
  Bytes& bigEndian(std::uint64_t value, int width) {
    for (int i = width - 1; i >= 0; --i) mData.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    return *this;
  }

  std::vector<std::uint8_t> mData;
};
