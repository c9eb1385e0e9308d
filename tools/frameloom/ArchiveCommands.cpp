#include "ArchiveCommands.h"

#include "ProgressBar.h"

#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

namespace frameloom::tool {

namespace {

using ziploom::Archive;
using ziploom::Entry;

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

void list(const std::string& archivePath) {
  naming(archivePath, [&] {
    const Archive archive(archivePath, Archive::AccessMode::read);
    for (const auto& entry : archive) {
      std::printf("%s %s %llu %llu %08x %s\n", typeName(entry.type()),
                  methodName(entry.localFileHeader.compressionMethod).c_str(),
                  static_cast<unsigned long long>(entry.uncompressedSize()),
                  static_cast<unsigned long long>(entry.compressedSize()), entry.checksum(),
                  entry.path().c_str());
    }
  });
}

void cat(const std::string& archivePath, const std::string& entryPath) {
  naming(archivePath, [&] {
    Archive archive(archivePath, Archive::AccessMode::read);
    const auto entry = archive[entryPath];
    if (!entry) {
      throw std::runtime_error(archivePath + ": no entry " + entryPath);
    }
    const auto checksum = archive.extract(*entry, [](platform::ByteView chunk) {
      if (!chunk.empty() && std::fwrite(chunk.data(), 1, chunk.size(), stdout) != chunk.size()) {
        throw std::runtime_error("cannot write to standard output");
      }
    });
    std::fflush(stdout);
    if (checksum != entry->checksum()) {
      throw ziploom::ArchiveError(ziploom::ArchiveError::Code::invalidCRC32);
    }
  });
}

ziploom::CompressionMethod method(bool deflate) {
  return deflate ? ziploom::CompressionMethod::deflate : ziploom::CompressionMethod::none;
}

bool isPresent(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(path, error));
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
      std::filesystem::remove(archivePath, ignored);
    }
    throw;
  }
}

void zip(const std::string& source, const std::string& archivePath, bool deflate, bool keepParent) {
  if (isPresent(archivePath)) {
    throw ziploom::FileError(ziploom::FileError::Code::fileWriteFileExists, archivePath);
  }
  makingArchive(archivePath, [&] {
    ProgressBar bar("zip");
    ziploom::zipItem(source, archivePath, keepParent, method(deflate), bar.progress());
  });
}

void unzip(const std::string& archivePath, const std::string& destination, bool skipCRC,
           bool allowUncontainedSymlinks) {
  naming(archivePath, [&] {
    ProgressBar bar("unzip");
    ziploom::unzipItem(archivePath, destination, skipCRC, allowUncontainedSymlinks, bar.progress());
  });
}

void add(const std::string& archivePath, const std::string& entryPath, const std::string& item,
         bool deflate) {
  makingArchive(archivePath, [&] {
    Archive archive(archivePath, isPresent(archivePath) ? Archive::AccessMode::update
                                                        : Archive::AccessMode::create);
    ProgressBar bar("add");
    archive.addEntry(entryPath, Archive::FileURL{item}, method(deflate),
                     ziploom::defaultWriteChunkSize, bar.progress());
  });
}

void remove(const std::string& archivePath, const std::string& entryPath) {
  naming(archivePath, [&] {
    Archive archive(archivePath, Archive::AccessMode::update);
    const auto entry = archive[entryPath];
    if (!entry) {
      throw std::runtime_error(archivePath + ": no entry " + entryPath);
    }
    ProgressBar bar("remove");
    archive.remove(*entry, ziploom::defaultReadChunkSize, bar.progress());
  });
}

} // namespace

void addArchiveCommands(CLI::App& app) {
  auto* archive = app.add_subcommand("archive", "Read and write ZIP archives");
  archive->require_subcommand(1);

  auto* listCommand = archive->add_subcommand(
      "list", "List the entries in central-directory order: type, method, uncompressed size, "
              "compressed size, CRC-32, path");
  auto listPath = std::make_shared<std::string>();
  listCommand->add_option("ARCHIVE", *listPath, "The archive")->required();
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
    bool deflate = false;
    bool keepParent = false;
    bool skipCRC = false;
    bool allowUncontainedSymlinks = false;
  };
  auto options = std::make_shared<Options>();

  auto* zipCommand =
      archive->add_subcommand("zip", "Zip a file or a folder tree into a new archive");
  zipCommand->add_option("SOURCE", options->first, "The file or folder to zip")->required();
  zipCommand->add_option("ARCHIVE", options->second, "The archive to make")->required();
  zipCommand->add_flag("--deflate", options->deflate, "Compress the files");
  zipCommand->add_flag("--keep-parent", options->keepParent,
                       "Put everything below an entry named for the folder");
  zipCommand->callback(
      [options] { zip(options->first, options->second, options->deflate, options->keepParent); });

  auto* unzipCommand = archive->add_subcommand(
      "unzip", "Unzip an archive into a folder, refusing entries that would land outside it");
  unzipCommand->add_option("ARCHIVE", options->first, "The archive")->required();
  unzipCommand->add_option("DEST", options->second, "The folder to unzip into")->required();
  unzipCommand->add_flag("--skip-crc", options->skipCRC, "Do not compare checksums");
  unzipCommand->add_flag("--allow-uncontained-symlinks", options->allowUncontainedSymlinks,
                         "Make symbolic links that point outside the folder");
  unzipCommand->callback([options] {
    unzip(options->first, options->second, options->skipCRC, options->allowUncontainedSymlinks);
  });

  auto* addCommand = archive->add_subcommand(
      "add", "Add one file, folder or link (making the archive when it is missing)");
  addCommand->add_option("ARCHIVE", options->first, "The archive")->required();
  addCommand->add_option("ENTRYPATH", options->second, "The entry's path in the archive")
      ->required();
  addCommand->add_option("FILE", options->third, "The file, folder or link to add")->required();
  addCommand->add_flag("--deflate", options->deflate, "Compress the file");
  addCommand->callback(
      [options] { add(options->first, options->second, options->third, options->deflate); });

  auto* removeCommand = archive->add_subcommand("remove", "Remove one entry");
  removeCommand->add_option("ARCHIVE", options->first, "The archive")->required();
  removeCommand->add_option("ENTRYPATH", options->second, "The entry's path in the archive")
      ->required();
  removeCommand->callback([options] { remove(options->first, options->second); });
}

} // namespace frameloom::tool
