// Dichromatic parameter recovery: every pixel split into specularity k, shading g
// and reflectance s under I = (g * s + k) * L.
//
// The work runs in four streaming passes over the cube:
//   1. R = I / L, kept in the reflectance cube, with each pixel's norm and band sum;
//   2. over blocks of 20 rows: the neighbourhood sums of the unit spectra R / |R|
//      by running sums (down the columns, then along the rows), reduced at once to
//      the three dot products each pixel needs, and the pixel's k and g;
//   3. achromatic pixels take their norm as shading;
//   4. s = (R - k) / g in place.
// k and g are in R's own units (the unit-spectrum factors scaled back by the
// pixel's norm), so g * s + k gives R back wherever g is not zero.
#include "corv/pipeline/dichromatic.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <limits>
#include <stdexcept>
#include <string>

#include "corv/io/logger.h"

namespace corv {

namespace {

constexpr long rows_per_block = 20;  // also the progress step
constexpr long pixels_per_chunk = 2048;
// Below this squared sine of the angle between the diffuse direction and the
// flat spectrum the two cannot be told apart (about 0.6 degrees): the pixel is
// taken as all diffuse rather than split into two large factors of opposite sign.
constexpr double parallel_sine_squared = 1e-4;
constexpr double pi = 3.1415927;
constexpr double largest = std::numeric_limits<float>::max();

// k and g from the sums the cube driver gathers: R.D, D.D and sum(D) for the
// neighbourhood sum D, sum(R) and |R|.
dichromatic_factors split_from_sums(double r_dot_d, double d_dot_d, double d_sum, double r_sum,
                                    double r_norm, double bands) {
  dichromatic_factors split;
  split.g = static_cast<float>(r_norm);
  if (!(d_dot_d > 0.0)) {
    return split;
  }
  const double length = std::sqrt(d_dot_d);
  const double flat_share = d_sum / length;  // d . 1 for the unit direction d
  const double along = r_dot_d / length;     // R . d
  const double determinant = bands - flat_share * flat_share;
  if (!(determinant > parallel_sine_squared * bands)) {
    return split;
  }
  const double diffuse = (bands * along - flat_share * r_sum) / determinant;
  const double specular = (r_sum - flat_share * along) / determinant;
  if (diffuse < 0.0 || diffuse > largest || std::abs(specular) > largest) {
    return split;
  }
  split.k = static_cast<float>(specular);
  split.g = static_cast<float>(diffuse);
  return split;
}

// The illuminant as one spectrum or one spectrum per pixel, without expanding
// the former into a cube.
struct illuminant_source {
  const float* spectrum = nullptr;  // one value per band, or
  const cube* per_pixel = nullptr;  // one spectrum per pixel
};

void log_line(const std::string& text) {
  logger::instance() << text << "EOL";
}

// Per pixel: R, its norm and its band sum; pixels with a non-finite value are
// set to zero (they come out with k = g = 0 and s = 0).
void normalise(const cube& I, const illuminant_source& L, cube& R, std::vector<float>& norm,
               std::vector<float>& inverse_norm, std::vector<float>& band_sum) {
  const long plane = static_cast<long>(I.n_rows * I.n_cols);
  const arma::uword bands = I.n_slices;
  // A band whose illuminant is anywhere 0 or less (or not a number) is not divided.
  std::vector<char> divide(bands);
#pragma omp parallel for schedule(static)
  for (long b = 0; b < static_cast<long>(bands); ++b) {
    bool positive = true;
    if (L.per_pixel) {
      const float* values = L.per_pixel->slice_memptr(b);
      for (long p = 0; p < plane && positive; ++p) {
        positive = values[p] > 0.0f;
      }
    } else {
      positive = L.spectrum[b] > 0.0f;
    }
    divide[b] = positive;
  }
  R.set_size(arma::size(I));
  norm.resize(plane);
  inverse_norm.resize(plane);
  band_sum.resize(plane);
  const long chunks = (plane + pixels_per_chunk - 1) / pixels_per_chunk;
#pragma omp parallel for schedule(static)
  for (long chunk = 0; chunk < chunks; ++chunk) {
    const long p0 = chunk * pixels_per_chunk;
    const long count = std::min(pixels_per_chunk, plane - p0);
    double squares[pixels_per_chunk] = {};
    double sums[pixels_per_chunk] = {};
    for (arma::uword b = 0; b < bands; ++b) {
      const float* in = I.slice_memptr(b) + p0;
      float* out = R.slice_memptr(b) + p0;
      if (!divide[b]) {
        std::copy(in, in + count, out);
      } else if (L.per_pixel) {
        const float* light = L.per_pixel->slice_memptr(b) + p0;
        for (long p = 0; p < count; ++p) {
          out[p] = in[p] / light[p];
        }
      } else {
        const float light = L.spectrum[b];
        for (long p = 0; p < count; ++p) {
          out[p] = in[p] / light;
        }
      }
      for (long p = 0; p < count; ++p) {
        squares[p] += static_cast<double>(out[p]) * out[p];
        sums[p] += out[p];
      }
    }
    for (long p = 0; p < count; ++p) {
      const double length = std::sqrt(squares[p]);
      if (length <= largest) {
        norm[p0 + p] = static_cast<float>(length);
        inverse_norm[p0 + p] = length > 0.0 ? static_cast<float>(1.0 / length) : 0.0f;
        band_sum[p0 + p] = static_cast<float>(sums[p]);
      } else {
        for (arma::uword b = 0; b < bands; ++b) {
          R.slice_memptr(b)[p0 + p] = 0.0f;
        }
        norm[p0 + p] = inverse_norm[p0 + p] = band_sum[p0 + p] = 0.0f;
      }
    }
  }
}

// What one thread keeps while it walks down its rows.
struct block_buffers {
  std::vector<double> running;  // column sums of the unit spectra, bands x columns
  std::vector<double> columns;  // this block's column sums of one band, [column][row]
  std::vector<double> step;     // what enters minus what leaves one column's sum
  std::vector<double> r_dot_d, d_dot_d, d_sum;  // [column][row]
};

class factor_recovery {
 public:
  factor_recovery(const cube& R, const std::vector<float>& norm,
                  const std::vector<float>& inverse_norm, const std::vector<float>& band_sum,
                  long n, matrix& k, matrix& g)
      : R_(R),
        norm_(norm),
        inverse_norm_(inverse_norm),
        band_sum_(band_sum),
        n_(n),
        rows_(static_cast<long>(R.n_rows)),
        cols_(static_cast<long>(R.n_cols)),
        bands_(static_cast<long>(R.n_slices)),
        k_(k),
        g_(g) {}

