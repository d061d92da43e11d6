#ifndef CORV_ANALYSIS_ROW_BLOCKS_H
#define CORV_ANALYSIS_ROW_BLOCKS_H

#include <atomic>
#include <exception>

#include "corv/io/logger.h"
#include "corv/io/types.h"

namespace corv {

// The rows of one call as part of a taller image whose rows arrive in parts:
// the image's rows before them, and all its rows (0: the call's rows are all).
struct row_share {
  arma::uword before = 0;
  arma::uword total = 0;
};

// Runs body(first_row, end_row) over consecutive blocks of `block` rows on the
// OpenMP threads. Between blocks it honours the logger's abort request; every
// 20 rows done it sets the logger's progress to the share of rows done (of
// the whole image, when the rows are a share of one). The
// counter is shared without a lock, so progress is approximate, as the viewer
// expects. The first exception of any block (the abort among them) stops the
// remaining blocks and is rethrown on the calling thread, never across the
// parallel region.
template <typename Body>
void for_each_row_block(arma::uword rows, arma::uword block, Body&& body, row_share share = {}) {
  logger& log = logger::instance();
  const arma::uword total = share.total == 0 ? rows : share.total;
  const long blocks = static_cast<long>((rows + block - 1) / block);
  std::atomic<bool> stopped{false};
  std::atomic<arma::uword> done{0};
  std::exception_ptr failure;
#pragma omp parallel for schedule(dynamic)
  for (long i = 0; i < blocks; ++i) {
    if (stopped.load(std::memory_order_relaxed)) {
      continue;
    }
    try {
      log.check_abort();
      const arma::uword first = static_cast<arma::uword>(i) * block;
      const arma::uword end = first + block < rows ? first + block : rows;
      body(first, end);
      const arma::uword before = done.fetch_add(end - first);
      const arma::uword after = before + (end - first);
      if (before / 20 != after / 20 || after == rows) {
        log.set_progress(static_cast<int>(100 * (share.before + after) / total));
      }
    } catch (...) {
#pragma omp critical(corv_row_block_failure)
      {
        if (!failure) {
          failure = std::current_exception();
        }
      }
      stopped = true;
    }
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace corv

#endif
