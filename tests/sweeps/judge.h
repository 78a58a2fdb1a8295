#pragma once

#include "tests/support/session.h"

// Repairs files that hold some of a recording, and tells what is wrong with what comes of it, or nothing. What was
// asked for at once is known of the last repair, see AllocFaults.
class Judge {
 public:
  explicit Judge(const Session& recorded) : session(recorded), model(session) {}

  // A file that holds all of the recording up to the cut.
  std::string exact(const Data& crashed, std::uint64_t cut, bool extraFrames = true);
  // One that goes on with zeros behind the cut: a cut frame shows that it is.
  std::string reserved(std::uint64_t cut, std::size_t zeros);
  // A file that surely holds the recording up to some byte, and of what follows this and that. Zeros where bytes are
  // missing tell what is lost, but for sound and data that is not coded; anything else tells nothing.
  std::string atLeast(const Data& crashed, std::uint64_t sure, bool extraFrames, bool zeros);
  // A file of which nothing is sure: it is made whole or left alone. One that looks finished is left alone too: without
  // syncs the size of its media data may be there before its index is.
  std::string valid(const Data& crashed, bool extraFrames);

  const Session session;
  Model model;
  MemoryFile file;

 private:
  ZR_U32 repair(const Data& crashed, bool extraFrames);
  std::string again(bool extraFrames);
  std::string differenceOfCoded(std::uint64_t end, bool extraFrames);
  std::string problemBehind(std::uint64_t sure, std::uint64_t end);
  bool sameBytes(const Data& wanted, std::uint64_t from, std::uint64_t to) const;
  bool isCoded(const Record& record) const;

  Data mRepaired;
};
