#include "receiver/tell/page.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "receiver/base/passes.h"
#include "receiver/tell/html.h"
#include "receiver/tell/not_arrived.h"
#include "receiver/tell/page_shell.h"
#include "receiver/tell/plots.h"
#include "wire/wire_format.h"

namespace {

/// "4.1 MB"; powers of 1000.
std::string short_size(std::uint64_t bytes) {
  constexpr const char* kUnits[] = {"bytes", "kB", "MB", "GB", "TB", "PB", "EB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; value >= 999.5 && unit < 6; ++unit) value /= 1000;
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.3g %s", value,
                      kUnits[unit]);
  return text.data();
}

std::string head_line(const PageContent& content) {
  std::string text = "<h1>Tarnwick: what arrived</h1>\n<p class=soft>As of " +
                     local_time(content.now) + ", local time of the receiver";
  if (!content.transfers.empty()) {
    text += "; " + plural(content.transfers.size(), "transfer", "transfers") + " since " +
            local_time(content.transfers.front().first_packet);
  }
  text += ".</p>\n";
  if (content.read_error.empty()) return text;
  return text + "<p class=error>Not all could be read: " + html_text(content.read_error) + "</p>\n";
}

std::string tile(const std::string& number, const std::string& what) {
  return "<li><b>" + number + "</b>" + what + "\n";
}

std::string tiles(const PageContent& content, const Totals& totals) {
  std::string text = "<ul class=tiles>\n" +
                     tile(std::to_string(totals.of(Outcome::kDelivered)),
                          "delivered,<br>" + short_size(totals.bytes)) +
                     tile(std::to_string(totals.of(Outcome::kIncomplete)), "incomplete") +
                     tile(std::to_string(totals.of(Outcome::kRefused)), "refused") +
                     tile(std::to_string(totals.of(Outcome::kReceiving)), "on their way");
  text += content.journal.entries == 0
              ? tile("?", "never arrived: no trash journal came")
              : tile(std::to_string(content.journal.lost),
                     "never arrived, of " + std::to_string(content.journal.entries) +
                         " in the journals");
  text +=
      totals.first_pass_parts == 0
          ? tile("&ndash;", "loss of first passes")
          : tile(percent(totals.first_pass_lost, totals.first_pass_parts), "loss of first passes");
  return text +
         tile(std::to_string(totals.collided),
              totals.collided == 1 ? "name collided" : "names collided") +
         "</ul>\n";
}

constexpr char kSections[] =
    "<nav><a href=\"#missing\">What did not arrive</a> <a href=\"#transfers\">All "
    "transfers</a></nav>\n";

std::string plots(const std::vector<TransferRecord>& transfers) {
  const Timeline timeline = timeline_of(transfers);
  if (timeline.spans == 0) return "";
  const auto plot = [&](const Series& series, const std::string& title, const std::string& unit) {
    return "<div><h3>" + title + "</h3>" + svg_of(timeline, series, title, unit) + "</div>\n";
  };
  return "<h2>Loss and rate over time</h2>\n<div class=plots>\n" +
         plot(loss_over(timeline, transfers), "Loss of first passes, %", "%") +
         plot(rate_over(timeline, transfers), "Contents that arrived, Mbit/s", "Mbit/s") +
         "</div>\n<p class=soft>A Mbit is 1,048,576 bits, as for the sender's -s.</p>\n";
}

/// All transfers' passes of one number.
struct PassTotals {
  std::uint64_t transfers = 0, fresh = 0, repeated = 0, lost = 0, of = 0;
  std::uint64_t completed = 0;  ///< files delivered in this pass
};

std::vector<PassTotals> pass_totals(const std::vector<TransferRecord>& transfers) {
  std::vector<PassTotals> totals;
  for (const TransferRecord& record : transfers) {
    const std::vector<Pass> passes = passes_of(record);
    if (totals.size() < passes.size()) totals.resize(passes.size());
    std::size_t last_fresh = 0;
    for (std::size_t i = 0; i < passes.size(); ++i) {
      ++totals[i].transfers;
      totals[i].fresh += passes[i].fresh;
      totals[i].repeated += passes[i].repeated;
      totals[i].lost += passes[i].ended ? passes[i].lost : 0;
      totals[i].of += passes[i].ended ? record.parts : 0;
      if (passes[i].fresh > 0) last_fresh = i;
    }
    const bool delivered = record.outcome == Outcome::kDelivered && !passes.empty();
    if (delivered) ++totals[last_fresh].completed;
  }
  return totals;
}

std::string passes(const std::vector<TransferRecord>& transfers) {
  const std::vector<PassTotals> totals = pass_totals(transfers);
  if (totals.empty()) return "";
  std::string text = "<h2>Passes and repairs</h2>\n" +
                     table_of("class=rows", {"Pass", "#Transfers", "#New parts", "#Known parts",
                                             "#Lost", "#Files completed"});
  std::uint64_t repaired = 0;
  for (std::size_t i = 0; i < totals.size(); ++i) {
    const PassTotals& pass = totals[i];
    if (i > 0) repaired += pass.fresh;
    text += "<tr>" + cell("t", "pass " + std::to_string(i + 1)) +
            cell("n", std::to_string(pass.transfers), "transfers") +
            cell("n", std::to_string(pass.fresh), "new") +
            cell("n", std::to_string(pass.repeated), "known") +
            cell("n", pass.of == 0 ? "&ndash;" : percent(pass.lost, pass.of), "lost") +
            cell("n", std::to_string(pass.completed), "completed") + "\n";
  }
  return text + kTableEnd + "<p>" + plural(repaired, "part", "parts") +
         " that earlier passes lost came with later ones.</p>\n";
}

std::string collisions(const std::vector<TransferRecord>& transfers) {
  std::vector<const TransferRecord*> rows;
  for (auto record = transfers.rbegin(); record != transfers.rend(); ++record) {
    if (record->collided && record->outcome == Outcome::kDelivered) rows.push_back(&*record);
  }
  if (rows.empty()) return "";
  std::string text =
      "<h2>Names that collided</h2>\n<p>Each was taken by a file of another path. The sender cuts "
      "names before the first character that cp1251 lacks.</p>\n" +
      table_of("class=rows", {"Time", "Name asked for", "Delivered as", "From"});
  for (std::size_t i = 0; i < std::min(rows.size(), kMostTroubles); ++i) {
    text += "<tr>" + cell("t", local_time(rows[i]->first_packet)) +
            cell("p", bdi(rows[i]->asked_for)) + cell("p", bdi(rows[i]->lies_at), "as") +
            cell("t", html_text(rows[i]->source), "from") + "\n";
  }
  return text + kTableEnd + left_out(rows.size(), kMostTroubles);
}

std::string transfer_row(const TransferRecord& record) {
  const FirstPass pass = first_pass_of(record);
  const char* note = record.file_kind == kKindTrashJournal ? " (trash journal)" : "";
  return "<tr>" + cell("t", local_time(record.first_packet)) +
         outcome_cell(outcome_name(record.outcome)) +
         cell("n", std::to_string(record.size), "size") +
         cell("n", pass.parts == 0 ? "" : percent(pass.lost, pass.parts), "lost") +
         cell("p", bdi(path_of(record)) + note) + cell("t", html_text(record.source)) + "\n";
}

std::string all_transfers(const std::vector<TransferRecord>& transfers) {
  std::string text =
      "<h2 id=transfers>All transfers</h2>\n<form id=filter hidden><label>Outcome<select "
      "name=outcome><option value=\"\">all";
  for (const Outcome outcome :
       {Outcome::kDelivered, Outcome::kIncomplete, Outcome::kRefused, Outcome::kReceiving}) {
    text += std::string("<option>") + outcome_name(outcome);
  }
  text +=
      "</select></label><label>Words in any column<input name=words type=search></label>"
      "<output name=shown class=soft></output></form>\n" +
      table_of("class=rows id=all", {"First packet", "Outcome", "#Bytes", "#Lost", "File", "From"});
  const std::size_t shown = std::min(transfers.size(), kMostTransfers);
  std::for_each(transfers.rbegin(), transfers.rbegin() + static_cast<std::ptrdiff_t>(shown),
                [&](const TransferRecord& record) { text += transfer_row(record); });
  return text + kTableEnd + left_out(transfers.size(), shown);
}

}  // namespace

bool PageContent::is_whole() const {
  return read_error.empty() && journal.lost == 0 &&
         std::all_of(transfers.begin(), transfers.end(), [](const TransferRecord& record) {
           return record.outcome == Outcome::kDelivered;
         });
}

std::string page_of(const PageContent& content) {
  Totals totals;
  for (const TransferRecord& record : content.transfers) totals.add(record);
  return kPageHead + head_line(content) + tiles(content, totals) + kSections +
         plots(content.transfers) + passes(content.transfers) +
         not_arrived(content.transfers, content.journal) + collisions(content.transfers) +
         all_transfers(content.transfers) + kPageEnd;
}
