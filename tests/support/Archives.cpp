#include "support/Archives.h"

#include "support/Files.h"
#include "ziploom/LittleEndian.h"
#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Records.h>

namespace frameloom::testing {

using namespace ziploom;
using littleEndian::append;
using platform::Bytes;
using platform::ByteView;

Bytes buildArchive(const std::vector<BuiltEntry>& entries, const BuildOptions& options) {
  Bytes archive;
  Bytes directory;
  for (const auto& entry : entries) {
    Bytes stored = entry.deflate ? Bytes{} : entry.data;
    if (entry.deflate) {
      compress(static_cast<std::int64_t>(entry.data.size()), 4096, providerFor(entry.data),
               appendTo(stored));
    }
    const std::uint64_t offset = archive.size();
    // The central record carries everything; the local header is a copy of its first fields.
    CentralDirectoryStructure central;
    central.versionMadeBy = 0x0314;
    central.versionNeededToExtract = entry.zip64 ? 45 : 20;
    central.generalPurposeBitFlag = entry.flags | (entry.dataDescriptor ? 0x0008 : 0);
    central.compressionMethod = entry.deflate ? 8 : 0;
    central.lastModFileTime = 0x6000;
    central.lastModFileDate = 0x5A21;
    central.crc32 = crc32(entry.data);
    central.compressedSize = static_cast<std::uint32_t>(stored.size());
    central.uncompressedSize = static_cast<std::uint32_t>(entry.data.size());
    central.relativeOffsetOfLocalHeader = static_cast<std::uint32_t>(offset);
    central.externalFileAttributes = entry.externalAttributes;
    central.fileNameData = bytesOf(entry.name);
    central.fileNameLength = static_cast<std::uint16_t>(entry.name.size());

    LocalFileHeader local;
    local.versionNeededToExtract = central.versionNeededToExtract;
    local.generalPurposeBitFlag = central.generalPurposeBitFlag;
    local.compressionMethod = central.compressionMethod;
    local.fileNameData = central.fileNameData;
    local.fileNameLength = central.fileNameLength;
    if (!entry.dataDescriptor) {
      local.crc32 = central.crc32;
      local.compressedSize = central.compressedSize;
      local.uncompressedSize = central.uncompressedSize;
    }
    if (entry.zip64) {
      central.compressedSize = central.uncompressedSize = 0xFFFFFFFF;
      central.relativeOffsetOfLocalHeader = 0xFFFFFFFF;
      central.extraFieldData = extraBlock(1, {entry.data.size(), stored.size(), offset});
      if (!entry.dataDescriptor) {
        local.compressedSize = local.uncompressedSize = 0xFFFFFFFF;
        local.extraFieldData = extraBlock(1, {entry.data.size(), stored.size()});
      }
    }
    central.extraFieldLength = static_cast<std::uint16_t>(central.extraFieldData.size());
    local.extraFieldLength = static_cast<std::uint16_t>(local.extraFieldData.size());
    append(archive, ByteView(local.data()));
    append(archive, ByteView(stored));
    if (entry.dataDescriptor) {
      append(archive, std::uint32_t{0x08074b50});
      append(archive, central.crc32);
      for (const std::uint64_t size : {stored.size(), entry.data.size()}) {
        entry.zip64 ? append(archive, size) : append(archive, static_cast<std::uint32_t>(size));
      }
    }
    append(directory, ByteView(central.data()));
  }

  const std::uint64_t directoryOffset = archive.size();
  append(archive, ByteView(directory));
  const auto count = options.claimedEntries >= 0
                         ? static_cast<std::uint64_t>(options.claimedEntries)
                         : entries.size();
  if (options.zip64End) {
    ZIP64EndOfCentralDirectoryRecord record;
    record.sizeOfZIP64EndOfCentralDirectoryRecord = 44;
    record.versionNeededToExtract = 45;
    record.totalNumberOfEntriesOnDisk = record.totalNumberOfEntriesInCentralDirectory = count;
    record.sizeOfCentralDirectory = directory.size();
    record.offsetToStartOfCentralDirectory = directoryOffset;
    ZIP64EndOfCentralDirectoryLocator locator;
    locator.relativeOffsetOfZIP64EOCDRecord = archive.size();
    append(archive, ByteView(record.data()));
    append(archive, ByteView(locator.data()));
  }
  EndOfCentralDirectoryRecord end;
  end.totalNumberOfEntriesOnDisk = end.totalNumberOfEntriesInCentralDirectory =
      options.zip64End ? 0xFFFF : static_cast<std::uint16_t>(count);
  end.sizeOfCentralDirectory = static_cast<std::uint32_t>(directory.size());
  end.offsetToStartOfCentralDirectory =
      options.zip64End ? 0xFFFFFFFF : static_cast<std::uint32_t>(directoryOffset);
  end.zipFileCommentLength = static_cast<std::uint16_t>(options.comment.size());
  end.zipFileCommentData = options.comment;
  append(archive, ByteView(end.data()));
  return archive;
}

Bytes zipOf(const ArchiveEntries& entries) {
  std::vector<BuiltEntry> built;
  for (const auto& [name, content] : entries) {
    auto& entry = built.emplace_back(BuiltEntry{name, bytesOf(content), true});
    if (name.ends_with('/')) {
      entry.externalAttributes = 040755u << 16 | 0x10;
    }
  }
  return buildArchive(built);
}

void writeArchive(const std::filesystem::path& path, const ArchiveEntries& entries) {
  writeFile(path, zipOf(entries));
}

ArchiveEntries entriesOf(const std::filesystem::path& path) {
  ArchiveEntries files;
  Archive archive(path, AccessMode::read);
  for (const auto& entry : archive) {
    std::string& data = files.emplace_back(entry.path(), std::string()).second;
    archive.extract(entry, [&data](ByteView chunk) { data.append(chunk.begin(), chunk.end()); });
  }
  return files;
}

bool everyEntryStored(const std::filesystem::path& path) {
  const Archive archive(path, AccessMode::read);
  for (const auto& entry : archive) {
    if (entry.localFileHeader.compressionMethod != 0) {
      return false;
    }
  }
  return true;
}

Provider providerFor(const Bytes& source) {
  return [&source](std::int64_t position, std::int64_t count) {
    return Bytes(source.begin() + position, source.begin() + position + count);
  };
}

Consumer appendTo(Bytes& bytes) {
  return [&bytes](ByteView chunk) { bytes.insert(bytes.end(), chunk.begin(), chunk.end()); };
}

Bytes extraBlock(std::uint16_t id, std::initializer_list<std::uint64_t> values) {
  Bytes extra;
  append(extra, id);
  append(extra, static_cast<std::uint16_t>(values.size() * 8));
  for (const auto value : values) {
    append(extra, value);
  }
  return extra;
}

} // namespace frameloom::testing
