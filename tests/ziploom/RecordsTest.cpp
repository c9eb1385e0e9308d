#include "Support.h"

#include "ziploom/LittleEndian.h"
#include <frameloom/ziploom/Entry.h>
#include <frameloom/ziploom/Records.h>

using namespace frameloom::ziploom;
using frameloom::testing::extraBlock;
using littleEndian::append;
using EntryType = Entry::EntryType;

namespace {

AdditionalDataProvider from(const Bytes& bytes) {
  return [bytes](std::size_t count) {
    return Bytes(bytes.begin(), bytes.begin() + std::min(count, bytes.size()));
  };
}

std::optional<CentralDirectoryStructure> centralWith(std::uint32_t sizes, std::uint32_t offset,
                                                     const Bytes& extra) {
  CentralDirectoryStructure record;
  record.compressedSize = record.uncompressedSize = sizes;
  record.relativeOffsetOfLocalHeader = offset;
  record.extraFieldData = extra;
  record.extraFieldLength = static_cast<std::uint16_t>(extra.size());
  const auto bytes = record.data();
  const auto size = CentralDirectoryStructure::size;
  return CentralDirectoryStructure::parse(ByteView(bytes).first(size),
                                          from(Bytes(bytes.begin() + size, bytes.end())));
}

Entry makeEntry(const std::string& name, std::uint8_t host, std::uint32_t attributes,
                std::uint16_t flags = 0x0800) {
  Entry entry;
  auto& central = entry.centralDirectoryStructure;
  central.versionMadeBy = static_cast<std::uint16_t>(host << 8 | 20);
  central.externalFileAttributes = attributes;
  central.generalPurposeBitFlag = flags;
  central.fileNameData.assign(name.begin(), name.end());
  central.fileNameLength = static_cast<std::uint16_t>(name.size());
  return entry;
}

} // namespace

TEST(Records, ZIP64ValuesReplaceExactlyTheMarkedFields) {
  Bytes extras = extraBlock(0x5455, {7});
  append(extras, ByteView(extraBlock(1, {5'000'000'000, 4'000'000'000, 0})));
  const auto marked = centralWith(0xFFFFFFFF, 0xFFFFFFFF, extras);
  ASSERT_TRUE(marked);
  EXPECT_EQ(marked->resolvedUncompressedSize(), 5'000'000'000u);
  EXPECT_EQ(marked->resolvedCompressedSize(), 4'000'000'000u);
  // A ZIP64 value of 0 never replaces the marker.
  EXPECT_EQ(marked->resolvedLocalHeaderOffset(), 0xFFFFFFFFu);
  // A block with more or fewer values than the markers call for is ignored as a whole, and so is
  // one that runs past the end of the extra field.
  EXPECT_EQ(centralWith(0xFFFFFFFF, 100, extraBlock(1, {1, 2, 3}))->resolvedUncompressedSize(),
            0xFFFFFFFFu);
  EXPECT_EQ(centralWith(10, 0xFFFFFFFF, extraBlock(1, {1, 2}))->resolvedLocalHeaderOffset(),
            0xFFFFFFFFu);
  Bytes overlong{0x75, 0x70, 200, 0};
  append(overlong, ByteView(extraBlock(1, {42})));
  EXPECT_FALSE(findZIP64Extra(overlong, {{ZIP64ExtendedInformation::Field::uncompressedSize}}));
}

TEST(Records, DataDescriptorsWithAndWithoutSignature) {
  Bytes bytes;
  for (const std::uint32_t value : {0x08074b50u, 0xCAFEBABEu, 10u, 20u}) {
    append(bytes, value);
  }
  EXPECT_EQ(DataDescriptor<std::uint32_t>::parse(bytes, from({}))->uncompressedSize, 20u);
  // Without signature the fields start at once; the last four bytes belong to what follows.
  bytes.erase(bytes.begin(), bytes.begin() + 4);
  EXPECT_FALSE(DataDescriptor<std::uint32_t>::parse(bytes, from({})));
  append(bytes, std::uint32_t{0x02014b50});
  const auto withoutSignature = DataDescriptor<std::uint32_t>::parse(bytes, from({}));
  ASSERT_TRUE(withoutSignature);
  EXPECT_EQ(withoutSignature->crc32, 0xCAFEBABE);
  EXPECT_EQ(withoutSignature->compressedSize, 10u);
}

TEST(Entry, TypePermissionsAndPathFollowTheHostSystemAndFlags) {
  struct Case {
    const char* name;
    std::uint8_t host;
    std::uint32_t attributes;
    std::uint16_t flags;
    EntryType type;
    std::uint16_t permissions;
  };
  for (const auto& c : std::initializer_list<Case>{
           {"docs", 0, 0x10, 0x800, EntryType::directory, 0755},   // MS-DOS folder attribute
           {"file", 0, 0777u << 16, 0x800, EntryType::file, 0644}, // no UNIX mode from MS-DOS
           {"dir/", 3, 0100644u << 16, 0x800, EntryType::file, 0644},
           {"dir", 19, 040700u << 16, 0x800, EntryType::directory, 0700},
           {"link", 20, 0120777u << 16, 0x800, EntryType::file, 0644},
           {"tool", 3, 0104755u << 16, 0x800, EntryType::file, 04755},
           {"\x82/", 0, 0, 0, EntryType::directory, 0755}}) { // code page 437 e-acute
    const auto entry = makeEntry(c.name, c.host, c.attributes, c.flags);
    EXPECT_EQ(entry.type(), c.type) << c.name << " " << int(c.host);
    EXPECT_EQ(entry.fileAttributes().posixPermissions, c.permissions) << c.name;
  }
  EXPECT_EQ(makeEntry("caf\x82", 3, 0, 0).path(), "caf\xC3\xA9");
  EXPECT_EQ(makeEntry("caf\xC3", 3, 0).path(), "");
  EXPECT_EQ(makeEntry("\xC0\xAF\xED\xA0\x80", 3, 0).path(), ""); // overlong "/", surrogate
}
