# Install rules and the Debian package (cpack -G DEB in a release build).

# The program looks for its texts in ../md from where it lies, so it stands in a folder of its own,
# with a link to it on the path; links to the texts serve what runs from the build folder.
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/link" "${PROJECT_BINARY_DIR}/src")
set(MORVANE_HOME "lib/morvane")
install(TARGETS morvane RUNTIME DESTINATION "${MORVANE_HOME}/bin")
install(FILES "${PROJECT_SOURCE_DIR}/md/help_guide.md" "${PROJECT_SOURCE_DIR}/md/about_protocol.md"
        DESTINATION "${MORVANE_HOME}/md")
file(CREATE_LINK "../${MORVANE_HOME}/bin/morvane" "${PROJECT_BINARY_DIR}/link/morvane" SYMBOLIC)
install(FILES "${PROJECT_BINARY_DIR}/link/morvane" DESTINATION "${CMAKE_INSTALL_BINDIR}")
foreach(folder "${PROJECT_BINARY_DIR}" "${PROJECT_BINARY_DIR}/src")
  file(CREATE_LINK "${PROJECT_SOURCE_DIR}/md" "${folder}/md" SYMBOLIC)
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/packaging/org.example.morvane.desktop"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/applications")
install(FILES "${PROJECT_SOURCE_DIR}/packaging/org.example.morvane.metainfo.xml"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo")
foreach(size 32 48 64 128 256)
  install(
    FILES "${PROJECT_SOURCE_DIR}/packaging/icons/morvane-${size}.png"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps"
    RENAME morvane.png)
endforeach()
install(
  FILES "${PROJECT_SOURCE_DIR}/resources/img/logo.svg"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps"
  RENAME morvane.svg)
install(FILES "${PROJECT_SOURCE_DIR}/packaging/copyright" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/morvane")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME morvane)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "Morvane developers <packages@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "desktop data-safety suite: find files, keep them safe")
# CPack makes the first line the short description and indents the others.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Morvane (墨川归档) searches files by name and by content over a local index
that follows the indexed folders by itself, and starts in a recovery mode on a
live medium. The user interface is in Chinese.")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# Linked libraries are found by dpkg-shlibdeps; the two plugins are loaded by name.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt5sql5-sqlite, libqt5svg5")
# Without these the program runs and says which formats it cannot read.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
    "poppler-utils, catdoc, antiword, unrtf, unzip, fonts-noto-cjk, libglib2.0-bin")
include(CPack)

if(BUILD_TESTING)
  find_program(DESKTOP_FILE_VALIDATE desktop-file-validate)
  find_program(APPSTREAMCLI appstreamcli)
  if(DESKTOP_FILE_VALIDATE)
    add_test(NAME desktop_file
             COMMAND ${DESKTOP_FILE_VALIDATE} --no-hints
                     "${PROJECT_SOURCE_DIR}/packaging/org.example.morvane.desktop")
  endif()
  if(APPSTREAMCLI)
    add_test(NAME appstream_metadata
             COMMAND ${APPSTREAMCLI} validate --no-net
                     "${PROJECT_SOURCE_DIR}/packaging/org.example.morvane.metainfo.xml")
  endif()
endif()
