#include "tavr/workspace/workspace_file.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <exception>
#include <fstream>
#include <vector>

#include "corv/io/component_selection.h"
#include "corv/io/data_input.h"
#include "corv/io/hdr_input.h"
#include "corv/io/hdr_output.h"
#include "corv/io/hsz_input.h"
#include "corv/io/hsz_output.h"
#include "corv/io/safe_file.h"
#include "corv/io/zip_archive.h"
#include "tavr/image/image_exporter.h"
#include "tavr/image/open_image_controller.h"
#include "tavr/workspace/image_state.h"
#include "tavr/workspace/workspace_record.h"

namespace tavr {

const QString left_out_notice = QStringLiteral(
    "One or more of your images are not on disc and you're saving the workspace as "
    "non-portable.                                                      Those images have not "
    "been included in the saved workspace.");

namespace {

const QString record_member = QStringLiteral("tavrel.dat");
const QString library_member = QStringLiteral("library.slz");
const char* const member_comment = "no comment";
constexpr int compression_level = 1;

QString text_of(const std::exception& error) {
  return QString::fromStdString(error.what());
}

QString open_failure(const QString& file_name, const QString& reason) {
  return "Could not open workspace " + file_name + ".<br/><br/>Reason: " + reason;
}

// Member names of one archive, kept unique (case-insensitively) by numbering stems.
class member_names {
 public:
  member_names() { taken_ << record_member << library_member; }

  // A free stem for the name: "scene", else "scene_2", "scene_3", ...
  QString stem_for(const QString& file_name, const QStringList& suffixes) {
    const QString stem = QFileInfo(file_name).completeBaseName().isEmpty()
                             ? QStringLiteral("image")
                             : QFileInfo(file_name).completeBaseName();
    for (int n = 1;; ++n) {
      const QString candidate = n == 1 ? stem : stem + "_" + QString::number(n);
      bool free = true;
      for (const QString& suffix : suffixes) {
        free = free && !taken_.contains((candidate + suffix).toLower());
      }
      if (free) {
        for (const QString& suffix : suffixes) {
          taken_.insert((candidate + suffix).toLower());
        }
        return candidate;
      }
    }
  }

