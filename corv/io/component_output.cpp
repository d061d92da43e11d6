#include "corv/io/component_output.h"

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <system_error>

#include "corv/io/file_path.h"
#include "corv/io/hdr_output.h"
#include "corv/io/logger.h"
#include "corv/io/spectral_library.h"
#include "corv/pipeline/pipeline.h"

namespace fs = std::filesystem;

namespace corv {

namespace {

using writer = std::function<void(const std::string& data_file)>;

vector band_numbers(arma::uword count) {
  vector numbers(count);
  for (arma::uword b = 0; b < count; ++b) {
    numbers(b) = static_cast<float>(b + 1);
  }
  return numbers;
}

// Per-pixel values: their bands are numbered, not wavelengths.
writer per_pixel(cube values) {
  return [values = std::move(values)](const std::string& data_file) {
    write_envi(values, band_numbers(values.n_slices), data_file, 4, false);
  };
}

writer plane(const matrix& values) {
  cube data(values.n_rows, values.n_cols, 1);
  data.slice(0) = values;
  return per_pixel(std::move(data));
}

// Spectra keep the image's wavelengths, so they must have one value per band.
writer spectral(const char* name, cube spectra, const vector& wavelengths) {
  return [name, spectra = std::move(spectra), &wavelengths](const std::string& data_file) {
    if (spectra.n_slices != wavelengths.n_elem) {
      log_and_throw("component_output: " + std::string(name) + " has " +
                    std::to_string(spectra.n_slices) + " bands but there are " +
                    std::to_string(wavelengths.n_elem) + " wavelengths.");
    }
    write_envi(spectra, wavelengths, data_file, 4, false);
  };
}

writer spectrum(const vector& values, const vector& wavelengths) {
  cube data(1, 1, values.n_elem);
  data.tube(0, 0) = values;
  return spectral("illuminant", std::move(data), wavelengths);
}

// Columns of a bands x m matrix become the samples of a one-line image.
writer spectra(const matrix& columns, const vector& wavelengths) {
  cube data(1, columns.n_cols, columns.n_rows);
  for (arma::uword b = 0; b < columns.n_rows; ++b) {
    data.slice(b).row(0) = columns.row(b);
  }
  return spectral("elements", std::move(data), wavelengths);
}

// I and s are written straight from the pipeline, without a copy of the cube.
writer image_cube(pipeline& source, bool reflectance) {
  return [&source, reflectance](const std::string& data_file) {
    hdr_output(reflectance, 4).write(source, data_file);
  };
}

// Writes a component when the pipeline can supply it, else logs the skip message
// and returns false. Only the pipeline's refusal is a skip; a failing write is an
// error.
template <typename Fetch>
bool save_component(const std::string& stem, const char* skip_message, Fetch fetch) {
  writer write;
  try {
    write = fetch();
  } catch (const std::exception&) {
    logger::instance() << skip_message << "EOL";
    return false;
  }
  write(stem + ".fla");
  return true;
}

// The files of a set are written into a folder beside their directory and
// moved into it once all are written, so that a failure half way (a full disk)
// leaves none of them behind. The folder goes with this object.
class staging_folder {
 public:
  staging_folder(const std::string& directory, const std::string& prefix)
      : path_(fs::path(directory) / ("." + prefix + ".part" + std::to_string(::getpid()))) {
    std::error_code error;
    fs::remove_all(path_, error);
    if (!fs::create_directory(path_, error)) {
      log_and_throw("component_output: Cannot write in " + directory + ": " + error.message() +
                    ".");
    }
  }
  ~staging_folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  staging_folder(const staging_folder&) = delete;
  staging_folder& operator=(const staging_folder&) = delete;

  const fs::path& path() const { return path_; }

  // Moves every file into the directory; on failure takes back those moved.
  void move_into(const std::string& directory) const {
    std::vector<fs::path> moved;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(path_, error)) {
      const fs::path target = fs::path(directory) / entry.path().filename();
      fs::rename(entry.path(), target, error);
      if (error) {
        break;
      }
      moved.push_back(target);
    }
    if (error) {
      for (const fs::path& file : moved) {
        std::error_code ignored;
        fs::remove(file, ignored);
      }
      log_and_throw("component_output: Cannot write in " + directory + ": " + error.message() +
                    ".");
    }
  }

