#include <gtest/gtest.h>

#include <functional>

#include "corv/io/data_input.h"
#include "corv/io/logger.h"
#include "corv/pipeline/cube_resize.h"
#include "corv/pipeline/pipeline.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::coded_cube;
using test::thrown_text;

class preparation_test : public ::testing::Test {
 protected:
  void SetUp() override {
    image.set_I(coded_cube(4, 5, 6), test::linear_wavelengths(6));
    image.set_illuminant(vector(6, arma::fill::ones));
    image.set_k(matrix(4, 5, arma::fill::zeros));
  }
  pipeline image;
};

TEST_F(preparation_test, crop_keeps_the_rectangle_and_discards_derived_components) {
  image.crop(1, 2, 1, 4, false);
  EXPECT_EQ(image.height(), 1u);
  EXPECT_EQ(image.width(), 3u);
  EXPECT_TRUE(
      arma::approx_equal(image.I(), cube(coded_cube(4, 5, 6).tube(1, 2, 1, 4)), "absdiff", 0.0f));
  EXPECT_THROW(image.illuminant(), std::runtime_error);
  EXPECT_THROW(image.k(), std::runtime_error);
  for (const auto& rectangle :
       std::vector<std::array<int, 4>>{{0, 0, 1, 3}, {-1, 0, 0, 0}, {0, 0, 0, 3}, {1, 0, 0, 0}}) {
    EXPECT_EQ(thrown_text([&] {
                image.crop(rectangle[0], rectangle[1], rectangle[2], rectangle[3], false);
              }),
              "pipeline crop: Error - Invalid parameters.");
  }
}

TEST_F(preparation_test, resize_refuses_sizes_below_one_pixel) {
  cube flat(3, 3, 2, arma::fill::value(4.0f));
  EXPECT_EQ(thrown_text([&] { image.resize(0, 4, false); }),
            "pipeline resize: Error - Invalid parameters.");
  EXPECT_EQ(thrown_text([&] { resize_cube(flat, 1, 0, 1); }),
            "Cannot resize smaller than 1 pixel.");
}

TEST_F(preparation_test, remove_bands_drops_planes_and_wavelengths) {
  image.remove_bands({0, 3}, false);
  EXPECT_EQ(image.bands(), 4u);
  EXPECT_TRUE(arma::approx_equal(image.wavelengths(), vector{410, 420, 440, 450}, "absdiff", 0.0f));
  EXPECT_EQ(image.I()(0, 0, 2), 1.0f + 100 * 4);
  pipeline three;
  three.set_I(coded_cube(2, 2, 3), vector{1, 2, 3});
  EXPECT_EQ(thrown_text([&] {
              three.remove_bands({0, 1}, false);
            }),
            "remove_bands: Cannot reduce image to less than 2 bands");
  EXPECT_EQ(thrown_text([&] { image.remove_bands({9}, false); }),
            "remove_bands: Band 9 does not exist; the image has 4 bands.");
}

TEST_F(preparation_test, filter_checks_its_size_first_and_its_method_after_the_reset) {
  for (const int size : {0, 33}) {
    EXPECT_EQ(thrown_text([&] { image.filter(FILTER_WIENER, size, false); }),
              "pipeline filter: Error - invalid parameters.");
    EXPECT_NO_THROW(image.illuminant());  // nothing changed yet
  }
  EXPECT_EQ(thrown_text([&] { image.filter(3, 5, false); }),
            "pipeline filter: Error - invalid parameters (method does not exist)");
  EXPECT_THROW(image.illuminant(), std::runtime_error);
  EXPECT_EQ(logger::instance().entries().back().second,
            "pipeline filter: Error - invalid parameters (method does not exist).");
}

TEST_F(preparation_test, filters_report_their_stage_and_only_wiener_is_marked) {
  image.filter(FILTER_MOVING_AVERAGE, 3, false);
  EXPECT_EQ(logger::instance().stage(), 7);  // the stage number the viewer reads
  EXPECT_FALSE(image.parameters().wiener_marker);
  image.filter(FILTER_WIENER, 3, false);
  EXPECT_TRUE(image.parameters().wiener_marker);
}

TEST_F(preparation_test, an_aborted_wiener_filter_leaves_the_image_unfiltered) {
  const cube before = image.I();
  logger::instance().request_abort();
  EXPECT_EQ(thrown_text([&] { image.filter(FILTER_WIENER, 3, false); }), "Processing was aborted!");
  EXPECT_FALSE(logger::instance().abort_requested());
  EXPECT_TRUE(arma::approx_equal(image.I(), before, "absdiff", 0.0f));
  EXPECT_FALSE(image.parameters().wiener_marker);
}

TEST_F(preparation_test, the_reflectance_flag_prepares_s) {
  auto source = std::make_shared<data_input>();
  source->set_s(coded_cube(3, 3, 3));
  source->set_wavelengths(vector{1, 2, 3});
  pipeline reflectance(source);
  reflectance.crop(0, 0, 1, 1, true);
  EXPECT_EQ(reflectance.s().n_rows, 2u);
  EXPECT_EQ(reflectance.height(), 2u);
}

}  // namespace
}  // namespace corv
