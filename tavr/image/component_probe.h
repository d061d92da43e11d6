#ifndef TAVR_IMAGE_COMPONENT_PROBE_H
#define TAVR_IMAGE_COMPONENT_PROBE_H

#include <exception>

#include "corv/io/quiet_log.h"
#include "corv/pipeline/pipeline.h"

namespace tavr {

// A component of the pipeline, or null when it has none or it is empty. The
// probe stays out of the log: a missing component is an answer here, not an
// error to show the user in the log dialog.
template <typename T>
const T* component_or_null(corv::pipeline& p, const T& (corv::pipeline::*getter)()) {
  const corv::quiet_log quiet;
  const T* found = nullptr;
  try {
    const T& value = (p.*getter)();
    found = value.empty() ? nullptr : &value;
  } catch (const std::exception&) {
    found = nullptr;
  }
  return found;
}

}  // namespace tavr

#endif
