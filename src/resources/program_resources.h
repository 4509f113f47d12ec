// The program's resources where no resource compiler links them in: the same bytes as in QBC.exe.
#pragma once

#include <cstddef>
#include <span>

struct ProgramResource {
  const char16_t* type;  // a number n is written u"#n": u"#6" is RT_STRING, u"#16" RT_VERSION; or a text: u"BINARY"
  const char16_t* name;
  unsigned short language;
  const unsigned char* data;  // on a 4-byte border, lives as long as the program
  std::size_t size;           // bytes
};

std::span<const ProgramResource> ProgramResources();
