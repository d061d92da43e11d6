#include "corv/io/zip_archive.h"

#include <zip.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "corv/io/safe_file.h"

namespace corv {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what, const std::string& reason,
                       const std::string& file_name) {
  throw std::runtime_error("zip_archive: " + what + ": " + reason + " (" + file_name + ")");
}

std::string reason_of(zip_t* archive) {
  return zip_strerror(archive);
}

std::string reason_of_code(int code) {
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  std::string text = zip_error_strerror(&error);
  zip_error_fini(&error);
  return text;
}

// An open archive, discarded unless it was closed.
struct archive_deleter {
  void operator()(zip_t* archive) const { zip_discard(archive); }
};
using archive_ptr = std::unique_ptr<zip_t, archive_deleter>;

struct file_deleter {
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};
using file_ptr = std::unique_ptr<zip_file_t, file_deleter>;

bool safe_member_name(const std::string& name) {
  if (name.empty() || name.front() == '/' || name.find('\\') != std::string::npos) {
    return false;
  }
  std::string::size_type start = 0;
  while (start <= name.size()) {
    const std::string::size_type end = std::min(name.find('/', start), name.size());
    if (name.compare(start, end - start, "..") == 0) {
      return false;
    }
    start = end + 1;
  }
  return true;
}

constexpr std::uint64_t mib = std::uint64_t{1} << 20;
constexpr std::uint64_t largest_expansion = 100;
constexpr std::uint64_t expansion_allowance = 16 * mib;

struct member_stat {
  zip_entry entry;
  bool folder = false;
};

// Every member's name and size, checked before anything is extracted.
std::vector<member_stat> member_stats(zip_t* archive, const std::string& file_name,
                                      const std::string& folder) {
  const zip_int64_t count = zip_get_num_entries(archive, 0);
  std::vector<member_stat> stats;
  std::uint64_t total = 0;
  for (zip_int64_t i = 0; i < count; ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_stat_t stat;
    zip_stat_init(&stat);
    if (zip_stat_index(archive, index, 0, &stat) != 0 || (stat.valid & ZIP_STAT_NAME) == 0 ||
        (stat.valid & ZIP_STAT_SIZE) == 0) {
      fail("Cannot read member " + std::to_string(i + 1), reason_of(archive), file_name);
    }
    member_stat member;
    member.entry.name = stat.name;
    member.entry.size = stat.size;
    if (!safe_member_name(member.entry.name)) {
      fail("Unsafe member name", member.entry.name, file_name);
    }
    member.folder = member.entry.name.back() == '/';
    zip_uint32_t length = 0;
    const char* comment = zip_file_get_comment(archive, index, &length, 0);
    if (comment != nullptr) {
      member.entry.comment.assign(comment, length);
    }
    total = stat.size > UINT64_MAX - total ? UINT64_MAX : total + stat.size;
    stats.push_back(std::move(member));
  }
  std::error_code error;
  const std::uint64_t archive_size = fs::file_size(file_name, error);
  if (!error && archive_size <= (UINT64_MAX - expansion_allowance) / largest_expansion &&
      total > archive_size * largest_expansion + expansion_allowance) {
    fail("Cannot extract",
         "its members would expand to " + std::to_string(total / mib) +
             " MiB, more than 100 times its size",
         file_name);
  }
  const fs::space_info space = fs::space(folder, error);
  if (!error && total > space.available) {
    fail("Cannot extract",
         "its members need " + std::to_string(total / mib) + " MiB, " + folder + " has " +
             std::to_string(space.available / mib) + " MiB free",
         file_name);
  }
  return stats;
}