 private:
  QSet<QString> taken_;
};

// Whether a name from the record names a member of the archive: relative and
// never leading out of the folder the archive was extracted into.
bool member_name(const QString& name) {
  return !name.isEmpty() && QFileInfo(name).isRelative() && !name.contains('\\') &&
         !name.split('/').contains(QStringLiteral(".."));
}

QString dotted_suffix(const QString& path) {
  const QString suffix = QFileInfo(path).suffix();
  return suffix.isEmpty() ? QString() : "." + suffix;
}

void copy_into(const QString& source, const QString& target) {
  std::ifstream in(source.toStdString(), std::ios::binary);
  corv::safe_file out(target.toStdString());
  std::vector<char> piece(1 << 20);
  while (in && out.is_open() && out.stream()) {
    in.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    out.stream().write(piece.data(), in.gcount());
  }
  const bool read = in.eof();
  if (!out.close() || !read || !out.commit()) {
    throw std::runtime_error("workspace: Cannot copy " + source.toStdString() + ": " +
                             (out.reason().empty() ? "cannot read it" : out.reason()));
  }
}

// Puts the image as it was opened into the folder; the member name of the image.
QString write_image_member(hs_image& image, const QDir& folder, member_names& names) {
  const QString path = image.file_name();
  const QString suffix = QFileInfo(path).suffix().toLower();
  const auto* envi = dynamic_cast<const corv::hdr_input*>(image.original().get());
  if (QFileInfo(path).isFile() && (suffix == "hsz" || suffix == "tif" || suffix == "tiff")) {
    const QString member = names.stem_for(path, {dotted_suffix(path)}) + dotted_suffix(path);
    copy_into(path, folder.filePath(member));
    return member;
  }
  if (envi != nullptr) {
    const QString header = QString::fromStdString(envi->header_file());
    const QString data = QString::fromStdString(envi->data_file());
    const QString stem = names.stem_for(path, {".hdr", dotted_suffix(data)});
    copy_into(header, folder.filePath(stem + ".hdr"));
    copy_into(data, folder.filePath(stem + dotted_suffix(data)));
    return stem + ".hdr";
  }
  // An image that exists only in memory: its original cube as 32-bit float ENVI.
  const QString stem = names.stem_for(path, {".hdr", ".fla"});
  corv::pipeline original(image.original());
  corv::write_envi(original.I(), original.wavelengths(),
                   folder.filePath(stem + ".hdr").toStdString(), 4, false);
  return stem + ".hdr";
}

bool in_folders(const QString& path, const QStringList& folders) {
  const QString absolute = QFileInfo(path).absoluteFilePath();
  for (const QString& folder : folders) {
    if (absolute.startsWith(QDir(folder).absolutePath() + "/")) {
      return true;
    }
  }
  return false;
}

void restore_components(hs_image& image, const QString& file_name) {
  corv::hsz_input stored(file_name.toStdString());
  corv::pipeline& p = image.pipeline();
  p.set_illuminant(stored.illuminant());
  p.set_k(stored.k());
  p.set_g(stored.g());
  p.set_materials(stored.elements(), stored.element_abundances(),
                  stored.element_abundance_indexes());
  if (image.mode() != hs_image::open_mode::reflectance) {
    p.set_s(stored.s());
  }
}

void replay_history(hs_image& image, const QList<operation_record>& history) {
  for (const operation_record& step : history) {
    if (step.name == "crop") {
      image.crop(step.rectangle);
    } else if (step.name == "resize") {
      image.resize(step.width_percent, step.height_percent);
    } else if (step.name == "remove_band") {
      image.remove_bands(step.bands);
    }
  }
}

}  // namespace

bool save_workspace(const QString& file_name, const workspace_contents& contents, bool portable,
                    const QStringList& temporary) {
  QTemporaryDir temp;
  if (!temp.isValid()) {
    throw workspace_error(
        "Save Workspace",
        "Could not save workspace. Could not create temp directory to save image components.");
  }
  const QDir folder(temp.path());
  const QString busy = "Could not save workspace. Is file " + file_name + " already open?";
  workspace_record record;
  member_names names;
  QStringList image_members;
  bool left_out = false;
  int current = -1;
  try {
    for (int i = 0; i < contents.images.size(); ++i) {
      hs_image& image = *contents.images[i];
      const bool in_memory =
          dynamic_cast<const corv::data_input*>(image.original().get()) != nullptr;
      const bool on_disc = !in_memory && QFileInfo(image.file_name()).isFile() &&
                           !in_folders(image.file_name(), temporary);
      if (!portable && !on_disc) {
        left_out = true;
        continue;
      }
      if (i == contents.current) {
        current = record.images.size();
      }
      QStringList extra;
      if (portable) {
        const QString member = write_image_member(image, folder, names);
        record.images.append(member);
      } else {
        record.images.append(QFileInfo(image.file_name()).absoluteFilePath());
      }
      const QString suffix = QFileInfo(image.file_name()).suffix().toLower();
      if (suffix != "hsz" && has_material_components(image.pipeline())) {
        const QString member = names.stem_for(image.file_name(), {".hsz"}) + ".hsz";
        image.pipeline().save(std::make_shared<corv::hsz_output>(),
                              folder.filePath(member).toStdString());
        extra.append("components=" + member);
        extra.append(
            "component_selection=" +
            QString::number(portable ? corv::hsz_all_components : corv::hsz_recovered_components));
      }
      QList<QPair<QVariant, QString>> labels;
      for (const polygon_label& label : image.labels().labels()) {
        labels.append({label_entry(label), label.label});
      }
      record.labels.append(labels);
      record.settings.append(image.settings_summary());
      record.histories.append(image.history());
      record.states.append(image_state_strings(image, extra));
    }
    QFile library(folder.filePath(library_member));
    if (contents.library.isEmpty()) {
      // An empty library is an empty member: the library file needs spectra.
      if (!library.open(QIODevice::WriteOnly)) {
        throw std::runtime_error("workspace: Cannot write the library.");
      }
      library.close();
    } else {
      library_model model;
      model.reset(contents.library);
      model.to_library().save(folder.filePath(library_member).toStdString());
    }
  } catch (const std::exception& error) {
    throw workspace_error("Save Workspace",
                          "Could not save workspace.<br/><br/>Reason: " + text_of(error));
  }
  record.label_list = contents.label_list;
  record.libraries = QStringList{library_member};
  record.workspace = QVariantMap{{"current", current}, {"portable", portable}};
  QBuffer buffer;
  buffer.open(QIODevice::WriteOnly);
  write_record(buffer, record);

  const QFileInfo target(file_name);
  if (target.exists() && (!target.isWritable() || !QFileInfo(target.absolutePath()).isWritable())) {
    throw workspace_error("Save Workspace", busy);
  }
  std::vector<corv::zip_member> members;
  members.push_back({record_member.toStdString(), buffer.data().toStdString(), member_comment});
  QStringList files = folder.entryList(QDir::Files, QDir::Name);
  files.removeAll(record_member);
  files.removeAll(library_member);
  files.prepend(library_member);
  for (const QString& name : files) {
    // Read from its file while the archive is written, never held whole here.
    members.push_back(
        {name.toStdString(), {}, member_comment, folder.filePath(name).toStdString()});
  }
  try {
    corv::write_zip(file_name.toStdString(), members, compression_level);
  } catch (const std::exception& error) {
    throw workspace_error("Save Workspace", busy + "<br/><br/>Reason: " + text_of(error));
  }
  return left_out;
}

opened_workspace open_workspace_file(const QString& file_name) {
  if (!QFileInfo::exists(file_name)) {
    throw workspace_error("Open File",
                          "Could not open workspace " + file_name + ".<br/>File does not exist");
  }
  opened_workspace opened;
  opened.folder = std::make_shared<QTemporaryDir>();
  const QDir folder(opened.folder->path());
  workspace_record record;
  try {
    if (!opened.folder->isValid()) {
      throw std::runtime_error("workspace: Cannot create a folder to extract the workspace into.");
    }
    corv::extract_zip(file_name.toStdString(), folder.path().toStdString());
    QFile dat(folder.filePath(record_member));
    if (!QFileInfo(dat).isFile() || !dat.open(QIODevice::ReadOnly)) {
      throw std::runtime_error("workspace: The workspace has no record (tavrel.dat).");
    }
    record = read_record(dat);
    for (const QString& entry : record.images) {
      if (!QFileInfo(entry).isAbsolute() && !member_name(entry)) {
        throw std::runtime_error(damaged_record);
      }
    }
  } catch (const std::exception& error) {
    if (QString(error.what()).startsWith("Mismatch magic numbers")) {
      throw workspace_error("Cannot open workspace", text_of(error));
    }
    throw workspace_error("Open Workspace", open_failure(file_name, text_of(error)));
  }

  const int wanted = record.workspace.toMap().value("current", -1).toInt();
  for (int i = 0; i < record.images.size(); ++i) {
    const QString entry = record.images[i];
    const QString path = QFileInfo(entry).isAbsolute() ? entry : folder.filePath(entry);
    const QStringList& state = record.states[i];
    const auto mode = state_value(state, "mode") == "reflectance" ? hs_image::open_mode::reflectance
                                                                  : hs_image::open_mode::irradiance;
    if (!QFileInfo::exists(path)) {
      opened.errors.append(open_image_controller::missing_file_message(entry));
      continue;
    }
    std::shared_ptr<hs_image> image;
    try {
      image = std::make_shared<hs_image>(path, mode);
      replay_history(*image, record.histories[i]);
      const QString components = state_value(state, "components");
      if (!components.isEmpty() && !member_name(components)) {
        throw std::runtime_error(damaged_record);
      }
      if (!components.isEmpty()) {
        restore_components(*image, folder.filePath(components));
      }
    } catch (const std::exception& error) {
      opened.errors.append(open_image_controller::failure_message(entry, text_of(error)));
      continue;
    }
    if (!QFileInfo(entry).isAbsolute()) {
      image->set_workspace_name(entry);
    }
    QList<polygon_label> labels;
    for (const auto& [value, text] : record.labels[i]) {
      polygon_label label;
      if (label_from_entry(value, text, label)) {
        labels.append(label);
      }
    }
    image->labels().reset(labels);
    restore_image_state(*image, state);
    if (i == wanted) {
      opened.contents.current = opened.contents.images.size();
    }
    opened.contents.images.append(image);
  }
  opened.contents.label_list = record.label_list;
  const QFileInfo library(folder.filePath(library_member));
  if (library.exists() && library.size() > 0) {
    try {
      corv::spectral_library loaded;
      loaded.load(library.filePath().toStdString());
      opened.contents.library = entries_of(loaded);
    } catch (const std::exception& error) {
      opened.errors.append(open_failure(file_name, text_of(error)));
    }
  }
  return opened;
}

}  // namespace tavr
