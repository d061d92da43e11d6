#ifndef CORV_ANALYSIS_PCA_H
#define CORV_ANALYSIS_PCA_H

#include "corv/io/types.h"

namespace corv {

// Projects every pixel spectrum onto the leading principal components. The
// components cube is rows x columns x k; strengths holds their k singular
// values, strongest first. The count of components that pass the threshold is
// always bands - 1 (see the notes in pca.cpp), so at most bands - 1 are returned.
void pca(const cube& I, cube& components, vector& strengths, int num_components, float threshold);

}  // namespace corv

#endif
