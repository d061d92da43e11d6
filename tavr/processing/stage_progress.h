#ifndef TAVR_PROCESSING_STAGE_PROGRESS_H
#define TAVR_PROCESSING_STAGE_PROGRESS_H

#include <QString>

namespace tavr {

// Progress dialog range: preprocessing 0..100, illuminant 100..200, reflectance
// 200..300, materials, analysis and classification 300..400; 410 past the end.
constexpr int processing_progress_maximum = 410;

// What the progress display shows for the logger's stage and progress.
struct stage_progress {
  int value = 0;
  bool label_changed = false;  // false: keep the current label
  QString label;
  bool cancelling = false;  // shown on the cancel dialog
};

// Maps the running stage (the logger's stage number) and its progress (0..100)
// to the progress dialog's value and label. Unknown stages show 410 and leave the
// label; a cancel request shows "Exiting pipeline process..." with the progress.
stage_progress progress_for_stage(int stage, int progress, bool cancel_requested);

}  // namespace tavr

#endif
