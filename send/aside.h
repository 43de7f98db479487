// send/aside.h: the names under which files lie while they are being removed.
//
// A file is not removed by its name, which may mean another one by then, but
// first renamed within its folder to a name that nobody else uses:
// ".tarnwick-taken~NAME", or NAME in a folder ".tarnwick-taken~" if that is too
// long. Whoever meets such a name later, since the program was killed, reads in it
// what the file was called.
#pragma once

#include <string>

#include "ground/owners.h"

/// True for a name ".tarnwick-taken~NAME".
bool is_aside(const std::string& name);

/// True for the folder ".tarnwick-taken~".
bool is_aside_folder(const std::string& name);

/// What the file `aside` (is_aside()) was called.
std::string name_of_aside(const std::string& aside);

/// Renames the file `aside` (is_aside()) in `folder` back and returns its own name;
/// `aside` if that name is taken, or was taken by a file that this run has removed, or the
/// renaming fails.
std::string give_name_back(int folder, const std::string& aside);

/// Moves what lies in the open folder `aside` (is_aside_folder()) back to `folder`,
/// except where a name is taken. Returns how many were moved.
int give_all_back(int folder, int aside);

/// A file renamed aside. It gets its name back at the end unless it was removed or
/// moved; if the name is taken by then, it stays where it is.
class Aside {
 public:
  /// Renames the entry `name` of `folder`, which must outlive this. error() is
  /// that of the renaming.
  Aside(int folder, const std::string& name);
  ~Aside();
  Aside(const Aside&) = delete;
  Aside& operator=(const Aside&) = delete;

  /// errno of the last call that failed, 0 if none did.
  int error() const { return error_; }

  /// Where it lies.
  int folder() const { return own_folder_ ? own_folder_.get() : home_; }
  const std::string& name() const { return name_; }

  /// Removes it; false, with error(), if it can't be.
  bool remove();

  /// Renames it to `name` in `folder`, over what may be there; false, with error(),
  /// if it can't be.
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
