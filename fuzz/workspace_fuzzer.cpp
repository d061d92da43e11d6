// Workspace files: the input as an archive, extracted into a folder of its own
// (whose record, when it has one, is read), and as a workspace record itself.
// An archive's member must never appear outside the folder.
#include <QBuffer>
#include <QByteArray>
#include <QFile>
#include <cstdint>
#include <cstdlib>
#include <filesystem>

#include "corv/io/zip_archive.h"
#include "fuzz/fuzz_support.h"
#include "tavr/workspace/workspace_record.h"

namespace {

void read_record(QIODevice& device) {
  try {
    const tavr::workspace_record record = tavr::read_record(device);
    for (const auto& labels : record.labels) {
      for (const auto& [value, text] : labels) {
        tavr::polygon_label label;
        tavr::label_from_entry(value, text, label);
      }
    }
  } catch (const std::exception&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace fs = std::filesystem;
  using namespace corv;
  QByteArray bytes =
      QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<int>(size));
  QBuffer record(&bytes);
  record.open(QIODevice::ReadOnly);
  read_record(record);

  const std::string file = fuzz::write_file("workspace.tvw", data, size);
  const fs::path folder = fuzz::scratch("extracted/inside");
  fs::remove_all(folder.parent_path());
  fs::create_directories(folder);
  try {
    extract_zip(file, folder.string());
    QFile extracted(QString::fromStdString((folder / "tavrel.dat").string()));
    if (extracted.open(QIODevice::ReadOnly)) {
      read_record(extracted);
    }
  } catch (const std::exception&) {
  }
  for (const auto& entry : fs::directory_iterator(folder.parent_path())) {
    if (entry.path() != folder) {
      std::abort();  // a member escaped the folder it was extracted into
    }
  }
  return 0;
}
