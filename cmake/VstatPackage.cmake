# `cpack` (through `make package`): vstat_<version>_amd64.deb from the install rules. Depends comes from
# dpkg-shlibdeps over the installed binaries, which are stripped; /etc/default/vstat is a conffile.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vstat)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "vstat maintainers <vstat@vorlane.example>")
set(CPACK_DEBIAN_PACKAGE_SECTION mail)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "message-store statistics service of the mail server")
set(CPACK_PACKAGE_DESCRIPTION
  "The mail server starts vstatserver to walk its message store and write an\n\
XML report of how the store is made up: domains, mailboxes, folders, message\n\
sizes and MIME structure. The vstat command runs the same job from the\n\
command line, shows, converts, merges and compares reports, and keeps a\n\
history of scans. A systemd timer (off by default) exports the figures to\n\
the node exporter's textfile collector. mkstore generates sample stores.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The maintainer scripts only tell systemd about the units (CPack would otherwise add ldconfig calls for
# the conversion library, which is loaded by path and needs none).
file(WRITE ${PROJECT_BINARY_DIR}/install/conffiles "${VSTAT_DEFAULTS_FILE}\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/install/conffiles
    ${PROJECT_SOURCE_DIR}/packaging/postinst ${PROJECT_SOURCE_DIR}/packaging/prerm
    ${PROJECT_SOURCE_DIR}/packaging/postrm)
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/package)
include(CPack)
