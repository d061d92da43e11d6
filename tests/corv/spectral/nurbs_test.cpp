#include "corv/spectral/nurbs.h"

#include <gtest/gtest.h>

#include <cmath>

#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using test::linear_wavelengths;
using test::thrown_text;

class nurbs_test : public ::testing::Test {
 protected:
  static logger& log() { return logger::instance(); }

  static std::size_t count(const std::string& line) {
    const auto all = test::log_lines();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), line));
  }
  static std::size_t count_starting(const std::string& start) {
    std::size_t n = 0;
    for (const auto& line : test::log_lines()) {
      n += line.rfind(start, 0) == 0 ? 1 : 0;
    }
    return n;
  }
};

// A rippled spectrum that needs many knots.
cube ripple_cube(arma::uword cols, const vector& waves) {
  cube c(1, cols, waves.n_elem);
  for (arma::uword col = 0; col < cols; ++col) {
    for (arma::uword b = 0; b < waves.n_elem; ++b) {
      c(0, col, b) = static_cast<float>(0.5 + 0.4 * std::sin(0.9 * b + col));
    }
  }
  return c;
}

cube line_cube(arma::uword cols, const vector& waves) {
  cube c(1, cols, waves.n_elem);
  for (arma::uword col = 0; col < cols; ++col) {
    for (arma::uword b = 0; b < waves.n_elem; ++b) {
      c(0, col, b) = static_cast<float>(0.2 + 0.1 * col + 0.001 * (waves(b) - waves(0)));
    }
  }
  return c;
}

float largest_miss(const cube& a, const cube& b) {
  return arma::abs(a - b).max();
}

cube no_pixels(arma::uword bands) {
  return cube(0, 0, bands);
}

TEST_F(nurbs_test, verbose_runs_log_the_parameters_passes_and_steps_in_order) {
  const vector waves = linear_wavelengths(12, 400, 20);
  const cube I = line_cube(3, waves);
  vector knots;
  nurbs_control_points points;
  generate_nurbs(I, no_pixels(12), waves, knots, points, 2, 1, 0.1f, 4, 3);
  // A straight spectrum needs no interior knot: the first pass removes all of
  // them, a later one finds no candidate (whether the run then ends early is the
  // codec's own choice).
  const std::vector<std::string> expected_start = {"Generating Nurbs. Parameters~",
                                                   "Polynomial Degree: 2",
                                                   "Knot Threshold:    1",
                                                   "Iterations:        4",
                                                   "Alpha:             0.1",
                                                   "0% complete",
                                                   "Beginning NURBS global interpolation...",
                                                   "Completed NURBS global interpolation!",
                                                   "nurbs_minimal_knots: Beginning knot removal."};
  const auto all = test::log_lines();
  ASSERT_GT(all.size(), expected_start.size());
  EXPECT_EQ(std::vector<std::string>(all.begin(), all.begin() + expected_start.size()),
            expected_start);
  EXPECT_EQ(knots.n_elem, 6u);
  EXPECT_EQ(count_starting("nurbs_minimal_knots: Removed a knot: "), 9u);
  EXPECT_GE(count("nurbs_minimal_knots: No candidate knots detected!"), 1u);
  EXPECT_EQ(all.back(), "Final number of knots: 6");
  EXPECT_LE(largest_miss(nurbs_evaluate(knots, points, 2, waves), I), 1e-5f);

  // Quiet runs log the steps but neither parameters nor progress.
  log().clear_entries();
  generate_nurbs(I, no_pixels(12), waves, knots, points, 2, 1, 0.1f, 4, 2);
  EXPECT_EQ(count("Generating Nurbs. Parameters~"), 0u);
  EXPECT_EQ(count("0% complete"), 0u);
  EXPECT_GE(count("Beginning NURBS global interpolation..."), 1u);
  EXPECT_EQ(test::log_lines().back(), "Final number of knots: 6");
}

