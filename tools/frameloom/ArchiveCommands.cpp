#include "ArchiveCommands.h"

#include "Interruption.h"
#include "OutputFile.h"
#include "ProgressBar.h"
#include "StandardInput.h"
#include "Usage.h"

#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace frameloom::tool {

namespace {

namespace fs = std::filesystem;
using ziploom::Archive;
using ziploom::Entry;

// What to do with an item that is already where unzipping would put one.
enum class ExistingItems { refuse, overwrite, skip };

// Ziploom's own errors say what went wrong but not where; name the archive in front. A FileError
// names its own path already.
template <typename Action>
auto naming(const std::string& archivePath, Action action) {
  try {
    return action();
  } catch (const ziploom::FileError&) {
    throw;
  } catch (const ziploom::ZiploomError& error) {
    throw std::runtime_error(archivePath + ": " + error.what());
  }
}

const char* typeName(Entry::EntryType type) {
  switch (type) {
  case Entry::EntryType::file:
    return "file";
  case Entry::EntryType::directory:
    return "dir";
  case Entry::EntryType::symlink:
    return "link";
  }
  return "file";
}

std::string methodName(std::uint16_t method) {
  switch (method) {
  case 0:
    return "stored";
  case 8:
    return "deflate";
  default:
    return "method-" + std::to_string(method);
  }
}

// The library's enumeration ends quietly at a damaged record; here that is an error.
void refuseIfDamaged(const std::string& archivePath, const Archive& archive) {
  if (archive.endsEarly()) {
    throw std::runtime_error(archivePath + ": the central directory is damaged: fewer entries" +
                             " can be read than the " +
                             std::to_string(archive.resolvedEntryCount()) +
                             " its end record declares");
  }
}

void list(const std::string& archiveName) {
  const std::string archivePath = isStandardStream(archiveName) ? "standard input" : archiveName;
  naming(archivePath, [&] {
    withInputFile(archiveName, [&](const fs::path& file) {
      const Archive archive(file, Archive::AccessMode::read);
      for (const auto& entry : archive) {
        std::printf("%s %s %llu %llu %08x %s\n", typeName(entry.type()),
                    methodName(entry.localFileHeader.compressionMethod).c_str(),
                    static_cast<unsigned long long>(entry.uncompressedSize()),
                    static_cast<unsigned long long>(entry.compressedSize()), entry.checksum(),
                    entry.path().c_str());
      }
      if (std::fflush(stdout) != 0) {
        throw std::runtime_error("cannot write to standard output");
      }
      refuseIfDamaged(archivePath, archive);
    });
  });
}

Entry entryNamed(const Archive& archive, const std::string& archivePath,
                 const std::string& entryPath) {
  const auto entry = archive[entryPath];
  if (!entry) {
    throw std::runtime_error(archivePath + ": no entry " + entryPath);
  }
  return *entry;
}

void cat(const std::string& archivePath, const std::string& entryPath) {
  naming(archivePath, [&] {
    Archive archive(archivePath, Archive::AccessMode::read);
    const Entry entry = entryNamed(archive, archivePath, entryPath);
    const auto checksum = archive.extract(entry, [](platform::ByteView chunk) {
      if (!chunk.empty() && std::fwrite(chunk.data(), 1, chunk.size(), stdout) != chunk.size()) {
        throw std::runtime_error("cannot write to standard output");
      }
    });
    std::fflush(stdout);
    if (checksum != entry.checksum()) {
      throw ziploom::ArchiveError(ziploom::ArchiveError::Code::invalidCRC32);
    }
  });
}

// Level 0 stores; 1 to 9 deflate at that level.
ziploom::CompressionMethod method(int level) {
  return level > 0 ? ziploom::CompressionMethod::deflate : ziploom::CompressionMethod::none;
}

bool isPresent(const fs::path& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(path, error));
}

// Runs `action`, which makes `archivePath` when it is missing; a failure then takes away the
// partial archive, so that nothing is left under the name the user asked for.
template <typename Action>
void makingArchive(const std::string& archivePath, Action action) {
  const bool existed = isPresent(archivePath);
  try {
    naming(archivePath, action);
  } catch (...) {
    if (!existed) {
      std::error_code ignored;
      fs::remove(archivePath, ignored);
    }
    throw;
  }
}

// Moves `from` onto `to`: a rename, or across file systems a copy that is then removed.
void moveOnto(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::rename(from, to, error);
  if (error == std::errc::cross_device_link) {
    fs::copy_file(from, to);
    fs::remove(from);
  } else if (error) {
    throw fs::filesystem_error("cannot move the archive into place", from, to, error);
  }
}

// A temporary file name outside any folder being zipped, removed when it goes.
struct ScratchArchive {
  fs::path path =
      fs::temp_directory_path() / ("frameloom-zip-" + std::to_string(::getpid()) + ".zip");
  ~ScratchArchive() {
    std::error_code ignored;
    fs::remove(path, ignored);
  }
};

