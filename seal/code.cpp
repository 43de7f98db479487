#include "seal/code.h"

#include <isa-l/erasure_code.h>

#include <algorithm>

namespace {

constexpr std::size_t kTableSize = 32;  // bytes for one coefficient, erasure_code.h

/// Returns the coefficients of the repair rows, k in each row.
std::vector<unsigned char> repair_rows(const Code& code) {
  const std::size_t identity = std::size_t{code.k} * code.k;
  std::vector<unsigned char> matrix(identity + std::size_t{code.r} * code.k);
  gf_gen_cauchy1_matrix(matrix.data(), static_cast<int>(code.k + code.r), static_cast<int>(code.k));
  matrix.erase(matrix.begin(), matrix.begin() + static_cast<std::ptrdiff_t>(identity));
  return matrix;
}

/// Returns the tables that ISA-L needs to multiply with a matrix.
std::vector<unsigned char> tables_of(std::vector<unsigned char>& matrix, std::size_t columns,
                                     std::size_t rows) {
  std::vector<unsigned char> tables(kTableSize * columns * rows);
  ec_init_tables(static_cast<int>(columns), static_cast<int>(rows), matrix.data(), tables.data());
  return tables;
}

/// Returns the positions in `parts` of those that were lost, or of those that came; no more
/// than `most`.
std::vector<std::size_t> positions(const std::vector<const unsigned char*>& parts, bool lost,
                                   std::size_t most) {
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < parts.size() && found.size() < most; ++i) {
    if ((parts[i] == nullptr) == lost) found.push_back(i);
  }
  return found;
}

}  // namespace

WindowEncoder::WindowEncoder(const CodeLayout& layout)
    : layout_(layout),
      part_size_(layout.part_size()),
      rows_(layout.code().r),
      block_rows_(layout.code().r) {
  std::vector<unsigned char> matrix = repair_rows(layout.code());
  tables_ = tables_of(matrix, layout.code().k, rows_);
}

void WindowEncoder::start(std::uint64_t window) {
  blocks_ = layout_.blocks_in(window);
  next_ = 0;
  repair_.assign(repair_parts() * part_size_, 0);
}

void WindowEncoder::add(const unsigned char* bytes, std::size_t size) {
  const std::uint64_t block = next_ % blocks_, column = next_ / blocks_;
  ++next_;
  for (std::size_t row = 0; row < rows_; ++row) {
    block_rows_[row] = repair_.data() + (row * blocks_ + block) * part_size_;
  }
  // ISA-L does not write to its input. Zeros behind a short part would change nothing.
  ec_encode_data_update(static_cast<int>(size), static_cast<int>(layout_.code().k),
                        static_cast<int>(rows_), static_cast<int>(column), tables_.data(),
                        const_cast<unsigned char*>(bytes), block_rows_.data());
}

std::vector<unsigned char> rebuild_block(const Code& code, std::size_t part_size,
                                         const std::vector<const unsigned char*>& data,
                                         const std::vector<const unsigned char*>& repair) {
  const std::vector<std::size_t> lost = positions(data, true, data.size());
  const std::vector<std::size_t> rows = positions(repair, false, lost.size());
  if (lost.empty() || rows.size() < lost.size()) return {};
  const std::vector<std::size_t> here = positions(data, false, data.size());
  const std::vector<unsigned char> matrix = repair_rows(code);
  const std::size_t n = lost.size();

  // Take from the chosen repair parts what the data parts that came contributed:
  // what is left is the lost parts times a square part of the matrix.
  std::vector<unsigned char> square, inverse(n * n);
  for (const std::size_t row : rows) {
    for (const std::size_t column : lost) square.push_back(matrix[row * code.k + column]);
  }
  if (gf_invert_matrix(square.data(), inverse.data(), static_cast<int>(n)) != 0) return {};

  // Each lost part is a sum over the data parts that came and the repair parts.
  std::vector<unsigned char> sums;
  for (std::size_t i = 0; i < n; ++i) {
    for (const std::size_t column : here) {
      unsigned char factor = 0;
      for (std::size_t j = 0; j < n; ++j) {
        factor ^= gf_mul(inverse[i * n + j], matrix[rows[j] * code.k + column]);
      }
      sums.push_back(factor);
    }
    for (std::size_t j = 0; j < n; ++j) sums.push_back(inverse[i * n + j]);
  }

  std::vector<unsigned char*> sources, rebuilt;
  for (const std::size_t i : here) sources.push_back(const_cast<unsigned char*>(data[i]));
  for (const std::size_t i : rows) sources.push_back(const_cast<unsigned char*>(repair[i]));
  std::vector<unsigned char> bytes(n * part_size);
  for (std::size_t i = 0; i < n; ++i) rebuilt.push_back(bytes.data() + i * part_size);
  std::vector<unsigned char> tables = tables_of(sums, sources.size(), n);
  ec_encode_data(static_cast<int>(part_size), static_cast<int>(sources.size()), static_cast<int>(n),
                 tables.data(), sources.data(), rebuilt.data());
  return bytes;
}
