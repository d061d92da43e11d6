#ifndef CORV_IO_OUTPUT_H
#define CORV_IO_OUTPUT_H

#include <memory>
#include <string>

namespace corv {

class pipeline;

// Writes a pipeline's contents to files in one format.
class output {
 public:
  virtual ~output() = default;
  virtual void write(pipeline& source, const std::string& file_name) = 0;
};

using output_ptr = std::shared_ptr<output>;

}  // namespace corv

#endif
