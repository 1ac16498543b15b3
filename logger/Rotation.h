// Rotation: a full log becomes <name>.1.log, the one before it <name>.2.log and
// so on; the oldest is removed.
//
// Threads and processes, forked children included, write to the same file, and
// all may find it full at the same moment. None may wait, because the process
// that it waits for may be stopped half-way. So a rotation has two steps:
//
//  1. Setting aside. One `rename` gives the file a name of its own,
//     <name>.<time>-<thread>.full. The next writer makes a new <name>.log. A
//     `write` that is under way goes to the renamed file, so no line is lost.
//  2. Numbering. Each file set aside, the oldest first, gets number 1. Before
//     that, the numbered files up to the first gap move up by one.
//
// A rotation takes a lock on the directory if it is free. It does not use a
// lock file: someone could remove that, and then two processes would number at
// the same time. A thread that finds the lock held yields to its holder a few
// times. If the full file is still at the log's path afterwards, the thread
// sets it aside without the lock: otherwise the file would grow while the
// holder is stopped. If the lock is still held then, the thread leaves the
// numbering to the holder or the next rotation. A rotation numbers only a few
// files: it would never end if others set files aside faster than it numbers
// them.
//
// A rotation skips obstacles: a numbered name that belongs to something other
// than a file, and a file that cannot be renamed. The directory does not grow
// even if files can never be numbered: every rotation, with or without the
// lock, removes the oldest files while there are more than `old_files` besides
// the one that it has just set aside.
//
// `rename` takes a path, not an open file. A process may be stopped after it
// has found the full file at the path, and others may rotate meanwhile. Its
// `rename` then sets aside a file that is not yet full, under a name whose time
// is too early. The next rotation could take that file for the oldest and
// remove it, so the process renames it again at once. The only consequence is
// that the file is numbered before it is full.
//
// The lock belongs to an open file description, so a child that is forked
// during a rotation holds it, too. The rotation unlocks it explicitly, because
// otherwise it would stay locked until the child ends or calls execv.

#pragma once

#include <dirent.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "logger/Descriptor.h"

class Rotation {
 public:
  // Keeps `old_files` old files of the log `name` in `directory`. `name` must
  // have at most `kMaxNameBytes` bytes.
  Rotation(const std::string& directory, const std::string& name,
           int old_files);

  // The length of the longest name. Every file name that a rotation makes from
  // it is short enough for the system.
  static constexpr std::size_t kMaxNameBytes = 200;

  // Sets `full` aside if it is the file at the log's path, and numbers the
  // files set aside. Returns false when the file stays at the path, because it
  // cannot be renamed or the directory cannot be opened. Never waits, and takes
  // no lock within the process but malloc's, which `fork` releases in the
  // child: safe from any thread and in a forked child.
  bool Rotate(const FileState& full) const;

 private:
  static constexpr std::size_t kNameBytes = 256;
  using FileName = std::array<char, kNameBytes>;

  // How many files are numbered, and the highest number; how many are set
  // aside, and the name of the oldest one that is not skipped.
  struct OldFiles {
    int numbered = 0;
    int highest = 0;
    int aside = 0;
    FileName oldest_aside{};
  };

  FileName Numbered(int number) const;
  FileName NewAsideName(int directory) const;
  bool IsAsideName(std::string_view file) const;
  int NumberOf(std::string_view file) const;

  bool IsAtPath(int directory, const FileState& file) const;
  bool SetAside(int directory, const FileState& full) const;
  void TidyUp(DIR* listing, bool locked) const;
  OldFiles List(DIR* listing, const FileName& skipped) const;
  void Count(const char* file, const FileName& skipped, OldFiles* files) const;
  bool NumberFile(int directory, const FileName& aside) const;
  int MakeNumberFree(int directory) const;
  int RemoveOldestNumbered(int directory, int highest) const;

  const std::string directory_;
  const std::string name_;
  const std::string log_;
  const int old_files_;
};
