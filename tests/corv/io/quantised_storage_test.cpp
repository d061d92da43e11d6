#include "corv/io/quantised_storage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>

#include "corv/io/hdf5_file.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using quantised::index_block;
using quantised::value_block;
using test::temp_dir;
using test::thrown_text;

// What lands in HSZ and SLZ files through these functions is also checked with h5py
// (tests/python/test_hsz_layout.py, test_library.py).
class quantised_storage_test : public ::testing::Test {
 protected:
  // Writes through `write` into a fresh file and reopens it for reading.
  hdf5_group round_trip(const std::function<void(hdf5_group&)>& write) {
    reader_.reset();
    {
      hdf5_file file = hdf5_file::create(dir / "q.h5");
      hdf5_group root = file.root();
      write(root);
      file.close();
    }
    reader_ = std::make_unique<hdf5_file>(hdf5_file::open_read_only(dir / "q.h5"));
    return reader_->root();
  }

  static std::vector<std::uint16_t> data_of(const hdf5_group& root, const std::string& name) {
    return root.open_group(name).read_uint16_dataset("DATA").values;
  }
  static double stored(const hdf5_group& root, const std::string& name, const std::string& which) {
    return root.open_group(name).read_double_dataset(which).values.at(0);
  }

  temp_dir dir;

 private:
  std::unique_ptr<hdf5_file> reader_;
};

TEST_F(quantised_storage_test, blocks_are_scaled_to_16_bits_pixel_by_pixel_and_read_back) {
  // Column-major 2 x 2 x 2: (r, c, s) = (0,0,0) (1,0,0) (0,1,0) (1,1,0) (0,0,1) ...
  const value_block written({2, 2, 2}, {0.0, 0.25, 0.5, 1.0, 0.75, 0.125, 0.375, 0.625});
  const hdf5_group root = round_trip([&](hdf5_group& g) {
    quantised::write_values(g, "cube", written);
    quantised::write_matrix(g, "matrix", arma::mat{{-1.0, 0.0, 3.0}, {2.0, 1.0, -0.5}});
  });
  // Per pixel all slices: (0,0) (0,1) (1,0) (1,1); values truncated to their step.
  EXPECT_EQ(data_of(root, "cube"),
            (std::vector<std::uint16_t>{0, 49151, 32767, 24575, 16383, 8191, 65535, 40959}));
  const value_block read = quantised::read_values(root, "cube");
  ASSERT_EQ(read.shape(), written.shape());
  for (std::size_t i = 0; i < read.values().size(); ++i) {
    EXPECT_GE(written.values()[i] - read.values()[i], 0.0) << i;
    EXPECT_LE(written.values()[i] - read.values()[i], 1.0 / 65535.0) << i;
  }
  const arma::mat m = quantised::read_matrix(root, "matrix");
  ASSERT_EQ(arma::size(m), arma::size(2, 3));
  EXPECT_NEAR(m(1, 2), -0.5, 4.0 / 65535.0);
  EXPECT_EQ(thrown_text([&] { quantised::read_matrix(root, "cube"); }),
            "DATA has 2 slices, not a matrix in: /cube");
}

