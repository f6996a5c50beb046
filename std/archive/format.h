// The constants of the byte format; docs/archive-format.md is the page that goes with them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace qc_format {

// The header: bit 0 the seekable flag, bits 1 to 7 the version; then the ordering.
constexpr unsigned char kSeekableFlag = 1;
constexpr unsigned kVersionShift = 1;
constexpr unsigned char kVersion = 1;

// Texts.
constexpr unsigned char kQuote = 0x22;
constexpr std::array<unsigned char, 2> kLittleMark{0xFF, 0xFE};
constexpr std::array<unsigned char, 2> kBigMark{0xFE, 0xFF};
constexpr std::size_t kLongestText = 32767;  // characters
constexpr unsigned kLongPrefix = 0x80;

// Objects.
constexpr std::array<unsigned char, 4> kObjectMarker{0xF1, 0x66, 0x4B, 0xDF};
constexpr std::array<unsigned char, 4> kEntryTag{0x6F, 0x8B, 0x68, 0x44};
constexpr unsigned char kNarrowSize = 0;  // variants of the entry's size field
constexpr unsigned char kWideSize = 1;

// Records.
constexpr std::array<unsigned char, 3> kRecordTag{0x4F, 0xE5, 0x70};
constexpr unsigned char kNarrowRecord = 0x54;
constexpr unsigned char kWideRecord = 0x55;
constexpr unsigned char kRecordVersion = 1;
constexpr std::size_t kRecordHead = 10;  // bytes before the size fields
constexpr std::size_t kLinkedHead = 42;  // bytes of the whole head of a linked record

// Kinds of records. Linked ones form the chain of a seekable archive.
constexpr unsigned char kReference = 0x00;
constexpr unsigned char kInline = 0x01;  // also a flag: the object follows
constexpr unsigned char kAnchor = 0x10;
constexpr unsigned char kMark = 0x12;
constexpr unsigned char kPointer = 0x14;
constexpr unsigned char kObject = 0x19;
constexpr unsigned char kSecondNumber = 0x40;  // flag: the number is in the last field
constexpr unsigned char kRemoved = 0x80;       // flag
constexpr long kAnchorAt = 2;

// Where errors say that they were raised: fixed names and lines, because people search logs and old reports for them.
constexpr const char* kArchiveSource = "archive";
constexpr int kReadByteLine = 65;
constexpr int kWriteByteLine = 80;
constexpr int kReadWordLine = 120;
constexpr int kWriteWordLine = 140;
constexpr int kNumberTooWideLine = 160;
constexpr int kReadRawLine = 320;
constexpr int kWriteRawLine = 330;
constexpr int kTextTooLongLine = 400;
constexpr int kWriteTextLine = 410;
constexpr int kTextPayloadLine = 450;
constexpr int kTextMarkLine = 460;
constexpr int kTextCloseLine = 470;
constexpr int kSyncLine = 700;
constexpr int kSeekLine = 720;
constexpr int kSeekableFlagLine = 790;
constexpr int kArchiveVersionLine = 794;
constexpr int kOrderingLine = 807;
constexpr int kModeLine = 870;
constexpr int kReadOnlyLine = 874;
constexpr int kAppendLine = 886;
constexpr int kIndexLine = 900;
constexpr int kNestingLine = 940;
constexpr int kLimitLine = 945;
constexpr int kOldArchiveLine = 960;
constexpr int kUnknownTypeLine = 965;
constexpr int kRewindLine = 990;
constexpr int kErrorsVersionLine = 1229;

constexpr const char* kIndexSource = "archutil";
constexpr int kEntryTagLine = 655;
constexpr int kEntrySizeVariantLine = 663;
constexpr int kEntrySizeLine = 671;
constexpr int kEntryTypeLine = 680;
constexpr int kRecordTagLine = 1840;
constexpr int kRecordVersionLine = 1850;
constexpr int kRecordIdentifierLine = 1860;
constexpr int kIdentifiersUsedUpLine = 1880;
constexpr int kRecordSizeLine = 1890;
constexpr int kRecordOverlapLine = 1900;
constexpr int kNotAtEndLine = 1910;
constexpr int kBrokenChainLine = 1915;
constexpr int kNoChainLine = 1920;
constexpr int kNoRecordLine = 1925;
constexpr int kTakenLine = 1930;
constexpr int kNumberLine = 1935;
constexpr int kHandleClassLine = 1960;
constexpr int kUnknownNameLine = 1970;
constexpr int kNotInArchiveLine = 1980;
constexpr int kNotInIndexLine = 1986;

}  // namespace qc_format
