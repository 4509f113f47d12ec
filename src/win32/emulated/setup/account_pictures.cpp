#include "win32/emulated/setup/account_pictures.h"

#include "win32/emulated/text.h"

namespace emulated {

namespace {

constexpr unsigned kSides[] = {32, 40, 48, 96, 192, 200, 240, 448};

// Sizes in a JPEG file have their high byte first.
void AppendSize(Bytes& to, std::size_t size) {
  to.push_back(static_cast<std::uint8_t>(size >> 8));
  to.push_back(static_cast<std::uint8_t>(size));
}

void AppendSegment(Bytes& to, std::uint8_t marker, const Bytes& content) {
  to.insert(to.end(), {0xFF, marker});
  AppendSize(to, content.size() + 2);
  to.insert(to.end(), content.begin(), content.end());
}

// A Huffman table of one symbol, 0, whose code is one bit, 0.
Bytes OneSymbolTable(std::uint8_t which) {
  Bytes table(1 + 16 + 1);
  table[0] = which;
  table[1] = 1;
  return table;
}

}  // namespace

Bytes PictureFile(unsigned side) {
  constexpr std::uint8_t kStart = 0xD8, kQuantization = 0xDB, kBaselineFrame = 0xC0, kHuffman = 0xC4, kScan = 0xDA,
                         kEnd = 0xD9;
  constexpr unsigned kBlock = 8, kBitsOfBlock = 2;  // no difference to the block before, and its end
  Bytes file{0xFF, kStart};
  AppendSegment(file, 0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
  Bytes quantization(1 + 64, 1);
  quantization[0] = 0;
  AppendSegment(file, kQuantization, quantization);
  Bytes frame{8};  // bits a sample
  AppendSize(frame, side);
  AppendSize(frame, side);
  frame.insert(frame.end(), {1, 1, 0x11, 0});  // one component, not sampled down
  AppendSegment(file, kBaselineFrame, frame);
  AppendSegment(file, kHuffman, OneSymbolTable(0x00));
  AppendSegment(file, kHuffman, OneSymbolTable(0x10));
  AppendSegment(file, kScan, {1, 1, 0, 0, 63, 0});
  const unsigned blocks = (side + kBlock - 1) / kBlock;
  const unsigned bits = blocks * blocks * kBitsOfBlock;
  file.resize(file.size() + bits / 8);
  if (bits % 8 != 0) file.push_back(static_cast<std::uint8_t>(0xFF >> bits % 8));  // ones behind the last bit
  file.insert(file.end(), {0xFF, kEnd});
  return file;
}

void MakeAccountPictures(VolumeBuilder& build, const ProfilePlace& publicProfile, Registry& registry,
                         std::u16string_view sid) {
  const std::u16string folder = u"\\AccountPictures\\" + std::u16string(sid);
  MakePicturesFolder(build, publicProfile);
  build.Directory(publicProfile.inVolume + folder, {}, win32::FILE_ATTRIBUTE_HIDDEN);
  // One name for the set, which is another for each account.
  std::u16string digits(sid.substr(sid.rfind(u'-') + 1));
  digits.insert(0, digits.size() < 12 ? 12 - digits.size() : 0, u'0');
  const std::u16string set = folder + u"\\{7B2E4C91-5D0A-4F63-9C18-" + digits.substr(0, 12) + u"}";
  const std::u16string key =
      u"HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AccountPicture\\Users\\" + std::u16string(sid);
  for (const unsigned side : kSides) {
    const std::u16string size = Utf16(std::to_string(side));
    const std::u16string file = set + u"-Image" + size + u".jpg";
    build.File(publicProfile.inVolume + file, PictureFile(side));
    registry.SetText(key, u"Image" + size, publicProfile.path + file);
  }
}

}  // namespace emulated