TEST_F(nurbs_test, parameters_out_of_range_take_their_defaults) {
  const vector waves = linear_wavelengths(12, 400, 20);
  const cube I = ripple_cube(2, waves);
  vector knots;
  nurbs_control_points points;
  auto parameters_logged = [&](std::uint32_t degree, std::uint32_t threshold, float alpha,
                               int iterations) {
    log().clear_entries();
    generate_nurbs(I, no_pixels(12), waves, knots, points, degree, threshold, alpha, iterations, 3);
    const auto all = test::log_lines();
    return std::vector<std::string>(all.begin() + 1, all.begin() + 5);
  };
  // Degree 0 or 1 runs as 2, iterations 0 as 10, alpha out of [0, 1] as 0.1, a
  // threshold of 0 as 1 and the all-ones threshold as bands - 2.
  const std::vector<std::string> defaults = {"Polynomial Degree: 2", "Knot Threshold:    1",
                                             "Iterations:        10", "Alpha:             0.1"};
  EXPECT_EQ(parameters_logged(0, 0, 1.5f, 0), defaults);
  EXPECT_EQ(points.values.n_slices + 3, knots.n_elem);
  EXPECT_EQ(parameters_logged(1, 0, -0.2f, -3), defaults);
  EXPECT_EQ(parameters_logged(2, 0, std::nanf(""), 0), defaults);
  EXPECT_EQ(parameters_logged(3, 0xFFFFFFFFu, 1.0f, 7),
            (std::vector<std::string>{"Polynomial Degree: 3", "Knot Threshold:    10",
                                      "Iterations:        7", "Alpha:             1"}));
  EXPECT_EQ(parameters_logged(2, 5, 0.0f, 1),
            (std::vector<std::string>{"Polynomial Degree: 2", "Knot Threshold:    5",
                                      "Iterations:        1", "Alpha:             0"}));
}

TEST_F(nurbs_test, the_run_stops_at_the_threshold_or_after_its_iterations) {
  const vector waves = linear_wavelengths(40, 400, 10);
  const cube I = ripple_cube(3, waves);
  vector knots;
  nurbs_control_points points;
  // The default threshold (bands - 2) is met by the first pass.
  generate_nurbs(I, no_pixels(40), waves, knots, points, 2, 0xFFFFFFFFu, 0.1f, 10, 0);
  EXPECT_EQ(count("Beginning NURBS global interpolation..."), 1u);
  EXPECT_LE(knots.n_elem, 38u);
  EXPECT_EQ(count_starting("nurbs_minimal_knots: Removed a knot: "), 43u - knots.n_elem);
  // One iteration is one pass, whatever the threshold.
  log().clear_entries();
  generate_nurbs(I, no_pixels(40), waves, knots, points, 2, 1, 0.1f, 1, 0);
  EXPECT_EQ(count("Beginning NURBS global interpolation..."), 1u);
}

TEST_F(nurbs_test, wrong_sizes_and_values_are_refused_with_the_outputs_untouched) {
  const vector waves = linear_wavelengths(8, 400, 10);
  const cube I = ripple_cube(2, waves);
  vector knots = {7.0f};
  nurbs_control_points points;
  points.values.set_size(1, 1, 1);
  auto generate = [&](const cube& image, const cube& companion, const vector& w,
                      std::uint32_t degree) {
    log().clear_entries();
    return thrown_text(
        [&] { generate_nurbs(image, companion, w, knots, points, degree, 1, 0.1f, 10, 0); });
  };
  const std::string size = "generate_nurbs: Data size is incorrect.";
  EXPECT_EQ(generate(I, no_pixels(7), waves, 2), size);
  EXPECT_EQ(test::log_lines(), std::vector<std::string>{size});
  EXPECT_EQ(generate(I, no_pixels(8), linear_wavelengths(9), 2), size);
  EXPECT_EQ(generate(I, no_pixels(8), waves, 8),
            "generate_nurbs: Degree 8 needs at least 9 bands.");
  EXPECT_EQ(test::log_lines().back(), "generate_nurbs: Degree 8 needs at least 9 bands.");
  vector falling = waves;
  falling(3) = falling(2);
  EXPECT_EQ(generate(I, no_pixels(8), falling, 2),
            "generate_nurbs: Wavelengths must be finite and strictly increasing.");
  cube holes = I;
  holes(0, 1, 4) = std::nanf("");
  EXPECT_EQ(generate(holes, no_pixels(8), waves, 2),
            "generate_nurbs: Data contains values that are not finite.");
  EXPECT_EQ(knots.n_elem, 1u);
  EXPECT_EQ(knots(0), 7.0f);
  EXPECT_EQ(points.values.n_elem, 1u);

  // An abort request is honoured between passes, also leaving the outputs alone.
  log().request_abort();
  EXPECT_EQ(generate(I, no_pixels(8), waves, 2), "Processing was aborted!");
  EXPECT_EQ(knots.n_elem, 1u);

  // The steps check their own inputs.
  const vector interpolating = nurbs_interpolation_knots(I, no_pixels(8), waves, 2);
  ASSERT_EQ(interpolating.n_elem, 11u);
  nurbs_control_points I_points, J_points;
  auto interpolate = [&](const cube& image, const cube& companion, const vector& w,
                         const vector& k) {
    return thrown_text(
        [&] { nurbs_global_interpolation(image, companion, w, k, 2, I_points, J_points); });
  };
  const std::string mismatch = "nurbs_global_interpolation: Mismatch in data size";
  EXPECT_EQ(interpolate(I, no_pixels(7), waves, interpolating), mismatch);
  const std::string unclamped =
      "nurbs_global_interpolation: Knot vector is not clamped to [0, 1] or decreases.";
  EXPECT_EQ(interpolate(I, no_pixels(8), waves, vector{0, 0, 0.1f, 0.5f, 1, 1, 1}), unclamped);
  EXPECT_EQ(interpolate(I, no_pixels(8), waves, vector{0, 0, 0, 0.6f, 0.5f, 1, 1, 1}), unclamped);
  // An interior knot may repeat up to degree times, not more.
  EXPECT_EQ(interpolate(I, no_pixels(8), waves, vector{0, 0, 0, 0.5f, 0.5f, 1, 1, 1}), "");
  EXPECT_EQ(interpolate(I, no_pixels(8), waves, vector{0, 0, 0, 0.5f, 0.5f, 0.5f, 1, 1, 1}),
            unclamped);
  EXPECT_EQ(interpolate(I, no_pixels(8), falling, interpolating),
            "nurbs_global_interpolation: Wavelengths must be finite and strictly increasing.");
  EXPECT_EQ(interpolate(holes, no_pixels(8), waves, interpolating),
            "nurbs_global_interpolation: Data contains values that are not finite.");
  EXPECT_EQ(interpolate(I, no_pixels(8), waves, interpolating), "");
  EXPECT_EQ(I_points.values.n_slices, 8u);

  vector k = interpolating;
  auto remove = [&](const cube& companion, nurbs_control_points& p, nurbs_control_points& q) {
    return thrown_text([&] { nurbs_minimal_knots(I, companion, waves, k, 2, 0.1f, p, q); });
  };
  const std::string removal = "nurbs_minimal_knots: Data size is incorrect.";
  nurbs_control_points short_points = I_points;
  short_points.values.shed_slice(0);
  short_points.wavelengths.shed_slice(0);
  EXPECT_EQ(remove(no_pixels(8), short_points, J_points), removal);
  EXPECT_EQ(remove(I, I_points, J_points), removal);  // J's points are for no pixels
  EXPECT_EQ(k.n_elem, 11u);
  EXPECT_EQ(remove(no_pixels(8), I_points, J_points), "");
  EXPECT_LT(k.n_elem, 11u);
  EXPECT_EQ(I_points.values.n_slices, k.n_elem - 3);
}

