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

template <typename Record>
std::optional<Record> reparse(const Bytes& bytes) {
  return Record::parse(ByteView(bytes).first(Record::size),
                       from(Bytes(bytes.begin() + Record::size, bytes.end())));
}

Bytes block(std::uint16_t id, std::initializer_list<std::uint64_t> values) {
  Bytes bytes;
  append(bytes, id);
  append(bytes, static_cast<std::uint16_t>(values.size() * 8));
  for (auto value : values) {
    append(bytes, value);
  }
  return bytes;
}

std::optional<CentralDirectoryStructure> centralWith(std::uint32_t sizes, std::uint32_t offset,
                                                     const Bytes& extra) {
  CentralDirectoryStructure record;
  record.compressedSize = record.uncompressedSize = sizes;
  record.relativeOffsetOfLocalHeader = offset;
  record.extraFieldData = extra;
  record.extraFieldLength = static_cast<std::uint16_t>(extra.size());
  return reparse<CentralDirectoryStructure>(record.data());
}

} // namespace

TEST(Records, ZIP64ValuesReplaceExactlyTheMarkedFields) {
  Bytes extras = block(0x5455, {7});
  append(extras, ByteView(block(1, {5'000'000'000, 4'000'000'000, 0})));
  const auto marked = centralWith(0xFFFFFFFF, 0xFFFFFFFF, extras);
  ASSERT_TRUE(marked);
  EXPECT_EQ(marked->resolvedUncompressedSize(), 5'000'000'000u);
  EXPECT_EQ(marked->resolvedCompressedSize(), 4'000'000'000u);
  // A marked field takes the ZIP64 value even when it is 0: the entry is at the very start.
  EXPECT_EQ(marked->resolvedLocalHeaderOffset(), 0u);

  // A block with more or fewer values than the markers call for is ignored as a whole.
  const auto tooLong = centralWith(0xFFFFFFFF, 100, block(1, {1, 2, 3}));
  EXPECT_EQ(tooLong->zip64Extra(), nullptr);
  EXPECT_EQ(tooLong->resolvedUncompressedSize(), 0xFFFFFFFFu);
  EXPECT_EQ(centralWith(10, 0xFFFFFFFF, block(1, {1, 2}))->resolvedLocalHeaderOffset(),
            0xFFFFFFFFu);
}

TEST(Records, ExtraFieldWalkStopsAtBlocksRunningPastTheEnd) {
  const std::vector<Field> sizes{Field::uncompressedSize};
  Bytes overlong{0x75, 0x70, 200, 0};
  append(overlong, ByteView(block(1, {42})));
  EXPECT_FALSE(findZIP64Extra(overlong, sizes));
  // A header with no room for data after it is not examined.
  EXPECT_FALSE(findZIP64Extra(block(1, {}), {}));
}

TEST(Records, DataDescriptorsWithAndWithoutSignature) {
  Bytes bytes;
  append(bytes, std::uint32_t{0x08074b50});
  append(bytes, std::uint32_t{0xCAFEBABE});
  append(bytes, std::uint32_t{10});
  append(bytes, std::uint32_t{20});
  const auto withSignature = DataDescriptor<std::uint32_t>::parse(bytes, from({}));
  ASSERT_TRUE(withSignature);
  EXPECT_EQ(withSignature->uncompressedSize, 20u);

  // Without signature the fields start at once; the last four bytes belong to what follows.
  bytes.erase(bytes.begin(), bytes.begin() + 4);
  EXPECT_FALSE(DataDescriptor<std::uint32_t>::parse(bytes, from({})));
  append(bytes, std::uint32_t{0x02014b50});
  const auto withoutSignature = DataDescriptor<std::uint32_t>::parse(bytes, from({}));
  ASSERT_TRUE(withoutSignature);
  EXPECT_EQ(withoutSignature->crc32, 0xCAFEBABE);
  EXPECT_EQ(withoutSignature->compressedSize, 10u);
}
