// Offsets of the regf format (Maxim Suhanov's description of the registry file format), shared by reader and writer.
#pragma once

#include <cstdint>

namespace emulated::regf {

inline constexpr std::size_t kBaseBlock = 4096;
inline constexpr std::size_t kBinHeader = 32;
inline constexpr std::size_t kBinUnit = 4096;
inline constexpr std::uint32_t kNone = 0xFFFFFFFF;

// Base block
inline constexpr std::size_t kPrimarySequence = 4, kSecondarySequence = 8, kLastWritten = 12, kMajor = 20, kMinor = 24,
                             kType = 28, kFormat = 32, kRootCell = 36, kBinsSize = 40, kClustering = 44, kFileName = 48,
                             kChecksum = 508;
inline constexpr std::size_t kFileNameBytes = 64;

// Key node: offsets in the cell's content
inline constexpr std::size_t kNodeFlags = 2, kNodeTime = 4, kNodeAccess = 12, kNodeParent = 16, kNodeSubKeys = 20,
                             kNodeVolatileSubKeys = 24, kNodeSubKeyList = 28, kNodeVolatileList = 32, kNodeValues = 36,
                             kNodeValueList = 40, kNodeSecurity = 44, kNodeClass = 48, kNodeLongestSubKey = 52,
                             kNodeVirtualization = 54, kNodeLongestClass = 56, kNodeLongestValueName = 60,
                             kNodeLongestValue = 64, kNodeNameLength = 72, kNodeClassLength = 74, kNodeName = 76;

// Value
inline constexpr std::size_t kValueNameLength = 2, kValueSize = 4, kValueData = 8, kValueType = 12, kValueFlags = 16,
                             kValueName = 20;
inline constexpr std::uint16_t kValueCompressedName = 1;
inline constexpr std::uint32_t kDataInOffset = 0x80000000;

// Security
inline constexpr std::size_t kSecurityNext = 4, kSecurityPrevious = 8, kSecurityReferences = 12, kSecuritySize = 16,
                             kSecurityDescriptor = 20;

inline constexpr std::size_t kSegmentData = 16344;  // of one segment of a big value
inline constexpr std::size_t kSegmentSpare = 4;
inline constexpr std::size_t kLongestList = 507;
inline constexpr std::uint32_t kMinorWithBigData = 4;
inline constexpr std::uint32_t kMinorWithHashes = 5;

// The exclusive or of the first 508 bytes, with the two values that are not used.
inline std::uint32_t Checksum(const std::uint8_t* baseBlock) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < kChecksum; ++i) sum ^= static_cast<std::uint32_t>(baseBlock[i]) << (i % 4 * 8);
  return sum == 0 ? 1 : sum == 0xFFFFFFFF ? 0xFFFFFFFE : sum;
}

}  // namespace emulated::regf
