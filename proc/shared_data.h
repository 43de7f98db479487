// proc/shared_data.h: the record in the lock file, through which copies of
// the program on one host talk. It is in host byte order and copied as a whole.
#pragma once

#include <cstddef>
#include <cstdint>

/// Request bits in `command`, written by a controlling copy.
constexpr std::uint16_t SD_TERMINATE = 0x0001;  ///< set together with `stop`
constexpr std::uint16_t SD_FREEZE = 0x0002;     ///< pause while this is set

/// State bit in `status`, written by the owner.
constexpr std::uint16_t SD_FROZEN = 0x0002;  ///< paused on request

struct shared_data {
  std::int32_t pid = 0;         ///< owner's process id; 0: no owner
  std::uint8_t stop = 0;        ///< not 0: the owner shall end its run (not a bool, since
                                ///< a damaged file may hold values that a bool can't have)
  std::uint8_t reserved1 = 0;   ///< written as 0, never looked at
  std::uint16_t command = 0;    ///< SD_TERMINATE, SD_FREEZE
  std::uint16_t status = 0;     ///< SD_FROZEN
  std::uint16_t reserved2 = 0;  ///< written as 0, never looked at
};

static_assert(sizeof(shared_data) == 12);
static_assert(offsetof(shared_data, stop) == 4);
static_assert(offsetof(shared_data, command) == 6);
static_assert(offsetof(shared_data, status) == 8);
