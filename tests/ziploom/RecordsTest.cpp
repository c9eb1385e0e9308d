#include "ziploom/Records.h"
#include "ziploom/LittleEndian.h"

#include <gtest/gtest.h>

using namespace ziploom;
using littleEndian::append;
using Field = ZIP64ExtendedInformation::Field;

namespace {

AdditionalDataProvider from(const Bytes& bytes) {
  return [bytes](std::size_t count) {
    return Bytes(bytes.begin(), bytes.begin() + std::min(count, bytes.size()));
  };
}

// A record's bytes split into its fixed part and the provider of the rest.
template <typename Record>
std::optional<Record> reparse(const Bytes& bytes) {
  const Bytes fixed(bytes.begin(), bytes.begin() + Record::size);
  return Record::parse(fixed, from(Bytes(bytes.begin() + Record::size, bytes.end())));
}

Bytes block(std::uint16_t id, const Bytes& payload) {
  Bytes bytes;
  append(bytes, id);
  append(bytes, static_cast<std::uint16_t>(payload.size()));
  append(bytes, ByteView(payload));
  return bytes;
}

Bytes u64s(std::initializer_list<std::uint64_t> values) {
  Bytes bytes;
  for (auto value : values) {
    append(bytes, value);
  }
  return bytes;
}

CentralDirectoryStructure centralRecord(std::uint32_t sizes, std::uint32_t offset,
                                        const Bytes& extra) {
  CentralDirectoryStructure record;
  record.versionMadeBy = 0x0315;
  record.versionNeededToExtract = 45;
  record.compressedSize = record.uncompressedSize = sizes;
  record.relativeOffsetOfLocalHeader = offset;
  record.fileNameData = {'a', '/', 'b'};
  record.fileNameLength = 3;
  record.extraFieldData = extra;
  record.extraFieldLength = static_cast<std::uint16_t>(extra.size());
  record.fileCommentData = {'!'};
  record.fileCommentLength = 1;
  return record;
}

} // namespace

