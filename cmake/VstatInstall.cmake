# Installation in the usual Debian layout (`cmake --install`, `make install PREFIX=... DESTDIR=...`):
#   bin/                                 vstat, mkstore
#   lib/vstat/                           vstatserver and the conversion library it loads from its own directory
#   share/man/man1, man8                 vstat(1), mkstore(1), vstatserver(8), compressed
#   share/bash-completion/completions/   vstat
#   share/doc/vstat/                     README.md, copyright, changelog.gz
#   lib/systemd/system/                  vstat-metrics.service and .timer (not enabled)
#   SYSCONFDIR/default/vstat             the timer's settings (/etc/default/vstat under the prefix /usr)
# Paths written into installed files (the units, the man pages) follow the configured prefix.
include(GNUInstallDirs)

# vstat finds the server at ../lib/vstat/vstatserver relative to itself, so the two stay side by side.
set(VSTAT_PRIVATE_DIR lib/vstat)
set(VSTAT_FULL_PRIVATE_DIR ${CMAKE_INSTALL_PREFIX}/${VSTAT_PRIVATE_DIR})
set(VSTAT_GENERATED_DIR ${PROJECT_BINARY_DIR}/install)
set(VSTAT_DEFAULTS_FILE ${CMAKE_INSTALL_FULL_SYSCONFDIR}/default/vstat)

install(TARGETS vstat mkstore RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS vstatserver RUNTIME DESTINATION ${VSTAT_PRIVATE_DIR})
install(TARGETS vxiconv LIBRARY DESTINATION ${VSTAT_PRIVATE_DIR} NAMELINK_SKIP)

# Files with the installed paths filled in, then compressed the way Debian wants them (gzip -9n: no
# name or time stamp, so the same source gives the same bytes).
find_program(GZIP gzip REQUIRED)
set(VSTAT_CONFIGURED_FILES
  man/vstat.1 man/mkstore.1 man/vstatserver.8
  packaging/changelog
  packaging/vstat-metrics.service packaging/vstat-metrics.timer)
foreach(file ${VSTAT_CONFIGURED_FILES})
  configure_file(${PROJECT_SOURCE_DIR}/${file}.in ${VSTAT_GENERATED_DIR}/${file} @ONLY)
endforeach()

set(VSTAT_COMPRESSED_FILES man/vstat.1 man/mkstore.1 man/vstatserver.8 packaging/changelog)
set(compressed "")
foreach(file ${VSTAT_COMPRESSED_FILES})
  add_custom_command(
    OUTPUT ${VSTAT_GENERATED_DIR}/${file}.gz
    COMMAND ${GZIP} -9nf -k ${VSTAT_GENERATED_DIR}/${file}
    DEPENDS ${VSTAT_GENERATED_DIR}/${file}
    VERBATIM)
  list(APPEND compressed ${VSTAT_GENERATED_DIR}/${file}.gz)
endforeach()
add_custom_target(install_files ALL DEPENDS ${compressed})

install(FILES ${VSTAT_GENERATED_DIR}/man/vstat.1.gz ${VSTAT_GENERATED_DIR}/man/mkstore.1.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${VSTAT_GENERATED_DIR}/man/vstatserver.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/vstat.bash-completion
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME vstat)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/packaging/copyright
              ${VSTAT_GENERATED_DIR}/packaging/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${VSTAT_GENERATED_DIR}/packaging/vstat-metrics.service
              ${VSTAT_GENERATED_DIR}/packaging/vstat-metrics.timer
        DESTINATION lib/systemd/system)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/default
        DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/default RENAME vstat)
