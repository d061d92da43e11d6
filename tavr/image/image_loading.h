#ifndef TAVR_IMAGE_IMAGE_LOADING_H
#define TAVR_IMAGE_IMAGE_LOADING_H

#include <QImage>
#include <QString>
#include <array>
#include <functional>
#include <memory>

#include "corv/io/types.h"
#include "tavr/image/colour_renderer.h"

namespace corv {
class input;
}

namespace tavr {

// Opening an image in two steps, so that a large one shows at once: the first
// picture from three bands read alone, then the rest in the background, which
// never needs more memory than a block of bands unless the image is small
// enough to be held.

// The bands a first picture reads: for automatic colour of an image spanning
// 550 nm, the bands nearest 470, 530 and 600 nm, where the three colour weights
// peak (blue, green, red); otherwise the three bands the full picture copies
// (the manual bands, or the band-copy rule of images that do not span 550 nm).
// In channel order: channel 0 (blue) first.
std::array<unsigned, 3> first_picture_bands(const corv::vector& wavelengths,
                                            const rendering_options& options);

// The first picture need not be larger than the screen: the longest side it is
// rendered at, at most.
constexpr unsigned first_picture_side = 1024;

// The sampling step of the first picture of an image of this size: every
// step-th pixel in each direction, so that its longest side is at most
// first_picture_side (1 for images up to that size).
unsigned first_picture_step(unsigned height, unsigned width);

// The first picture of an image from its three first-picture bands, from every
// `step`-th pixel of each row and column (ceil(height / step) x ceil(width /
// step) pixels; shown `step` times larger). Each weighted band is scaled by its
// channel's colour constant, so that a flat spectrum has the full picture's
// colour; a pixel is black where one of the three holds the data-ignore value.
// The range of the tone curve comes from every fourth of its pixels each way.
// With contrast enhancement the picture is rendered whole, whatever the step.
QImage first_picture(corv::input& source, const rendering_options& options, unsigned step = 1);

// What the background part of opening gives back.
struct full_picture_result {
  QImage picture;             // the colour picture of the whole spectrum
  rendering_options options;  // the rendering choices it was made with
  corv::cube I;               // the whole cube, when it was to be held (else empty)
  float maximum = 0.0f;       // the cube's largest finite value (0 when it has none)
  QString message;            // the failure's text (empty on success)
  bool cancelled = false;
};

// Bands read in one go by the streamed picture.
constexpr unsigned streamed_block_bands = 8;

// The full colour picture of an image. With `hold`, the cube is read whole and
// returned with the picture; without, the bands are read streamed_block_bands
// at a time and only the weighted sums are kept. `progress` gets the bands done
// and the band count and returns false to stop. Never throws.
full_picture_result full_picture(
    corv::input& source, const rendering_options& options, bool hold,
    const std::function<bool(unsigned done, unsigned total)>& progress = {});

}  // namespace tavr

#endif
