#ifndef CORV_TESTS_IO_HSZ_TEST_SCENE_H
#define CORV_TESTS_IO_HSZ_TEST_SCENE_H

#include <memory>
#include <string>

#include "corv/io/data_input.h"
#include "corv/io/types.h"
#include "corv/pipeline/pipeline.h"

namespace corv::test {

// A processed 2 x 3 image with 4 bands: illuminant, k, g and three material
// elements, of which each pixel mixes two, with s and I composed from them.
struct hsz_scene {
  vector wavelengths{400.0f, 450.0f, 500.0f, 550.0f};
  vector illuminant{1.0f, 0.8f, 0.6f, 0.4f};
  matrix k{{0.0f, 0.1f, 0.2f}, {0.05f, 0.15f, 0.25f}};
  matrix g{{1.0f, 0.8f, 0.6f}, {0.9f, 0.7f, 0.5f}};
  matrix elements{{0.2f, 0.9f, 0.5f}, {0.4f, 0.7f, 0.5f}, {0.6f, 0.5f, 0.1f}, {0.8f, 0.3f, 0.1f}};
  cube abundances;
  cube indexes;  // 0-based element numbers

  hsz_scene() : abundances(2, 3, 2), indexes(2, 3, 2) {
    abundances.slice(0) = matrix{{0.9f, 0.7f, 0.5f}, {0.8f, 0.6f, 0.4f}};
    abundances.slice(1) = 1.0f - abundances.slice(0);
    indexes.slice(0) = matrix{{0, 2, 1}, {1, 0, 2}};
    indexes.slice(1) = matrix{{1, 0, 2}, {2, 1, 0}};
  }

  cube s() const {
    cube out(2, 3, 4, arma::fill::zeros);
    for (arma::uword r = 0; r < 2; ++r) {
      for (arma::uword c = 0; c < 3; ++c) {
        for (arma::uword j = 0; j < 2; ++j) {
          const auto element = static_cast<arma::uword>(indexes(r, c, j));
          for (arma::uword b = 0; b < 4; ++b) {
            out(r, c, b) += abundances(r, c, j) * elements(b, element);
          }
        }
      }
    }
    return out;
  }

  cube I() const {
    const cube reflectance = s();
    cube out(2, 3, 4);
    for (arma::uword b = 0; b < 4; ++b) {
      out.slice(b) = illuminant(b) * (g % reflectance.slice(b) + k);
    }
    return out;
  }

  // The scene as a pipeline reads it from its input, without the component
  // named (by its accessor's name) if any.
  std::shared_ptr<data_input> input(const std::string& omitted = "") const {
    auto in = std::make_shared<data_input>();
    if (omitted != "s") {
      in->set_s(s());
    }
    if (omitted != "wavelengths") {
      in->set_wavelengths(wavelengths);
    }
    if (omitted != "illuminant") {
      in->set_illuminant(illuminant);
    }
    if (omitted != "k") {
      in->set_k(k);
    }
    if (omitted != "g") {
      in->set_g(g);
    }
    if (omitted != "elements") {
      in->set_elements(elements);
    }
    if (omitted != "element_abundances") {
      in->set_element_abundances(abundances);
    }
    if (omitted != "element_abundance_indexes") {
      in->set_element_abundance_indexes(indexes);
    }
    return in;
  }
};

}  // namespace corv::test

#endif
