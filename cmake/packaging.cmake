# Install rules and the two Debian packages (cpack -G DEB in a release build): the program, and the
# services with the hook.

# Texts that Debian wants compressed; without a time stamp inside, so that two builds are equal.
find_program(MORVANE_GZIP gzip REQUIRED)
function(morvane_install_compressed file destination name component)
  set(packed "${PROJECT_BINARY_DIR}/packed/${component}/${name}")
  get_filename_component(folder "${packed}" DIRECTORY)
  file(MAKE_DIRECTORY "${folder}")
  execute_process(COMMAND ${MORVANE_GZIP} -9nc "${file}" OUTPUT_FILE "${packed}" RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "Cannot compress ${file}")
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
  install(FILES "${packed}" DESTINATION "${destination}" COMPONENT ${component})
endfunction()

set(MORVANE_PACKAGING "${PROJECT_SOURCE_DIR}/packaging")

# --- The program.

# The program looks for its texts in ../md from where it lies, so it stands in a folder of its own,
# with a link to it on the path; links to the texts serve what runs from the build folder.
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/link" "${PROJECT_BINARY_DIR}/src")
set(MORVANE_HOME "lib/morvane")
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME morvane)
install(TARGETS morvane morvane_cli RUNTIME DESTINATION "${MORVANE_HOME}/bin" COMPONENT morvane)
# The program looks for extraction tools of its own beside itself.
install(TARGETS morvane-extract RUNTIME DESTINATION "${MORVANE_HOME}/bin/tools" COMPONENT morvane)
install(FILES "${PROJECT_SOURCE_DIR}/md/help_guide.md" "${PROJECT_SOURCE_DIR}/md/about_protocol.md"
        DESTINATION "${MORVANE_HOME}/md")
