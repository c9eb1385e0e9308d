#include "ArchiveCommands.h"

#include "ziploom/Archive.h"
#include "ziploom/Errors.h"

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

namespace frameloom::tool {

namespace {

using ziploom::Archive;
using ziploom::Entry;

// Ziploom's own errors say what went wrong but not where; name the archive in front.
template <typename Action>
auto naming(const std::string& archivePath, Action action) {
  try {
    return action();
  } catch (const ziploom::ArchiveError& error) {
    throw std::runtime_error(archivePath + ": " + error.what());
  } catch (const ziploom::DataError& error) {
    throw std::runtime_error(archivePath + ": " + error.what());
  } catch (const ziploom::MemoryFileError& error) {
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
      throw std::runtime_error("no entry " + entryPath);
    }
    const auto checksum = archive.extract(*entry, [](ziploom::ByteView chunk) {
      if (std::fwrite(chunk.data(), 1, chunk.size(), stdout) != chunk.size()) {
        throw std::runtime_error("cannot write to standard output");
      }
    });
    std::fflush(stdout);
    if (checksum != entry->checksum()) {
      throw ziploom::ArchiveError(ziploom::ArchiveError::Code::invalidCRC32);
    }
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
}

} // namespace frameloom::tool
