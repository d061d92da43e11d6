#ifndef CORV_CLI_STREAMING_H
#define CORV_CLI_STREAMING_H

// Images larger than memory: the commands that work pixel by pixel or band by
// band (convert, prepare, bandmath, classify) read an ENVI image in blocks of
// rows, or a band at a time, and write their result as it comes, so that their
// memory stays bounded whatever the image's size. The commands that need the
// whole image refuse one that will not fit.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "corv/cli/interrupt.h"
#include "corv/cli/progress_monitor.h"
#include "corv/io/hdr_input.h"

namespace corv::cli {

// The memory one block of rows may take: CORV_BLOCK_MIB mebibytes (64 when
// unset).
std::size_t block_bytes();

// The ENVI input behind `source` when the cube a command wants (the
// reflectance or the image) is the one its file holds; otherwise none, and
// the command reads the image whole.
std::shared_ptr<hdr_input> streamable(const std::shared_ptr<input>& source, bool reflectance);

// Refuses an image that would need more than the memory available when read
// whole (`copies` cubes of its size at once): "<command>: the image (R x C x B,
// N GiB) needs about M GiB of memory, A GiB are available; make it smaller with
// corv prepare --crop, --remove-bands or --resize first".
void require_memory(const input& source, double copies, const std::string& command);

// A part of an image: rows and columns (inclusive) and the bands in order.
struct image_part {
  int first_row = 0;
  int first_col = 0;
  int last_row = 0;
  int last_col = 0;
  band_list bands;

  arma::uword rows() const { return static_cast<arma::uword>(last_row - first_row + 1); }
  arma::uword cols() const { return static_cast<arma::uword>(last_col - first_col + 1); }
  static image_part whole(const input& source);
};

// One streamed run: on a terminal, the progress bar of its stage on standard
// error (elsewhere the command stays quiet, as it was before it streamed), and
// Ctrl-C, which stops it between blocks with "Processing was aborted!".
class stream_run {
 public:
  explicit stream_run(int stage);
  ~stream_run();
  stream_run(const stream_run&) = delete;
  stream_run& operator=(const stream_run&) = delete;

  // Calls use(block, first_row) for blocks of rows of the part, first_row
  // counted within the part; a block holds the part's columns and bands, and
  // is the caller's to change. The
  // progress runs over passes: this is pass `pass` (from 0) of `passes`.
  void for_each_block(hdr_input& image, const image_part& part,
                      const std::function<void(cube&, arma::uword)>& use, int pass = 0,
                      int passes = 1);
  // Calls use(lines, count, index, first_row) for every band of the part in
  // turn, a block of `count` of its rows at a time, line after line as they lie
  // in the image: the file is read in order, and nothing is rearranged.
  void for_each_band_block(
      hdr_input& image, const image_part& part,
      const std::function<void(const float*, arma::uword, arma::uword, arma::uword)>& use,
      int pass = 0, int passes = 1);
  // Calls use(bands, first_index) for whole bands of the part, as many at a
  // time as there are threads to work on them.
  void for_each_band(hdr_input& image, const image_part& part,
                     const std::function<void(cube&, arma::uword)>& use, int pass = 0,
                     int passes = 1);
  // Shows the share `done` of pass `pass` of `passes`.
  void show(double done, int pass, int passes);
  // The stage ended: its 100% is shown.
  void finish();

 private:
  interrupt_scope interrupts_;
  std::optional<progress_monitor> monitor_;
  bool finished_ = false;
};

// Writes the part of the image as an ENVI file, block by block, each block
// changed by `change` first: the data type's scaling takes a first pass for
// the largest value. Without a change the blocks go band after band, so that
// the input is read and the output written in order. Names, checks and
// messages are those of hdr_output.
void write_blocks(hdr_input& image, const image_part& part, const vector& wavelengths,
                  const std::string& file_name, int data_type, bool reflectance, int stage,
                  const std::function<void(cube&)>& change);

// Runs a command's work, reporting an interrupt the way corv process does:
// "Processing was aborted!" on standard error and exit status 130.
int interruptible(const std::function<int()>& work);

}  // namespace corv::cli

#endif
