// Opens an ENVI image through the installed library and prints its size.
#include <iostream>
#include <memory>

#include "corv/io/hdr_input.h"
#include "corv/pipeline/pipeline.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: consumer IMAGE.hdr\n";
    return 2;
  }
  corv::pipeline image(std::make_shared<corv::hdr_input>(argv[1]));
  const corv::cube& cube = image.I();
  std::cout << cube.n_rows << " x " << cube.n_cols << " x " << cube.n_slices << "\n";
  return 0;
}
