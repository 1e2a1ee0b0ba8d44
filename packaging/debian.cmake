# Installing zifcache, the licence and the changelog, and building the Debian
# package (cpack -G DEB in the build directory). zlcziftools, its command
# links and the ACPI ID files bring their own install rules; the man pages and
# the bash completion theirs.
install(TARGETS zifcache RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# Who makes the package: its Maintainer field, the copyright file's contact
# and the changelog's signature. Whoever builds a package to hand out sets it
# to their own name and address (-DZIF_PACKAGE_MAINTAINER="Name <address>");
# the default's .invalid domain says that no one answers there.
set(ZIF_PACKAGE_MAINTAINER "zlcziftools maintainers <maintainers@zlcziftools.invalid>"
    CACHE STRING "Maintainer of the Debian package: Name <address>")
# The Debian revision makes the package non-native, so its changelog is
# changelog.Debian.gz.
set(ZIF_DEBIAN_REVISION 1)
set(ZIF_DEBIAN_VERSION ${PROJECT_VERSION}-${ZIF_DEBIAN_REVISION})
set(ZIF_PACKAGING_OUT ${PROJECT_BINARY_DIR}/packaging)

# The copyright file, in the machine-readable format: the copyright line and
# the licence text come from LICENSE (continuation lines start with a blank,
# an empty line is written " .").
file(READ ${PROJECT_SOURCE_DIR}/LICENSE ZIF_LICENSE)
if(NOT ZIF_LICENSE MATCHES "\nCopyright \\(c\\) ([^\n]+)\n\n(.*)$")
  message(FATAL_ERROR "LICENSE: no line \"Copyright (c) YEAR HOLDER\" followed by the licence text")
endif()
set(ZIF_COPYRIGHT ${CMAKE_MATCH_1})
string(STRIP "${CMAKE_MATCH_2}" ZIF_LICENSE_TEXT)
string(REPLACE "\n\n" "\n.\n" ZIF_LICENSE_TEXT "${ZIF_LICENSE_TEXT}")
string(REPLACE "\n" "\n " ZIF_LICENSE_TEXT " ${ZIF_LICENSE_TEXT}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright.in ${ZIF_PACKAGING_OUT}/copyright @ONLY)

# The changelog: its newest entry must be for the package's version, so that a
# new version cannot be packaged without saying what changed.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/changelog.in ZIF_CHANGELOG_HEAD LIMIT_COUNT 1)
if(NOT ZIF_CHANGELOG_HEAD MATCHES "^zlcziftools \\(${ZIF_DEBIAN_VERSION}\\) ")
  message(FATAL_ERROR "packaging/changelog.in: the newest entry is not for ${ZIF_DEBIAN_VERSION}: "
                      "add one for it at the top")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in ${ZIF_PACKAGING_OUT}/changelog.Debian @ONLY)
execute_process(COMMAND gzip -9 -n -c ${ZIF_PACKAGING_OUT}/changelog.Debian
                OUTPUT_FILE ${ZIF_PACKAGING_OUT}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${ZIF_PACKAGING_OUT}/copyright ${ZIF_PACKAGING_OUT}/changelog.Debian.gz
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zlcziftools)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${ZIF_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "diagnostics of a hypervisor host, live or from snapshot files")
set(CPACK_PACKAGE_DESCRIPTION
    "Eighteen commands in one executable: processes and threads (ps, pidof,\n"
    "userspaceof, pgrep, pkill, lsof), PCI (lspci, pci-info), ACPI (lsacpi,\n"
    "amldump), host information (uptime, hwclock, zelnor, bootOption, irqinfo)\n"
    "and the in-memory file system (zdf, zdu, rpcfg). The command links live in\n"
    "/usr/libexec/zlcziftools, so that they do not shadow the system's own\n"
    "commands. zifcache makes, prints and checks the snapshot files.")
string(REPLACE ";" "" CPACK_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ZIF_DEBIAN_REVISION})
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# pci.ids comes from hwdata; the shared libraries' packages from dpkg-shlibdeps.
set(CPACK_DEBIAN_PACKAGE_DEPENDS hwdata)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS bash-completion)
# CPack's own Installed-Size counts each command link as a copy of the program.
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/installed_size.cmake)

include(CPack)
