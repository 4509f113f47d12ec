# What `cmake --install` puts where, and the Debian package that is made of it (docs/packages.md). Nothing of the tests.
set(beside_programs ${CMAKE_BINARY_DIR}/beside_programs)
add_custom_target(documents ALL
  COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_SOURCE_DIR}/packaging/make_documents.py ${beside_programs}
          $<$<BOOL:${WIN32}>:--windows>
  COMMAND_EXPAND_LISTS VERBATIM)
# The programs are built by name: whoever installs need not have built the tests.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

if(WIN32)
  install(TARGETS QBC QBCReport RUNTIME DESTINATION .)
  install(DIRECTORY ${beside_programs}/ DESTINATION .)
  return()
endif()

include(GNUInstallDirs)
install(TARGETS qbc qbcreport workstation)
install(DIRECTORY ${beside_programs}/share/ DESTINATION ${CMAKE_INSTALL_DATAROOTDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillbay)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR Velmora)
set(CPACK_PACKAGE_CONTACT "Velmora <packages@velmora.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "redirects what must survive a restart, on emulated workstations")
set(CPACK_PACKAGE_DESCRIPTION
"qbc redirects folders, files, user profiles and registry data of a Windows
workstation that is emulated: a folder with real NTFS images and real registry
hives, which need neither a mount nor root. qbcreport says before what would
happen and afterwards what is redirected; workstation makes such workstations,
from nothing or from the disk of a machine that is switched off, and writes
them back.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/packaging/dated.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Programs that `workstation` runs: mkntfs for new volumes; qemu-img for virtual machines' disks alone.
set(CPACK_DEBIAN_PACKAGE_DEPENDS ntfs-3g)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "qemu-utils, bash-completion")
include(CPack)
