# Before CPack puts its archive together: every file is of the time of the commit.
file(GLOB_RECURSE files LIST_DIRECTORIES true ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*)
foreach(file IN LISTS files)
  execute_process(COMMAND touch -h -d @$ENV{SOURCE_DATE_EPOCH} ${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