foreach(program morvane morvane-cli)
  file(CREATE_LINK "../${MORVANE_HOME}/bin/${program}" "${PROJECT_BINARY_DIR}/link/${program}" SYMBOLIC)
  install(FILES "${PROJECT_BINARY_DIR}/link/${program}" DESTINATION "${CMAKE_INSTALL_BINDIR}")
  install(FILES "${MORVANE_PACKAGING}/completions/${program}.bash"
          DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME ${program})
  install(FILES "${MORVANE_PACKAGING}/completions/_${program}"
          DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
  morvane_install_compressed("${MORVANE_PACKAGING}/man/${program}.1" "${CMAKE_INSTALL_MANDIR}/man1"
                             ${program}.1.gz morvane)
endforeach()
foreach(folder "${PROJECT_BINARY_DIR}" "${PROJECT_BINARY_DIR}/src")
  file(CREATE_LINK "${PROJECT_SOURCE_DIR}/md" "${folder}/md" SYMBOLIC)
endforeach()
install(FILES "${MORVANE_PACKAGING}/org.example.morvane.desktop"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/applications")
install(FILES "${MORVANE_PACKAGING}/org.example.morvane.metainfo.xml"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo")
foreach(size 32 48 64 128 256)
  install(
    FILES "${MORVANE_PACKAGING}/icons/morvane-${size}.png"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps"
    RENAME morvane.png)
endforeach()
install(
  FILES "${PROJECT_SOURCE_DIR}/resources/img/logo.svg"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps"
  RENAME morvane.svg)
install(FILES "${MORVANE_PACKAGING}/copyright" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/morvane")
morvane_install_compressed("${MORVANE_PACKAGING}/debian/changelog"
                           "${CMAKE_INSTALL_DATADIR}/doc/morvane" changelog.gz morvane)

# --- The services.

set(MORVANE_LIBEXEC "libexec/morvane")
install(TARGETS morvane_recoveryd morvane_vaultd RUNTIME DESTINATION "${MORVANE_LIBEXEC}"
        COMPONENT services)
install(PROGRAMS "${MORVANE_PACKAGING}/libexec/uncover-preload" DESTINATION "${MORVANE_LIBEXEC}"
        COMPONENT services)
# In the system's own library folder, where the loader's $LIB leads.
if(TARGET morvane-guard)
  install(TARGETS morvane-guard LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT services)
endif()
install(
  FILES "${MORVANE_PACKAGING}/systemd/morvane-recoveryd.service"
        "${MORVANE_PACKAGING}/systemd/morvane-recoveryd.socket"
        "${MORVANE_PACKAGING}/systemd/morvane-vaultd.service"
        "${MORVANE_PACKAGING}/systemd/morvane-vaultd.socket"
        "${MORVANE_PACKAGING}/systemd/morvane-hook-check.service"
  DESTINATION lib/systemd/system
  COMPONENT services)
install(FILES "${MORVANE_PACKAGING}/sysusers/morvane.conf" DESTINATION lib/sysusers.d
        COMPONENT services)
install(FILES "${MORVANE_PACKAGING}/tmpfiles/morvane.conf" DESTINATION lib/tmpfiles.d
        COMPONENT services)
install(FILES "${MORVANE_PACKAGING}/polkit/org.example.morvane.policy"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/polkit-1/actions" COMPONENT services)
install(FILES "${MORVANE_PACKAGING}/pam/morvane-vault" DESTINATION /etc/pam.d COMPONENT services)
install(PROGRAMS "${MORVANE_PACKAGING}/initramfs/morvane-guard"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/initramfs-tools/scripts/init-bottom"
        COMPONENT services)
install(FILES "${MORVANE_PACKAGING}/copyright"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/morvane-services" COMPONENT services)
install(FILES "${MORVANE_PACKAGING}/lintian/morvane-services"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" COMPONENT services)
foreach(service recoveryd vaultd)
  morvane_install_compressed("${MORVANE_PACKAGING}/man/morvane-${service}.8"
                             "${CMAKE_INSTALL_MANDIR}/man8" morvane-${service}.8.gz services)
endforeach()
morvane_install_compressed("${MORVANE_PACKAGING}/debian/changelog"
                           "${CMAKE_INSTALL_DATADIR}/doc/morvane-services" changelog.gz services)

# --- The packages.

# The maintainer scripts and lists under the names that dpkg looks for.
set(_control "${PROJECT_BINARY_DIR}/control/services")
set(_control_files "")
foreach(part postinst prerm postrm triggers conffiles)
  configure_file("${MORVANE_PACKAGING}/debian/services.${part}" "${_control}/${part}" COPYONLY)
  list(APPEND _control_files "${_control}/${part}")
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME morvane)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "Morvane developers <packages@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/sametimes.cmake")
set(CPACK_COMPONENTS_ALL morvane services)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Linked libraries are found by dpkg-shlibdeps; what is loaded by name is added.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_MORVANE_PACKAGE_NAME morvane)
set(CPACK_DEBIAN_MORVANE_PACKAGE_SECTION utils)
# CPack makes the first line the short description and indents the others.
set(CPACK_DEBIAN_MORVANE_DESCRIPTION
    "desktop data-safety suite: find files, keep them safe
Morvane (墨川归档) searches files by name and by content over a local index
that follows the indexed folders by itself, shows what fills a disk, merges
duplicate WeChat files, shares files in the local network, and starts in a
recovery mode on a live medium. The user interface is in Chinese.")
set(CPACK_DEBIAN_MORVANE_PACKAGE_DEPENDS "libqt5sql5-sqlite, libqt5svg5, qttranslations5-l10n")
# Without these the program runs and says which formats it cannot read.
set(CPACK_DEBIAN_MORVANE_PACKAGE_RECOMMENDS
    "morvane-services (= ${PROJECT_VERSION}), poppler-utils, catdoc, antiword, unrtf, unzip, fonts-noto-cjk, libglib2.0-bin")

set(CPACK_DEBIAN_SERVICES_PACKAGE_NAME morvane-services)
set(CPACK_DEBIAN_SERVICES_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_SERVICES_DESCRIPTION
    "desktop data-safety suite: recovery and vault services
The recovery service finds deleted files on disks, with their names, folders
and dates, and writes them elsewhere. The vault service keeps protected files
that users delete for a time and gives them back; a library that programs are
started with reports deletions to it once a user has enabled the protection.")
set(CPACK_DEBIAN_SERVICES_PACKAGE_DEPENDS "libpam-runtime")
set(CPACK_DEBIAN_SERVICES_PACKAGE_RECOMMENDS
    "morvane (= ${PROJECT_VERSION}), polkitd, systemd")
set(CPACK_DEBIAN_SERVICES_PACKAGE_SUGGESTS "ntfs-3g")
set(CPACK_DEBIAN_SERVICES_PACKAGE_CONTROL_EXTRA "${_control_files}")
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
