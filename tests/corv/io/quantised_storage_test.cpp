#include "corv/io/quantised_storage.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>

#include "corv/io/hdf5_file.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using quantised::block_shape;
using quantised::index_block;
using quantised::value_block;
using test::temp_dir;
using test::thrown_text;

constexpr double tiny = 2.2250738585072014e-308;

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

  static std::vector<std::uint16_t> data_of(const hdf5_group& root, const std::string& name,
                                            hdf5_shape* shape = nullptr) {
    const auto data = root.open_group(name).read_uint16_dataset("DATA");
    if (shape != nullptr) {
      *shape = data.shape;
    }
    return data.values;
  }
  static double stored(const hdf5_group& root, const std::string& name, const std::string& which) {
    return root.open_group(name).read_double_dataset(which).values.at(0);
  }

  temp_dir dir;

 private:
  std::unique_ptr<hdf5_file> reader_;
};

TEST_F(quantised_storage_test, blocks_are_scaled_to_16_bits_in_the_file_row_order) {
  // Column-major 2 x 2 x 2: (r, c, s) = (0,0,0) (1,0,0) (0,1,0) (1,1,0) (0,0,1) ...
  const value_block cube_values({2, 2, 2}, {0.0, 0.25, 0.5, 1.0, 0.75, 0.125, 0.375, 0.625});
  const value_block matrix_values({2, 3, 1}, {-1.0, 2.0, 0.0, 1.0, 3.0, -0.5});
  const hdf5_group root = round_trip([&](hdf5_group& g) {
    quantised::write_values(g, "cube", cube_values);
    quantised::write_values(g, "matrix", matrix_values);
  });

  hdf5_shape shape;
  // Per pixel all slices: (0,0) (0,1) (1,0) (1,1).
  EXPECT_EQ(data_of(root, "cube", &shape),
            (std::vector<std::uint16_t>{0, 49151, 32767, 24575, 16383, 8191, 65535, 40959}));
  EXPECT_EQ(shape, (hdf5_shape{2, 2, 2}));
  EXPECT_EQ(stored(root, "cube", "MAX"), 1.0);
  EXPECT_EQ(stored(root, "cube", "MIN"), 0.0);

  // One slice: a 2-D dataset, row by row.
  EXPECT_EQ(data_of(root, "matrix", &shape),
            (std::vector<std::uint16_t>{0, 16383, 65535, 49151, 32767, 8191}));
  EXPECT_EQ(shape, (hdf5_shape{2, 3}));
  EXPECT_EQ(stored(root, "matrix", "MAX"), 3.0);
  EXPECT_EQ(stored(root, "matrix", "MIN"), -1.0);

  for (const value_block* written : {&cube_values, &matrix_values}) {
    const value_block read =
        quantised::read_values(root, written == &cube_values ? "cube" : "matrix");
    ASSERT_EQ(read.shape(), written->shape());
    const double step = (written->max() - written->min()) / 65535.0;
    for (std::size_t i = 0; i < read.values().size(); ++i) {
      EXPECT_LE(written->values()[i] - read.values()[i], step) << i;
      EXPECT_GE(written->values()[i] - read.values()[i], 0.0) << i;
    }
  }
  const arma::mat m = quantised::read_matrix(root, "matrix");
  ASSERT_EQ(m.n_rows, 2u);
  ASSERT_EQ(m.n_cols, 3u);
  EXPECT_NEAR(m(1, 2), -0.5, 4.0 / 65535.0);
  EXPECT_EQ(thrown_text([&] { quantised::read_matrix(root, "cube"); }),
            "DATA has 2 slices, not a matrix in: /cube");
}

TEST_F(quantised_storage_test, range_scan_starts_from_the_tiny_maximum_and_the_huge_minimum) {
  const hdf5_group root = round_trip([](hdf5_group& g) {
    quantised::write_values(g, "equal", value_block({2, 2, 1}, {7.9, 7.9, 7.9, 7.9}));
    quantised::write_values(g, "negative", value_block({1, 2, 1}, {-4.0, -2.0}));
    quantised::write_values(g, "equal_negative", value_block({1, 2, 1}, {-2.5, -2.5}));
    quantised::write_values(g, "zero", value_block({1, 3, 1}, {0.0, 0.0, 0.0}));
    quantised::write_values(g, "empty", value_block());
  });

  // All equal and positive: no range, DATA holds the truncated values unscaled,
  // and reading takes DATA as it stands.
  EXPECT_EQ(data_of(root, "equal"), (std::vector<std::uint16_t>{7, 7, 7, 7}));
  EXPECT_EQ(stored(root, "equal", "MAX"), 7.9);
  EXPECT_EQ(stored(root, "equal", "MIN"), 7.9);
  EXPECT_EQ(quantised::read_values(root, "equal").values(), (std::vector<double>(4, 7.0)));

  // All negative: MAX stays at the smallest positive normal double.
  EXPECT_EQ(stored(root, "negative", "MAX"), tiny);
  EXPECT_EQ(stored(root, "negative", "MIN"), -4.0);
  EXPECT_EQ(data_of(root, "negative"), (std::vector<std::uint16_t>{0, 32767}));
  const auto negative = quantised::read_values(root, "negative").values();
  EXPECT_EQ(negative[0], -4.0);
  EXPECT_NEAR(negative[1], -2.0, 4.0 / 65535.0);

  // Equal negative values therefore have a range and come back exactly.
  EXPECT_EQ(data_of(root, "equal_negative"), (std::vector<std::uint16_t>{0, 0}));
  EXPECT_EQ(quantised::read_values(root, "equal_negative").values(),
            (std::vector<double>{-2.5, -2.5}));

  // All zero: the range is the tiny maximum, below epsilon when read.
  EXPECT_EQ(stored(root, "zero", "MAX"), tiny);
  EXPECT_EQ(stored(root, "zero", "MIN"), 0.0);
  EXPECT_EQ(data_of(root, "zero"), (std::vector<std::uint16_t>{0, 0, 0}));
  EXPECT_EQ(quantised::read_values(root, "zero").values(), (std::vector<double>(3, 0.0)));

  // Empty: the starting values are stored as they are.
  EXPECT_TRUE(quantised::read_values(root, "empty").empty());
  EXPECT_EQ(stored(root, "empty", "MAX"), tiny);
  EXPECT_EQ(stored(root, "empty", "MIN"), std::numeric_limits<double>::max());
}

