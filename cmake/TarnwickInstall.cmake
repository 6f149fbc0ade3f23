# What `cmake --install` installs, and the packages CPack makes of it.
#
# Linux (GNUInstallDirs below the install prefix, /etc and /var absolute, as FHS wants them for
# any prefix): tarnwick, tarnwick-survey and tarnwick-batch in sbin/ (administrators' tools),
# tarnwick-hive in bin/, the default
# profile template in share/tarnwick/default-profile, README and docs in share/doc/tarnwick, man
# pages tarnwick(8) and tarnwick-hive(1) (gzip-compressed), the example share map
# /etc/tarnwick/shares.conf.example and the log folder /var/log/tarnwick (mode 0750). The
# program finds the template and the log folder from where it runs (install_layout.h).
# `cpack -G DEB` in any build folder makes tarnwick_<version>_<arch>.deb, installing under /usr
# whatever CMAKE_INSTALL_PREFIX the build has.
#
# Windows (the MinGW build): tarnwick.exe, tarnwick-hive.exe, the drop-in offreg.dll in its own
# folder with a note, and README.txt, as a zip (`cpack -G ZIP`).
include(GNUInstallDirs)

set(TARNWICK_MAINTAINER "tarnwick developers <tarnwick-dev@example.org>")
set(TARNWICK_VERSION ${PROJECT_VERSION})
set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(generated ${PROJECT_BINARY_DIR}/packaging)

if(WIN32)
  install(TARGETS tarnwick tarnwick-hive RUNTIME DESTINATION .)
  install(TARGETS tarnwick-survey RUNTIME DESTINATION .)
  install(TARGETS tarnwick-batch RUNTIME DESTINATION .)
  install(TARGETS offreg RUNTIME DESTINATION offreg-dll LIBRARY DESTINATION offreg-dll)
  configure_file(${packaging}/windows/README.txt ${generated}/README.txt @ONLY NEWLINE_STYLE CRLF)
  install(FILES ${generated}/README.txt DESTINATION .)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME tarnwick-${PROJECT_VERSION}-windows-x64)
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
else()
  install(TARGETS tarnwick RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
  install(TARGETS tarnwick-survey RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
  install(TARGETS tarnwick-hive RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # Beside tarnwick, which it runs.
  install(TARGETS tarnwick-batch RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
  # The template is built beside the program (tools/default_profile).
  install(DIRECTORY $<TARGET_FILE_DIR:tarnwick>/default-profile/
          DESTINATION ${CMAKE_INSTALL_DATADIR}/tarnwick/default-profile)

  # Man pages and Debian's changelog, gzip-compressed without a timestamp.
  set(TARNWICK_DATADIR ${CMAKE_INSTALL_FULL_DATADIR}/tarnwick)
  set(compressed)
  foreach(page tarnwick.8 tarnwick-hive.1 tarnwick-survey.8 tarnwick-batch.8)
    configure_file(${packaging}/man/${page} ${generated}/${page} @ONLY)
    list(APPEND compressed ${page})
  endforeach()
  configure_file(${packaging}/debian/changelog ${generated}/changelog @ONLY)
  list(APPEND compressed changelog)
  set(outputs)
  foreach(file ${compressed})
    add_custom_command(
      OUTPUT ${generated}/${file}.gz
      COMMAND gzip -9 -n -c ${generated}/${file} > ${generated}/${file}.gz
      DEPENDS ${generated}/${file}
      VERBATIM)
    list(APPEND outputs ${generated}/${file}.gz)
  endforeach()
  add_custom_target(tarnwick_packaging_files ALL DEPENDS ${outputs})
  install(FILES ${generated}/tarnwick.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES ${generated}/tarnwick-survey.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES ${generated}/tarnwick-batch.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES ${generated}/tarnwick-hive.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

  configure_file(${packaging}/debian/copyright ${generated}/copyright @ONLY)
  install(FILES README.md ${generated}/copyright ${generated}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
  install(FILES ${packaging}/shares.conf.example DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
          RENAME shares.conf)
  install(FILES ${packaging}/debian/lintian-overrides
          DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME tarnwick)

  # Absolute: /etc and /var are the system's for every prefix.
  install(FILES ${packaging}/shares.conf.example DESTINATION /etc/tarnwick)
  install(DIRECTORY DESTINATION /var/log/tarnwick
          DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)

  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SECTION admin)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "samba")
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${packaging}/debian/conffiles)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
  set(CPACK_STRIP_FILES ON)
endif()

set(CPACK_PACKAGE_NAME tarnwick)
set(CPACK_PACKAGE_VENDOR "The tarnwick developers")
set(CPACK_PACKAGE_CONTACT ${TARNWICK_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "migrate Windows user profiles on file shares")
# The extended description; CPack puts the summary above it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "tarnwick migrates Windows user profiles stored on file shares from one
profile format version to another (V1 to V2, V2 to V5, V2 to V6, V5 to V6):
registry hives offline, shell folders, owners and access lists, with a
crash-safe marker and a log. On a Samba file server it runs against the
folders behind the shares and keeps Windows security where Samba keeps it.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_THREADS 0)
include(CPack)
