#ifndef CORV_TESTS_TEST_SUPPORT_H
#define CORV_TESTS_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "corv/io/logger.h"
#include "corv/io/types.h"

namespace corv::test {

// A fresh directory under the system's temporary folder, removed afterwards.
class temp_dir {
 public:
  temp_dir() {
    const auto base = std::filesystem::temp_directory_path();
    for (int i = 0;; ++i) {
      path_ =
          base / ("corv-test-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                  "-" + std::to_string(i) + "-" + std::to_string(counter()++));
      if (std::filesystem::create_directory(path_)) {
        break;
      }
    }
  }
  ~temp_dir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  std::string str() const { return path_.string(); }

 private:
  static int& counter() {
    static int value = 0;
    return value;
  }
  std::filesystem::path path_;
};

inline void write_text(const std::string& name, const std::string& text) {
  std::ofstream(name, std::ios::binary) << text;
}

inline std::string read_bytes(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// A cube whose every element tells where it is: value = 1 + r + 10 c + 100 b.
inline cube coded_cube(arma::uword rows, arma::uword cols, arma::uword bands) {
  cube c(rows, cols, bands);
  for (arma::uword b = 0; b < bands; ++b) {
    for (arma::uword col = 0; col < cols; ++col) {
      for (arma::uword r = 0; r < rows; ++r) {
        c(r, col, b) = static_cast<float>(1 + r + 10 * col + 100 * b);
      }
    }
  }
  return c;
}

inline vector linear_wavelengths(arma::uword bands, float first = 400.0f, float step = 10.0f) {
  vector w(bands);
  for (arma::uword b = 0; b < bands; ++b) {
    w(b) = first + step * static_cast<float>(b);
  }
  return w;
}

// Runs a call that must throw and returns its text ("" when it did not throw).
template <typename F>
std::string thrown_text(F&& call) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

// The texts of the logger's entries, oldest first.
inline std::vector<std::string> log_lines() {
  std::vector<std::string> lines;
  for (const auto& entry : logger::instance().entries()) {
    lines.push_back(entry.second);
  }
  return lines;
}

inline bool logged(const std::string& line) {
  const std::vector<std::string> lines = log_lines();
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

inline std::string shared_data(const std::string& relative) {
  return std::string(CORV_SHARED_DATA) + "/" + relative;
}

#define CORV_REQUIRE_SHARED_DATA()                                            \
  do {                                                                        \
    if (!std::filesystem::exists(CORV_SHARED_DATA)) {                         \
      GTEST_SKIP() << "real test data folder " CORV_SHARED_DATA " is absent"; \
    }                                                                         \
  } while (0)

// Angle in degrees between two spectra (0 for parallel ones).
inline double angle_degrees(const vector& a, const vector& b) {
  const arma::vec x = arma::conv_to<arma::vec>::from(a);
  const arma::vec y = arma::conv_to<arma::vec>::from(b);
  const double cosine = arma::dot(x, y) / (arma::norm(x) * arma::norm(y));
  return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180.0 / arma::datum::pi;
}

}  // namespace corv::test

#endif
