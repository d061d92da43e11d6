// Times one ENVI read or write path per run, for compare_peers.py. Each command
// prints one line per repeat (seconds, or kibibytes for "peak"), nothing else, so
// the script can put the library's figures beside those of its peers.
//
// Every timed command first runs once untimed. Memory the kernel has just handed
// out and taken back is quick to hand out again, whereas memory left free for a
// while may have been given back to a virtual machine's host, and its first touch
// then costs more than the work being timed. The untimed run makes every path meet
// memory in the same, warm state.
//
//   corv_envi_probe read <header> <repeats>        hdr_input(name, true) then I_ptr()
//   corv_envi_probe raw-read <data> <repeats>      read() of the bytes into a new buffer
//   corv_envi_probe raw-reread <data> <repeats>    the same into one buffer, touched before
//   corv_envi_probe write <header> <out.fla> <repeats>
//                                                  hdr_output(false, 4) of the cube read once
//   corv_envi_probe raw-write <data> <out> <repeats>
//                                                  write() of the same bytes to a new file
//   corv_envi_probe peak <header>                  resident size before a held read and
//                                                  its peak during it, in KiB: "<before> <peak>"
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "corv/io/file_path.h"
#include "corv/io/hdr_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/logger.h"
#include "corv/pipeline/pipeline.h"

namespace {

using seconds = std::chrono::duration<double>;
using clock_type = std::chrono::steady_clock;

// A line "<key>: <n> kB" of /proc/self/status.
long status_kib(const std::string& key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(key + ":", 0) == 0) {
      return std::stol(line.substr(key.size() + 1));
    }
  }
  throw std::runtime_error("envi_probe: no " + key + " in /proc/self/status");
}

// Sets the peak resident size back to the current one, so that the next peak is
// the call's own and not that of what ran before it (GDAL's start-up).
void reset_peak() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

std::size_t file_size(const std::string& name) {
  struct stat info {};
  if (::stat(name.c_str(), &info) != 0) {
    throw std::runtime_error("envi_probe: cannot stat " + name);
  }
  return static_cast<std::size_t>(info.st_size);
}

// The whole file into the buffer with plain read() calls.
void read_all(const std::string& name, char* buffer, std::size_t size) {
  const int fd = ::open(name.c_str(), O_RDONLY);
  if (fd < 0) {
    throw std::runtime_error("envi_probe: cannot open " + name);
  }
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = ::read(fd, buffer + done, size - done);
    if (got <= 0) {
      ::close(fd);
      throw std::runtime_error("envi_probe: short read of " + name);
    }
    done += static_cast<std::size_t>(got);
  }
  ::close(fd);
}

void write_all(const std::string& name, const char* buffer, std::size_t size) {
  const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) {
    throw std::runtime_error("envi_probe: cannot create " + name);
  }
  std::size_t done = 0;
  while (done < size) {
    const ssize_t put = ::write(fd, buffer + done, size - done);
    if (put <= 0) {
      ::close(fd);
      throw std::runtime_error("envi_probe: short write of " + name);
    }
    done += static_cast<std::size_t>(put);
  }
  if (::close(fd) != 0) {
    throw std::runtime_error("envi_probe: cannot close " + name);
  }
}

void remove_quietly(const std::string& name) {
  std::error_code ignored;
  std::filesystem::remove(name, ignored);
}

template <typename F>
void time_repeats(int repeats, F&& run) {
  run();
  for (int i = 0; i < repeats; ++i) {
    const auto start = clock_type::now();
    run();
    std::cout << seconds(clock_type::now() - start).count() << std::endl;
  }
}

int run(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  if (command == "read" && argc == 4) {
    time_repeats(std::stoi(argv[3]), [&] {
      corv::hdr_input in(argv[2], true);
      if (in.I_ptr()->n_elem == 0) {
        throw std::runtime_error("envi_probe: empty cube");
      }
    });
  } else if (command == "raw-read" && argc == 4) {
    const std::size_t size = file_size(argv[2]);
    time_repeats(std::stoi(argv[3]), [&] {
      const std::unique_ptr<char[]> buffer(new char[size]);
      read_all(argv[2], buffer.get(), size);
    });
  } else if (command == "raw-reread" && argc == 4) {
    const std::size_t size = file_size(argv[2]);
    const std::unique_ptr<char[]> buffer(new char[size]);
    std::fill(buffer.get(), buffer.get() + size, 0);
    time_repeats(std::stoi(argv[3]), [&] { read_all(argv[2], buffer.get(), size); });
  } else if (command == "write" && argc == 5) {
    corv::hdr_input in(argv[2]);
    corv::pipeline source;
    source.set_I(in.I(), in.wavelengths());
    const std::string out = argv[3];
    const std::string out_header = corv::file_path::split(out).with_extension(".hdr");
    time_repeats(std::stoi(argv[4]), [&] {
      corv::hdr_output(false, 4).write(source, out);
      remove_quietly(out);
      remove_quietly(out_header);
    });
  } else if (command == "raw-write" && argc == 5) {
    const std::size_t size = file_size(argv[2]);
    const std::unique_ptr<char[]> buffer(new char[size]);
    read_all(argv[2], buffer.get(), size);
    time_repeats(std::stoi(argv[4]), [&] {
      write_all(argv[3], buffer.get(), size);
      remove_quietly(argv[3]);
    });
  } else if (command == "peak" && argc == 3) {
    // Opening first loads GDAL's drivers, so "before" holds everything but the cube.
    corv::hdr_input in(argv[2], true);
    const long before = status_kib("VmRSS");
    reset_peak();
    const corv::cube_ptr cube = in.I_ptr();
    std::cout << before << " " << status_kib("VmHWM") << std::endl;
  } else {
    std::cerr << "usage: corv_envi_probe read|raw-read|raw-reread|write|raw-write|peak ...\n";
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  corv::logger::instance().set_echo(false);
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