  void prepare(block_buffers& buffers) const {
    buffers.running.assign(bands_ * cols_, 0.0);
    buffers.columns.assign(rows_per_block * cols_, 0.0);
    buffers.step.assign(rows_per_block, 0.0);
    buffers.r_dot_d.assign(rows_per_block * cols_, 0.0);
    buffers.d_dot_d.assign(rows_per_block * cols_, 0.0);
    buffers.d_sum.assign(rows_per_block * cols_, 0.0);
  }

  // The column sums of the window centred on the row before `first_row`.
  void start(block_buffers& buffers, long first_row) const {
    const long r0 = std::max(0L, first_row - 1 - n_);
    const long r1 = std::min(rows_ - 1, first_row - 1 + n_);
    for (long b = 0; b < bands_; ++b) {
      const float* band = R_.slice_memptr(b);
      for (long c = 0; c < cols_; ++c) {
        double sum = 0.0;
        for (long r = r0; r <= r1; ++r) {
          sum += static_cast<double>(band[r + c * rows_]) * inverse_norm_[r + c * rows_];
        }
        buffers.running[b * cols_ + c] = sum;
      }
    }
  }

  // Rows [r0, r1): k and g of every pixel.
  void block(block_buffers& buffers, long r0, long r1) const {
    const long count = r1 - r0;
    std::fill(buffers.r_dot_d.begin(), buffers.r_dot_d.end(), 0.0);
    std::fill(buffers.d_dot_d.begin(), buffers.d_dot_d.end(), 0.0);
    std::fill(buffers.d_sum.begin(), buffers.d_sum.end(), 0.0);
    for (long b = 0; b < bands_; ++b) {
      column_sums(buffers, b, r0, r1);
      row_sums(buffers, b, r0, count);
    }
    const double bands = static_cast<double>(bands_);
    for (long c = 0; c < cols_; ++c) {
      for (long j = 0; j < count; ++j) {
        const long pixel = r0 + j + c * rows_;
        const long at = c * rows_per_block + j;
        const dichromatic_factors split =
            split_from_sums(buffers.r_dot_d[at], buffers.d_dot_d[at], buffers.d_sum[at],
                            band_sum_[pixel], norm_[pixel], bands);
        k_[pixel] = split.k;
        g_[pixel] = split.g;
      }
    }
  }

 private:
  // Down each column: the window's sum for rows r0..r1-1, carried on from the
  // previous block by what enters below and leaves above.
  void column_sums(block_buffers& buffers, long b, long r0, long r1) const {
    const float* band = R_.slice_memptr(b);
    const float* inverse = inverse_norm_.data();
    double* running = &buffers.running[b * cols_];
    double* step = buffers.step.data();
    for (long c = 0; c < cols_; ++c) {
      const long base = c * rows_;
      for (long r = r0; r < r1; ++r) {
        const long enters = r + n_, leaves = r - n_ - 1;
        double change = 0.0;
        if (enters < rows_) {
          change += static_cast<double>(band[base + enters]) * inverse[base + enters];
        }
        if (leaves >= 0) {
          change -= static_cast<double>(band[base + leaves]) * inverse[base + leaves];
        }
        step[r - r0] = change;
      }
      double sum = running[c];
      double* out = &buffers.columns[c * rows_per_block];
      for (long j = 0; j < r1 - r0; ++j) {
        sum += step[j];
        out[j] = sum;
      }
      running[c] = sum;
    }
  }

