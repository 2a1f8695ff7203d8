# cmake --install: libraries, headers, the command, pevrin.pc and the CMake package.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Pevrin)

set(libraries bedra imlay pevrin)
foreach(service tonvik sonvar)
  if(TARGET ${service})  # loaded from beside libpevrin when it is there
    list(APPEND libraries ${service})
  endif()
endforeach()
set_target_properties(${libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${libraries} EXPORT PevrinTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ platform/bedra/include/ platform/imlay/include/ platform/tonvik/include/
  platform/sonvar/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")

install(EXPORT PevrinTargets NAMESPACE Pevrin:: DESTINATION ${package_dir})
configure_package_config_file(cmake/PevrinConfig.cmake.in ${PROJECT_BINARY_DIR}/PevrinConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/PevrinConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/PevrinConfig.cmake ${PROJECT_BINARY_DIR}/PevrinConfigVersion.cmake
  DESTINATION ${package_dir})

# the .pc file finds everything from where it stands itself, so that an installed tree may be moved
file(RELATIVE_PATH includedir_from_libdir
  ${CMAKE_INSTALL_FULL_LIBDIR} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/pevrin.pc.in ${PROJECT_BINARY_DIR}/pevrin.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/pevrin.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES docs/pevrin.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES completions/pevrin.bash RENAME pevrin DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES completions/_pevrin DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(FILES completions/pevrin.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
