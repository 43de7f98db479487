// What lies in a lock file.
#include <cstring>

#include "fuzz/target.h"
#include "proc/lock_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::optional<shared_data> record = record_in(data, size);
  check(record.has_value() == (size >= sizeof(shared_data)));
  if (!record) return 0;
  check(std::memcmp(&*record, data, sizeof *record) == 0);
  check(!names_one_process(record->pid) || record->pid > 0);  // kill(2): 0 and below are many
  return 0;
}