TEST_F(quantised_storage_test, indexes_scalars_and_vectors_keep_their_own_rules) {
  const hdf5_group root = round_trip([](hdf5_group& g) {
    quantised::write_indexes(g, "indexes", index_block({1, 3, 1}, {1, 70000, -1}));
    quantised::write_scalar(g, "lines", 70000.0);
    quantised::write_scalar(g, "negative", -3.7);
    quantised::write_scalar(g, "bands", 128.9);
    quantised::write_vector(g, "wavelength", {410.0, 400.0, 420.0});
    quantised::write_vector(g, "negative_vector", {-3.0, -1.0});
    quantised::write_vector(g, "flat_vector", {5.5, 5.5});
  });

  // Indexes are never scaled: DATA holds their low 16 bits.
  EXPECT_EQ(data_of(root, "indexes"), (std::vector<std::uint16_t>{1, 4464, 65535}));
  EXPECT_EQ(stored(root, "indexes", "MAX"), 70000.0);
  EXPECT_EQ(stored(root, "indexes", "MIN"), -1.0);
  EXPECT_EQ(quantised::read_indexes(root, "indexes").values(),
            (std::vector<std::int32_t>{1, 4464, 65535}));

  // Scalars: DATA the low 16 bits of the integer part, MAX and MIN exact; the
  // reader takes DATA.
  hdf5_shape shape;
  EXPECT_EQ(data_of(root, "lines", &shape), (std::vector<std::uint16_t>{4464}));
  EXPECT_EQ(shape, (hdf5_shape{1}));
  EXPECT_EQ(stored(root, "lines", "MAX"), 70000.0);
  EXPECT_EQ(stored(root, "lines", "MIN"), 70000.0);
  EXPECT_EQ(quantised::read_scalar(root, "lines"), 4464.0);
  EXPECT_EQ(quantised::read_scalar(root, "negative"), 65533.0);
  EXPECT_EQ(quantised::read_scalar(root, "bands"), 128.0);

  // Vectors: a 2-D n x 1 dataset, the range scan starting from the first element.
  EXPECT_EQ(data_of(root, "wavelength", &shape), (std::vector<std::uint16_t>{32767, 0, 65535}));
  EXPECT_EQ(shape, (hdf5_shape{3, 1}));
  EXPECT_EQ(stored(root, "negative_vector", "MAX"), -1.0);
  EXPECT_EQ(stored(root, "negative_vector", "MIN"), -3.0);
  EXPECT_EQ(data_of(root, "flat_vector"), (std::vector<std::uint16_t>{5, 5}));
  const auto wavelengths = quantised::read_vector(root, "wavelength");
  ASSERT_EQ(wavelengths.size(), 3u);
  EXPECT_NEAR(wavelengths[0], 410.0, 20.0 / 65535.0);
  EXPECT_EQ(wavelengths[2], 420.0);
  EXPECT_EQ(quantised::read_vector(root, "flat_vector"), (std::vector<double>{5.0, 5.0}));
}

TEST_F(quantised_storage_test, refuses_what_it_cannot_store_or_read) {
  EXPECT_EQ(thrown_text([] {
              value_block({2, 2, 1}, {1.0, 2.0, 3.0});
            }),
            "quantised_block: 3 values do not fill a 2 x 2 x 1 block.");
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  round_trip([&](hdf5_group& g) {
    hdf5_group part = g.create_group("S");
    EXPECT_EQ(thrown_text([&] {
                quantised::write_values(part, "Factor", value_block({1, 2, 1}, {1.0, nan}));
              }),
              "quantised_storage: /S/Factor holds a value that is not a finite number.");
    EXPECT_EQ(thrown_text([&] {
                quantised::write_values(part, "Equal", value_block({1, 2, 1}, {infinity, 1.0}));
              }),
              "quantised_storage: /S/Equal holds a value that is not a finite number.");
    EXPECT_EQ(thrown_text([&] { quantised::write_scalar(g, "lines", nan); }),
              "quantised_storage: /lines holds a value that is not a finite number.");
    EXPECT_EQ(thrown_text([&] {
                quantised::write_vector(g, "wavelength", {1.0, infinity});
              }),
              "quantised_storage: /wavelength holds a value that is not a finite number.");
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
  try {
    quantised::read_values(root, "missing");
    ADD_FAILURE() << "no error for a missing group";
  } catch (const hdf5_error& error) {
    EXPECT_EQ(std::string(error.what()), "H5Gopen2 failed in: Group::openGroup at /missing");
  }
}

}  // namespace
}  // namespace corv