// Copies one member into its file a piece at a time.
void extract_member(zip_t* archive, zip_uint64_t index, const zip_entry& entry,
                    const fs::path& target, const std::string& file_name) {
  file_ptr member(zip_fopen_index(archive, index, 0));
  if (member == nullptr) {
    fail("Cannot read " + entry.name, reason_of(archive), file_name);
  }
  errno = 0;
  std::ofstream out(target, std::ios::binary | std::ios::trunc);
  std::vector<char> piece(1 << 16);
  std::uint64_t done = 0;
  for (;;) {
    const zip_int64_t read = zip_fread(member.get(), piece.data(), piece.size());
    if (read < 0) {
      fail("Cannot read " + entry.name, zip_file_strerror(member.get()), file_name);
    }
    if (read == 0) {
      break;
    }
    done += static_cast<std::uint64_t>(read);
    if (done > entry.size) {
      fail("Cannot read " + entry.name,
           "it holds more than the " + std::to_string(entry.size) + " bytes it declares",
           file_name);
    }
    out.write(piece.data(), static_cast<std::streamsize>(read));
    if (!out) {
      break;
    }
  }
  out.close();
  if (!out) {
    fail("Cannot extract " + entry.name, errno != 0 ? std::strerror(errno) : "write failed",
         file_name);
  }
  if (done != entry.size) {
    fail("Cannot read " + entry.name,
         "it holds " + std::to_string(done) + " of the " + std::to_string(entry.size) +
             " bytes it declares",
         file_name);
  }
}

}  // namespace

void write_zip(const std::string& file_name, const std::vector<zip_member>& members, int level) {
  for (const zip_member& member : members) {
    if (!safe_member_name(member.name)) {
      fail("Unsafe member name", member.name, file_name);
    }
  }
  temporary_file part(file_name);
  int code = 0;
  archive_ptr archive(zip_open(part.name().c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code));
  if (archive == nullptr) {
    fail("Cannot write archive", reason_of_code(code), file_name);
  }
  for (const zip_member& member : members) {
    // libzip reads the member when the archive is closed; `members` outlives that.
    zip_source_t* source =
        member.file.empty()
            ? zip_source_buffer(archive.get(), member.data.data(), member.data.size(), 0)
            : zip_source_file(archive.get(), member.file.c_str(), 0, -1);
    if (source == nullptr) {
      fail("Cannot add " + member.name, reason_of(archive.get()), file_name);
    }
    const zip_int64_t index = zip_file_add(archive.get(), member.name.c_str(), source,
                                           ZIP_FL_OVERWRITE | ZIP_FL_ENC_UTF_8);
    if (index < 0) {
      zip_source_free(source);
      fail("Cannot add " + member.name, reason_of(archive.get()), file_name);
    }
    const auto entry = static_cast<zip_uint64_t>(index);
    if (zip_set_file_compression(archive.get(), entry, ZIP_CM_DEFLATE,
                                 static_cast<zip_uint32_t>(level)) != 0 ||
        zip_file_set_comment(archive.get(), entry, member.comment.c_str(),
                             static_cast<zip_uint16_t>(member.comment.size()),
                             ZIP_FL_ENC_UTF_8) != 0) {
      fail("Cannot add " + member.name, reason_of(archive.get()), file_name);
    }
  }
  // libzip writes the archive beside the temporary name and renames it there
  // when complete, removing what it wrote when it fails.
  if (zip_close(archive.get()) != 0) {
    fail("Cannot write archive", reason_of(archive.get()), file_name);
  }
  archive.release();  // closed: nothing left to discard
  const std::string failure = part.commit();
  if (!failure.empty()) {
    fail("Cannot write archive", failure, file_name);
  }
}

std::vector<zip_entry> extract_zip(const std::string& file_name, const std::string& folder) {
  int code = 0;
  archive_ptr archive(zip_open(file_name.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &code));
  if (archive == nullptr) {
    fail("Cannot open archive", reason_of_code(code), file_name);
  }
  const std::vector<member_stat> stats = member_stats(archive.get(), file_name, folder);
  std::vector<zip_entry> entries;
  for (std::size_t i = 0; i < stats.size(); ++i) {
    const zip_entry& entry = stats[i].entry;
    const fs::path target = fs::path(folder) / entry.name;
    std::error_code error;
    fs::create_directories(stats[i].folder ? target : target.parent_path(), error);
    if (error) {
      fail("Cannot extract " + entry.name, error.message(), file_name);
    }
    if (!stats[i].folder) {
      extract_member(archive.get(), i, entry, target, file_name);
    }
    entries.push_back(entry);
  }
  return entries;
}

}  // namespace corv
