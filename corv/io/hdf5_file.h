#ifndef CORV_IO_HDF5_FILE_H
#define CORV_IO_HDF5_FILE_H

#include <memory>
#include <string>

#include "corv/io/hdf5_group.h"

namespace H5 {
class H5File;
}

namespace corv {

// An open HDF5 file. Failures throw hdf5_error. The file is closed when the last
// of this object and the groups taken from it is gone, or by close().
class hdf5_file {
 public:
  // Creates the file with the library's default property lists, replacing any
  // file of that name.
  static hdf5_file create(const std::string& name);
  static hdf5_file open_read_only(const std::string& name);
  // False for a missing file and for one that is not HDF5.
  static bool is_hdf5(const std::string& name);

  hdf5_file(hdf5_file&&) noexcept;
  hdf5_file& operator=(hdf5_file&&) noexcept;
  ~hdf5_file();

  hdf5_group root() const;
  // Writes everything out and closes the file; groups still held keep it open.
  void close();
  const std::string& name() const { return name_; }

 private:
  hdf5_file(std::unique_ptr<H5::H5File> file, std::string name);

  std::unique_ptr<H5::H5File> file_;
  std::string name_;
};

}  // namespace corv

#endif
