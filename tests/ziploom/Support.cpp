#include "Support.h"

#include "ziploom/LittleEndian.h"
#include <frameloom/ziploom/Records.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

namespace frameloom::ziploom::testsupport {

using littleEndian::append;

Bytes extraBlock(std::uint16_t id, std::initializer_list<std::uint64_t> values) {
  Bytes extra;
  append(extra, id);
  append(extra, static_cast<std::uint16_t>(values.size() * 8));
  for (const auto value : values) {
    append(extra, value);
  }
  return extra;
}

Consumer appendTo(Bytes& bytes) {
  return [&bytes](ByteView chunk) { bytes.insert(bytes.end(), chunk.begin(), chunk.end()); };
}

std::vector<std::string> paths(const Archive& archive) {
  std::vector<std::string> result;
  for (const auto& entry : archive) {
    result.push_back(entry.path());
  }
  return result;
}

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

Bytes bytesOf(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

Bytes randomBytes(std::size_t count, unsigned seed) {
  std::mt19937 engine(seed);
  Bytes bytes(count);
  for (auto& byte : bytes) {
    byte = static_cast<std::uint8_t>(engine());
  }
  return bytes;
}

Provider providerFor(const Bytes& source) {
  return [&source](std::int64_t position, std::int64_t count) {
    return Bytes(source.begin() + position, source.begin() + position + count);
  };
}

Bytes readFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(stream), {});
}

void writeFile(const fs::path& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

std::string run(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) {
    ADD_FAILURE() << "cannot run " << command;
    return output;
  }
  char buffer[65536];
  std::size_t read = 0;
  while ((read = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) {
    output.append(buffer, read);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return output;
}

bool succeeds(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

std::string quoted(const fs::path& path) {
  std::string word = "'";
  for (const char c : path.string()) {
    word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return word + "'";
}

std::string python() {
  return fs::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
}

bool infoZipAccepts(const fs::path& archive) {
  return succeeds("unzip -tq " + quoted(archive));
}

bool pythonAccepts(const fs::path& archive) {
  return succeeds(python() +
                  " -c 'import sys, zipfile; "
                  "sys.exit(zipfile.ZipFile(sys.argv[1]).testzip() is not None)' " +
                  quoted(archive));
}

TemporaryFolder::TemporaryFolder() {
  auto pattern = (fs::temp_directory_path() / "ziploom-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) {
    throw std::runtime_error("cannot make a temporary folder");
  }
  path_ = pattern;
}

std::map<std::string, Item> snapshot(const fs::path& root) {
  std::map<std::string, Item> items;
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    struct stat status {};
    lstat(item.path().c_str(), &status);
    const auto type = item.symlink_status().type();
    Item entry{type, {}, status.st_mode & 07777u, status.st_mtim.tv_sec & ~1L};
    if (type == fs::file_type::regular) {
      entry.contents = readFile(item.path());
    } else if (type == fs::file_type::symlink) {
      entry.contents = bytesOf(fs::read_symlink(item.path()).string());
      // Linux cannot set a link's own permissions, and Info-ZIP leaves a link with the time it
      // was made.
      entry.mode = 0;
      entry.time = 0;
    }
    items[item.path().lexically_relative(root).string()] = entry;
  }
  return items;
}

} // namespace frameloom::ziploom::testsupport
