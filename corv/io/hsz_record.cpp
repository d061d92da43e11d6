#include "corv/io/hsz_record.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "corv/io/file_path.h"
#include "corv/io/hdf5_error.h"
#include "corv/io/hdf5_file.h"
#include "corv/io/isolated_call.h"
#include "corv/io/logger.h"

namespace corv {

namespace {

using number_field = std::int32_t hsz_header::*;
using text_field = std::string hsz_header::*;

// The header's numbers under /HDR, in the order they are written.
const std::array<std::pair<const char*, number_field>, 20> number_keys = {{
    {"EndmemberIndexedL", &hsz_header::endmember_indexed_l},
    {"EndmemberIndexedS", &hsz_header::endmember_indexed_s},
    {"IndexedK", &hsz_header::indexed_k},
    {"IndexedL", &hsz_header::indexed_l},
    {"IndexedS", &hsz_header::indexed_s},
    {"bands", &hsz_header::bands},
    {"byteorder", &hsz_header::byteorder},
    {"datatype", &hsz_header::datatype},
    {"header_offset", &hsz_header::header_offset},
    {"lines", &hsz_header::lines},
    {"numElementsK", &hsz_header::num_elements_k},
    {"numElementsL", &hsz_header::num_elements_l},
    {"numElementsS", &hsz_header::num_elements_s},
    {"numEndmembersL", &hsz_header::num_endmembers_l},
    {"numEndmembersS", &hsz_header::num_endmembers_s},
    {"numGMMsK", &hsz_header::num_gmms_k},
    {"numGMMsL", &hsz_header::num_gmms_l},
    {"numGMMsS", &hsz_header::num_gmms_s},
    {"reflectance_scaler", &hsz_header::reflectance_scaler},
    {"samples", &hsz_header::samples},
}};

// Numbers that files may carry: the NURBS curve degree of each part. Written
// only when set (not -1).
const std::array<std::pair<const char*, number_field>, 3> optional_number_keys = {{
    {"degreeNURBSK", &hsz_header::degree_nurbs_k},
    {"degreeNURBSL", &hsz_header::degree_nurbs_l},
    {"degreeNURBSS", &hsz_header::degree_nurbs_s},
}};

// The header's strings (attributes of /HDR), in the order they are written.
const std::array<std::pair<const char*, text_field>, 8> text_keys = {{
    {"interleave", &hsz_header::interleave},
    {"method", &hsz_header::method},
    {"description", &hsz_header::description},
    {"EncodingK", &hsz_header::encoding_k},
    {"EncodingL", &hsz_header::encoding_l},
    {"EncodingS", &hsz_header::encoding_s},
    {"sensor", &hsz_header::sensor},
    {"allothers", &hsz_header::allothers},
}};

// The nine arrays of a part, in the order they are written; each is either an
// index array or a value array.
struct array_key {
  const char* name;
  quantised::index_block hsz_part::*indexes;
  quantised::value_block hsz_part::*values;
};
const std::array<array_key, 9> array_keys = {{
    {"ElementAbundanceIndexes", &hsz_part::element_abundance_indexes, nullptr},
    {"ElementAbundances", nullptr, &hsz_part::element_abundances},
    {"Elements", nullptr, &hsz_part::elements},
    {"ElementKnots", nullptr, &hsz_part::element_knots},
    {"ElementCP", nullptr, &hsz_part::element_cp},
    {"EndmemberAbundanceIndexes", &hsz_part::endmember_abundance_indexes, nullptr},
    {"EndmemberAbundances", nullptr, &hsz_part::endmember_abundances},
    {"Endmembers", nullptr, &hsz_part::endmembers},
    {"Factor", nullptr, &hsz_part::factor},
}};

const char* const label_prefix = "MAT";

template <typename Keys>
const typename Keys::value_type* find_key(const Keys& keys, const std::string& name) {
  for (const auto& key : keys) {
    if (name == key.first) {
      return &key;
    }
  }
  return nullptr;
}

void write_header(hdf5_group& root, const hsz_header& header, int level) {
  hdf5_group group = root.create_group("HDR");
  for (const auto& [name, field] : text_keys) {
    const std::string& value = header.*field;
    const bool optional = field == &hsz_header::sensor || field == &hsz_header::allothers;
    if (!optional || !value.empty()) {
      group.write_string_attribute(name, value);
    }
  }
  for (const auto& [name, field] : number_keys) {
    quantised::write_scalar(group, name, header.*field, level);
  }
  for (const auto& [name, field] : optional_number_keys) {
    if (header.*field != -1) {
      quantised::write_scalar(group, name, header.*field, level);
    }
  }
  quantised::write_vector(group, "wavelength", header.wavelengths, level);
}

void write_endmember_header(hdf5_group& root, const std::string& name,
                            const hsz_endmember_header& header, int level) {
  hdf5_group group = root.create_group(name);
  quantised::write_vector(group, "wavelength", header.wavelengths, level);
  quantised::write_scalar(group, "numEndmembers", header.count, level);
  for (std::size_t i = 0; i < header.labels.size(); ++i) {
    group.write_string_attribute(label_prefix + std::to_string(i), header.labels[i]);
  }
  group.write_string_attribute("wavelength_unit", header.wavelength_unit);
}

void write_part(hdf5_group& root, const std::string& name, const hsz_part& part, int level) {
  hdf5_group group = root.create_group(name);
  for (const array_key& key : array_keys) {
    if (key.indexes != nullptr) {
      quantised::write_indexes(group, key.name, part.*key.indexes, level);
    } else {
      quantised::write_values(group, key.name, part.*key.values, level);
    }
  }
}

void read_header(const hdf5_group& group, hsz_header& header) {
  for (const std::string& name : group.attribute_names()) {
    const auto* key = find_key(text_keys, name);
    if (key == nullptr) {
      throw std::runtime_error("Unknown HDR parameter: " + name);
    }
    header.*(key->second) = group.read_string_attribute(name);
  }
  for (const std::string& name : group.member_names()) {
    if (name == "wavelength") {
      header.wavelengths = quantised::read_vector(group, name);
      continue;
    }
    const auto* key = find_key(number_keys, name);
    if (key == nullptr) {
      key = find_key(optional_number_keys, name);
    }
    if (key == nullptr) {
      throw std::runtime_error("Unknown HDR parameter: " + name);
    }
    header.*(key->second) = static_cast<std::int32_t>(quantised::read_scalar(group, name));
  }
}

void read_endmember_header(const hdf5_group& group, hsz_endmember_header& header) {
  header.wavelengths = quantised::read_vector(group, "wavelength");
  header.count = static_cast<std::int32_t>(quantised::read_scalar(group, "numEndmembers"));
  header.labels.clear();
  for (std::int32_t i = 0; i < header.count; ++i) {
    header.labels.push_back(group.read_string_attribute(label_prefix + std::to_string(i)));
  }
  if (group.has_attribute("wavelength_unit")) {
    header.wavelength_unit = group.read_string_attribute("wavelength_unit");
  }
}

void read_part(const hdf5_group& group, const std::string& part_name, hsz_part& part) {
  for (const std::string& name : group.member_names()) {
    const array_key* found = nullptr;
    for (const array_key& key : array_keys) {
      if (name == key.name) {
        found = &key;
      }
    }
    if (found == nullptr) {
      throw std::runtime_error("HSZ Read: unknown sub group name: " + name +
                               " in root group: " + part_name);
    }
    if (found->indexes != nullptr) {
      part.*(found->indexes) = quantised::read_indexes(group, name);
    } else {
      part.*(found->values) = quantised::read_values(group, name);
    }
  }
}

// A record through the pipe of a child process that read it: the same walk
// writes it (isolated_writer, a const record) and reads it (isolated_reader).
template <typename T>
void transfer_block(isolated_writer& out, const quantised::block<T>& block) {
  out.item(block.shape());
  out.item(block.values());
}

template <typename T>
void transfer_block(isolated_reader& in, quantised::block<T>& block) {
  const auto shape = in.value<quantised::block_shape>();
  std::vector<T> values;
  in.item(values);
  block = quantised::block<T>(shape, std::move(values));
}

template <typename Channel, typename Header>
void transfer_endmember_header(Channel& channel, Header& header) {
  channel.item(header.wavelengths);
  channel.item(header.count);
  channel.item(header.labels);
  channel.item(header.wavelength_unit);
}

template <typename Channel, typename Record>
void transfer(Channel& channel, Record& record) {
  auto& header = record.header;
  for (const auto& key : number_keys) {
    channel.item(header.*(key.second));
  }
  for (const auto& key : optional_number_keys) {
    channel.item(header.*(key.second));
  }
  for (const auto& key : text_keys) {
    channel.item(header.*(key.second));
  }
  channel.item(header.wavelengths);
  transfer_endmember_header(channel, record.endmembers_l);
  transfer_endmember_header(channel, record.endmembers_s);
  for (auto* part : {&record.k, &record.l, &record.s}) {
    for (const array_key& key : array_keys) {
      if (key.indexes != nullptr) {
        transfer_block(channel, (*part).*(key.indexes));
      } else {
        transfer_block(channel, (*part).*(key.values));
      }
    }
  }
}

}  // namespace

bool hsz_record::valid() const {
  const auto labelled = [](const hsz_endmember_header& e) {
    return e.count >= 0 && e.labels.size() == static_cast<std::size_t>(e.count);
  };
  return header.lines > 0 && header.samples > 0 && header.bands > 0 &&
         header.wavelengths.size() == static_cast<std::size_t>(header.bands) &&
         labelled(endmembers_l) && labelled(endmembers_s);
}

bool hsz_record::save(const std::string& file_name, bool overwrite, std::string* failure) const {
  if (!valid()) {
    log_and_throw("HSZ Save: invalid object");
  }
  if (!overwrite && file_exists(file_name)) {
    log_and_throw("HSZ Save: File already exists: " + file_name);
  }
  const std::lock_guard<std::mutex> hdf5_in_use(hdf5_file::activity());
  try {
    hdf5_file file = hdf5_file::create(file_name);
    {
      hdf5_group root = file.root();
      write_header(root, header, deflate_level);
      write_endmember_header(root, "HDREndmembersL", endmembers_l, deflate_level);
      write_endmember_header(root, "HDREndmembersS", endmembers_s, deflate_level);
      write_part(root, "K", k, deflate_level);
      write_part(root, "L", l, deflate_level);
      write_part(root, "S", s, deflate_level);
    }
    file.close();
  } catch (const hdf5_error& error) {
    logger::instance() << "HSZ Save: " << error.text() << " in: " << error.location() << "EOL";
    if (failure != nullptr) {
      *failure = error.text();
    }
    return false;
  }
  return true;
}

bool hsz_record::load(const std::string& file_name) {
  if (file_name.empty() || !file_exists(file_name)) {
    throw std::runtime_error("HSZ Read: Invalid file name: " + file_name);
  }
  hsz_record loaded;
  bool failed = false;
  std::string failure, location;
  const hdf5_file::child_read child = hdf5_file::read_in_child(
      file_name,
      [&file_name](isolated_writer& out) {
        hsz_record found;
        try {
          found.read(file_name);
        } catch (const hdf5_error& error) {
          out.item(false);
          out.item(error.text());
          out.item(error.location());
          return;
        }
        out.item(true);
        transfer(out, std::as_const(found));
      },
      [&](isolated_reader& in) {
        if (in.value<bool>()) {
          transfer(in, loaded);
        } else {
          failed = true;
          in.item(failure);
          in.item(location);
        }
      });
  if (!child.damage.empty()) {
    throw std::runtime_error("HSZ Read: " + file_name + " is damaged: " + child.damage + ".");
  }
  if (!child.done) {
    try {
      loaded.read(file_name);
    } catch (const hdf5_error& error) {
      failed = true;
      failure = error.text();
      location = error.location();
    }
  }
  if (failed) {
    logger::instance() << "HSZ Read: " << failure << "\nLocation: " << location << "EOL";
    return false;
  }
  *this = std::move(loaded);
  return true;
}

void hsz_record::read(const std::string& file_name) {
  const std::lock_guard<std::mutex> hdf5_in_use(hdf5_file::activity());
  if (!hdf5_file::is_hdf5(file_name)) {
    throw std::runtime_error("HSZ Read: Invalid file name: " + file_name);
  }
  const hdf5_file file = hdf5_file::open_read_only(file_name);
  const hdf5_group root = file.root();
  for (const std::string& name : root.member_names()) {
    if (name == "HDR") {
      read_header(root.open_group(name), header);
    } else if (name == "HDREndmembersL") {
      read_endmember_header(root.open_group(name), endmembers_l);
    } else if (name == "HDREndmembersS") {
      read_endmember_header(root.open_group(name), endmembers_s);
    } else if (name == "K") {
      read_part(root.open_group(name), name, k);
    } else if (name == "L") {
      read_part(root.open_group(name), name, l);
    } else if (name == "S") {
      read_part(root.open_group(name), name, s);
    } else {
      throw std::runtime_error("HSZ Read: unknown group under root: " + name);
    }
  }
}

}  // namespace corv
