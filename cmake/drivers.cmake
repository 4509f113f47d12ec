# Stand-ins for the Keeldisk driver, for test machines: drivers/keeldisk-VERSION.sys, real program files of the Windows
# tools with a version resource, and keeldisk-none.sys without one.
find_program(WINDOWS_C_COMPILER NAMES x86_64-w64-mingw32-gcc-posix x86_64-w64-mingw32-gcc REQUIRED)
find_program(WINDOWS_RESOURCE_COMPILER NAMES x86_64-w64-mingw32-windres REQUIRED)
set(driver_source ${CMAKE_SOURCE_DIR}/tests/support/driver/keeldisk.c)
set(driver_resources ${CMAKE_SOURCE_DIR}/tests/support/driver/keeldisk.rc)
set(driver_folder ${CMAKE_BINARY_DIR}/drivers)
file(MAKE_DIRECTORY ${driver_folder})

set(link_driver ${WINDOWS_C_COMPILER} -ffreestanding -nostdlib -s -Wl,--subsystem,native -Wl,--entry,DriverEntry
    -Wl,--no-insert-timestamp ${driver_source})
add_custom_command(
  OUTPUT ${driver_folder}/keeldisk-none.sys
  COMMAND ${link_driver} -o ${driver_folder}/keeldisk-none.sys
  DEPENDS ${driver_source}
  VERBATIM)
set(drivers ${driver_folder}/keeldisk-none.sys)

foreach(version 7.99.1.2 8.32.9.9 8.33.0.0 9.0.0.0)
  string(REGEX MATCH "^[0-9]+[.][0-9]+" name ${version})
  string(REPLACE "." "," numbers ${version})
  set(driver ${driver_folder}/keeldisk-${name})
  add_custom_command(
    OUTPUT ${driver}.sys
    BYPRODUCTS ${driver}.o
    COMMAND ${WINDOWS_RESOURCE_COMPILER} -DKEELDISK_VERSION=${numbers} ${driver_resources} -O coff ${driver}.o
    COMMAND ${link_driver} ${driver}.o -o ${driver}.sys
    DEPENDS ${driver_source} ${driver_resources}
    VERBATIM)
  list(APPEND drivers ${driver}.sys)
endforeach()
add_custom_target(drivers ALL DEPENDS ${drivers})
