// send/aside.h: the names under which files lie while they are being removed.
//
// Removing a file by its name could hit another file that has just got that name.
// The file is therefore first renamed, within its folder, to a name that nobody else
// uses: ".tarnwick-taken~NAME", or NAME in a folder ".tarnwick-taken~" if that is too
// long. If the program is killed meanwhile, the name still tells what the file was
// called.
#pragma once

#include <string>

#include "ground/owners.h"

/// True for a name ".tarnwick-taken~NAME".
bool is_aside(const std::string& name);

/// True for the folder ".tarnwick-taken~".
bool is_aside_folder(const std::string& name);

/// Returns what the file `aside` (is_aside()) was called.
std::string name_of_aside(const std::string& aside);

/// Renames the file `aside` (is_aside()) in `folder` back and returns its own name. Leaves
/// it and returns `aside` if another file has that name, if one had it that this run has
/// removed, or if the renaming fails.
std::string give_name_back(int folder, const std::string& aside);

/// Moves what lies in the open folder `aside` (is_aside_folder()) back to `folder`,
/// except where a name is taken. Returns how many were moved.
int give_all_back(int folder, int aside);

/// A file renamed aside. The destructor gives it its name back unless it was removed or
/// moved; if the name is taken by then, the file stays where it is.
class Aside {
 public:
  /// Renames the entry `name` of `folder`, a descriptor that must stay open as long as
  /// this object lives. error() tells whether it worked.
  Aside(int folder, const std::string& name);
  ~Aside();
  Aside(const Aside&) = delete;
  Aside& operator=(const Aside&) = delete;

  /// Returns the errno of the last call that failed, or 0 if none did.
  int error() const { return error_; }

  /// The folder and the name that the file has while it lies aside.
  int folder() const { return own_folder_ ? own_folder_.get() : home_; }
  const std::string& name() const { return name_; }

  /// Removes the file. Returns false, with error() set, if that fails.
  bool remove();

  /// Renames the file to `name` in `folder`, and replaces a file of that name. Returns
  /// false, with error() set, if that fails.
  bool move_to(int folder, const std::string& name);

 private:
  void take_to_own_folder();

  int home_;
  std::string home_name_;
  Fd own_folder_;  ///< for names that are too long
  std::string name_;
  bool is_taken_ = false;
  int error_ = 0;
};
