#include <frameloom/ziploom/Records.h>

#include "ziploom/LittleEndian.h"

#include <algorithm>

namespace frameloom::ziploom {

using namespace littleEndian;
using Field = ZIP64ExtendedInformation::Field;

namespace {

constexpr std::uint8_t zip64Version = 45;

bool hasSignature(ByteView fixedPart, std::size_t size, std::uint32_t signature) {
  return fixedPart.size() == size && readU32(fixedPart, 0) == signature;
}

// Asks the provider for exactly `count` bytes; nothing when it throws or comes back short.
std::optional<Bytes> additionalData(const AdditionalDataProvider& provider, std::size_t count) {
  try {
    auto bytes = provider(count);
    if (bytes.size() != count) {
      return std::nullopt;
    }
    return bytes;
  } catch (...) {
    return std::nullopt;
  }
}

// A ZIP64 value replaces the 32-bit field only when it is greater than 0; a 0 in the block
// leaves the field as it is.
std::uint64_t resolve(bool zip64, const ZIP64ExtendedInformation* extra,
                      std::uint64_t ZIP64ExtendedInformation::*value, std::uint32_t narrow) {
  if (zip64 && extra && extra->*value > 0) {
    return extra->*value;
  }
  return narrow;
}

} // namespace

std::optional<ZIP64ExtendedInformation>
ZIP64ExtendedInformation::parse(ByteView block, std::span<const Field> fields) {
  std::size_t expected = headerSize;
  for (auto field : fields) {
    expected += size(field);
  }
  if (block.size() != expected) {
    return std::nullopt;
  }
  auto isExpected = [&](Field field) {
    return std::find(fields.begin(), fields.end(), field) != fields.end();
  };
  ZIP64ExtendedInformation info;
  info.dataSize = readU16(block, 2);
  std::size_t position = headerSize;
  for (auto field : {Field::uncompressedSize, Field::compressedSize,
                     Field::relativeOffsetOfLocalHeader, Field::diskNumberStart}) {
    if (!isExpected(field) || position + size(field) > block.size()) {
      continue;
    }
    switch (field) {
    case Field::uncompressedSize:
      info.uncompressedSize = readU64(block, position);
      break;
    case Field::compressedSize:
      info.compressedSize = readU64(block, position);
      break;
    case Field::relativeOffsetOfLocalHeader:
      info.relativeOffsetOfLocalHeader = readU64(block, position);
      break;
    case Field::diskNumberStart:
      info.diskNumberStart = readU32(block, position);
      break;
    }
    position += size(field);
  }
  return info;
}

Bytes ZIP64ExtendedInformation::data() const {
  Bytes bytes;
  append(bytes, headerID);
  append(bytes, dataSize);
  if (uncompressedSize != 0 || compressedSize != 0) {
    append(bytes, uncompressedSize);
    append(bytes, compressedSize);
  }
  if (relativeOffsetOfLocalHeader != 0) {
    append(bytes, relativeOffsetOfLocalHeader);
  }
  if (diskNumberStart != 0) {
    append(bytes, diskNumberStart);
  }
  return bytes;
}

std::optional<ZIP64ExtendedInformation> findZIP64Extra(ByteView extraFieldData,
                                                       std::span<const Field> fields) {
  std::size_t position = 0;
  while (position + ZIP64ExtendedInformation::headerSize < extraFieldData.size()) {
    const auto id = readU16(extraFieldData, position);
    const std::size_t next =
        position + ZIP64ExtendedInformation::headerSize + readU16(extraFieldData, position + 2);
    if (next > extraFieldData.size()) {
      return std::nullopt;
    }
    if (id == ZIP64ExtendedInformation::headerID) {
      return ZIP64ExtendedInformation::parse(extraFieldData.subspan(position, next - position),
                                             fields);
    }
    position = next;
  }
  return std::nullopt;
}

// Local file header.

std::vector<Field> LocalFileHeader::expectedZIP64Fields() const {
  std::vector<Field> fields;
  if (uncompressedSize == zip64Marker32) {
    fields.push_back(Field::uncompressedSize);
  }
  if (compressedSize == zip64Marker32) {
    fields.push_back(Field::compressedSize);
  }
  return fields;
}

const ZIP64ExtendedInformation* LocalFileHeader::zip64Extra() const {
  return extraFields.empty() ? nullptr : &extraFields.front();
}

std::optional<LocalFileHeader> LocalFileHeader::parse(ByteView fixedPart,
                                                      const AdditionalDataProvider& provider) {
  if (!hasSignature(fixedPart, size, signature)) {
    return std::nullopt;
  }
  LocalFileHeader header;
  header.versionNeededToExtract = readU16(fixedPart, 4);
  header.generalPurposeBitFlag = readU16(fixedPart, 6);
  header.compressionMethod = readU16(fixedPart, 8);
  header.lastModFileTime = readU16(fixedPart, 10);
  header.lastModFileDate = readU16(fixedPart, 12);
  header.crc32 = readU32(fixedPart, 14);
  header.compressedSize = readU32(fixedPart, 18);
  header.uncompressedSize = readU32(fixedPart, 22);
  header.fileNameLength = readU16(fixedPart, 26);
  header.extraFieldLength = readU16(fixedPart, 28);
  auto variable =
      additionalData(provider, std::size_t{header.fileNameLength} + header.extraFieldLength);
  if (!variable) {
    return std::nullopt;
  }
  const auto nameEnd = variable->begin() + header.fileNameLength;
  header.fileNameData.assign(variable->begin(), nameEnd);
  header.extraFieldData.assign(nameEnd, variable->end());
  if (auto extra = findZIP64Extra(header.extraFieldData, header.expectedZIP64Fields())) {
    header.extraFields.push_back(*extra);
  }
  return header;
}

Bytes LocalFileHeader::data() const {
  Bytes bytes;
  bytes.reserve(size + fileNameData.size() + extraFieldData.size());
  append(bytes, localFileHeaderSignature);
  append(bytes, versionNeededToExtract);
  append(bytes, generalPurposeBitFlag);
  append(bytes, compressionMethod);
  append(bytes, lastModFileTime);
  append(bytes, lastModFileDate);
  append(bytes, crc32);
  append(bytes, compressedSize);
  append(bytes, uncompressedSize);
  append(bytes, fileNameLength);
  append(bytes, extraFieldLength);
  append(bytes, ByteView(fileNameData));
  append(bytes, ByteView(extraFieldData));
  return bytes;
}

// Central directory structure.

std::vector<Field> CentralDirectoryStructure::expectedZIP64Fields() const {
  std::vector<Field> fields;
  if (uncompressedSize == zip64Marker32) {
    fields.push_back(Field::uncompressedSize);
  }
  if (compressedSize == zip64Marker32) {
    fields.push_back(Field::compressedSize);
  }
  if (relativeOffsetOfLocalHeader == zip64Marker32) {
    fields.push_back(Field::relativeOffsetOfLocalHeader);
  }
  if (diskNumberStart == zip64Marker16) {
    fields.push_back(Field::diskNumberStart);
  }
  return fields;
}

const ZIP64ExtendedInformation* CentralDirectoryStructure::zip64Extra() const {
  return extraFields.empty() ? nullptr : &extraFields.front();
}

bool CentralDirectoryStructure::isZIP64Format() const {
  return (versionNeededToExtract & 0xFF) >= zip64Version || zip64Extra() != nullptr;
}

std::uint64_t CentralDirectoryStructure::resolvedUncompressedSize() const {
  return resolve(isZIP64Format(), zip64Extra(), &ZIP64ExtendedInformation::uncompressedSize,
                 uncompressedSize);
}

std::uint64_t CentralDirectoryStructure::resolvedCompressedSize() const {
  return resolve(isZIP64Format(), zip64Extra(), &ZIP64ExtendedInformation::compressedSize,
                 compressedSize);
}

std::uint64_t CentralDirectoryStructure::resolvedLocalHeaderOffset() const {
  return resolve(isZIP64Format(), zip64Extra(),
                 &ZIP64ExtendedInformation::relativeOffsetOfLocalHeader,
                 relativeOffsetOfLocalHeader);
}

std::optional<CentralDirectoryStructure>
CentralDirectoryStructure::parse(ByteView fixedPart, const AdditionalDataProvider& provider) {
  if (!hasSignature(fixedPart, size, signature)) {
    return std::nullopt;
  }
  CentralDirectoryStructure record;
  record.versionMadeBy = readU16(fixedPart, 4);
  record.versionNeededToExtract = readU16(fixedPart, 6);
  record.generalPurposeBitFlag = readU16(fixedPart, 8);
  record.compressionMethod = readU16(fixedPart, 10);
  record.lastModFileTime = readU16(fixedPart, 12);
  record.lastModFileDate = readU16(fixedPart, 14);
  record.crc32 = readU32(fixedPart, 16);
  record.compressedSize = readU32(fixedPart, 20);
  record.uncompressedSize = readU32(fixedPart, 24);
  record.fileNameLength = readU16(fixedPart, 28);
  record.extraFieldLength = readU16(fixedPart, 30);
  record.fileCommentLength = readU16(fixedPart, 32);
  record.diskNumberStart = readU16(fixedPart, 34);
  record.internalFileAttributes = readU16(fixedPart, 36);
  record.externalFileAttributes = readU32(fixedPart, 38);
  record.relativeOffsetOfLocalHeader = readU32(fixedPart, 42);
  auto variable = additionalData(provider, std::size_t{record.fileNameLength} +
                                               record.extraFieldLength + record.fileCommentLength);
  if (!variable) {
    return std::nullopt;
  }
  const auto nameEnd = variable->begin() + record.fileNameLength;
  const auto extraEnd = nameEnd + record.extraFieldLength;
  record.fileNameData.assign(variable->begin(), nameEnd);
  record.extraFieldData.assign(nameEnd, extraEnd);
  record.fileCommentData.assign(extraEnd, variable->end());
  if (auto extra = findZIP64Extra(record.extraFieldData, record.expectedZIP64Fields())) {
    record.extraFields.push_back(*extra);
  }
  return record;
}

Bytes CentralDirectoryStructure::data() const {
  Bytes bytes;
  bytes.reserve(size + fileNameData.size() + extraFieldData.size() + fileCommentData.size());
  append(bytes, centralDirectorySignature);
  append(bytes, versionMadeBy);
  append(bytes, versionNeededToExtract);
  append(bytes, generalPurposeBitFlag);
  append(bytes, compressionMethod);
  append(bytes, lastModFileTime);
  append(bytes, lastModFileDate);
  append(bytes, crc32);
  append(bytes, compressedSize);
  append(bytes, uncompressedSize);
  append(bytes, fileNameLength);
  append(bytes, extraFieldLength);
  append(bytes, fileCommentLength);
  append(bytes, diskNumberStart);
  append(bytes, internalFileAttributes);
  append(bytes, externalFileAttributes);
  append(bytes, relativeOffsetOfLocalHeader);
  append(bytes, ByteView(fileNameData));
  append(bytes, ByteView(extraFieldData));
  append(bytes, ByteView(fileCommentData));
  return bytes;
}

// Data descriptor.

template <typename SizeType>
std::optional<DataDescriptor<SizeType>>
DataDescriptor<SizeType>::parse(ByteView fixedPart, const AdditionalDataProvider&) {
  if (fixedPart.size() != size) {
    return std::nullopt;
  }
  DataDescriptor descriptor;
  descriptor.data.assign(fixedPart.begin(), fixedPart.end());
  // Without the optional signature the fields start at 0 and the last four bytes belong to
  // whatever follows.
  const std::size_t start = readU32(fixedPart, 0) == signature ? 4 : 0;
  descriptor.crc32 = readU32(fixedPart, start);
  if constexpr (sizeof(SizeType) == 8) {
    descriptor.compressedSize = readU64(fixedPart, start + 4);
    descriptor.uncompressedSize = readU64(fixedPart, start + 12);
  } else {
    descriptor.compressedSize = readU32(fixedPart, start + 4);
    descriptor.uncompressedSize = readU32(fixedPart, start + 8);
  }
  return descriptor;
}

template struct DataDescriptor<std::uint32_t>;
template struct DataDescriptor<std::uint64_t>;

// End of central directory record.

std::optional<EndOfCentralDirectoryRecord>
EndOfCentralDirectoryRecord::parse(ByteView fixedPart, const AdditionalDataProvider& provider) {
  if (!hasSignature(fixedPart, size, signature)) {
    return std::nullopt;
  }
  EndOfCentralDirectoryRecord record;
  record.numberOfDisk = readU16(fixedPart, 4);
  record.numberOfDiskStart = readU16(fixedPart, 6);
  record.totalNumberOfEntriesOnDisk = readU16(fixedPart, 8);
  record.totalNumberOfEntriesInCentralDirectory = readU16(fixedPart, 10);
  record.sizeOfCentralDirectory = readU32(fixedPart, 12);
  record.offsetToStartOfCentralDirectory = readU32(fixedPart, 16);
  record.zipFileCommentLength = readU16(fixedPart, 20);
  auto comment = additionalData(provider, record.zipFileCommentLength);
  if (!comment) {
    return std::nullopt;
  }
  record.zipFileCommentData = std::move(*comment);
  return record;
}

Bytes EndOfCentralDirectoryRecord::data() const {
  Bytes bytes;
  bytes.reserve(size + zipFileCommentData.size());
  append(bytes, endOfCentralDirectorySignature);
  append(bytes, numberOfDisk);
  append(bytes, numberOfDiskStart);
  append(bytes, totalNumberOfEntriesOnDisk);
  append(bytes, totalNumberOfEntriesInCentralDirectory);
  append(bytes, sizeOfCentralDirectory);
  append(bytes, offsetToStartOfCentralDirectory);
  append(bytes, zipFileCommentLength);
  append(bytes, ByteView(zipFileCommentData));
  return bytes;
}

// ZIP64 end of central directory record and locator.

std::optional<ZIP64EndOfCentralDirectoryRecord>
ZIP64EndOfCentralDirectoryRecord::parse(ByteView fixedPart, const AdditionalDataProvider&) {
  if (!hasSignature(fixedPart, size, signature)) {
    return std::nullopt;
  }
  ZIP64EndOfCentralDirectoryRecord record;
  record.sizeOfZIP64EndOfCentralDirectoryRecord = readU64(fixedPart, 4);
  record.versionMadeBy = readU16(fixedPart, 12);
  record.versionNeededToExtract = readU16(fixedPart, 14);
  if (record.versionNeededToExtract < zip64Version) {
    return std::nullopt;
  }
  record.numberOfDisk = readU32(fixedPart, 16);
  record.numberOfDiskStart = readU32(fixedPart, 20);
  record.totalNumberOfEntriesOnDisk = readU64(fixedPart, 24);
  record.totalNumberOfEntriesInCentralDirectory = readU64(fixedPart, 32);
  record.sizeOfCentralDirectory = readU64(fixedPart, 40);
  record.offsetToStartOfCentralDirectory = readU64(fixedPart, 48);
  return record;
}

Bytes ZIP64EndOfCentralDirectoryRecord::data() const {
  Bytes bytes;
  bytes.reserve(size + zip64ExtensibleDataSector.size());
  append(bytes, zip64EOCDRecordSignature);
  append(bytes, sizeOfZIP64EndOfCentralDirectoryRecord);
  append(bytes, versionMadeBy);
  append(bytes, versionNeededToExtract);
  append(bytes, numberOfDisk);
  append(bytes, numberOfDiskStart);
  append(bytes, totalNumberOfEntriesOnDisk);
  append(bytes, totalNumberOfEntriesInCentralDirectory);
  append(bytes, sizeOfCentralDirectory);
  append(bytes, offsetToStartOfCentralDirectory);
  append(bytes, ByteView(zip64ExtensibleDataSector));
  return bytes;
}

std::optional<ZIP64EndOfCentralDirectoryLocator>
ZIP64EndOfCentralDirectoryLocator::parse(ByteView fixedPart, const AdditionalDataProvider&) {
  if (!hasSignature(fixedPart, size, signature)) {
    return std::nullopt;
  }
  ZIP64EndOfCentralDirectoryLocator locator;
  locator.numberOfDiskWithZIP64EOCDRecordStart = readU32(fixedPart, 4);
  locator.relativeOffsetOfZIP64EOCDRecord = readU64(fixedPart, 8);
  locator.totalNumberOfDisk = readU32(fixedPart, 16);
  return locator;
}

Bytes ZIP64EndOfCentralDirectoryLocator::data() const {
  Bytes bytes;
  bytes.reserve(size);
  append(bytes, zip64EOCDLocatorSignature);
  append(bytes, numberOfDiskWithZIP64EOCDRecordStart);
  append(bytes, relativeOffsetOfZIP64EOCDRecord);
  append(bytes, totalNumberOfDisk);
  return bytes;
}

} // namespace frameloom::ziploom
