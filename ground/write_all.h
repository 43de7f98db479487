// ground/write_all.h: text into a descriptor, all of it.
#pragma once

#include <string_view>

/// Writes `text` at the offset of the descriptor `fd`. False if not all of it could be
/// written, errno set; a full disk takes the beginning.
bool write_all(int fd, std::string_view text);
