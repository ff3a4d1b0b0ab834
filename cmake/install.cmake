# Install rules, pkg-config file and CMake package config.
include(CMakePackageConfigHelpers)

set(EJ_PUBLIC_HEADERS
  ${PROJECT_SOURCE_DIR}/parser/ej_cmc_export.h
  ${PROJECT_SOURCE_DIR}/parser/ej_cmc_parser.h
  ${PROJECT_SOURCE_DIR}/records/cmc_records.h
  ${PROJECT_SOURCE_DIR}/lsc/ej_cmc_lsc.h
  ${PROJECT_SOURCE_DIR}/resample/ej_cmc_resample.h
  ${PROJECT_BINARY_DIR}/generated/ej_cmc_version.h)

install(TARGETS ej_cmc_parser LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${EJ_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ej_cmc_parser)

# The package config defines the imported target itself rather than through
# install(EXPORT): the platform libraries are the camera stack's, found by the
# loader through the library's NEEDED entries, not targets of this package.
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ej_cmc_parserConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ej_cmc_parserConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ej_cmc_parser
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ej_cmc_parserConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ej_cmc_parserConfig.cmake
              ${PROJECT_BINARY_DIR}/ej_cmc_parserConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ej_cmc_parser)

# The .pc file finds its prefix relative to itself, so that the tree can be
# installed with --prefix or DESTDIR anywhere.
file(RELATIVE_PATH EJ_PC_TO_PREFIX "/p/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/p")
configure_file(${PROJECT_SOURCE_DIR}/cmake/ej_cmc_parser.pc.in
  ${PROJECT_BINARY_DIR}/ej_cmc_parser.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ej_cmc_parser.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The stand-ins carry the real libraries' file names; installing them next to a
# camera stack would shadow its own, so they are installed only on request.
if(EJ_INSTALL_PLATFORM)
  install(TARGETS ej_log ej_nvm ej_kelb_parser LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/platform/log/ej_log.h
                ${PROJECT_SOURCE_DIR}/platform/nvm/ej_nvm.h
                ${PROJECT_SOURCE_DIR}/platform/kelb/ej_kelb_parser.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ej_cmc_parser/platform)
endif()