TEST(Records, CentralDirectoryRecordRoundTripsAndResolvesZIP64Values) {
  Bytes extras = block(0x5455, {1, 2, 3, 4, 5});
  append(extras, ByteView(block(1, u64s({5'000'000'000, 4'000'000'000, 7'000'000'000}))));
  const auto parsed =
      reparse<CentralDirectoryStructure>(centralRecord(0xFFFFFFFF, 0xFFFFFFFF, extras).data());
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->fileCommentData, Bytes{'!'});
  EXPECT_EQ(parsed->data(), centralRecord(0xFFFFFFFF, 0xFFFFFFFF, extras).data());
  EXPECT_EQ(parsed->resolvedUncompressedSize(), 5'000'000'000u);
  EXPECT_EQ(parsed->resolvedCompressedSize(), 4'000'000'000u);
  EXPECT_EQ(parsed->resolvedLocalHeaderOffset(), 7'000'000'000u);
}

TEST(Records, ZIP64BlockMustHoldExactlyTheMarkedFields) {
  // Only the sizes are marked, but the block also carries an offset: ignored as a whole.
  const auto tooLong = reparse<CentralDirectoryStructure>(
      centralRecord(0xFFFFFFFF, 100, block(1, u64s({1, 2, 3}))).data());
  ASSERT_TRUE(tooLong);
  EXPECT_EQ(tooLong->zip64Extra(), nullptr);
  EXPECT_EQ(tooLong->resolvedUncompressedSize(), 0xFFFFFFFFu);

  // A marked field takes the ZIP64 value even when it is 0: the entry is at the very start.
  const auto zeroOffset =
      reparse<CentralDirectoryStructure>(centralRecord(10, 0xFFFFFFFF, block(1, u64s({0}))).data());
  ASSERT_TRUE(zeroOffset);
  ASSERT_NE(zeroOffset->zip64Extra(), nullptr);
  EXPECT_EQ(zeroOffset->resolvedLocalHeaderOffset(), 0u);
  EXPECT_EQ(zeroOffset->resolvedUncompressedSize(), 10u);
}

TEST(Records, ExtraFieldWalkStopsAtBlocksRunningPastTheEnd) {
  const std::vector<Field> sizes{Field::uncompressedSize};
  Bytes overlong;
  append(overlong, std::uint16_t{0x7075});
  append(overlong, std::uint16_t{200});
  append(overlong, ByteView(block(1, u64s({42}))));
  EXPECT_FALSE(findZIP64Extra(overlong, sizes));

  Bytes valid = block(0x7075, {9});
  append(valid, ByteView(block(1, u64s({42}))));
  ASSERT_TRUE(findZIP64Extra(valid, sizes));
  EXPECT_EQ(findZIP64Extra(valid, sizes)->uncompressedSize, 42u);

  // A header with no room for data after it is not examined.
  EXPECT_FALSE(findZIP64Extra(block(1, {}), {}));
}

TEST(Records, ZIP64FormatLooksOnlyAtTheLowByteOfTheVersion) {
  auto record = centralRecord(10, 10, {});
  record.versionNeededToExtract = 0x012D;
  EXPECT_TRUE(record.isZIP64Format());
  record.versionNeededToExtract = 0x2C00;
  EXPECT_FALSE(record.isZIP64Format());
}

TEST(Records, LocalHeaderNeedsItsWholeVariablePart) {
  LocalFileHeader header;
  header.fileNameData = {'x', 'y'};
  header.fileNameLength = 2;
  header.uncompressedSize = 0xFFFFFFFF;
  header.extraFieldData = block(1, u64s({99}));
  header.extraFieldLength = static_cast<std::uint16_t>(header.extraFieldData.size());
  auto bytes = header.data();
  const auto parsed = reparse<LocalFileHeader>(bytes);
  ASSERT_TRUE(parsed);
  ASSERT_NE(parsed->zip64Extra(), nullptr);
  EXPECT_EQ(parsed->zip64Extra()->uncompressedSize, 99u);

  bytes.pop_back();
  EXPECT_FALSE(reparse<LocalFileHeader>(bytes));
  bytes[0] = 'Q';
  EXPECT_FALSE(LocalFileHeader::parse(ByteView(bytes).first(30), from({})));
  EXPECT_FALSE(LocalFileHeader::parse(ByteView(bytes).first(29), from({})));
  EXPECT_FALSE(LocalFileHeader::parse(ByteView(header.data()).first(30), [](std::size_t) -> Bytes {
    throw std::runtime_error("unreadable");
  }));
}

TEST(Records, DataDescriptorsWithAndWithoutSignature) {
  Bytes signed32;
  append(signed32, std::uint32_t{0x08074b50});
  append(signed32, std::uint32_t{0xCAFEBABE});
  append(signed32, std::uint32_t{10});
  append(signed32, std::uint32_t{20});
  const auto withSignature = DataDescriptor<std::uint32_t>::parse(signed32, from({}));
  ASSERT_TRUE(withSignature);
  EXPECT_EQ(withSignature->crc32, 0xCAFEBABE);
  EXPECT_EQ(withSignature->uncompressedSize, 20u);

  const Bytes unsigned32(signed32.begin() + 4, signed32.end());
  Bytes padded = unsigned32;
  append(padded, std::uint32_t{0x02014b50});
  const auto withoutSignature = DataDescriptor<std::uint32_t>::parse(padded, from({}));
  ASSERT_TRUE(withoutSignature);
  EXPECT_EQ(withoutSignature->crc32, 0xCAFEBABE);
  EXPECT_EQ(withoutSignature->compressedSize, 10u);
  EXPECT_EQ(withoutSignature->dataDescriptorSignature, 0x08074b50u);
  EXPECT_FALSE(DataDescriptor<std::uint32_t>::parse(unsigned32, from({})));

  Bytes signed64;
  append(signed64, std::uint32_t{0x08074b50});
  append(signed64, std::uint32_t{7});
  append(signed64, std::uint64_t{5'000'000'000});
  append(signed64, std::uint64_t{6'000'000'000});
  const auto wide = DataDescriptor<std::uint64_t>::parse(signed64, from({}));
  ASSERT_TRUE(wide);
  EXPECT_EQ(wide->uncompressedSize, 6'000'000'000u);
}

TEST(Records, EndRecordsRoundTripAndRejectBadInput) {
  EndOfCentralDirectoryRecord end;
  end.totalNumberOfEntriesInCentralDirectory = 3;
  end.zipFileCommentData = {'h', 'i'};
  end.zipFileCommentLength = 2;
  auto bytes = end.data();
  ASSERT_TRUE(reparse<EndOfCentralDirectoryRecord>(bytes));
  EXPECT_EQ(reparse<EndOfCentralDirectoryRecord>(bytes)->data(), bytes);
  bytes.pop_back();
  EXPECT_FALSE(reparse<EndOfCentralDirectoryRecord>(bytes));

  // An empty archive is the signature followed by 18 zero bytes.
  Bytes empty{0x50, 0x4B, 0x05, 0x06};
  empty.resize(22, 0);
  EXPECT_EQ(EndOfCentralDirectoryRecord{}.data(), empty);

  ZIP64EndOfCentralDirectoryRecord record;
  record.versionNeededToExtract = 45;
  record.offsetToStartOfCentralDirectory = 1ull << 40;
  EXPECT_EQ(
      reparse<ZIP64EndOfCentralDirectoryRecord>(record.data())->offsetToStartOfCentralDirectory,
      1ull << 40);
  record.versionNeededToExtract = 44;
  EXPECT_FALSE(reparse<ZIP64EndOfCentralDirectoryRecord>(record.data()));

  ZIP64EndOfCentralDirectoryLocator locator;
  locator.relativeOffsetOfZIP64EOCDRecord = 12345;
  EXPECT_EQ(reparse<ZIP64EndOfCentralDirectoryLocator>(locator.data())->data(), locator.data());
}
