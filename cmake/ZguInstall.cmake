# Installs the library, the test double and (when built) the GL device and the
# device conformance kit as one CMake package:
# find_package(ZorvanGpuUtilities CONFIG).
include(CMakePackageConfigHelpers)

set(ZGU_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZorvanGpuUtilities)
set(_zgu_targets ZorvanGpuUtilities)
if(TARGET ZorvanGpuUtilitiesTesting)
  list(APPEND _zgu_targets ZorvanGpuUtilitiesTesting)
endif()
set(ZGU_PACKAGE_HAS_CONFORMANCE OFF)
if(TARGET ZorvanGpuUtilitiesDeviceConformance)
  list(APPEND _zgu_targets ZorvanGpuUtilitiesDeviceConformance)
  set(ZGU_PACKAGE_HAS_CONFORMANCE ON)
endif()
set(ZGU_PACKAGE_HAS_GL OFF)
if(TARGET ZorvanGpuUtilitiesGl)
  list(APPEND _zgu_targets ZorvanGpuUtilitiesGl)
  set(ZGU_PACKAGE_HAS_GL ON)
endif()

install(TARGETS ${_zgu_targets}
  EXPORT ZorvanGpuUtilitiesTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/Rendering DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/devices/recording/include/Rendering DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(ZGU_PACKAGE_HAS_GL)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/devices/gl/include/Rendering DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()
if(ZGU_PACKAGE_HAS_CONFORMANCE)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/devices/conformance/include/Rendering DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endif()

install(EXPORT ZorvanGpuUtilitiesTargets
  NAMESPACE ZorvanGpuUtilities::
  DESTINATION ${ZGU_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZorvanGpuUtilitiesConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ZorvanGpuUtilitiesConfig.cmake
  INSTALL_DESTINATION ${ZGU_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZorvanGpuUtilitiesConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZorvanGpuUtilitiesConfig.cmake
              ${PROJECT_BINARY_DIR}/ZorvanGpuUtilitiesConfigVersion.cmake
        DESTINATION ${ZGU_INSTALL_CMAKEDIR})
