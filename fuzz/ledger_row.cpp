// A row of the ledger in which anything may stand: of each column its kind, then the value.
// What is read is written again alike, and can be shown.
#include <sqlite3.h>

#include "fuzz/target.h"
#include "receiver/base/byte_ranges.h"
#include "receiver/base/passes.h"
#include "receiver/ledger/columns.h"

namespace {

/// One for all runs: only what is bound to its statement changes.
struct Row {
  Db db = open_db(":memory:", SQLITE_OPEN_READWRITE);
  Statement select = prepare_statement(db.get(), ("SELECT " + column_places()).c_str());
};

void bind(sqlite3_stmt* statement, int column, Input& input) {
  switch (input.byte() % 5) {
    case 0:
      sqlite3_bind_int64(statement, column, static_cast<sqlite3_int64>(input.number(8)));
      break;
    case 1:
      sqlite3_bind_int(statement, column, input.byte());
      break;
    case 2:
      sqlite3_bind_double(statement, column, static_cast<double>(input.number(8)) / 1e6);
      break;
    case 3: {
      const std::string text = input.text(input.byte() % 64U);
      sqlite3_bind_text64(statement, column, text.data(), text.size(), SQLITE_TRANSIENT,
                          SQLITE_UTF8);
      break;
    }
    default:
      break;  // NULL
  }
}

TransferRecord written_again(const Statement& select, const TransferRecord& record) {
  Run run(select);
  put_record(run, record);
  check(run.step() == SQLITE_ROW);
  return take_record(run);
}

void check_equal(const TransferRecord& a, const TransferRecord& b) {
  check(a.key == b.key && header_print(a) == header_print(b));
  check(a.name == b.name && a.folder == b.folder && a.missing == b.missing);
  check(a.outcome == b.outcome && a.why == b.why && a.lies_at == b.lies_at);
  check(a.received_per_pass == b.received_per_pass && a.repeated_per_pass == b.repeated_per_pass);
  check(a.parts == b.parts && a.collided == b.collided && a.seal == b.seal);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Row row;
  check(row.select != nullptr);
  TransferRecord record;
  {
    Run run(row.select);
    Input input(data, size);
    for (int i = 1; i <= sqlite3_bind_parameter_count(row.select.get()); ++i) {
      bind(row.select.get(), i, input);
    }
    check(run.step() == SQLITE_ROW);
    record = take_record(run);
  }
  check_equal(record, written_again(row.select, record));
  (void)passes_text(record, passes_of(record));
  (void)ranges_text(missing_bytes(record), 5);
  return 0;
}