void zip(Interruption& interruption, Console& console, const std::string& source,
         const std::string& archivePath, int level, bool keepParent) {
  if (isPresent(archivePath)) {
    throw ziploom::FileError(ziploom::FileError::Code::fileWriteFileExists, archivePath);
  }
  makingArchive(archivePath, [&] {
    ProgressBar bar(console, "zip", "items");
    const auto cancelling = interruption.cancelOnSignal(bar.progress());
    // An archive inside the folder being zipped would meet itself on the walk: it is made
    // elsewhere and moved into place afterwards.
    if (fs::is_directory(source) &&
        ziploom::isContained(fs::absolute(archivePath), fs::absolute(source))) {
      ScratchArchive scratch;
      fs::remove(scratch.path);
      ziploom::zipItem(source, scratch.path, keepParent, method(level), bar.progress(),
                       std::max(level, 1));
      moveOnto(scratch.path, archivePath);
    } else {
      ziploom::zipItem(source, archivePath, keepParent, method(level), bar.progress(),
                       std::max(level, 1));
    }
  });
}

// Moves what was unzipped into `staging` over to `destination`, item by item: folders are
// merged, and an item already there is replaced or kept as `existing` says.
void mergeInto(const fs::path& staging, const fs::path& destination, ExistingItems existing) {
  for (const auto& item : fs::directory_iterator(staging)) {
    const fs::path target = destination / item.path().filename();
    const auto targetStatus = fs::symlink_status(target);
    if (!fs::exists(targetStatus)) {
      fs::rename(item.path(), target);
    } else if (fs::is_directory(targetStatus) && item.is_directory() && !item.is_symlink()) {
      mergeInto(item.path(), target, existing);
    } else if (existing == ExistingItems::overwrite) {
      fs::remove_all(target);
      fs::rename(item.path(), target);
    }
  }
}

// The staging folder inside the destination, removed with what is left in it.
struct StagingFolder {
  fs::path path;
  ~StagingFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
};

void unzip(Interruption& interruption, Console& console, const std::string& archivePath,
           const std::string& destination, bool skipCRC, bool allowUncontainedSymlinks,
           ExistingItems existing) {
  naming(archivePath, [&] {
    refuseIfDamaged(archivePath, Archive(archivePath, Archive::AccessMode::read));
    ProgressBar bar(console, "unzip", "items");
    const auto cancelling = interruption.cancelOnSignal(bar.progress());
    if (existing == ExistingItems::refuse) {
      ziploom::unzipItem(archivePath, destination, skipCRC, allowUncontainedSymlinks,
                         bar.progress());
      return;
    }
    // Unzipped beside the items it may meet, then moved over them one by one: the archive's
    // checks run as usual, and a failure part-way leaves the folder's own items untouched.
    fs::create_directories(destination);
    StagingFolder staging{fs::path(destination) /
                          (".frameloom-unzip-" + std::to_string(::getpid()))};
    ziploom::unzipItem(archivePath, staging.path, skipCRC, allowUncontainedSymlinks,
                       bar.progress());
    if (fs::exists(staging.path)) {
      mergeInto(staging.path, destination, existing);
    }
  });
}

void add(Interruption& interruption, Console& console, const std::string& archivePath,
         const std::string& entryPath, const std::string& item, int level) {
  makingArchive(archivePath, [&] {
    Archive archive(archivePath, isPresent(archivePath) ? Archive::AccessMode::update
                                                        : Archive::AccessMode::create);
    // An entry of the same path is replaced: the new one is added first, so that a failed add
    // leaves the old one in place, and the old one is removed after.
    std::optional<Entry> old = archive[entryPath];
    if (!old) {
      old = archive[entryPath + "/"];
    }
    ProgressBar bar(console, "add");
    const auto cancelling = interruption.cancelOnSignal(bar.progress());
    archive.setCompressionLevel(std::max(level, 1));
    archive.addEntry(entryPath, Archive::FileURL{item}, method(level),
                     ziploom::defaultWriteChunkSize, bar.progress());
    if (old) {
      archive.remove(*old);
    }
  });
}

void remove(Interruption& interruption, Console& console, const std::string& archivePath,
            const std::string& entryPath) {
  naming(archivePath, [&] {
    Archive archive(archivePath, Archive::AccessMode::update);
    const Entry entry = entryNamed(archive, archivePath, entryPath);
    ProgressBar bar(console, "remove");
    const auto cancelling = interruption.cancelOnSignal(bar.progress());
    archive.remove(entry, ziploom::defaultReadChunkSize, bar.progress());
  });
}

