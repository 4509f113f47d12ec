# commit.cpp: which commit contract_tests.exe was built from. Written only when it is another one.
execute_process(COMMAND git -C ${FOLDER} describe --always --dirty --abbrev=12 --exclude=*
  OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT commit)
  set(commit unknown)
endif()
set(text "#include \"contract_check/version.h\"\n\nnamespace check {\nconst char* const kCommit = \"${commit}\";\n}\n")
set(old "")
if(EXISTS ${FILE})
  file(READ ${FILE} old)
endif()
if(NOT old STREQUAL text)
  file(WRITE ${FILE} "${text}")
endif()
