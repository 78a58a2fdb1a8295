#pragma once

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "box/atom.h"
#include "tests/support/bytes.h"
#include "tests/support/short_stream.h"

inline Bytes BoxBytes(const char* type, const Bytes& payload) {
  return Bytes().be32(8 + payload.size()).type(type).add(payload);
}

std::vector<std::uint8_t> Written(zrmp4::Atom& box);

// Null when it cannot be read.
template <typename Box>
std::unique_ptr<Box> ReadAs(zrmp4::IOStream& stream) {
  zrmp4::AtomHeader header;
  if (header.Read(&stream) != 0) return nullptr;
  auto box = std::make_unique<Box>(header);
  return box->ReadContent(&stream) == 0 ? std::move(box) : nullptr;
}
template <typename Box>
std::unique_ptr<Box> ReadAs(const std::vector<std::uint8_t>& bytes) {
  ShortStream stream(bytes);
  return ReadAs<Box>(stream);
}

// A box without children and its bytes in the file. make answers a unique_ptr to the box's own class, from which
// comes how it is read; a class that needs more than the header to be read gives its own.
struct BoxCase {
  using Read = std::function<std::unique_ptr<zrmp4::Atom>(const zrmp4::AtomHeader&)>;

  template <typename Make>
  BoxCase(std::string caseName, Make caseMake, Bytes caseBytes)
      : name(std::move(caseName)), make(caseMake), bytes(std::move(caseBytes)) {
    using Box = typename std::invoke_result_t<Make>::element_type;
    read = [](const zrmp4::AtomHeader& header) { return std::unique_ptr<zrmp4::Atom>(new Box(header)); };
  }
  template <typename Make>
  BoxCase(std::string caseName, Make caseMake, Bytes caseBytes, Read caseRead)
      : name(std::move(caseName)), make(caseMake), read(std::move(caseRead)), bytes(std::move(caseBytes)) {}

  std::string name;
  std::function<std::unique_ptr<zrmp4::Atom>()> make;
  Read read;
  Bytes bytes;
};

// Writes the box, compares, reads it back and writes it again; then breaks the stream at every byte, both ways, and
// expects a failure with exactly one message of the transfer.
void CheckBox(const BoxCase& box);
