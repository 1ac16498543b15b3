// Rotation: a full log becomes <name>.1.log, the one before it <name>.2.log and
// so on; the oldest goes.
//
// Threads, processes and forked copies all write to the file and all may find
// it full at once, and none of them may wait, not even for one that was stopped
// half-way. So a rotation has two steps:
//
//  1. Setting aside. The file gets a name of its own,
//     <name>.<time>-<thread>.full, by one `rename`. From then on the next who
//     wants to write makes a new <name>.log. What others are just writing goes
//     to the file under its new name: nothing is lost.
//  2. Numbering. The files set aside, the oldest first, get the numbers, all
//     others moving up by one.
//
// Both are done under a lock on the directory that is taken only if it is free.
// (A lock file could be removed by a zealous hand, and two would number at
// once.) Who finds it taken gives the holder some chances to run, and if the
// full file is still there, sets it aside without the lock: otherwise it would
// grow while the holder is stopped. The numbering then is left to the holder,
// or to the next rotation. Each numbers a few files at most: others may set
// aside faster than one can number, and nobody is to be kept for ever.
//
// `rename` cannot be told which file it is to move. When a holder is stopped
// between the look and the `rename` and others rotate meanwhile, it moves a
// file that is not yet full. That one has its turn early; nothing else happens.
//
// The lock belongs to an open file description, so forked copies have it, too.
// It is let go of explicitly and does not last until the copies are gone.

#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "logger/Descriptor.h"

class Rotation {
 public:
  // Of `<directory>/<name>.log`, with so many old files kept. The name is at
  // most `kMaxNameBytes` long.
  Rotation(const std::string& directory, const std::string& name,
           int old_files);

  // With a longer name, the names that a rotation gives would be too long.
  static constexpr std::size_t kMaxNameBytes = 200;

  // Sets `full` aside if that is the file at the path, and numbers what is set
  // aside. False when it stays at the path, because files cannot be renamed or
  // locked there. Never waits, and takes no lock of the process's: safe from
  // any thread and in a forked copy.
  bool Rotate(const FileState& full) const;

 private:
  static constexpr std::size_t kNameBytes = 256;
  using FileName = std::array<char, kNameBytes>;

  FileName Numbered(int number) const;
  FileName NewNameAside() const;
  bool IsNameAside(std::string_view file) const;

  bool IsAtPath(int directory, const FileState& file) const;
  bool SetAside(int directory, const FileState& full) const;
  bool FindOldestAside(int directory, FileName* oldest) const;
  bool Number(int directory, const FileName& aside) const;
  void NumberOldest(int directory) const;

  const std::string directory_;
  const std::string name_;
  const std::string log_;
  const int old_files_;
};
