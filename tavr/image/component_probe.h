#ifndef TAVR_IMAGE_COMPONENT_PROBE_H
#define TAVR_IMAGE_COMPONENT_PROBE_H

#include <exception>

#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"

namespace tavr {

// A component of the pipeline, or null when it has none or it is empty. The
// probe is not echoed by the logger: a missing component is an answer here.
template <typename T>
const T* component_or_null(corv::pipeline& p, const T& (corv::pipeline::*getter)()) {
  corv::logger& log = corv::logger::instance();
  const bool echo = log.echo();
  log.set_echo(false);
  const T* found = nullptr;
  try {
    const T& value = (p.*getter)();
    found = value.empty() ? nullptr : &value;
  } catch (const std::exception&) {
    found = nullptr;
  }
  log.set_echo(echo);
  return found;
}

}  // namespace tavr

#endif
