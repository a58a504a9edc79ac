# `cmake --install` puts two components in place: `runtime`, the programs with their manual pages and
# completions, and `development`, the library with its public headers and what finds it (a CMake package
# and a pkg-config file). The target `uninstall` takes away what was installed from this build folder.

include(CMakePackageConfigHelpers)

install(TARGETS corvanectl corvane-headless
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(FILES Documentation/corvanectl.1 Documentation/corvane-headless.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
install(FILES Documentation/corvane-control.7
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT runtime)

# Each shell looks for a file of the command's name; the same one serves both commands.
install(FILES Completions/_corvane
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT runtime)
foreach(program corvanectl corvane-headless)
  install(FILES Completions/corvane.bash RENAME ${program}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT runtime)
  install(FILES Completions/corvane.fish RENAME ${program}.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT runtime)
endforeach()

install(TARGETS CorvaneControl EXPORT CorvaneControl
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneControl)
install(EXPORT CorvaneControl NAMESPACE Corvane:: FILE CorvaneControlTargets.cmake
        DESTINATION ${package} COMPONENT development)
configure_package_config_file(CMake/CorvaneControlConfig.cmake.in
  ${PROJECT_BINARY_DIR}/CorvaneControlConfig.cmake INSTALL_DESTINATION ${package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CorvaneControlConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/CorvaneControlConfig.cmake
              ${PROJECT_BINARY_DIR}/CorvaneControlConfigVersion.cmake
              CMake/CorvaneDependencies.cmake
        DESTINATION ${package} COMPONENT development)

# All paths in it start at the file itself: the tree may be installed under any prefix, and moved.
set(pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH CORVANE_PREFIX_FROM_PKGCONFIG ${pkgconfig} ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH CORVANE_INCLUDE_FROM_PKGCONFIG ${pkgconfig} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
# Not by its own pkg-config file, which names the libraries in an order that archives do not link in.
list(TRANSFORM corvane_cmark_LIBRARY_DIRS PREPEND -L OUTPUT_VARIABLE CORVANE_CMARK_LIBS)
list(APPEND CORVANE_CMARK_LIBS -lcmark-gfm-extensions -lcmark-gfm)
list(JOIN CORVANE_CMARK_LIBS " " CORVANE_CMARK_LIBS)
configure_file(CMake/corvane-control.pc.in ${PROJECT_BINARY_DIR}/corvane-control.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/corvane-control.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

add_custom_target(uninstall
  COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR} -P ${PROJECT_SOURCE_DIR}/CMake/CorvaneUninstall.cmake
  COMMENT "Removing what was installed from ${PROJECT_BINARY_DIR}" USES_TERMINAL VERBATIM)
