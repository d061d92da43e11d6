// Runs one frame conversion on a raw frame file, for the numpy cross-check
// (test_frame_conversion.py):
//   tavr_frame_convert raw|band|colour|cube|mix FRAME WIDTH HEIGHT BITS MOSAIC_W MOSAIC_H
//                      BANDS WAVELENGTHS OUT [BAND]
// Pictures are written as RGB32 values, cubes as float32 in the library's
// (column-major) order, the colour mix as 3 x BANDS float32.
#include <QImage>
#include <QStringList>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tavr/camera/frame_conversion.h"

namespace {

void write(const std::string& file, const void* data, std::size_t bytes) {
  std::ofstream out(file, std::ios::binary);
  out.write(static_cast<const char*>(data), static_cast<std::streamsize>(bytes));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 11) {
    std::fprintf(stderr, "usage: see the source\n");
    return 2;
  }
  const std::string what = argv[1];
  std::ifstream in(argv[2], std::ios::binary);
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
  const tavr::frame_view frame{bytes.data(), std::stoi(argv[3]), std::stoi(argv[4]),
                               std::stoi(argv[5]) == 16};
  const tavr::mosaic_layout mosaic{std::stoi(argv[6]), std::stoi(argv[7]), std::stoi(argv[8])};
  std::vector<float> wavelengths;
  for (const QString& part : QString(argv[9]).split(',', Qt::SkipEmptyParts)) {
    wavelengths.push_back(part.toFloat());
  }
  const std::string out = argv[10];
  const int band = argc > 11 ? std::stoi(argv[11]) : 0;

  QImage picture;
  if (what == "raw") {
    tavr::raw_picture(frame, picture);
  } else if (what == "band") {
    tavr::band_picture(frame, mosaic, band, picture);
  } else if (what == "colour") {
    tavr::colour_picture(frame, mosaic, tavr::colour_mix_for(wavelengths, frame.sixteen_bit),
                         picture);
  } else if (what == "cube") {
    const corv::cube cube = tavr::capture_cube(frame, mosaic);
    write(out, cube.memptr(), cube.n_elem * sizeof(float));
    return 0;
  } else if (what == "mix") {
    const tavr::colour_mix mix = tavr::colour_mix_for(wavelengths, frame.sixteen_bit);
    std::vector<float> weights;
    for (const std::vector<float>& row : mix.weights) {
      weights.insert(weights.end(), row.begin(), row.end());
    }
    write(out, weights.data(), weights.size() * sizeof(float));
    return 0;
  } else {
    return 2;
  }
  if (picture.isNull()) {
    return 1;
  }
  for (int y = 0; y < picture.height(); ++y) {
    std::ofstream(out, y == 0 ? std::ios::binary : std::ios::binary | std::ios::app)
        .write(reinterpret_cast<const char*>(picture.constScanLine(y)), picture.width() * 4);
  }
  return 0;
}
