# Installation and the Debian package: `cmake --install build` puts the programs in bin/,
# the man pages in share/man/man1 and the bash completion in
# share/bash-completion/completions; `cpack -G DEB` in the build folder makes
# kelcmd_<version>_<arch>.deb of the same files.
include(GNUInstallDirs)

install(TARGETS kelcmd kelsim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${CMAKE_SOURCE_DIR}/docs/man/kelcmd.1 ${CMAKE_SOURCE_DIR}/docs/man/kelsim.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${CMAKE_SOURCE_DIR}/docs/bash-completion/kelcmd
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${CMAKE_SOURCE_DIR}/tools/wireshark/kel.lua
        DESTINATION ${CMAKE_INSTALL_DATADIR}/kelcmd/wireshark)

set(CPACK_PACKAGE_NAME kelcmd)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "kelcmd")
set(CPACK_PACKAGE_CONTACT "kelcmd maintainers <kelcmd@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "command shell for bench and regression work on a KEL board, and the virtual board")
set(CPACK_PACKAGE_DESCRIPTION
    "kelcmd switches a KEL board's outputs, sets bit rates and filters, generates and checks CAN traffic, logs it and shares the board through a TCP proxy. kelsim is the virtual board it and its tests run against.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
# The libraries' packages (libedit2, libstdc++6, libc6, ...) come from dpkg-shlibdeps;
# lsusb reads the USB names from usb.ids.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "usb.ids")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, python3-can, tshark")
include(CPack)
