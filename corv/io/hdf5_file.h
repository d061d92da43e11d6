#ifndef CORV_IO_HDF5_FILE_H
#define CORV_IO_HDF5_FILE_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "corv/io/hdf5_group.h"
#include "corv/io/isolated_call.h"

namespace H5 {
class H5File;
}

namespace corv {

// An open HDF5 file. Failures throw hdf5_error. The file is closed when the last
// of this object and the groups taken from it is gone, or by close().
class hdf5_file {
 public:
  // Creates a file that is built in memory and reaches the disk only when it is
  // closed: then it is written under a temporary name beside `name` and renamed
  // over any file of that name. A failure on the way (a full disk, a file size
  // limit) leaves no file behind, and HDF5 never meets a failing disk. The
  // file has the HDF5 1.8 format with checksummed metadata, so that damage is
  // detected when it is read.
  static hdf5_file create(const std::string& name);
  static hdf5_file open_read_only(const std::string& name);
  // False for a missing file and for one that is not HDF5.
  static bool is_hdf5(const std::string& name);
  // HDF5 1.10 crashes or loops on some damaged metadata, which no check can
  // rule out beforehand. So files are read in a child process (run_isolated):
  // `read` reads the file there and writes what it found, which `receive`
  // takes here. What `read` throws is thrown here as std::runtime_error with
  // the same text. `damage` is why the file is refused: "the HDF5 library
  // crashes on it (<signal>)", "the HDF5 library does not finish reading it in
  // <n> s" or "its reading ended with <exit status>". When no child can be
  // started, neither `done` nor `damage` is set: the caller reads the file itself.
  struct child_read {
    bool done = false;
    std::string damage;
  };
  static child_read read_in_child(const std::string& name,
                                  const std::function<void(isolated_writer&)>& read,
                                  const std::function<void(isolated_reader&)>& receive);
  // Held by every reader and writer of HDF5 files for the whole of its work,
  // so that a trial read never starts while another thread is inside HDF5 (its
  // child would find HDF5's own lock taken for good).
  static std::mutex& activity();

  hdf5_file(hdf5_file&&) noexcept;
  hdf5_file& operator=(hdf5_file&&) noexcept;
  ~hdf5_file();

  hdf5_group root() const;
  // Closes the file; a created one is written out first, with what its groups
  // hold so far (hdf5_error "<system reason> in: <name>" on failure). A created
  // file destroyed without close() never reaches the disk.
  void close();
  const std::string& name() const { return name_; }

 private:
  hdf5_file(std::unique_ptr<H5::H5File> file, std::string name, bool in_memory);

  std::unique_ptr<H5::H5File> file_;
  std::string name_;
  bool in_memory_ = false;
};

}  // namespace corv

#endif
