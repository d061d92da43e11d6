#include "corv/io/input.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <typeinfo>

namespace corv {

input::~input() = default;

std::string demangled_name(const std::type_info& type) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  return status == 0 && name ? std::string(name.get()) : std::string(type.name());
}

void input::missing_member(const std::string& name) const {
  throw std::runtime_error(demangled_name(typeid(*this)) + ": Member '" + name +
                           "' does not exist for this input.");
}

cube input::I(const band_list&, int, int, int, int) {
  missing_member("I");
}
cube input::I(int, int, int, int) {
  missing_member("I");
}
cube input::I(const band_list&) {
  missing_member("I");
}
cube input::I() {
  missing_member("I");
}
cube_ptr input::I_ptr() {
  missing_member("I_ptr");
}
vector input::illuminant() {
  missing_member("illuminant");
}
matrix input::k() {
  missing_member("k");
}
matrix input::g() {
  missing_member("g");
}
cube input::s() {
  missing_member("s");
}
cube_ptr input::s_ptr() {
  missing_member("s_ptr");
}
matrix input::elements() {
  missing_member("elements");
}
matrix input::endmembers() {
  missing_member("endmembers");
}
labels input::endmember_labels() {
  missing_member("endmember_labels");
}
cube input::element_abundances() {
  missing_member("element_abundances");
}
cube input::element_abundance_indexes() {
  missing_member("element_abundance_indexes");
}
cube input::endmember_abundances() {
  missing_member("endmember_abundances");
}
cube input::endmember_abundance_indexes() {
  missing_member("endmember_abundance_indexes");
}
vector input::wavelengths() {
  missing_member("wavelengths");
}
GDALDataset* input::gdal_dataset_ptr() {
  missing_member("gdal_dataset_ptr");
}
int input::input_kind() const {
  return kind_abstract;
}

}  // namespace corv
