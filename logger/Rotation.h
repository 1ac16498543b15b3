// Rotation: a full log becomes <name>.1.log, the one before it <name>.2.log and
// so on; the oldest is removed.
//
// Threads, processes and forked children all write to the file, all may find it
// full at the same moment, and none may wait, not even for a process that was
// stopped half-way. So a rotation has two steps:
//
//  1. Setting aside. One `rename` gives the file a name of its own,
//     <name>.<time>-<thread>.full. From then on the next thread that wants to
//     write makes a new <name>.log. Lines that are being written go to the file
//     under its new name, so nothing is lost.
//  2. Numbering. The files set aside, the oldest first, get number 1; all
//     others move up by one.
//
// Both are done under a lock on the directory, which is taken only if it is
// free. (With a lock file, someone could remove it, and two processes would
// number at once.) A thread that finds the lock held gives the holder some
// chances to run. If the full file is still there, it sets that aside without
// the lock: otherwise the file would grow while the holder is stopped. The
// numbering is then left to the holder, or to the next rotation. Each rotation
// numbers only a few files: others may set aside faster than one can number,
// and no thread should be held up for ever.
//
// Obstacles are passed over: a number whose name is taken by something that is
// not a file, and a file that cannot be renamed. Even if files can never be
// numbered, the directory does not grow: every rotation, with or without the
// lock, removes the oldest files beyond one more than are to be kept.
//
// `rename` cannot be told which file to move. If a process is stopped between
// its look at the file and the `rename`, and others rotate in the meantime, it
// moves a file that is not yet full, under a name that is too old. So that the
// file is not removed as the oldest, it gets another name at once. It is
// numbered early; there is no other consequence.
//
// The lock belongs to an open file description, so forked children have it,
// too. It is released explicitly and does not last until they end.

#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "logger/Descriptor.h"

class Rotation {
 public:
  // Rotates the log `name` in `directory` and keeps `old_files` old files. The
  // name has at most `kMaxNameBytes`.
  Rotation(const std::string& directory, const std::string& name,
           int old_files);

  // With a longer name, the names that a rotation gives would be too long.
  static constexpr std::size_t kMaxNameBytes = 200;

  // Sets `full` aside if that is the file at the path, and numbers the files
  // set aside. Returns false when it stays at the path because it cannot be
  // renamed. Never waits, and takes no lock within the process: safe from any
  // thread and in a forked child.
  bool Rotate(const FileState& full) const;

 private:
  static constexpr std::size_t kNameBytes = 256;
  using FileName = std::array<char, kNameBytes>;

  // The log's other files in the directory.
  struct OldFiles {
    int numbered = 0;
    int highest = 0;
    int aside = 0;
    FileName oldest_aside{};
  };

  FileName Numbered(int number) const;
  FileName NewNameAside(int directory) const;
  bool IsNameAside(std::string_view file) const;
  int NumberOf(std::string_view file) const;

  bool IsAtPath(int directory, const FileState& file) const;
  bool SetAside(int directory, const FileState& full) const;
  void TidyUp(int directory, bool locked) const;
  OldFiles List(int directory, const FileName& passed) const;
  void Count(const char* file, const FileName& passed, OldFiles* files) const;
  bool Number(int directory, const FileName& aside) const;
  int FreeNumber(int directory) const;
  int RemoveNumbered(int directory, int highest) const;

  const std::string directory_;
  const std::string name_;
  const std::string log_;
  const int old_files_;
};
