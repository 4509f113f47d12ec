# The Linux world: the emulated workstation, qbc on it, the workstation tool and the tests.
find_package(PkgConfig REQUIRED)
pkg_check_modules(NTFS3G REQUIRED IMPORTED_TARGET libntfs-3g)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(LIBXML2 REQUIRED IMPORTED_TARGET libxml-2.0)
pkg_check_modules(BLKID REQUIRED IMPORTED_TARGET blkid)
pkg_check_modules(CRYPTO REQUIRED IMPORTED_TARGET libcrypto)
find_library(MIMALLOC mimalloc REQUIRED)
find_package(GTest REQUIRED)
find_package(Threads REQUIRED)

# GCC 12 sees std::u16string copied beyond bounds where it is not; QBC.exe is compiled with the warnings.
target_compile_options(quillbay_options INTERFACE -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)

file(GLOB emulated_sources CONFIGURE_DEPENDS src/win32/emulated/*.cpp src/win32/emulated/*/*.cpp)
add_library(emulated STATIC ${emulated_sources})
target_link_libraries(emulated
  PUBLIC quillbay_options
  PRIVATE PkgConfig::NTFS3G PkgConfig::CURL PkgConfig::LIBXML2 Threads::Threads)
precompile_common_headers(emulated program)

add_executable(qbc
  src/entry/qbc_linux.cpp src/entry/on_workstation.cpp tools/workstation/control_signals.cpp
  tools/workstation/intruder.cpp tools/workstation/progress.cpp tools/workstation/quillbay_service.cpp)
target_include_directories(qbc PRIVATE tools)
target_link_libraries(qbc PRIVATE program program_resources emulated)

add_executable(qbcreport src/entry/qbcreport_linux.cpp src/entry/on_workstation.cpp)
target_link_libraries(qbcreport PRIVATE survey program program_resources emulated)

# libntfs-3g asks for memory with every record: with the C library's allocator that is a fifth of the time of a move.
function(use_faster_allocator)
  foreach(target ${ARGN})
    if(NOT QBC_SANITIZE)
      target_link_libraries(${target} PRIVATE -Wl,--push-state,--no-as-needed ${MIMALLOC} -Wl,--pop-state)
    endif()
  endforeach()
endfunction()

file(GLOB workstation_sources CONFIGURE_DEPENDS tools/workstation/*.cpp)
add_executable(workstation ${workstation_sources})
target_include_directories(workstation PRIVATE tools)
target_link_libraries(workstation PRIVATE emulated PkgConfig::BLKID PkgConfig::CRYPTO)
set_source_files_properties(tools/workstation/main.cpp PROPERTIES COMPILE_DEFINITIONS QBC_VERSION="${PROJECT_VERSION}")
precompile_common_headers(workstation program)
use_faster_allocator(qbc qbcreport workstation)

# What all suites share; the product is put on test machines as `workstation create` does it.
file(GLOB support_sources CONFIGURE_DEPENDS tests/support/*.cpp)
set_target_properties(qbc qbcreport workstation PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

enable_testing()
list(FILTER support_sources EXCLUDE REGEX "tests/support/program[^/]*$")
add_library(test_support STATIC
  ${support_sources} tools/workstation/intruder.cpp tools/workstation/product.cpp tools/workstation/progress.cpp
  tools/workstation/quillbay_service.cpp)
target_include_directories(test_support PUBLIC tests tools)
target_link_libraries(test_support PUBLIC emulated)
include(cmake/drivers.cmake)
add_dependencies(test_support drivers)
target_compile_definitions(test_support PRIVATE TEST_DRIVERS="${driver_folder}")
precompile_common_headers(test_support program)
file(GLOB program_support_sources CONFIGURE_DEPENDS tests/support/program*.cpp)

# Every test is a process of its own (ctest -R NAME runs it). The disks that many begin with are made by the first one
# that needs them, anew in every run of ctest: what installs Windows on them may have changed.
include(GoogleTest)
set(test_disks ${CMAKE_BINARY_DIR}/Testing/disks)
add_test(NAME test_disks COMMAND ${CMAKE_COMMAND} -E rm -rf ${test_disks})
set_tests_properties(test_disks PROPERTIES FIXTURES_SETUP test_disks)
# The sanitizers look at memory, not at outcomes, and take several times as long: there not every call is refused, or
# the last before the power fails; but for the redirection of a file and its removal.
set(every_call 1)
if(QBC_SANITIZE)
  set(every_call 11)
endif()
configure_file(cmake/test_properties.cmake.in ${CMAKE_BINARY_DIR}/test_properties.cmake @ONLY)
foreach(suite contract emulated program)
  file(GLOB suite_sources CONFIGURE_DEPENDS tests/${suite}/*.cpp)
  if(NOT suite_sources)
    continue()
  endif()
  add_executable(${suite}_tests ${suite_sources})
  target_link_libraries(${suite}_tests PRIVATE test_support GTest::gtest GTest::gtest_main)
  # What takes time in a test is the code that it calls: its own text only has to be compiled quickly.
  target_compile_options(${suite}_tests PRIVATE -O0 -g1)
  set_target_properties(${suite}_tests PROPERTIES QBC_IS_TEST ON)
  if(suite STREQUAL "contract")
    target_precompile_headers(${suite}_tests PRIVATE <gtest/gtest.h> ${common_headers})
  elseif(suite STREQUAL "program")
    target_precompile_headers(${suite}_tests PRIVATE tests/program/everything.h)
  else()
    precompile_common_headers(${suite}_tests contract_tests)
  endif()
  gtest_discover_tests(${suite}_tests TEST_PREFIX ${suite}. DISCOVERY_MODE PRE_TEST)
endforeach()
set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_BINARY_DIR}/test_properties.cmake)
target_sources(program_tests PRIVATE ${program_support_sources})
target_link_libraries(program_tests PRIVATE survey program program_resources emulated)

if(QBC_SANITIZE)
  include(cmake/together.cmake)
  compile_together(program survey emulated test_support contract_tests emulated_tests program_tests)
endif()

# For bench/run, which builds them.
add_executable(make_tree EXCLUDE_FROM_ALL bench/make_tree.cpp)
target_link_libraries(make_tree PRIVATE emulated)
add_executable(make_hives EXCLUDE_FROM_ALL bench/make_hives.cpp)
target_link_libraries(make_hives PRIVATE emulated)
add_executable(prescan EXCLUDE_FROM_ALL bench/prescan.cpp)
target_link_libraries(prescan PRIVATE program program_resources emulated)
set_target_properties(make_tree make_hives prescan PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
