# Where everything lies after cmake --install. The tools install themselves in their own folders.
include(CMakePackageConfigHelpers)

install(TARGETS ktl_mem EXPORT ktl_mem-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(TARGETS ktl_mem_symbols LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)
install(DIRECTORY include/ktl_mem DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The suite's libraries that a host may meet: its thread start, its notifier, its answers about faults.
install(FILES platform/ktl_thr.h platform/rvm_barebones.h platform/ktl_main_globals.h
              platform/exception_pointers.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/platform)

install(EXPORT ktl_mem-targets NAMESPACE ktl_mem:: FILE ktl_mem-targets.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ktl_mem)
file(WRITE ${PROJECT_BINARY_DIR}/ktl_mem-config.cmake
  "include(\"\${CMAKE_CURRENT_LIST_DIR}/ktl_mem-targets.cmake\")\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ktl_mem-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ktl_mem-config.cmake ${PROJECT_BINARY_DIR}/ktl_mem-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ktl_mem)

configure_file(cmake/ktl_mem.pc.in ktl_mem.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ktl_mem.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