TEST_F(nurbs_test, evaluation_reads_any_wavelengths_inside_the_curves) {
  const vector waves = linear_wavelengths(31, 400, 10);
  const cube I = line_cube(3, waves);
  vector knots;
  nurbs_control_points points;
  generate_nurbs(I, no_pixels(31), waves, knots, points, 2, 1, 0.1f, 10, 0);
  // Straight spectra read anywhere in between, and a hair beyond the ends.
  const vector targets = {399.9f, 405.0f, 512.5f, 700.0f, 700.2f};
  const cube read = nurbs_evaluate(knots, points, 2, targets);
  ASSERT_EQ(read.n_slices, 5u);
  for (arma::uword col = 0; col < 3; ++col) {
    EXPECT_NEAR(read(0, col, 0), 0.2f + 0.1f * col, 1e-5f);
    EXPECT_NEAR(read(0, col, 1), 0.2f + 0.1f * col + 0.005f, 1e-5f);
    EXPECT_NEAR(read(0, col, 2), 0.2f + 0.1f * col + 0.1125f, 1e-5f);
    EXPECT_NEAR(read(0, col, 4), 0.2f + 0.1f * col + 0.3f, 1e-5f);
  }
  EXPECT_EQ(thrown_text([&] {
              nurbs_evaluate(knots, points, 2, vector{395.0f, 500.0f});
            }),
            "nurbs_evaluate: Wavelength 395 lies outside the curves' range 400 - 700.");
  EXPECT_EQ(test::log_lines().back(),
            "nurbs_evaluate: Wavelength 395 lies outside the curves' range 400 - 700.");
  EXPECT_EQ(thrown_text([&] {
              nurbs_evaluate(knots, points, 2, vector{500.0f, 450.0f});
            }),
            "nurbs_evaluate: Wavelengths must be finite and strictly increasing.");
  EXPECT_EQ(thrown_text([&] { nurbs_evaluate(knots, points, 3, waves); }),
            "nurbs_evaluate: Data size is incorrect.");
  vector shifted = knots;
  shifted(0) = -0.1f;
  EXPECT_EQ(thrown_text([&] { nurbs_evaluate(shifted, points, 2, waves); }),
            "nurbs_evaluate: Knot vector is not clamped to [0, 1] or decreases.");
}

}  // namespace
}  // namespace corv
