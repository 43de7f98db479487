// ground/write_all.h: writes a whole text to a descriptor.
#pragma once

#include <string_view>

/// Writes `text` at the offset of the descriptor `fd`. Returns false, with errno set, if not
/// all of it could be written; the beginning may have been.
bool write_all(int fd, std::string_view text);
