// receiver/deliver/folders.h: opens folders below another without following a symbolic
// link.
#pragma once

#include <sys/types.h>

#include <string>

#include "ground/owners.h"

/// The folder at `path` below `folder`. Invalid where the kernel lacks openat2(2) or
/// a filter forbids it, and whenever a folder is missing: try enter() then.
Fd open_beneath(int folder, const std::string& path);

/// The folder `name` right in `folder`; when missing it is made, with `mode` less the
/// umask, and then `folder` is synced if `sync`. Invalid on failure, errno set.
Fd enter(int folder, const char* name, mode_t mode, bool sync);

/// Returns false on failure. File systems that can't sync a folder count as success.
bool sync_folder(int folder);
