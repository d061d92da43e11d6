#ifndef CORV_ANALYSIS_SVM_H
#define CORV_ANALYSIS_SVM_H

#include "corv/io/types.h"

namespace corv {

// True when `labels` can serve as the class labels of `spectra` references:
// one per reference, each a whole number of at least 1, none above the number
// of references.
bool usable_labels(const vector& labels, arma::uword spectra);

// Labels every pixel of I with a support vector machine trained on the
// reference spectra (one per row of `spectra`), reference i being a sample of
// class labels(i). Unusable labels (see usable_labels) are replaced by 1, 2,
// ..., n, and "SVM: Labels not given or incorrect length or out of range,
// creating new labels." is logged. label_matrix becomes rows x columns, each
// pixel's predicted label.
//
// The machine is OpenCV's: C-support vector classification with a linear
// kernel, training ended after 100 iterations (epsilon 1e-6), every other
// parameter at OpenCV's default. Pixels are labelled from the trained machine's
// decision functions with OpenCV's one-against-one vote (ties go to the lower
// label); as the kernel is linear, each pixel is first projected onto the
// space the decision functions span.
//
// The inputs are checked and the bands aligned as prepare_classification
// describes, with "svm" naming the routine in its messages; a failure inside
// OpenCV is logged and thrown as "svm: OpenCV failed: <its message>". The
// logger's progress follows the rows and an abort request stops the work with
// "Processing was aborted!"; on any failure labels and label_matrix are
// unchanged.
void svm(const cube& I, const vector& wavelengths, const matrix& spectra,
         const vector& spectra_waves, vector& labels, matrix& label_matrix);

}  // namespace corv

#endif