  // Along each row: the window's sum from the column sums, folded straight into
  // the pixel's dot products.
  void row_sums(block_buffers& buffers, long b, long r0, long count) const {
    const float* band = R_.slice_memptr(b);
    const double* columns = buffers.columns.data();
    double window[rows_per_block] = {};
    for (long c = 0; c < std::min(cols_, n_); ++c) {
      for (long j = 0; j < rows_per_block; ++j) {
        window[j] += columns[c * rows_per_block + j];
      }
    }
    for (long c = 0; c < cols_; ++c) {
      const long enters = c + n_, leaves = c - n_ - 1;
      if (enters < cols_) {
        const double* in = columns + enters * rows_per_block;
        for (long j = 0; j < rows_per_block; ++j) {
          window[j] += in[j];
        }
      }
      if (leaves >= 0) {
        const double* out = columns + leaves * rows_per_block;
        for (long j = 0; j < rows_per_block; ++j) {
          window[j] -= out[j];
        }
      }
      const float* spectrum = band + r0 + c * rows_;
      double* r_dot_d = &buffers.r_dot_d[c * rows_per_block];
      double* d_dot_d = &buffers.d_dot_d[c * rows_per_block];
      double* d_sum = &buffers.d_sum[c * rows_per_block];
      for (long j = 0; j < count; ++j) {
        const double d = window[j];
        r_dot_d[j] += spectrum[j] * d;
        d_dot_d[j] += d * d;
        d_sum[j] += d;
      }
    }
  }