TEST_F(quantised_storage_test, ranges_indexes_and_header_numbers_keep_their_own_rules) {
  const hdf5_group root = round_trip([](hdf5_group& g) {
    quantised::write_values(g, "equal", value_block({2, 2, 1}, {7.9, 7.9, 7.9, 7.9}));
    quantised::write_values(g, "equal_negative", value_block({1, 2, 1}, {-2.5, -2.5}));
    quantised::write_values(g, "zero", value_block({1, 3, 1}, {0.0, 0.0, 0.0}));
    quantised::write_indexes(g, "indexes", index_block({1, 3, 1}, {1, 70000, -1}));
    quantised::write_scalar(g, "lines", 70000.0);
    quantised::write_scalar(g, "negative", -3.7);
    quantised::write_vector(g, "wavelength", {410.0, 400.0, 420.0});
  });
  // All equal and positive: no range, so reading takes DATA, the truncated values.
  EXPECT_EQ(quantised::read_values(root, "equal").values(), (std::vector<double>(4, 7.0)));
  // The scan's maximum starts at the smallest positive double: equal negative
  // values have a range and come back exactly, zeros stay zeros.
  EXPECT_EQ(quantised::read_values(root, "equal_negative").values(),
            (std::vector<double>{-2.5, -2.5}));
  EXPECT_EQ(stored(root, "zero", "MAX"), 2.2250738585072014e-308);
  EXPECT_EQ(quantised::read_values(root, "zero").values(), (std::vector<double>(3, 0.0)));

  // Indexes and header numbers are never scaled: DATA holds their low 16 bits,
  // MAX and MIN the values, and readers take DATA.
  EXPECT_EQ(quantised::read_indexes(root, "indexes").values(),
            (std::vector<std::int32_t>{1, 4464, 65535}));
  EXPECT_EQ(stored(root, "indexes", "MAX"), 70000.0);
  EXPECT_EQ(data_of(root, "lines"), (std::vector<std::uint16_t>{4464}));
  EXPECT_EQ(stored(root, "lines", "MAX"), 70000.0);
  EXPECT_EQ(quantised::read_scalar(root, "lines"), 4464.0);
  EXPECT_EQ(quantised::read_scalar(root, "negative"), 65533.0);

  // Vectors scan their range starting from the first element.
  EXPECT_EQ(data_of(root, "wavelength"), (std::vector<std::uint16_t>{32767, 0, 65535}));
  EXPECT_EQ(quantised::read_vector(root, "wavelength")[2], 420.0);
}

TEST_F(quantised_storage_test, refuses_what_it_cannot_store_or_read) {
  EXPECT_EQ(thrown_text([] {
              value_block({2, 2, 1}, {1.0, 2.0, 3.0});
            }),
            "quantised_block: 3 values do not fill a 2 x 2 x 1 block.");
  const double nan = std::numeric_limits<double>::quiet_NaN();
  round_trip([&](hdf5_group& g) {
    hdf5_group part = g.create_group("S");
    EXPECT_EQ(thrown_text([&] {
                quantised::write_values(part, "Factor", value_block({1, 2, 1}, {1.0, nan}));
              }),
              "quantised_storage: /S/Factor holds a value that is not a finite number.");
    EXPECT_EQ(
        thrown_text([&] {
          quantised::write_vector(g, "wavelength", {1.0, std::numeric_limits<double>::infinity()});
        }),
        "quantised_storage: /wavelength holds a value that is not a finite number.");
    EXPECT_EQ(thrown_text([&] { quantised::write_scalar(g, "lines", nan); }),
              "quantised_storage: /lines holds a value that is not a finite number.");
  });

  // Malformed groups, as another program might have written them.
  const hdf5_group root = round_trip([](hdf5_group& g) {
    hdf5_group wrong_type = g.create_group("wrong_type");
    const double values[2] = {1.0, 2.0};
    wrong_type.write_dataset("DATA", {2}, values, {2}, 6);
    hdf5_group two_max = g.create_group("two_max");
    const std::uint16_t data[1] = {3};
    two_max.write_dataset("DATA", {1}, data, {1}, 6);
    two_max.write_dataset("MAX", {2}, values, {1}, 6);
    two_max.write_dataset("MIN", {1}, values, {1}, 6);
  });
  EXPECT_EQ(thrown_text([&] { quantised::read_values(root, "wrong_type"); }),
            "not an unsigned 16-bit integer dataset in: /wrong_type/DATA");
  EXPECT_EQ(thrown_text([&] { quantised::read_scalar(root, "two_max"); }),
            "MAX holds 2 values instead of one in: /two_max");
  EXPECT_EQ(thrown_text([&] { quantised::read_values(root, "missing"); }),
            "H5Gopen2 failed in: Group::openGroup at /missing");
}

}  // namespace
}  // namespace corv
