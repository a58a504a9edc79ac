# `cmake --install` puts the programs, the library with its headers, the manual pages, the
# completions and a CMake package file in place.

include(CMakePackageConfigHelpers)

install(TARGETS corvanectl corvane-headless RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS CorvaneControl EXPORT CorvaneControl
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY Sources/CorvaneControl DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(FILES Documentation/corvanectl.1 Documentation/corvane-headless.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES Documentation/corvane-control.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7)

# Each shell looks for a file of the command's name; the same one serves both commands.
install(FILES Completions/_corvane DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
foreach(program corvanectl corvane-headless)
  install(FILES Completions/corvane.bash RENAME ${program}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES Completions/corvane.fish RENAME ${program}.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endforeach()

install(EXPORT CorvaneControl NAMESPACE Corvane:: FILE CorvaneControlTargets.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneControl)
configure_package_config_file(CMake/CorvaneControlConfig.cmake.in
  ${PROJECT_BINARY_DIR}/CorvaneControlConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneControl)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CorvaneControlConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/CorvaneControlConfig.cmake
              ${PROJECT_BINARY_DIR}/CorvaneControlConfigVersion.cmake
              CMake/CorvaneDependencies.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneControl)
