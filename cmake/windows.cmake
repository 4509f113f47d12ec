# The Windows world: QBC.exe on the native backend, the contract tests and the small programs that try it under Wine.

# Every program of ours is one file that needs only Windows' own DLLs and is laid out at random. It does not say when it
# was linked: the same commit is the same file.
target_compile_definitions(quillbay_options INTERFACE UNICODE _UNICODE _WIN32_WINNT=0x0A00)
# GCC 12 sees an overlap in std::u16string's own copying where there is none (GCC bug 105651), and lengths of half the
# address space where two std::vectors of bytes are compared.
target_compile_options(quillbay_options INTERFACE -Wno-restrict -Wno-stringop-overread)
target_link_options(quillbay_options INTERFACE
  -static -municode -Wl,--dynamicbase -Wl,--high-entropy-va -Wl,--nxcompat -Wl,--no-insert-timestamp)
if(CMAKE_BUILD_TYPE STREQUAL Release)
  target_link_options(quillbay_options INTERFACE -s)
endif()

file(GLOB native_sources CONFIGURE_DEPENDS src/win32/native/*.cpp)
add_library(native STATIC ${native_sources})
target_link_libraries(native
  PUBLIC quillbay_options
  PRIVATE advapi32 shell32 shlwapi netapi32 ole32 oleaut32 user32 uuid version wininet wtsapi32)

add_executable(QBC src/entry/QBC.cpp ${program_resources})
set_source_files_properties(${program_resources} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
target_link_libraries(QBC PRIVATE program native)
set_target_properties(QBC PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

add_executable(QBCReport src/entry/QBCReport.cpp ${report_resources})
set_source_files_properties(${report_resources} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
target_link_libraries(QBCReport PRIVATE survey program native)
set_target_properties(QBCReport PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

# GoogleTest from the distribution's sources; its threads are not needed and its headers are not ours to warn about.
set(gtest_disable_pthreads ON CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
get_target_property(gtest_includes gtest INTERFACE_INCLUDE_DIRECTORIES)

# The facts of tests/contract as one program that can be run on any machine (docs/on-a-real-machine.md).
set(commit_source ${CMAKE_BINARY_DIR}/generated/commit.cpp)
add_custom_target(commit_source
  COMMAND ${CMAKE_COMMAND} -DFILE=${commit_source} -DFOLDER=${CMAKE_SOURCE_DIR} -P ${CMAKE_SOURCE_DIR}/cmake/commit.cmake
  BYPRODUCTS ${commit_source}
  VERBATIM)
# With QBC.exe's manifest: Windows is to treat the two alike.
set(contract_manifest ${CMAKE_BINARY_DIR}/contract_manifest.o)
add_custom_command(
  OUTPUT ${contract_manifest}
  COMMAND ${CMAKE_RC_COMPILER} -I ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR}/tools/contract_check/manifest.rc
          -O coff ${contract_manifest}
  DEPENDS ${program_resources} tools/contract_check/manifest.rc
  VERBATIM)
set_source_files_properties(${contract_manifest} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
file(GLOB contract_sources CONFIGURE_DEPENDS tests/contract/*.cpp tools/contract_check/*.cpp)
add_executable(contract_tests tests/wine/native_border.cpp ${contract_sources} ${commit_source} ${contract_manifest})
add_dependencies(contract_tests commit_source)
target_include_directories(contract_tests SYSTEM PRIVATE ${gtest_includes})
target_include_directories(contract_tests PRIVATE tests tools)
target_link_libraries(contract_tests PRIVATE native gtest advapi32)
target_compile_definitions(contract_tests PRIVATE CHECK_VERSION="${PROJECT_VERSION}")
# As on Linux: the tests' own text only has to be compiled quickly.
target_compile_options(contract_tests PRIVATE -O0)
target_compile_options(gtest PRIVATE -O0)
target_precompile_headers(contract_tests PRIVATE <gtest/gtest.h>)
set_target_properties(contract_tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

# What the scenarios under Wine need beside QBC.exe: tests/wine/run finds them in this folder.
foreach(helper service restricted hold end_session)
  add_executable(${helper} tests/wine/${helper}.cpp)
  target_link_libraries(${helper} PRIVATE quillbay_options shlwapi)
  set_target_properties(${helper} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)
endforeach()
add_executable(standin tests/wine/standin.cpp)
target_link_libraries(standin PRIVATE quillbay_options ws2_32)
set_target_properties(standin PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)
# The program's request to the service, without a command around it.
add_executable(account_pictures tests/wine/account_pictures.cpp)
target_link_libraries(account_pictures PRIVATE program native)
set_target_properties(account_pictures PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)
# QBC.exe, but for the descriptors that Wine does not tell.
add_executable(moving src/entry/QBC.cpp tests/wine/descriptors.cpp ${program_resources})
target_link_libraries(moving PRIVATE program native)
target_link_options(moving PRIVATE
  -Wl,--wrap=_ZN5win3210BackupReadEPvPhmPmiiPS0_ -Wl,--wrap=_ZN5win3211BackupWriteEPvPhmPmiiPS0_)
set_target_properties(moving PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/wine)