// --store, --deflate and -0 ... -9 as zip takes them: -0 stores, -1 (fastest) to -9 (smallest)
// deflate at that level, --deflate at the default level. Of several digits the last counts.
void addCompressionOptions(CLI::App& command, int& level, bool deflateByDefault) {
  level = deflateByDefault ? ziploom::defaultCompressionLevel : 0;
  auto* store = command.add_flag_callback(
      "--store,-0", [&level] { level = 0; }, "Store the files uncompressed");
  auto* deflate = command.add_flag_callback(
      "--deflate", [&level] { level = ziploom::defaultCompressionLevel; },
      std::string("Deflate the files at level 6") + (deflateByDefault ? " (the default)" : ""));
  store->excludes(deflate);
  for (int digit = ziploom::fastestCompressionLevel; digit <= ziploom::smallestCompressionLevel;
       ++digit) {
    command
        .add_flag_callback(
            "-" + std::to_string(digit), [&level, digit] { level = digit; },
            digit == ziploom::fastestCompressionLevel    ? "Deflate the files, fastest"
            : digit == ziploom::smallestCompressionLevel ? "Deflate the files, smallest"
                                                         : "Deflate the files at this level")
        ->group(digit == ziploom::fastestCompressionLevel ||
                        digit == ziploom::smallestCompressionLevel
                    ? "Options"
                    : "");
  }
}

} // namespace

void addArchiveCommands(CLI::App& app, Interruption& interruption, Console& console) {
  auto* archive = app.add_subcommand("archive", "Read and write ZIP archives");
  archive->require_subcommand(1);

  auto* listCommand = archive->add_subcommand(
      "list", "List the entries in central-directory order: type, method, uncompressed size, "
              "compressed size, CRC-32, path");
  auto listPath = std::make_shared<std::string>();
  listCommand->add_option("ARCHIVE", *listPath, "The archive, or - for standard input")->required();
  listCommand->callback([listPath] { list(*listPath); });

  auto* catCommand =
      archive->add_subcommand("cat", "Write the bytes of one entry to standard output");
  auto catArchive = std::make_shared<std::string>();
  auto catEntry = std::make_shared<std::string>();
  catCommand->add_option("ARCHIVE", *catArchive, "The archive")->required();
  catCommand->add_option("PATH", *catEntry, "The entry's path in the archive")->required();
  catCommand->callback([catArchive, catEntry] { cat(*catArchive, *catEntry); });

  struct Options {
    std::string first;
    std::string second;
    std::string third;
    int zipLevel = 0;
    int addLevel = 0;
    bool keepParent = false;
    bool skipCRC = false;
    bool allowUncontainedSymlinks = false;
    bool overwrite = false;
    bool skipExisting = false;
  };
  auto options = std::make_shared<Options>();

  auto* zipCommand = archive->add_subcommand(
      "zip", "Zip a file or a folder tree into a new archive, deflated unless --store");
  zipCommand->add_option("SOURCE", options->first, "The file or folder to zip")->required();
  zipCommand->add_option("ARCHIVE", options->second, "The archive to make")->required();
  addCompressionOptions(*zipCommand, options->zipLevel, true);
  zipCommand->add_flag("--keep-parent", options->keepParent,
                       "Put everything below an entry named for the folder");
  zipCommand->callback([options, &interruption, &console] {
    zip(interruption, console, options->first, options->second, options->zipLevel,
        options->keepParent);
  });

  auto* unzipCommand = archive->add_subcommand(
      "unzip", "Unzip an archive into a folder, refusing entries that would land outside it");
  unzipCommand->add_option("ARCHIVE", options->first, "The archive")->required();
  unzipCommand->add_option("DEST", options->second, "The folder to unzip into")->required();
  unzipCommand->add_flag("--skip-crc", options->skipCRC, "Do not compare checksums");
  unzipCommand->add_flag("--allow-uncontained-symlinks", options->allowUncontainedSymlinks,
                         "Make symbolic links that point outside the folder");
  auto* overwrite = unzipCommand->add_flag("--overwrite", options->overwrite,
                                           "Replace files that are already there");
  unzipCommand
      ->add_flag("--skip-existing", options->skipExisting, "Keep files that are already there")
      ->excludes(overwrite);
  unzipCommand->callback([options, &interruption, &console] {
    const ExistingItems existing = options->overwrite      ? ExistingItems::overwrite
                                   : options->skipExisting ? ExistingItems::skip
                                                           : ExistingItems::refuse;
    unzip(interruption, console, options->first, options->second, options->skipCRC,
          options->allowUncontainedSymlinks, existing);
  });

  auto* addCommand = archive->add_subcommand(
      "add", "Add one file, folder or link (making the archive when it is missing); an entry "
             "of the same path is replaced");
  addCommand->add_option("ARCHIVE", options->first, "The archive")->required();
  addCommand->add_option("ENTRYPATH", options->second, "The entry's path in the archive")
      ->required();
  addCommand->add_option("FILE", options->third, "The file, folder or link to add")->required();
  addCompressionOptions(*addCommand, options->addLevel, false);
  addCommand->callback([options, &interruption, &console] {
    add(interruption, console, options->first, options->second, options->third, options->addLevel);
  });

  auto* removeCommand = archive->add_subcommand("remove", "Remove one entry");
  removeCommand->add_option("ARCHIVE", options->first, "The archive")->required();
  removeCommand->add_option("ENTRYPATH", options->second, "The entry's path in the archive")
      ->required();
  removeCommand->callback([options, &interruption, &console] {
    remove(interruption, console, options->first, options->second);
  });
}

} // namespace frameloom::tool
