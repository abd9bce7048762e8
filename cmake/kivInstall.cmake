# What `cmake --install` and the Debian packages put where. A header is public when it
# exports something; the rest of the tree stays at home.
include(CMakePackageConfigHelpers)

set(KIV_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/kiv)

file(GLOB KIV_HEADERS RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/*/kiv*.h ${PROJECT_SOURCE_DIR}/window/*.h
  ${PROJECT_SOURCE_DIR}/platform/*.h ${PROJECT_SOURCE_DIR}/platform/*/*.h)
set(KIV_PUBLIC_HEADERS platform/zv/errors.h network/kivNetworkHeader.h)
foreach(header ${KIV_HEADERS})
  file(STRINGS ${PROJECT_SOURCE_DIR}/${header} exports REGEX "KIV_API" LIMIT_COUNT 1)
  if(exports)
    list(APPEND KIV_PUBLIC_HEADERS ${header})
  endif()
endforeach()
foreach(header ${KIV_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${KIV_INCLUDE_DIR}/${folder} COMPONENT dev)
endforeach()

install(TARGETS kiv EXPORT kivTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT lib NAMELINK_COMPONENT dev
  INCLUDES DESTINATION ${KIV_INCLUDE_DIR})
install(TARGETS kiv_program RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

install(EXPORT kivTargets NAMESPACE kiv:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kiv COMPONENT dev)
configure_package_config_file(cmake/kivConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/kivConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kiv NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/kivConfigVersion.cmake COMPATIBILITY SameMinorVersion)
# Relative to the file itself, so that it is right wherever it is installed to.
file(RELATIVE_PATH KIV_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/kiv.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kiv.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kivConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/kivConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kiv COMPONENT dev)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kiv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

include(cmake/kivPackage.cmake)
