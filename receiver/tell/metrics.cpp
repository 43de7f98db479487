#include "receiver/tell/metrics.h"

#include <iomanip>
#include <sstream>
#include <utility>

#include "receiver/base/own_files.h"

namespace {

class Exposition {
 public:
  Exposition() { text_ << std::fixed << std::setprecision(3); }

  template <typename T>
  void add(const char* name, const char* type, const char* help, T value) {
    begin(name, type, help);
    text_ << "tarnwick_receive_" << name << " " << value << "\n";
  }

  void begin(const char* name, const char* type, const char* help) {
    text_ << "# HELP tarnwick_receive_" << name << " " << help << "\n"
          << "# TYPE tarnwick_receive_" << name << " " << type << "\n";
  }

  /// One of the values that begin() announced.
  void add_outcome(const char* name, const char* outcome, std::uint64_t value) {
    text_ << "tarnwick_receive_" << name << "{outcome=\"" << outcome << "\"} " << value << "\n";
  }

  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
};

}  // namespace

std::string metrics_text(const Metrics& m) {
  Exposition e;
  e.add("datagrams_total", "counter", "Datagrams received.", m.datagrams);
  e.add("bytes_total", "counter", "Bytes of datagrams received.", m.bytes);
  e.begin("files_total", "counter", "Files by outcome.");
  e.add_outcome("files_total", "delivered", m.delivered);
  e.add_outcome("files_total", "incomplete", m.incomplete);
  e.add_outcome("files_total", "refused", m.refused);
  e.add("name_collisions_total", "counter",
        "Files numbered because a file of another path had their name.", m.name_collisions);
  e.add("malformed_total", "counter", "Datagrams that no sender sends.", m.malformed);
  e.add("not_allowed_total", "counter", "Datagrams from addresses not allowed.", m.not_allowed);
  e.add("contradicting_total", "counter", "Datagrams at odds with their transfer's first header.",
        m.contradicting);
  e.add("repeated_parts_total", "counter", "Parts that had come before.", m.repeated_parts);
  e.add("differing_parts_total", "counter", "Repeated parts with other bytes than those stored.",
        m.differing_parts);
  e.add("forgotten_parts_total", "counter", "Parts given up because no header packet came.",
        m.forgotten_parts);
  e.add("unwritten_parts_total", "counter", "Parts that the disk did not take.", m.unwritten_parts);
  e.add("kernel_drops_total", "counter", "Times that a full receive buffer dropped datagrams.",
        m.kernel_drops);
  e.add("memory_bytes", "gauge", "Memory of datagrams that wait to be settled.", m.memory);
  e.add("memory_dropped_datagrams_total", "counter",
        "Datagrams dropped because the memory was full.", m.memory_dropped_datagrams);
  e.add("memory_dropped_transfers_total", "counter", "Transfers that these datagrams were of.",
        m.memory_dropped_transfers);
  e.add("link_sent_total", "counter", "Datagrams sent, by the senders' service packets.",
        m.link_sent);
  e.add("link_lost_total", "counter", "Of these, datagrams that did not arrive.", m.link_lost);
  e.add("missing_parts", "gauge", "Parts not yet received of the files on their way.",
        m.missing_parts);
  e.add("open_transfers", "gauge", "Files on their way.", m.open_transfers);
  e.add("waiting_files", "gauge", "Files that wait until they can be delivered or kept.",
        m.waiting_files);
  e.add("waiting_records", "gauge", "Records that wait until the ledger can be written.",
        m.waiting_records);
  e.add("repaired_parts_total", "counter", "Lost parts rebuilt out of seals.", m.repaired_parts);
  e.add("repaired_files_total", "counter", "Files delivered with such parts.", m.repaired_files);
  e.begin("seals_total", "counter", "Seals by outcome.");
  e.add_outcome("seals_total", "proved", m.seals_proved);
  e.add_outcome("seals_total", "differing", m.seals_differing);
  e.add_outcome("seals_total", "refused", m.seals_refused);
  e.add_outcome("seals_total", "unneeded", m.seals_unneeded);
  e.add("last_datagram_timestamp_seconds", "gauge", "When the last datagram came.",
        m.last_datagram);
  e.add("last_delivery_timestamp_seconds", "gauge", "When the last file was delivered.",
        m.last_delivery);
  return e.text();
}

MetricsFile::MetricsFile(std::string path) : path_(std::move(path)) {
  if (!path_.empty()) folder_ = open_folder(split_path(path_).folder, false, error_);
}

std::string MetricsFile::write(const Metrics& metrics) {
  if (path_.empty()) return "";
  // a folder that was missing at the start may be there by now
  if (!folder_) folder_ = open_folder(split_path(path_).folder, false, error_);
  if (!folder_) return path_ + ": " + error_;
  return write_text(folder_.get(), path_, metrics_text(metrics));
}
