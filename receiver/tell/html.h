// receiver/tell/html.h: the pieces that the page is built of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "receiver/base/record.h"

/// `text` for an element or a quoted attribute: escaped as printable() does, and then
/// for HTML.
std::string html_text(std::string_view text);

/// Returns a name off the wire in the same way, and keeps it from changing the direction of
/// the text beside it.
std::string bdi(std::string_view text);

/// "1 range", "2 ranges"
std::string plural(std::uint64_t count, const std::string& one, const std::string& many);

/// Opens a table of these attributes; a heading that begins with "#" is one of numbers.
std::string table_of(const std::string& attributes, const std::vector<std::string>& headings);
constexpr char kTableEnd[] = "</tbody></table>\n";

/// A cell of a class that the style knows ("n" a number, "t" a time or address, "p" a
/// path) with `content`, which is HTML. `label` is shown before it where the table's
/// head has no room, on a telephone. The next cell or row closes it.
std::string cell(const char* kind, const std::string& content, const char* label = nullptr);
std::string outcome_cell(const char* name);

/// Says how many of `all` rows are not among the `shown` ones; "" for none.
std::string left_out(std::size_t all, std::size_t shown);
