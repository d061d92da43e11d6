#include "corv/io/library_csv.h"

#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "corv/io/envi_header.h"
#include "corv/io/file_path.h"
#include "corv/io/safe_file.h"

namespace corv {

namespace {

struct record {
  std::size_t line = 0;  // where the record starts, from 1
  std::vector<std::string> cells;
};

class csv_error {
 public:
  explicit csv_error(const std::string& file_name) : file_name_(file_name) {}
  [[noreturn]] void at(std::size_t line, const std::string& what) const {
    throw std::runtime_error("read_library_csv: " + what + " in " + file_name_ + " line " +
                             std::to_string(line));
  }
  [[noreturn]] void whole(const std::string& what) const {
    throw std::runtime_error("read_library_csv: " + what + " in " + file_name_);
  }

 private:
  std::string file_name_;
};

bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

// Splits the text into records of cells; blank lines are dropped.
std::vector<record> parse_records(const std::string& text, const csv_error& error) {
  std::vector<record> records;
  std::size_t i = (text.rfind("\xEF\xBB\xBF", 0) == 0) ? 3 : 0;
  std::size_t line = 1;
  while (i < text.size()) {
    record current;
    current.line = line;
    bool blank_record = true;
    while (true) {
      // One cell: blanks, then either a quoted or a plain value, then blanks.
      while (i < text.size() && is_blank(text[i])) {
        ++i;
      }
      std::string cell;
      if (i < text.size() && text[i] == '"') {
        blank_record = false;
        const std::size_t opened = line;
        ++i;
        while (true) {
          if (i >= text.size()) {
            error.at(opened, "unterminated quote");
          }
          if (text[i] == '"') {
            if (i + 1 < text.size() && text[i + 1] == '"') {
              cell += '"';
              i += 2;
              continue;
            }
            ++i;
            break;
          }
          if (text[i] == '\n') {
            ++line;
          }
          cell += text[i++];
        }
        while (i < text.size() && is_blank(text[i])) {
          ++i;
        }
        if (i < text.size() && text[i] != ',' && text[i] != '\n' && text[i] != '\r') {
          error.at(line, "text after a closing quote");
        }
      } else {
        while (i < text.size() && text[i] != ',' && text[i] != '\n' && text[i] != '\r') {
          if (text[i] == '"') {
            error.at(line, "quote inside an unquoted cell");
          }
          cell += text[i++];
        }
        cell = trimmed(cell);
        blank_record = blank_record && cell.empty();
      }
      current.cells.push_back(cell);
      if (i < text.size() && text[i] == ',') {
        blank_record = false;
        ++i;
        continue;
      }
      break;
    }
    if (i < text.size() && text[i] == '\r') {
      ++i;
    }
    if (i < text.size() && text[i] == '\n') {
      ++i;
    }
    ++line;
    if (!blank_record) {
      records.push_back(std::move(current));
    }
  }
  return records;
}

float value_of(const std::string& cell, std::size_t line, const csv_error& error) {
  if (cell.empty()) {
    return std::numeric_limits<float>::quiet_NaN();
  }
  const auto number = parse_decimal(cell);
  if (!number) {
    error.at(line, "'" + cell + "' is not a number");
  }
  return static_cast<float>(*number);
}

float wavelength_of(const std::string& cell, std::size_t line, const csv_error& error) {
  if (cell.empty()) {
    error.at(line, "missing wavelength");
  }
  const float value = value_of(cell, line, error);
  if (!std::isfinite(value)) {
    error.at(line, "'" + cell + "' is not a wavelength");
  }
  return value;
}

void require_cells(const record& row, std::size_t expected, const csv_error& error) {
  if (row.cells.size() != expected) {
    error.at(row.line, "expected " + std::to_string(expected) + " cells, found " +
                           std::to_string(row.cells.size()));
  }
}

bool one_spectrum_per_row(const record& header) {
  if (lower_case(header.cells.front()).rfind("wavelength", 0) == 0) {
    return false;
  }
  for (std::size_t c = 1; c < header.cells.size(); ++c) {
    if (!parse_decimal(header.cells[c])) {
      return false;
    }
  }
  return true;
}

spectral_library by_columns(const std::vector<record>& records, const csv_error& error) {
  const record& header = records.front();
  const std::size_t width = header.cells.size();
  const arma::uword spectra = width - 1, bands = records.size() - 1;
  vector wavelengths(bands);
  matrix values(bands, spectra);
  for (arma::uword b = 0; b < bands; ++b) {
    const record& row = records[b + 1];
    require_cells(row, width, error);
    wavelengths(b) = wavelength_of(row.cells[0], row.line, error);
    for (arma::uword s = 0; s < spectra; ++s) {
      values(b, s) = value_of(row.cells[s + 1], row.line, error);
    }
  }
  return spectral_library(
      values, std::vector<std::string>(header.cells.begin() + 1, header.cells.end()), wavelengths);
}

spectral_library by_rows(const std::vector<record>& records, const csv_error& error) {
  const record& header = records.front();
  const std::size_t width = header.cells.size();
  const arma::uword bands = width - 1, spectra = records.size() - 1;
  vector wavelengths(bands);
  for (arma::uword b = 0; b < bands; ++b) {
    wavelengths(b) = wavelength_of(header.cells[b + 1], header.line, error);
  }
  matrix values(bands, spectra);
  std::vector<std::string> labels(spectra);
  for (arma::uword s = 0; s < spectra; ++s) {
    const record& row = records[s + 1];
    require_cells(row, width, error);
    labels[s] = row.cells[0];
    for (arma::uword b = 0; b < bands; ++b) {
      values(b, s) = value_of(row.cells[b + 1], row.line, error);
    }
  }
  return spectral_library(values, labels, wavelengths);
}

void write_number(std::ostream& out, float value) {
  if (std::isnan(value)) {
    return;
  }
  char text[32];
  const auto written = std::to_chars(text, text + sizeof text, value);
  out.write(text, written.ptr - text);
}

std::string quoted_if_needed(const std::string& cell) {
  const bool needs = cell.find_first_of(",\"\r\n") != std::string::npos ||
                     (!cell.empty() && (is_blank(cell.front()) || is_blank(cell.back())));
  if (!needs) {
    return cell;
  }
  std::string out = "\"";
  for (const char c : cell) {
    out += c;
    if (c == '"') {
      out += '"';
    }
  }
  return out + "\"";
}

}  // namespace

spectral_library read_library_csv(const std::string& file_name) {
  const csv_error error(file_name);
  std::ifstream file(file_name, std::ios::binary);
  if (!file) {
    throw std::runtime_error("read_library_csv: cannot open " + file_name);
  }
  std::ostringstream text;
  text << file.rdbuf();
  const std::vector<record> records = parse_records(text.str(), error);
  if (records.empty()) {
    error.whole("no header row");
  }
  if (records.front().cells.size() < 2) {
    error.at(records.front().line, "the header row needs at least two cells");
  }
  if (records.size() < 2) {
    error.whole("no spectra");
  }
  spectral_library library =
      one_spectrum_per_row(records.front()) ? by_rows(records, error) : by_columns(records, error);
  library.set_sources(std::vector<std::string>(library.size(), file_name));
  return library;
}

void write_library_csv(const spectral_library& library, const std::string& file_name) {
  const matrix& values = library.endmembers();
  const auto& labels = library.labels();
  const vector& wavelengths = library.wavelengths();
  safe_file file(file_name);
  if (!file.is_open()) {
    throw std::runtime_error("write_library_csv: Cannot write " + file_name + ": " + file.reason() +
                             ".");
  }
  std::ostream& out = file.stream();
  out << "wavelength";
  for (const auto& label : labels) {
    out << ',' << quoted_if_needed(label);
  }
  out << '\n';
  for (arma::uword b = 0; b < values.n_rows; ++b) {
    write_number(out, wavelengths(b));
    for (arma::uword s = 0; s < values.n_cols; ++s) {
      out << ',';
      write_number(out, values(b, s));
    }
    out << '\n';
  }
  if (!file.commit()) {
    throw std::runtime_error("write_library_csv: Cannot write " + file_name + ": " + file.reason() +
                             ".");
  }
}

}  // namespace corv
