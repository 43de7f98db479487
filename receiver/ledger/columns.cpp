#include "receiver/ledger/columns.h"

#include <cstdint>
#include <cstdlib>
#include <type_traits>
#include <vector>

namespace {

std::string list_text(const std::vector<std::uint64_t>& numbers) {
  std::string text;
  for (const std::uint64_t number : numbers) {
    if (!text.empty()) text += ',';
    text += std::to_string(number);
  }
  return text;
}

std::vector<std::uint64_t> read_list(const std::string& text) {
  std::vector<std::uint64_t> numbers;
  const char* at = text.c_str();
  while (*at != '\0') {
    char* end = nullptr;
    const std::uint64_t number = std::strtoull(at, &end, 10);
    if (end == at) break;  // written by somebody else
    numbers.push_back(number);
    at = *end == ',' ? end + 1 : end;
  }
  return numbers;
}

Outcome read_outcome(const std::string& text) {
  for (const Outcome outcome :
       {Outcome::kReceiving, Outcome::kDelivered, Outcome::kRefused, Outcome::kWaiting}) {
    if (text == outcome_name(outcome)) return outcome;
  }
  return Outcome::kIncomplete;  // what somebody else wrote is never taken for delivered
}

template <typename T>
void put(Run& run, const T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    run.put_bytes(value);
  } else if constexpr (std::is_same_v<T, std::vector<std::uint64_t>>) {
    run.put_copy(list_text(value));
  } else if constexpr (std::is_same_v<T, Outcome>) {
    run.put_copy(outcome_name(value));
  } else if constexpr (std::is_floating_point_v<T>) {
    run.put_real(value);
  } else {
    run.put_number(value);
  }
}

template <typename T>
void take(Run& run, T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    value = run.take_bytes();
  } else if constexpr (std::is_same_v<T, std::vector<std::uint64_t>>) {
    value = read_list(run.take_bytes());
  } else if constexpr (std::is_same_v<T, Outcome>) {
    value = read_outcome(run.take_bytes());
  } else if constexpr (std::is_floating_point_v<T>) {
    run.take_real(value);
  } else {
    run.take_number(value);
  }
}

struct Column {
  const char* name;
  const char* type;
  int since;            ///< the schema that brought it
  const char* instead;  ///< what is read where it is not there
  void (*put_it)(Run&, const TransferRecord&);
  void (*take_it)(Run&, TransferRecord&);
};

/// A column that holds a member of the record.
template <auto member>
constexpr Column column(const char* name, const char* type, int since = 1,
                        const char* instead = "") {
  return {name,
          type,
          since,
          instead,
          [](Run& run, const TransferRecord& record) { put(run, record.*member); },
          [](Run& run, TransferRecord& record) { take(run, record.*member); }};
}

template <auto member>
constexpr Column key_column(const char* name, int since) {
  return {name,
          "INTEGER NOT NULL",
          since,
          "0",
          [](Run& run, const TransferRecord& record) { put(run, record.key.*member); },
          [](Run& run, TransferRecord& record) { take(run, record.key.*member); }};
}

constexpr char kNumber[] = "INTEGER NOT NULL";
constexpr char kReal[] = "REAL NOT NULL";
constexpr char kText[] = "TEXT NOT NULL";
constexpr char kBytes[] = "NOT NULL";

// Ids are stored as signed: printf('%016X', id) shows them as the rest does.
using R = TransferRecord;
constexpr Column kColumns[] = {
    key_column<&TransferKey::id>("id", 1),
    key_column<&TransferKey::address>("address", 2),
    key_column<&TransferKey::port>("port", 2),
    {"header", kNumber, 2, "0",
     [](Run& run, const R& record) { run.put_number(header_print(record)); },
     [](Run& run, R&) { run.skip(); }},
    column<&R::send_time>("send_time", kNumber),
    column<&R::path_crc>("path_crc", kNumber),
    column<&R::file_kind>("file_kind", kNumber),
    column<&R::udata_size>("udata_size", kNumber),
    column<&R::size>("size", kNumber),
    column<&R::name>("name", kBytes),
    column<&R::folder>("folder", kBytes),
    column<&R::source>("source", kBytes),
    column<&R::first_packet>("first_packet", kReal),
    column<&R::last_packet>("last_packet", kReal),
    column<&R::parts>("parts", kNumber),
    column<&R::received>("received", kNumber),
    column<&R::repeated>("repeated", kNumber),
    column<&R::differing>("differing", kNumber),
    column<&R::received_per_pass>("received_per_pass", kText),
    column<&R::repeated_per_pass>("repeated_per_pass", kText),
    column<&R::missing>("missing", kText),
    column<&R::outcome>("outcome", kText),
    column<&R::why>("why", kBytes),
    column<&R::delivered_to>("delivered_to", kBytes),
    column<&R::asked_for>("asked_for", kBytes, 2, "''"),
    column<&R::lies_at>("lies_at", kBytes, 2, "''"),
    column<&R::collided>("collided", kNumber, 2, "0"),
    column<&R::repaired>("repaired", kNumber, 2, "0"),
    column<&R::seal>("seal", kText, 2, "''"),
    column<&R::proof>("proof", kText, 2, "''"),
};

/// What `text_of` makes of each column, with ", " between.
template <typename F>
std::string joined(F text_of) {
  std::string text;
  for (const Column& column : kColumns) {
    if (!text.empty()) text += ", ";
    text += text_of(column);
  }
  return text;
}

}  // namespace

std::string column_definitions() {
  return joined([](const Column& c) { return std::string(c.name) + " " + c.type; });
}

std::string column_names() {
  return joined([](const Column& c) { return c.name; });
}

std::string column_names_of(int schema) {
  return joined([=](const Column& c) { return c.since <= schema ? c.name : c.instead; });
}

std::string column_places() {
  return joined([](const Column&) { return "?"; });
}

void put_record(Run& run, const TransferRecord& record) {
  for (const Column& column : kColumns) column.put_it(run, record);
}

TransferRecord take_record(Run& run) {
  TransferRecord record;
  for (const Column& column : kColumns) column.take_it(run, record);
  return record;
}
