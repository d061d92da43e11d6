#ifndef CORV_IO_COMPONENT_SELECTION_H
#define CORV_IO_COMPONENT_SELECTION_H

namespace corv {

// Which components of an image a file carries, as a bit set. The bits follow the
// order of the component files (I, illuminant, k, g, s, elements, abundances,
// indexes, endmember indexes, endmember abundances, spectral library).
enum component_bit : unsigned {
  component_I = 1u << 0,
  component_illuminant = 1u << 1,
  component_k = 1u << 2,
  component_g = 1u << 3,
  component_s = 1u << 4,
  component_elements = 1u << 5,
  component_abundances = 1u << 6,
  component_indexes = 1u << 7,
  component_endmember_indexes = 1u << 8,
  component_endmember_abundances = 1u << 9,
  component_library = 1u << 10,
};

// Everything an HSZ file stores besides the image itself: s is not stored but
// rebuilt from the elements and their abundances. 2030.
constexpr unsigned hsz_recovered_components = component_illuminant | component_k | component_g |
                                              component_elements | component_abundances |
                                              component_indexes | component_endmember_indexes |
                                              component_endmember_abundances | component_library;
// The same with the image: a file that stands on its own. 2031.
constexpr unsigned hsz_all_components = hsz_recovered_components | component_I;

static_assert(hsz_recovered_components == 2030, "selection of a workspace that refers to images");
static_assert(hsz_all_components == 2031, "selection of a portable workspace");

}  // namespace corv

#endif
