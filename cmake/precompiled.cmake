# The headers that nearly every file includes, compiled once for all targets with the same options. QBC.exe is built
# without them: a file that forgets one of its own includes does not compile there.
set(common_headers
  <algorithm> <array> <cstddef> <cstdint> <cstdio> <cstring> <exception> <functional> <map> <memory> <optional> <set>
  <span> <string> <string_view> <utility> <vector> win32/win32.h)
list(TRANSFORM common_headers REPLACE "^win32/" "${CMAKE_SOURCE_DIR}/src/win32/")

# The first target compiles them, the others use what it compiled.
function(precompile_common_headers target)
  if(WIN32)
    return()
  endif()
  if(ARGC GREATER 1)
    target_precompile_headers(${target} REUSE_FROM ${ARGV1})
  else()
    target_precompile_headers(${target} PRIVATE ${common_headers})
  endif()
endfunction()
