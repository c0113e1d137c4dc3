# Installation: the libraries, their header, those of the platform interfaces, a CMake package and a
# pkg-config file.
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/tuk_mem)

install(TARGETS tuk_mem tuk_mem_for_hosts EXPORT tuk_mem_targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
                NAMELINK_COMPONENT development
        PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
if(TARGET tuk_mem_malloc)
  install(TARGETS tuk_mem_malloc tuk_mem_malloc_for_hosts EXPORT tuk_mem_targets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
                  NAMELINK_COMPONENT development)
endif()
install(FILES ${platform_interfaces} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tuk_mem/platform
        COMPONENT development)
install(FILES share/tuk_mem/filters/runtime.filters
        DESTINATION ${CMAKE_INSTALL_DATADIR}/tuk_mem/filters COMPONENT command)
install(EXPORT tuk_mem_targets NAMESPACE tuk_mem:: FILE tuk_mem-targets.cmake
        DESTINATION ${package_directory} COMPONENT development)

configure_package_config_file(cmake/tuk_mem-config.cmake.in tuk_mem-config.cmake
                              INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(tuk_mem-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tuk_mem-config.cmake
              ${PROJECT_BINARY_DIR}/tuk_mem-config-version.cmake
              cmake/tuk_mem-linking.cmake
        DESTINATION ${package_directory} COMPONENT development)

# Relative, so that `cmake --install --prefix` and a moved installation are described rightly.
file(RELATIVE_PATH tuk_mem_prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/tuk_mem.pc.in tuk_mem.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tuk_mem.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
