# Has the files of targets compiled together, some at a time: more than half of the time for a file goes to what they all
# include. Only for a build that nobody works in: in the others each file is compiled alone, and includes what it needs.
function(compile_together)
  foreach(target ${ARGN})
    get_target_property(sources ${target} SOURCES)
    list(FILTER sources INCLUDE REGEX "[.]cpp$")
    execute_process(COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_SOURCE_DIR}/tools/units.py ${target} ${sources}
      WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE units COMMAND_ERROR_IS_FATAL ANY)
    cmake_language(EVAL CODE "${units}")
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    # A local variable of one file may have the name of another file's own constant.
    target_compile_options(${target} PRIVATE -Wno-shadow)
  endforeach()
endfunction()
