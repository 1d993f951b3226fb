# What is installed, and the package of it: script/package. What a module brings along itself, it installs itself.
include(GNUInstallDirs)

install(TARGETS veltry veltry-tools)
install(DIRECTORY ${PROJECT_BINARY_DIR}/share/bash-completion ${PROJECT_BINARY_DIR}/share/zsh
    ${PROJECT_BINARY_DIR}/share/fish DESTINATION ${CMAKE_INSTALL_DATADIR})
install(FILES ${PROJECT_BINARY_DIR}/share/man/man1/veltry.1.gz ${PROJECT_BINARY_DIR}/share/man/man1/veltry-tools.1.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs FILES_MATCHING PATTERN "*.md"
    PATTERN "man" EXCLUDE)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME veltry)
set(CPACK_PACKAGE_VENDOR Veltry)
set(CPACK_PACKAGE_CONTACT "Veltry <veltry@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "experiments that coding agents plan, run and compare")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "A tool server for coding agents, a supervisor for their runs,\nand a host at the terminal for the person.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# libcurl is loaded when a request is made, so that no link names it; git and tar are started.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libcurl4 | libcurl4t64, git, tar")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "zsh, ca-certificates")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, nodejs, npm, libnotify-bin")
include(CPack)
