#include "receiver/metrics.h"

#include <cstdio>
#include <fstream>
#include <iomanip>
#include <sstream>

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

  void files(const char* outcome, std::uint64_t value) {
    text_ << "tarnwick_receive_files_total{outcome=\"" << outcome << "\"} " << value << "\n";
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
  e.files("delivered", m.delivered);
  e.files("incomplete", m.incomplete);
  e.files("refused", m.refused);
  e.add("malformed_total", "counter", "Datagrams that no sender sends.", m.malformed);
  e.add("not_allowed_total", "counter", "Datagrams from addresses not allowed.", m.not_allowed);
  e.add("contradicting_total", "counter", "Datagrams at odds with their transfer's first header.",
        m.contradicting);
  e.add("repeated_parts_total", "counter", "Parts that had come before.", m.repeated_parts);
  e.add("differing_parts_total", "counter", "Repeated parts with other bytes than those stored.",
        m.differing_parts);
  e.add("forgotten_parts_total", "counter", "Parts given up because no header packet came.",
        m.forgotten_parts);
  e.add("kernel_drops_total", "counter", "Times that a full receive buffer dropped datagrams.",
        m.kernel_drops);
  e.add("link_sent_total", "counter", "Datagrams sent, by the senders' service packets.",
        m.link_sent);
  e.add("link_lost_total", "counter", "Of these, datagrams that did not arrive.", m.link_lost);
  e.add("missing_parts", "gauge", "Parts not yet received of the files on their way.",
        m.missing_parts);
  e.add("open_transfers", "gauge", "Files on their way.", m.open_transfers);
  e.add("last_datagram_timestamp_seconds", "gauge", "When the last datagram came.",
        m.last_datagram);
  e.add("last_delivery_timestamp_seconds", "gauge", "When the last file was delivered.",
        m.last_delivery);
  return e.text();
}

bool write_metrics(const Metrics& metrics, const std::string& path) {
  const std::string temporary = path + ".tmp";
  std::ofstream file(temporary);
  file << metrics_text(metrics);
  file.close();
  return file && std::rename(temporary.c_str(), path.c_str()) == 0;
}
