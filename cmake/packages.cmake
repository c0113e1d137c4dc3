# Debian packages by cpack: libtuk-mem1 the libraries, libtuk-mem-dev what a host is built with,
# tuk-mem the command. scripts/package makes and checks them.
find_program(GZIP_PROGRAM gzip REQUIRED)
set(debian_directory ${PROJECT_SOURCE_DIR}/cmake/debian)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tuk-mem)
set(CPACK_PACKAGE_CONTACT "The tuk_mem developers <developers@tuk-mem.dev>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development command)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE tuk-mem)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libtuk-mem${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS binutils)  # addr2line
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SUGGESTS tuk-mem)
# What is built with this version may call what older ones don't have.
configure_file(${debian_directory}/shlibs.in shlibs @ONLY)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/shlibs
    ${debian_directory}/triggers)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
    "in-process heap profiler, the libraries\nCharges every heap block of a process to the line of code that asked for it,\nto its module, to the phase that the program says it is in, and to timelines.\n.\nThe library is linked or preloaded; a second one makes any allocator one that\nit can hook.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtuk-mem-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libtuk-mem${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "tuk-mem, libgoogle-perftools4")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "in-process heap profiler, for building hosts\nHeaders for C++ and C, a CMake package, a pkg-config file and the manual page,\nwith all settings, of the profiler that libtuk-mem${PROJECT_VERSION_MAJOR} holds: a host tells it\nits phases, and asks it for figures.")

set(CPACK_DEBIAN_COMMAND_PACKAGE_NAME tuk-mem)
set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_COMMAND_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_COMMAND_PACKAGE_DEPENDS
    "libtuk-mem${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-1)")
# libtuk_mem(7), with the settings; run --allocator tcmalloc
set(CPACK_DEBIAN_COMMAND_PACKAGE_SUGGESTS "libtuk-mem-dev, libgoogle-perftools4")
set(CPACK_COMPONENT_COMMAND_DESCRIPTION
    "runs programs under a heap profiler, and shows what they held\nOne command from a program to an answer: which lines of code hold the memory of\nan unchanged program, when, and what leaks; as a table, as a page with\ntimelines, as a gate for a build, or for other tools to read.")

# What each package documents of itself.
string(TIMESTAMP debian_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${debian_directory}/changelog.in changelog.Debian @ONLY)
function(compress_file source name)
  execute_process(COMMAND ${GZIP_PROGRAM} -9nc ${source} COMMAND_ERROR_IS_FATAL ANY
                  OUTPUT_FILE ${PROJECT_BINARY_DIR}/${name}.gz)
endfunction()
compress_file(${PROJECT_BINARY_DIR}/changelog.Debian changelog.Debian)
compress_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} name)
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME})
  install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz ${PROJECT_BINARY_DIR}/changelog.gz
          DESTINATION ${documents} COMPONENT ${component})
  install(FILES ${debian_directory}/copyright DESTINATION ${documents} COMPONENT ${component})
endforeach()

include(CPack)
