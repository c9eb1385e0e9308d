#pragma once

#include <frameloom/ziploom/DataCallbacks.h>

#include <cstddef>
#include <cstdint>
#include <frameloom/platform/ZiploomExport.h>
#include <functional>
#include <optional>
#include <span>
#include <vector>

// The fixed-layout records of the ZIP format, as plain values. Each record type offers:
//   static constexpr std::size_t size;  the byte size of its fixed part
//   static std::optional<Record> parse(ByteView fixedPart, const AdditionalDataProvider&);
//   Bytes data() const;                 the complete serialised record
// Parsing never throws: malformed input (wrong length or signature, short variable part) gives
// nothing. All integers are little-endian on disk.
namespace frameloom::ziploom {

// Supplies the bytes that follow a record's fixed part: given a count, returns the bytes read
// (fewer at the end of the data). May throw; a throwing provider makes the parse give nothing.
using AdditionalDataProvider = std::function<Bytes(std::size_t count)>;

// The values a 32- or 16-bit field holds when the real value is in a ZIP64 record or block.
inline constexpr std::uint32_t zip64Marker32 = 0xFFFFFFFF;
inline constexpr std::uint16_t zip64Marker16 = 0xFFFF;

// The ZIP64 extended-information extra-field block (header ID 0x0001). Absent values are 0.
struct FRAMELOOM_ZIPLOOM_EXPORT ZIP64ExtendedInformation {
  enum class Field {
    uncompressedSize,
    compressedSize,
    relativeOffsetOfLocalHeader,
    diskNumberStart
  };
  static constexpr std::uint16_t headerID = 0x0001;
  static constexpr std::size_t headerSize = 4;

  std::uint16_t dataSize = 0;
  std::uint64_t uncompressedSize = 0;
  std::uint64_t compressedSize = 0;
  std::uint64_t relativeOffsetOfLocalHeader = 0;
  std::uint32_t diskNumberStart = 0;

  static std::size_t size(Field field) { return field == Field::diskNumberStart ? 4 : 8; }
  // `block` is the whole block, header included; it must hold exactly the expected fields.
  static std::optional<ZIP64ExtendedInformation> parse(ByteView block,
                                                       std::span<const Field> fields);
  Bytes data() const;
};

// The ZIP64 block among the extra-field blocks, when it is well-formed and holds exactly `fields`.
FRAMELOOM_ZIPLOOM_EXPORT std::optional<ZIP64ExtendedInformation>
findZIP64Extra(ByteView extraFieldData, std::span<const ZIP64ExtendedInformation::Field> fields);

struct FRAMELOOM_ZIPLOOM_EXPORT GeneralPurposeFlags {
  static constexpr std::uint16_t encrypted = 0x0001;
  static constexpr std::uint16_t dataDescriptor = 0x0008;
  static constexpr std::uint16_t utf8Path = 0x0800;
};

struct FRAMELOOM_ZIPLOOM_EXPORT LocalFileHeader {
  static constexpr std::uint32_t signature = 0x04034b50;
  static constexpr std::size_t size = 30;

  std::uint32_t localFileHeaderSignature = signature;
  std::uint16_t versionNeededToExtract = 0;
  std::uint16_t generalPurposeBitFlag = 0;
  std::uint16_t compressionMethod = 0;
  std::uint16_t lastModFileTime = 0;
  std::uint16_t lastModFileDate = 0;
  std::uint32_t crc32 = 0;
  std::uint32_t compressedSize = 0;
  std::uint32_t uncompressedSize = 0;
  std::uint16_t fileNameLength = 0;
  std::uint16_t extraFieldLength = 0;
  Bytes fileNameData;
  Bytes extraFieldData;
  std::vector<ZIP64ExtendedInformation> extraFields;

  std::vector<ZIP64ExtendedInformation::Field> expectedZIP64Fields() const;
  const ZIP64ExtendedInformation* zip64Extra() const;
  static std::optional<LocalFileHeader> parse(ByteView fixedPart,
                                              const AdditionalDataProvider& provider);
  Bytes data() const;
};

struct FRAMELOOM_ZIPLOOM_EXPORT CentralDirectoryStructure {
  static constexpr std::uint32_t signature = 0x02014b50;
  static constexpr std::size_t size = 46;

  std::uint32_t centralDirectorySignature = signature;
  std::uint16_t versionMadeBy = 0;
  std::uint16_t versionNeededToExtract = 0;
  std::uint16_t generalPurposeBitFlag = 0;
  std::uint16_t compressionMethod = 0;
  std::uint16_t lastModFileTime = 0;
  std::uint16_t lastModFileDate = 0;
  std::uint32_t crc32 = 0;
  std::uint32_t compressedSize = 0;
  std::uint32_t uncompressedSize = 0;
  std::uint16_t fileNameLength = 0;
  std::uint16_t extraFieldLength = 0;
  std::uint16_t fileCommentLength = 0;
  std::uint16_t diskNumberStart = 0;
  std::uint16_t internalFileAttributes = 0;
  std::uint32_t externalFileAttributes = 0;
  std::uint32_t relativeOffsetOfLocalHeader = 0;
  Bytes fileNameData;
  Bytes extraFieldData;
  Bytes fileCommentData;
  std::vector<ZIP64ExtendedInformation> extraFields;

