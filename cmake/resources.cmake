# The program's resources: strings.txt, version.txt, ServiceConfig.xml and the manifest, written once in src/resources.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(resource_folder ${CMAKE_SOURCE_DIR}/src/resources)
set(resource_sources ${resource_folder}/strings.txt ${resource_folder}/version.txt
    ${resource_folder}/ServiceConfig.xml ${resource_folder}/qbc.manifest)
set(make_resources ${Python3_EXECUTABLE} -B ${CMAKE_SOURCE_DIR}/tools/make_resources.py)
set(resource_inputs ${CMAKE_SOURCE_DIR}/tools/make_resources.py ${resource_sources})

# The numbers of the strings by name, for the program's text.
set(string_ids ${CMAKE_BINARY_DIR}/generated/resources/string_ids.h)
add_custom_command(
  OUTPUT ${string_ids}
  COMMAND ${make_resources} ids ${resource_folder} ${string_ids}
  DEPENDS ${CMAKE_SOURCE_DIR}/tools/make_resources.py ${resource_folder}/strings.txt
  VERBATIM)
add_custom_target(generated_headers DEPENDS ${string_ids})
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/generated/resources)
target_sources(program PRIVATE ${string_ids})
target_include_directories(program PUBLIC ${CMAKE_BINARY_DIR}/generated)

if(WIN32)
  # An object for QBC.exe. The resource compiler is called by hand: the script is UTF-8.
  set(program_resources ${CMAKE_BINARY_DIR}/resources.o)
  add_custom_command(
    OUTPUT ${program_resources}
    BYPRODUCTS ${CMAKE_BINARY_DIR}/resources.rc ${CMAKE_BINARY_DIR}/resources.rc.manifest
               ${CMAKE_BINARY_DIR}/resources.rc.config
    COMMAND ${make_resources} rc ${resource_folder} ${CMAKE_BINARY_DIR}/resources.rc
    COMMAND ${CMAKE_RC_COMPILER} -c 65001 -I ${CMAKE_BINARY_DIR} ${CMAKE_BINARY_DIR}/resources.rc
            -O coff ${program_resources}
    DEPENDS ${resource_inputs}
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
    VERBATIM)
  # The report program's: the same under its own name.
  set(report_resources ${CMAKE_BINARY_DIR}/report_resources.o)
  add_custom_command(
    OUTPUT ${report_resources}
    BYPRODUCTS ${CMAKE_BINARY_DIR}/report_resources.rc ${CMAKE_BINARY_DIR}/report_resources.rc.manifest
               ${CMAKE_BINARY_DIR}/report_resources.rc.config
    COMMAND ${make_resources} rc ${resource_folder} ${CMAKE_BINARY_DIR}/report_resources.rc QBCReport
    COMMAND ${CMAKE_RC_COMPILER} -c 65001 -I ${CMAKE_BINARY_DIR} ${CMAKE_BINARY_DIR}/report_resources.rc
            -O coff ${report_resources}
    DEPENDS ${resource_inputs}
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
    VERBATIM)
else()
  # The same bytes as data.
  add_custom_command(
    OUTPUT ${CMAKE_BINARY_DIR}/resources_data.cpp
    COMMAND ${make_resources} cpp ${resource_folder} ${CMAKE_BINARY_DIR}/resources_data.cpp
    DEPENDS ${resource_inputs}
    VERBATIM)
  add_library(program_resources STATIC ${CMAKE_BINARY_DIR}/resources_data.cpp)
  target_link_libraries(program_resources PUBLIC quillbay_options)
endif()
