// A seal's record, its signature and its code. What is read is written again alike.
#include "fuzz/target.h"
#include "seal/record.h"

namespace {

void check_code(const SealRecord& record) {
  const std::uint32_t part = record.udata - 20;
  const std::uint64_t parts = record.size / part + (record.size % part != 0 ? 1 : 0);
  const auto layout = CodeLayout::of(parts, part, *record.code);
  check(layout.has_value());
  const std::uint64_t last = layout->repair_parts();
  check(last <= INT64_MAX / part);
  for (const std::uint64_t no : {std::uint64_t{1}, parts / 2 + 1, parts}) {
    const PartPlace place = layout->data_place(no);
    check(place.index < layout->columns_in(place.window, place.block));
    check(layout->data_part(place) == no);
  }
  for (const std::uint64_t no : {std::uint64_t{1}, last / 2 + 1, last}) {
    const PartPlace place = layout->repair_place(no);
    check(place.index < record.code->r && place.window < layout->windows());
    check(place.block < layout->blocks_in(place.window));
    check(layout->repair_part(place) == no);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = text_of(data, size);
  const auto record = parse_record(text);
  if (!record) return 0;
  std::string again = unsigned_text(*record);
  check(again.size() <= text.size());
  if (record->signature) again += signature_field(*record->signature);
  const auto reread = parse_record(again);
  check(reread.has_value());
  check(unsigned_text(*reread) == unsigned_text(*record));
  if (again.size() == text.size()) check(again == text);
  (void)signature_holds(text, *record);
  if (record->code) check_code(*record);
  return 0;
}
