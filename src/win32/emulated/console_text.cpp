#include "win32/emulated/console_text.h"

#include <iconv.h>

namespace emulated {

std::string OemToUtf8(std::string_view bytes, win32::UINT codePage) {
  if (codePage == 65001) return std::string(bytes);
  const iconv_t converter = iconv_open("UTF-8", ("CP" + std::to_string(codePage)).c_str());
  if (converter == reinterpret_cast<iconv_t>(-1)) return std::string(bytes);
  std::string input(bytes), output(bytes.size() * 4 + 4, '\0');
  char* from = input.data();
  char* to = output.data();
  std::size_t left = input.size(), room = output.size();
  while (left > 0 && iconv(converter, &from, &left, &to, &room) == static_cast<std::size_t>(-1) && left > 0 &&
         room > 0) {
    *to++ = '?';  // a byte that the page leaves undefined
    --room;
    ++from;
    --left;
  }
  iconv_close(converter);
  output.resize(output.size() - room);
  return output;
}

}  // namespace emulated
