# Installing zifcache and building the Debian package (cpack -G DEB in the
# build directory). zlcziftools, its command links and the ACPI ID files bring
# their own install rules; the man pages and the bash completion theirs.
install(TARGETS zifcache RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zlcziftools)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "zlcziftools developers <zlcziftools@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "diagnostics of a hypervisor host, live or from snapshot files")
set(CPACK_PACKAGE_DESCRIPTION
    "Eighteen commands in one executable: processes and threads (ps, pidof, userspaceof, pgrep,\n"
    "pkill, lsof), PCI (lspci, pci-info), ACPI (lsacpi, amldump), host information (uptime,\n"
    "hwclock, zelnor, bootOption, irqinfo) and the in-memory file system (zdf, zdu, rpcfg).\n"
    "The command links live in /usr/libexec/zlcziftools, so that they do not shadow the\n"
    "system's own commands. zifcache makes, prints and checks the snapshot files.")
string(REPLACE ";" "" CPACK_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# pci.ids comes from hwdata; the shared libraries' packages from dpkg-shlibdeps.
set(CPACK_DEBIAN_PACKAGE_DEPENDS hwdata)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS bash-completion)

include(CPack)
