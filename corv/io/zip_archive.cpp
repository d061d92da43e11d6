#include "corv/io/zip_archive.h"

#include <zip.h>

#include <memory>
#include <stdexcept>

namespace corv {

namespace {

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

archive_ptr open_archive(const std::string& file_name, int flags) {
  int code = 0;
  zip_t* archive = zip_open(file_name.c_str(), flags, &code);
  if (archive == nullptr) {
    fail("Cannot open archive", reason_of_code(code), file_name);
  }
  return archive_ptr(archive);
}

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

}  // namespace

void write_zip(const std::string& file_name, const std::vector<zip_member>& members, int level) {
  for (const zip_member& member : members) {
    if (!safe_member_name(member.name)) {
      fail("Unsafe member name", member.name, file_name);
    }
  }
  archive_ptr archive = open_archive(file_name, ZIP_CREATE | ZIP_TRUNCATE);
  for (const zip_member& member : members) {
    // libzip reads the buffer when the archive is closed; `members` outlives that.
    zip_source_t* source =
        zip_source_buffer(archive.get(), member.data.data(), member.data.size(), 0);
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
  if (zip_close(archive.get()) != 0) {
    fail("Cannot write archive", reason_of(archive.get()), file_name);
  }
  archive.release();  // closed: nothing left to discard
}

std::vector<zip_member> read_zip(const std::string& file_name) {
  archive_ptr archive = open_archive(file_name, ZIP_RDONLY | ZIP_CHECKCONS);
  const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
  std::vector<zip_member> members;
  for (zip_int64_t i = 0; i < count; ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_stat_t stat;
    zip_stat_init(&stat);
    if (zip_stat_index(archive.get(), index, 0, &stat) != 0) {
      fail("Cannot read member", reason_of(archive.get()), file_name);
    }
    zip_member member;
    member.name = stat.name;
    if (!safe_member_name(member.name)) {
      fail("Unsafe member name", member.name, file_name);
    }
    zip_uint32_t length = 0;
    const char* comment = zip_file_get_comment(archive.get(), index, &length, 0);
    if (comment != nullptr) {
      member.comment.assign(comment, length);
    }
    file_ptr file(zip_fopen_index(archive.get(), index, 0));
    if (file == nullptr) {
      fail("Cannot read " + member.name, reason_of(archive.get()), file_name);
    }
    member.data.resize(stat.size);
    zip_uint64_t done = 0;
    while (done < stat.size) {
      const zip_int64_t read = zip_fread(file.get(), &member.data[done], stat.size - done);
      if (read <= 0) {
        fail("Cannot read " + member.name, zip_file_strerror(file.get()), file_name);
      }
      done += static_cast<zip_uint64_t>(read);
    }
    members.push_back(std::move(member));
  }
  return members;
}

}  // namespace corv
