#include "corv/io/hsz_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>

#include "corv/io/file_path.h"
#include "corv/io/hdf5_file.h"
#include "corv/io/logger.h"
#include "tests/corv/test_support.h"

namespace corv {
namespace {

using quantised::index_block;
using quantised::value_block;
using test::temp_dir;
using test::thrown_text;

std::string last_log_line() {
  const auto entries = logger::instance().entries();
  return entries.empty() ? std::string() : entries.back().second;
}

// A small record as a processed 2 x 3 image with 4 bands would give.
hsz_record sample_record() {
  hsz_record record;
  hsz_header& h = record.header;
  h.lines = 2;
  h.samples = 3;
  h.bands = 4;
  h.indexed_k = 1;
  h.indexed_l = 1;
  h.indexed_s = 1;
  h.num_elements_k = 1;
  h.num_elements_l = 1;
  h.num_elements_s = 2;
  h.endmember_indexed_s = 3;
  h.wavelengths = {400.0, 450.0, 500.0, 550.0};
  h.interleave = "bsq";
  h.description = "Corvantis HSZ";
  h.method = "Dichromatic";
  h.encoding_k = "RAW";
  h.encoding_l = "RAW";
  h.encoding_s = "RAW";
  record.endmembers_s.wavelengths = {410.0, 420.0, 430.0, 440.0, 450.0};
  record.endmembers_s.count = 2;
  record.endmembers_s.labels = {"grass", "red brick"};
  record.endmembers_s.wavelength_unit = "Nanometers";
  record.endmembers_l.wavelength_unit = "Nanometers";
  record.l.elements = value_block({4, 1, 1}, {0.5, 1.0, 0.75, 0.25});
  record.k.factor = value_block({2, 3, 1}, {0.0, 0.1, 0.2, 0.3, 0.4, 0.5});
  record.s.element_abundance_indexes = index_block({2, 3, 2}, {1, 2, 3, 1, 2, 3, 3, 1, 2, 3, 1, 2});
  record.s.element_abundances =
      value_block({2, 3, 2}, {0.9, 0.8, 0.7, 0.6, 0.5, 0.4, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
  record.s.endmembers = value_block({5, 2, 1}, {1, 2, 3, 4, 5, -1, -2, -3, -4, -5});
  return record;
}

class hsz_record_test : public ::testing::Test {
 protected:
  // Writes a file through the HDF5 wrappers, for layouts this writer never makes.
  void write_file(const std::string& name, const std::function<void(hdf5_group&)>& fill) {
    hdf5_file file = hdf5_file::create(name);
    {
      hdf5_group root = file.root();
      fill(root);
    }
    file.close();
  }

  temp_dir dir;
};

void expect_close(const value_block& read, const value_block& written, const char* what) {
  ASSERT_EQ(read.shape(), written.shape()) << what;
  const double step = (written.max() - written.min()) / 65535.0;
  for (std::size_t i = 0; i < read.values().size(); ++i) {
    EXPECT_NEAR(read.values()[i], written.values()[i], step) << what << " " << i;
  }
}

TEST_F(hsz_record_test, saved_records_load_back_with_every_field) {
  hsz_record written = sample_record();
  written.header.sensor = "Corvantis test sensor";
  ASSERT_TRUE(written.save(dir / "image.hsz", false));
  EXPECT_EQ(files_in(dir.str()), std::vector<std::string>{"image.hsz"});

  // Strings, indexes and counts come back exactly, values within one step; what is
  // not in the file stays at its default.
  hsz_record read;
  ASSERT_TRUE(read.load(dir / "image.hsz"));
  EXPECT_EQ(read.header.wavelengths, written.header.wavelengths);
  EXPECT_EQ(read.header.sensor, "Corvantis test sensor");
  EXPECT_EQ(read.header.allothers, "");
  EXPECT_EQ(read.header.degree_nurbs_s, -1);
  EXPECT_EQ(read.endmembers_s.labels, (std::vector<std::string>{"grass", "red brick"}));
  EXPECT_EQ(read.endmembers_l.count, 0);
  EXPECT_EQ(read.s.element_abundance_indexes.values(),
            written.s.element_abundance_indexes.values());
  EXPECT_EQ(read.s.element_abundance_indexes.shape(), written.s.element_abundance_indexes.shape());
  expect_close(read.s.element_abundances, written.s.element_abundances, "abundances");
  expect_close(read.s.endmembers, written.s.endmembers, "endmembers");
  expect_close(read.k.factor, written.k.factor, "k");
  EXPECT_TRUE(read.l.factor.empty());

  {
    // Optional strings are written only when they have a value.
    const hdf5_file file = hdf5_file::open_read_only(dir / "image.hsz");
    const hdf5_group hdr = file.root().open_group("HDR");
    EXPECT_TRUE(hdr.has_attribute("sensor"));
    EXPECT_FALSE(hdr.has_attribute("allothers"));
  }
}

TEST_F(hsz_record_test, save_refuses_invalid_records_and_never_leaves_a_partial_file) {
  hsz_record invalid = sample_record();
  invalid.header.wavelengths.pop_back();
  EXPECT_EQ(thrown_text([&] { invalid.save(dir / "a.hsz", true); }), "HSZ Save: invalid object");
  EXPECT_EQ(last_log_line(), "HSZ Save: invalid object");
  EXPECT_TRUE(files_in(dir.str()).empty());

  const hsz_record first = sample_record();
  ASSERT_TRUE(first.save(dir / "a.hsz", false));
  hsz_record second = sample_record();
  second.header.samples = 9;
  EXPECT_EQ(thrown_text([&] { second.save(dir / "a.hsz", false); }),
            "HSZ Save: File already exists: " + (dir / "a.hsz"));
  EXPECT_EQ(last_log_line(), "HSZ Save: File already exists: " + (dir / "a.hsz"));

  // A save that fails half way keeps the old file and leaves nothing else.
  hsz_record broken = sample_record();
  broken.k.factor = value_block({1, 1, 1}, {std::numeric_limits<double>::quiet_NaN()});
  EXPECT_EQ(thrown_text([&] { broken.save(dir / "a.hsz", true); }),
            "quantised_storage: /K/Factor holds a value that is not a finite number.");
  EXPECT_EQ(files_in(dir.str()), std::vector<std::string>{"a.hsz"});
  hsz_record read;
  ASSERT_TRUE(read.load(dir / "a.hsz"));
  EXPECT_EQ(read.header.samples, 3);

  // Overwriting replaces the file.
  ASSERT_TRUE(second.save(dir / "a.hsz", true));
  ASSERT_TRUE(read.load(dir / "a.hsz"));
  EXPECT_EQ(read.header.samples, 9);

  // HDF5 failures are logged and reported as a failed save.
  logger::instance().clear_entries();
  EXPECT_FALSE(first.save(dir / "missing/b.hsz", true));
  EXPECT_EQ(last_log_line(), "HSZ Save: No such file or directory in: " + (dir / "missing/b.hsz"));
  EXPECT_EQ(files_in(dir.str()), std::vector<std::string>{"a.hsz"});
}

TEST_F(hsz_record_test, load_refuses_what_is_not_an_hsz_file) {
  hsz_record record;
  ASSERT_TRUE(sample_record().save(dir / "good.hsz", true));
  ASSERT_TRUE(record.load(dir / "good.hsz"));

  test::write_text(dir / "text.hsz", "not HDF5");
  for (const std::string& name : {std::string(), dir / "none.hsz", dir / "text.hsz"}) {
    EXPECT_EQ(thrown_text([&] { record.load(name); }), "HSZ Read: Invalid file name: " + name);
  }

  write_file(dir / "extra.hsz", [](hdf5_group& root) {
    root.create_group("HDR");
    root.create_group("Extra");
  });
  EXPECT_EQ(thrown_text([&] { record.load(dir / "extra.hsz"); }),
            "HSZ Read: unknown group under root: Extra");

  write_file(dir / "attribute.hsz", [](hdf5_group& root) {
    root.create_group("HDR").write_string_attribute("colour", "blue");
  });
  EXPECT_EQ(thrown_text([&] { record.load(dir / "attribute.hsz"); }),
            "Unknown HDR parameter: colour");

  write_file(dir / "number.hsz", [](hdf5_group& root) {
    hdf5_group hdr = root.create_group("HDR");
    quantised::write_scalar(hdr, "degreeNURBSL", 3);
    quantised::write_scalar(hdr, "temperature", 20);
  });
  EXPECT_EQ(thrown_text([&] { record.load(dir / "number.hsz"); }),
            "Unknown HDR parameter: temperature");

  write_file(dir / "sub.hsz",
             [](hdf5_group& root) { root.create_group("K").create_group("Weights"); });
  EXPECT_EQ(thrown_text([&] { record.load(dir / "sub.hsz"); }),
            "HSZ Read: unknown sub group name: Weights in root group: K");

  // Readers of other writers' files accept the NURBS degrees.
  write_file(dir / "degree.hsz", [](hdf5_group& root) {
    hdf5_group hdr = root.create_group("HDR");
    quantised::write_scalar(hdr, "degreeNURBSL", 3);
    quantised::write_scalar(hdr, "lines", 5);
  });
  hsz_record with_degree;
  ASSERT_TRUE(with_degree.load(dir / "degree.hsz"));
  EXPECT_EQ(with_degree.header.degree_nurbs_l, 3);
  EXPECT_EQ(with_degree.header.lines, 5);

  // An HDF5 failure is logged and reported; the record keeps what it had.
  write_file(dir / "labels.hsz", [](hdf5_group& root) {
    hdf5_group endmembers = root.create_group("HDREndmembersS");
    quantised::write_vector(endmembers, "wavelength", {400.0, 500.0});
    quantised::write_scalar(endmembers, "numEndmembers", 2);
    endmembers.write_string_attribute("MAT0", "grass");
  });
  logger::instance().clear_entries();
  EXPECT_FALSE(record.load(dir / "labels.hsz"));
  EXPECT_EQ(last_log_line(),
            "HSZ Read: H5Aopen failed\nLocation: Group::openAttribute at /HDREndmembersS "
            "attribute MAT1");
  EXPECT_EQ(record.header.samples, 3);
  EXPECT_EQ(record.endmembers_s.labels, (std::vector<std::string>{"grass", "red brick"}));
}

}  // namespace
}  // namespace corv
