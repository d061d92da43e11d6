#ifndef CORV_PIPELINE_DETERMINISTIC_ANNEALING_H
#define CORV_PIPELINE_DETERMINISTIC_ANNEALING_H

// Deterministic annealing of spectra on the unit sphere. Each cluster is held as
// a pair of twin centres; as the temperature falls, a cluster whose twins have
// moved more than the split angle apart becomes two clusters.
//
// Distance: a spectrum and a centre are compared by their directions only, so
// that the shading of a pixel does not matter. The distance is
// distance_scale x (1 - cos(angle)) between the unit spectrum and the unit
// centre (in proportion to the squared chord between them), the measure whose
// minimiser over a set of unit spectra is their normalised mean; the split test
// compares the cosine of the angle between twins with the split threshold.
//
// The scale sets which angles the temperature schedule resolves: a cluster
// splits once the temperature falls below its spectra's spread along their
// main direction in distance units, and for two materials an angle a apart
// that spread is p (1 - p) a^2 (p the smaller one's share of the pixels). It
// is 1/3, so that the default minimum temperature, 0.00025, resolves a spread
// of 1.6 degrees (root mean square): two materials 8 degrees apart, one of
// them a fifteenth of the other's size (a white object on a grey floor), and
// the default maximum, 0.02, 14 degrees. Spectra of one material taken from inside its
// regions (material_sample.h) spread by about a degree; a finer resolution
// splits every material into fragments, a coarser one leaves close materials
// of unequal size together.

#include "corv/io/types.h"

namespace corv {

// The cooling schedule and limits of one run, after the replacements of
// invalid values.
struct annealing_schedule {
  float max_temperature = 0.02f;
  float min_temperature = 0.00025f;
  float cooling_rate = 0.8f;
  float split_threshold = 0.9961947f;  // cos 5 degrees
  int max_clusters = 20;
};

// Applies the replacements (max clusters below 1: 20; negative temperatures,
// cooling rate and split threshold: their defaults, the split threshold
// cos 5 degrees), then refuses a schedule that could never end: a cooling rate
// of 1 or more, a minimum temperature of 0, or a temperature that is not finite.
annealing_schedule checked_schedule(float max_temperature, float min_temperature,
                                    float cooling_rate, float split_threshold, int max_clusters);

// Number of cooling steps from the maximum to the minimum temperature
// (floor(log(min / max) / log(rate))), at least 1; it scales the progress.
int cooling_steps(const annealing_schedule& schedule);

// The distance's factor on 1 - cos(angle).
constexpr float distance_scale = 1.0f / 3.0f;

// distance_scale x (1 - cos) of the angle between two spectra; 0 when either
// is zero.
float spectral_distance(const vector& a, const vector& b);

// The association of one spectrum with each centre, from its distances to the
// centres, the centres' priors and the temperature: prior * exp(-distance / T),
// normalised to sum 1 (a centre with prior 0 gets 0).
void associate(const float* distances, const float* priors, arma::uword centres, float temperature,
               float* probabilities);

// The rows of pixels x bands data whose spectrum can be clustered: finite and
// not zero and, when shading is not empty (one value per row), lit (shading
// above 0). Ascending.
arma::uvec usable_rows(const matrix& pixels, const vector& shading);

// The chosen rows of pixels x bands data, each divided by its norm.
matrix unit_rows(const matrix& pixels, const arma::uvec& rows);

// Anneals unit spectra held pixels x bands (one band per column, the layout of
// a cube's band planes) and returns the cluster centres, bands x m, not
// of unit length. height and width describe the image the spectra come from (for
// the log). Refuses an empty matrix.
matrix anneal_unit_spectra(const matrix& unit_spectra, const annealing_schedule& schedule,
                           arma::uword height, arma::uword width, int verbosity);

}  // namespace corv

#endif
