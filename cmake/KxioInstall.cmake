# SPDX-License-Identifier: MIT
# The installed package: three libraries, their headers, CMake and pkg-config descriptions; and the command.
include(CMakePackageConfigHelpers)

set(kxio_installed_libraries kxbase kxcodecs kxio)
set(kxio_config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kxio)

# Installed pieces find each other by their place, so that the folder can be moved.
file(RELATIVE_PATH kxio_from_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(${kxio_installed_libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS ${kxio_installed_libraries} EXPORT kxioTargets COMPONENT libraries
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/ libs/kxbase/include/ libs/kxcodecs/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT libraries FILES_MATCHING PATTERN "*.h")

install(EXPORT kxioTargets NAMESPACE kx:: DESTINATION ${kxio_config_folder} COMPONENT libraries)
configure_package_config_file(cmake/kxioConfig.cmake.in kxioConfig.cmake
                              INSTALL_DESTINATION ${kxio_config_folder} NO_SET_AND_CHECK_MACRO)
# While the major version is 0, a minor version may break what the one before promised.
write_basic_package_version_file(kxioConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kxioConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/kxioConfigVersion.cmake
        DESTINATION ${kxio_config_folder} COMPONENT libraries)

file(RELATIVE_PATH kxio_from_pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" kxio_from_pc_to_prefix "${kxio_from_pc_to_prefix}")
# A static library hands the libraries below it on to whoever links it.
set(kxio_pc_below "-lsnappy -ldeflate -lzstd -lhwy -lxxhash -ljpeg -lboost_thread ${OpenMP_CXX_FLAGS}")
if(BUILD_SHARED_LIBS)
  set(kxio_pc_public "")
else()
  set(kxio_pc_public " ${kxio_pc_below}")
endif()
configure_file(cmake/kxio.pc.in kxio.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kxio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT libraries)

if(TARGET qsn)
  # The command's library of other formats is its own business: no headers, no link name.
  set_target_properties(qsn PROPERTIES INSTALL_RPATH "$ORIGIN/${kxio_from_bin_to_lib}")
  set_target_properties(kxexchange PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS qsn RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT command)
  # Optional: who builds the target qsn alone has made no manual.
  set(kxio_manual ${CMAKE_CURRENT_BINARY_DIR}/apps/qsn/manual)
  install(DIRECTORY ${kxio_manual}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT command OPTIONAL
          FILES_MATCHING PATTERN "*.1")
  install(FILES ${kxio_manual}/qsn.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME qsn COMPONENT command OPTIONAL)
  install(FILES ${kxio_manual}/_qsn DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT command OPTIONAL)
  install(FILES ${kxio_manual}/qsn.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
          COMPONENT command OPTIONAL)
  if(BUILD_SHARED_LIBS)
    install(TARGETS kxexchange
            RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT command
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT command NAMELINK_SKIP)
  endif()
endif()
