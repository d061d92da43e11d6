#include "corv/cli/image_summary.h"

#include <iomanip>
#include <sstream>

#include "corv/io/hdr_input.h"
#include "corv/io/open_input.h"

namespace corv::cli {

namespace {

const char* kind_name(int kind) {
  switch (kind) {
    case kind_hdr:
      return "hdr_input";
    case kind_hsz:
      return "hsz_input";
    case kind_data:
      return "data_input";
    case kind_component:
      return "component_input";
    case kind_tif:
      return "tif_input";
    default:
      return "input";
  }
}

std::string json_string(const std::string& text) {
  std::ostringstream out;
  out << '"';
  for (const char c : text) {
    switch (c) {
      case '"':
        out << "\\\"";
        break;
      case '\\':
        out << "\\\\";
        break;
      case '\n':
        out << "\\n";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          out << "\\u" << std::hex << std::setw(4) << std::setfill('0') << int(c) << std::dec;
        } else {
          out << c;
        }
    }
  }
  out << '"';
  return out.str();
}

// Components other than the cube are probed through the input's accessors;
// the cube itself is not read.
std::vector<std::string> probe_components(input& source, bool reflectance) {
  std::vector<std::string> found;
  const int kind = source.input_kind();
  if (kind == kind_hdr || kind == kind_tif) {
    found.push_back(reflectance ? "s" : "I");
    found.push_back("wavelengths");
    return found;
  }
  const auto probe = [&](const char* name, auto accessor) {
    try {
      if (!accessor().empty()) {
        found.push_back(name);
      }
    } catch (const std::exception&) {
    }
  };
  probe("I", [&] { return source.I(); });
  probe("wavelengths", [&] { return source.wavelengths(); });
  probe("illuminant", [&] { return source.illuminant(); });
  probe("k", [&] { return source.k(); });
  probe("g", [&] { return source.g(); });
  probe("s", [&] { return source.s(); });
  probe("elements", [&] { return source.elements(); });
  probe("element_abundances", [&] { return source.element_abundances(); });
  probe("element_abundance_indexes", [&] { return source.element_abundance_indexes(); });
  probe("endmembers", [&] { return source.endmembers(); });
  probe("endmember_labels", [&] { return source.endmember_labels(); });
  probe("endmember_abundances", [&] { return source.endmember_abundances(); });
  probe("endmember_abundance_indexes", [&] { return source.endmember_abundance_indexes(); });
  return found;
}

}  // namespace

image_summary image_summary::of(const std::string& file, input& source) {
  image_summary summary;
  summary.file = file;
  summary.format =
      source.input_kind() == kind_component ? "component files" : format_name(format_of(file));
  summary.input_kind = source.input_kind();
  summary.lines = source.height();
  summary.samples = source.width();
  summary.bands = source.bands();
  const vector wavelengths = source.wavelengths();
  summary.wavelengths.assign(wavelengths.begin(), wavelengths.end());
  if (auto* envi = dynamic_cast<hdr_input*>(&source)) {
    summary.reflectance = envi->is_reflectance();
  }
  summary.components = probe_components(source, summary.reflectance);
  return summary;
}

std::string image_summary::text() const {
  std::ostringstream out;
  out << "file:        " << file << "\n"
      << "format:      " << format << "\n"
      << "input kind:  " << input_kind << " (" << kind_name(input_kind) << ")\n"
      << "lines:       " << lines << "\n"
      << "samples:     " << samples << "\n"
      << "bands:       " << bands << "\n"
      << "content:     " << (reflectance ? "reflectance" : "irradiance") << "\n"
      << "components:  ";
  for (std::size_t i = 0; i < components.size(); ++i) {
    out << (i ? ", " : "") << components[i];
  }
  out << "\nwavelengths:";
  for (std::size_t i = 0; i < wavelengths.size(); ++i) {
    out << (i % 8 == 0 ? "\n  " : " ") << wavelengths[i];
  }
  out << "\n";
  return out.str();
}

std::string image_summary::json() const {
  std::ostringstream out;
  out << std::setprecision(9);
  out << "{\n  \"file\": " << json_string(file) << ",\n  \"format\": " << json_string(format)
      << ",\n  \"input_kind\": " << input_kind << ",\n  \"lines\": " << lines
      << ",\n  \"samples\": " << samples << ",\n  \"bands\": " << bands
      << ",\n  \"content\": " << json_string(reflectance ? "reflectance" : "irradiance")
      << ",\n  \"components\": [";
  for (std::size_t i = 0; i < components.size(); ++i) {
    out << (i ? ", " : "") << json_string(components[i]);
  }
  out << "],\n  \"wavelengths\": [";
  for (std::size_t i = 0; i < wavelengths.size(); ++i) {
    out << (i ? ", " : "") << wavelengths[i];
  }
  out << "]\n}\n";
  return out.str();
}

}  // namespace corv::cli
