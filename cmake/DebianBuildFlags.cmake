# VSTAT_DEBIAN_FLAGS=ON (the package preset): compile and link with the flags Debian builds its packages
# with, every hardening feature included (fortify, stack protector, PIE, read-only relocations, bind now),
# as `dpkg-buildflags` gives them for this source tree.
option(VSTAT_DEBIAN_FLAGS "Use dpkg-buildflags (hardening) for the compiler and linker" OFF)
if(VSTAT_DEBIAN_FLAGS)
  find_program(DPKG_BUILDFLAGS dpkg-buildflags REQUIRED)
  function(vstat_dpkg_buildflag flag out)
    execute_process(
      COMMAND ${CMAKE_COMMAND} -E env DEB_BUILD_MAINT_OPTIONS=hardening=+all ${DPKG_BUILDFLAGS} --get ${flag}
      WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
      OUTPUT_VARIABLE value OUTPUT_STRIP_TRAILING_WHITESPACE
      COMMAND_ERROR_IS_FATAL ANY)
    set(${out} "${value}" PARENT_SCOPE)
  endfunction()
  vstat_dpkg_buildflag(CPPFLAGS cppflags)
  vstat_dpkg_buildflag(CFLAGS cflags)
  vstat_dpkg_buildflag(CXXFLAGS cxxflags)
  vstat_dpkg_buildflag(LDFLAGS ldflags)
  string(APPEND CMAKE_C_FLAGS " ${cppflags} ${cflags}")
  string(APPEND CMAKE_CXX_FLAGS " ${cppflags} ${cxxflags}")
  foreach(kind EXE SHARED MODULE)
    string(APPEND CMAKE_${kind}_LINKER_FLAGS " ${ldflags}")
  endforeach()
endif()