  std::vector<ZIP64ExtendedInformation::Field> expectedZIP64Fields() const;
  const ZIP64ExtendedInformation* zip64Extra() const;
  // The host system that made the entry: the high byte of versionMadeBy.
  std::uint8_t hostSystem() const { return static_cast<std::uint8_t>(versionMadeBy >> 8); }
  bool isZIP64Format() const;
  bool isEncryptedEntry() const { return generalPurposeBitFlag & GeneralPurposeFlags::encrypted; }
  bool hasDataDescriptor() const {
    return generalPurposeBitFlag & GeneralPurposeFlags::dataDescriptor;
  }
  bool hasUTF8Path() const { return generalPurposeBitFlag & GeneralPurposeFlags::utf8Path; }
  // The 32-bit values, replaced by the ZIP64 block's values where those are greater than 0.
  std::uint64_t resolvedUncompressedSize() const;
  std::uint64_t resolvedCompressedSize() const;
  std::uint64_t resolvedLocalHeaderOffset() const;

  static std::optional<CentralDirectoryStructure> parse(ByteView fixedPart,
                                                        const AdditionalDataProvider& provider);
  Bytes data() const;
};

// The CRC-32 and sizes that follow an entry's data when they were not known in advance. The
// signature is optional on disk; `size` counts it. SizeType is std::uint32_t or std::uint64_t.
template <typename SizeType>
struct DataDescriptor {
  static constexpr std::uint32_t signature = 0x08074b50;
  static constexpr std::size_t size = 2 * sizeof(SizeType) + 8;

  Bytes data;
  std::uint32_t dataDescriptorSignature = signature;
  std::uint32_t crc32 = 0;
  SizeType compressedSize = 0;
  SizeType uncompressedSize = 0;

  static std::optional<DataDescriptor> parse(ByteView fixedPart, const AdditionalDataProvider&);
};

extern template struct FRAMELOOM_ZIPLOOM_EXPORT DataDescriptor<std::uint32_t>;
extern template struct FRAMELOOM_ZIPLOOM_EXPORT DataDescriptor<std::uint64_t>;

struct FRAMELOOM_ZIPLOOM_EXPORT EndOfCentralDirectoryRecord {
  static constexpr std::uint32_t signature = 0x06054b50;
  static constexpr std::size_t size = 22;

  std::uint32_t endOfCentralDirectorySignature = signature;
  std::uint16_t numberOfDisk = 0;
  std::uint16_t numberOfDiskStart = 0;
  std::uint16_t totalNumberOfEntriesOnDisk = 0;
  std::uint16_t totalNumberOfEntriesInCentralDirectory = 0;
  std::uint32_t sizeOfCentralDirectory = 0;
  std::uint32_t offsetToStartOfCentralDirectory = 0;
  std::uint16_t zipFileCommentLength = 0;
  Bytes zipFileCommentData;

  static std::optional<EndOfCentralDirectoryRecord> parse(ByteView fixedPart,
                                                          const AdditionalDataProvider& provider);
  Bytes data() const;
};

struct FRAMELOOM_ZIPLOOM_EXPORT ZIP64EndOfCentralDirectoryRecord {
  static constexpr std::uint32_t signature = 0x06064b50;
  static constexpr std::size_t size = 56;

  std::uint32_t zip64EOCDRecordSignature = signature;
  std::uint64_t sizeOfZIP64EndOfCentralDirectoryRecord = 0;
  std::uint16_t versionMadeBy = 0;
  std::uint16_t versionNeededToExtract = 0;
  std::uint32_t numberOfDisk = 0;
  std::uint32_t numberOfDiskStart = 0;
  std::uint64_t totalNumberOfEntriesOnDisk = 0;
  std::uint64_t totalNumberOfEntriesInCentralDirectory = 0;
  std::uint64_t sizeOfCentralDirectory = 0;
  std::uint64_t offsetToStartOfCentralDirectory = 0;
  // Never read from an archive; written after the fixed part when set.
  Bytes zip64ExtensibleDataSector;

  static std::optional<ZIP64EndOfCentralDirectoryRecord>
  parse(ByteView fixedPart, const AdditionalDataProvider& provider);
  Bytes data() const;
};

struct FRAMELOOM_ZIPLOOM_EXPORT ZIP64EndOfCentralDirectoryLocator {
  static constexpr std::uint32_t signature = 0x07064b50;
  static constexpr std::size_t size = 20;

  std::uint32_t zip64EOCDLocatorSignature = signature;
  std::uint32_t numberOfDiskWithZIP64EOCDRecordStart = 0;
  std::uint64_t relativeOffsetOfZIP64EOCDRecord = 0;
  std::uint32_t totalNumberOfDisk = 0;

  static std::optional<ZIP64EndOfCentralDirectoryLocator>
  parse(ByteView fixedPart, const AdditionalDataProvider& provider);
  Bytes data() const;
};

// The ZIP64 end record with its locator; an archive has both or neither.
struct FRAMELOOM_ZIPLOOM_EXPORT ZIP64EndOfCentralDirectory {
  ZIP64EndOfCentralDirectoryRecord record;
  ZIP64EndOfCentralDirectoryLocator locator;
};

} // namespace frameloom::ziploom