 private:
  fs::path path_;
};

}  // namespace

void component_output::write(pipeline& source, const std::string& file_name) {
  if (file_name.empty()) {
    log_and_throw("component_output: Oops, looks like you forgot to set a filename!",
                  "No filename set for HDR file save.");
  }
  const fs::path path(file_name);
  if (!path.has_parent_path()) {
    throw std::runtime_error("component_output: Output directory required!");
  }
  const std::string prefix = path.stem().string();
  if (prefix.empty()) {
    throw std::runtime_error("component_output: Output prefix required!");
  }
  const std::string directory = path.parent_path().string();

  // A directory made for the set goes again when the set cannot be written.
  struct made_directory {
    std::string path;
    bool kept = false;
    ~made_directory() {
      std::error_code ignored;
      if (!path.empty() && !kept) {
        fs::remove(path, ignored);  // only when empty
      }
    }
  } made;
  if (!directory_exists(directory)) {
    logger::instance() << "Directory " << directory << " doesn't exist, creating it."
                       << "EOL";
    std::error_code error;
    fs::create_directories(directory, error);
    if (error || !directory_exists(directory)) {
      log_and_throw("component_output: Cannot create directory " + directory + ".");
    }
    made.path = directory;
  }
  logger::instance() << "Outputting Components of " << prefix << " to " << directory << "EOL";

  vector wavelengths;
  try {
    wavelengths = source.wavelengths();
  } catch (const std::exception&) {
    log_and_throw("component_output: Error reading Wavelengths.",
                  "Wavelengths not present when saving HDR file.");
  }

  const staging_folder staging(directory, prefix);
  const std::string final_base = (fs::path(directory) / prefix).string();
  const std::string base = (staging.path() / prefix).string();
  const auto save = [&](const char* suffix, const char* display_name, const char* skip_message,
                        auto fetch) {
    if (save_component(base + suffix, skip_message, fetch)) {
      logger::instance() << "component_output: Saved " << display_name << " to " << final_base
                         << suffix << ".hdr"
                         << "EOL";
    }
  };
  save("_I", "I", "component_output: I not available, skipping..", [&] {
    source.I();
    return image_cube(source, false);
  });
  save("_illuminant", "Illuminant", "component_output: illuminant not available, skipping...",
       [&] { return spectrum(source.illuminant(), wavelengths); });
  save("_k", "k", "component_output: k not available, skipping..",
       [&] { return plane(source.k()); });
  save("_g", "g", "component_output: g not available, skipping...",
       [&] { return plane(source.g()); });
  save("_s", "s", "component_output: s not available, skipping..", [&] {
    source.s();
    return image_cube(source, true);
  });
  save("_elements", "elements", "component_output: elements not available, skipping..",
       [&] { return spectra(source.material_elements(), wavelengths); });
  save("_abundances", "abundances", "component_output: abundances not available, skipping..",
       [&] { return per_pixel(source.material_element_abundances()); });
  save("_indexes", "indexes", "component_output: indexes not available, skipping..",
       [&] { return per_pixel(source.material_element_abundance_indexes()); });
  save("_endindexes", "endmember indexes",
       "component_output: endmember indexes not available, skipping..",
       [&] { return per_pixel(source.endmember_abundance_indexes()); });
  save("_endabundances", "endmember abundances",
       "component_output: endmember abundances not available, skipping..",
       [&] { return per_pixel(source.endmember_abundances()); });

  const std::shared_ptr<spectral_library> library = source.library();
  const std::string library_file = final_base + "_spectral_library.slz";
  if (!library) {
    logger::instance() << "component_output: Spectral Library not available, skipping.."
                       << "EOL";
  } else if (library->empty()) {
    logger::instance() << "component_output: Spectral Library is empty."
                       << "EOL";
  } else {
    library->save(base + "_spectral_library.slz");
  }
  staging.move_into(directory);
  made.kept = true;
  if (library && !library->empty()) {
    logger::instance() << "component_output: Saved Spectral Library to " << library_file << "EOL";
  }
}

}  // namespace corv
