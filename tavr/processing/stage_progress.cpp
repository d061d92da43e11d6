#include "tavr/processing/stage_progress.h"

namespace tavr {

stage_progress progress_for_stage(int stage, int progress, bool cancel_requested) {
  if (cancel_requested) {
    return {progress, true, "Exiting pipeline process...", true};
  }
  switch (stage) {
    case 7:
      return {progress, true, "Preprocessing...", false};
    case 0:
      return {100 + progress, true, "Recovering illuminant...", false};
    case 1:
      return {200 + progress, true, "Recovering reflectance...", false};
    case 2:
      return {300 + progress, true, "Recovering materials...", false};
    case 3:
      return {300 + progress, true, "Image Analysis...", false};
    case 4:
      return {300 + progress, true, "Image classification...", false};
    default:
      return {processing_progress_maximum, false, QString(), false};
  }
}

}  // namespace tavr