  const cube& R_;
  const std::vector<float>& norm_;
  const std::vector<float>& inverse_norm_;
  const std::vector<float>& band_sum_;
  const long n_, rows_, cols_, bands_;
  matrix& k_;
  matrix& g_;
};

void recover(const cube& I, const illuminant_source& L, bool sizes_match,
             const dichromatic_parameters& settings, int verbosity, matrix& k_out, matrix& g_out,
             cube& s_out) {
  logger& log = logger::instance();
  if (settings.method != 0) {
    log_and_throw("recover_dichromatic_parameters: Incorrect method.");
  }
  const int gray_threshold = settings.gray_threshold < 0 ? 2 : settings.gray_threshold;
  if (static_cast<unsigned>(verbosity) > 5u) {
    verbosity = 0;
  }
  log.set_stage(stage_reflectance);
  log.set_progress(0);

  const long rows = static_cast<long>(I.n_rows), cols = static_cast<long>(I.n_cols);
  const long bands = static_cast<long>(I.n_slices);
  if (rows == 0 || cols == 0 || bands == 0 || !sizes_match) {
    log_and_throw("Recover Dichromatic Parameters: Data size is incorrect.");
  }
  if (settings.neighbourhood_size < 0) {
    log_and_throw("recover_dichromatic_parameters: Negative neighbourhood size " +
                  std::to_string(settings.neighbourhood_size) + ".");
  }
  const long n = settings.neighbourhood_size;
  if (verbosity > 0) {
    log_line("Recover Dichromatic Parameters: Start to compute specularities");
  }
  if (verbosity > 4) {
    log_line("Parameters~ ");
    log << "Height: " << rows << "EOL";
    log << "Width:  " << cols << "EOL";
    log << "Bands:  " << bands << "EOL";
  }

  if (verbosity > 3) {
    log_line("Recover Dichromatic Parameters: Normalising R=I/L.");
  }
  cube R;
  std::vector<float> norm, inverse_norm, band_sum;
  normalise(I, L, R, norm, inverse_norm, band_sum);
  log.check_abort();

  if (verbosity > 0) {
    log_line("Recover Dichromatic Parameters: Beginning computation!");
  }
  matrix k(rows, cols), g(rows, cols);
  const factor_recovery recovery(R, norm, inverse_norm, band_sum, n, k, g);
  const long blocks = (rows + rows_per_block - 1) / rows_per_block;
  std::vector<block_buffers> buffers(std::max(1, omp_get_max_threads()));
  std::atomic<long> rows_done{0};
  std::atomic<bool> aborted{false};
  std::exception_ptr failure;
#pragma omp parallel
  {
    try {
      const long threads = omp_get_num_threads(), thread = omp_get_thread_num();
      // Each thread walks down one contiguous run of blocks (a static schedule
      // over rows), carrying its column sums from block to block.
      const long first = thread * blocks / threads, last = (thread + 1) * blocks / threads;
      block_buffers& mine = buffers[thread];
      if (first < last) {
        recovery.prepare(mine);
        recovery.start(mine, first * rows_per_block);
      }
      for (long block = first; block < last && !aborted; ++block) {
        if (log.abort_requested()) {
          aborted = true;
          break;
        }
        const long r0 = block * rows_per_block, r1 = std::min(rows, r0 + rows_per_block);
        recovery.block(mine, r0, r1);
        const long done = rows_done += r1 - r0;
        const int percent = static_cast<int>(static_cast<double>(done) * cols /
                                             (static_cast<double>(rows) * cols) * 100.0);
        log.set_progress(percent);
        if (verbosity > 2) {
#pragma omp critical(corv_dichromatic_progress)
          log << percent << "% complete"
              << "EOL";
        }
      }
    } catch (...) {
#pragma omp critical(corv_dichromatic_failure)
      failure = std::current_exception();
      aborted = true;
    }
  }
  buffers.clear();
  if (failure) {
    std::rethrow_exception(failure);
  }
  if (aborted) {
    log.check_abort();
    throw std::runtime_error("Processing was aborted!");
  }

  if (verbosity > 2) {
    log_line("Recover Dichromatic Parameters: Finished computing K");
    log_line("Recover Dichromatic Parameters: Computing S");
  }
  // Achromatic pixels: within the gray threshold of a flat spectrum.
  const long plane = rows * cols;
  const double flat_norm = std::sqrt(static_cast<double>(bands));
#pragma omp parallel for schedule(static)
  for (long p = 0; p < plane; ++p) {
    if (norm[p] > 0.0f) {
      const double cosine = std::clamp(band_sum[p] / (norm[p] * flat_norm), -1.0, 1.0);
      if (std::acos(cosine) * 180.0 / pi < gray_threshold) {
        g[p] = norm[p];
      }
    }
  }
  log.check_abort();

  const long chunks = (plane + pixels_per_chunk - 1) / pixels_per_chunk;
#pragma omp parallel for schedule(static)
  for (long chunk = 0; chunk < chunks; ++chunk) {
    const long p0 = chunk * pixels_per_chunk, p1 = std::min(plane, p0 + pixels_per_chunk);
    for (long b = 0; b < bands; ++b) {
      float* values = R.slice_memptr(b);
      for (long p = p0; p < p1; ++p) {
        const double value = (static_cast<double>(values[p]) - k[p]) / g[p];
        values[p] = std::abs(value) <= largest ? static_cast<float>(value) : 0.0f;
      }
    }
  }
  if (verbosity > 0) {
    log_line("Recover Dichromatic Parameters: Finished computing S");
  }
  k_out = std::move(k);
  g_out = std::move(g);
  s_out = std::move(R);
}

}  // namespace

dichromatic_factors split_dichromatic(const vector& R, const vector& diffuse) {
  if (R.n_elem != diffuse.n_elem || R.empty()) {
    throw std::runtime_error("split_dichromatic: The spectrum has " + std::to_string(R.n_elem) +
                             " bands and the diffuse direction " + std::to_string(diffuse.n_elem) +
                             ".");
  }
  double r_dot_d = 0.0, d_dot_d = 0.0, d_sum = 0.0, r_sum = 0.0, r_dot_r = 0.0;
  for (arma::uword b = 0; b < R.n_elem; ++b) {
    r_dot_d += static_cast<double>(R[b]) * diffuse[b];
    d_dot_d += static_cast<double>(diffuse[b]) * diffuse[b];
    d_sum += diffuse[b];
    r_sum += R[b];
    r_dot_r += static_cast<double>(R[b]) * R[b];
  }
  return split_from_sums(r_dot_d, d_dot_d, d_sum, r_sum, std::sqrt(r_dot_r),
                         static_cast<double>(R.n_elem));
}

void recover_dichromatic_parameters(const cube& I, const vector& illuminant,
                                    const vector& /*wavelengths*/,
                                    const dichromatic_parameters& settings, int verbosity,
                                    matrix& k, matrix& g, cube& s) {
  illuminant_source source;
  source.spectrum = illuminant.memptr();
  recover(I, source, illuminant.n_elem == I.n_slices, settings, verbosity, k, g, s);
}

void recover_dichromatic_parameters(const cube& I, const cube& illuminant,
                                    const vector& /*wavelengths*/,
                                    const dichromatic_parameters& settings, int verbosity,
                                    matrix& k, matrix& g, cube& s) {
  illuminant_source source;
  source.per_pixel = &illuminant;
  recover(I, source, arma::size(illuminant) == arma::size(I), settings, verbosity, k, g, s);
}

}  // namespace corv
