# Installation: headers, the shared libraries with their SONAME, a CMake
# package (find_package(OstrelGingaCommonCore CONFIG), imported targets in the
# Ostrel:: namespace) and one pkg-config file per library.
#
# Layout under the prefix:
#   include/Ostrel/                       every public header, flat, as the
#                                         sources include each other by name
#   <libdir>/libOstrel*.so.2*             the libraries (RUNPATH $ORIGIN, so
#                                         the core finds its platform libraries)
#   <libdir>/cmake/OstrelGingaCommonCore/ the CMake package
#   <libdir>/pkgconfig/Ostrel*.pc         pkg-config files, relocatable
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(OSTREL_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/Ostrel)
set(OSTREL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/OstrelGingaCommonCore)
set(OSTREL_INSTALLED_LIBRARIES OstrelLogger OstrelGingaCommands OstrelISDBTUtils
                               OstrelGingaCommonCore)

include(OstrelPublicHeaders)

# The targets name their include directories by source path, which only holds
# in the build tree; installed, they all live in one directory.
foreach(target IN LISTS OSTREL_INSTALLED_LIBRARIES)
  get_target_property(dirs ${target} INTERFACE_INCLUDE_DIRECTORIES)
  set(wrapped)
  foreach(dir IN LISTS dirs)
    if(dir MATCHES "^\\$<")
      list(APPEND wrapped "${dir}")
    else()
      list(APPEND wrapped "$<BUILD_INTERFACE:${dir}>")
    endif()
  endforeach()
  list(APPEND wrapped "$<INSTALL_INTERFACE:${OSTREL_INSTALL_INCLUDEDIR}>")
  set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${wrapped}"
                                             INSTALL_RPATH "$ORIGIN")
endforeach()

install(TARGETS ${OSTREL_INSTALLED_LIBRARIES}
  EXPORT OstrelGingaCommonCoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime
          NAMELINK_COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)

foreach(header IN LISTS OSTREL_PUBLIC_HEADERS)
  if(EXISTS ${PROJECT_SOURCE_DIR}/${header})
    install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${OSTREL_INSTALL_INCLUDEDIR}
            COMPONENT Development)
  endif()
endforeach()
foreach(dir IN LISTS OSTREL_PLATFORM_HEADER_DIRS)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir}/ DESTINATION ${OSTREL_INSTALL_INCLUDEDIR}
          COMPONENT Development FILES_MATCHING PATTERN "*.h")
endforeach()

# CMake package.
install(EXPORT OstrelGingaCommonCoreTargets
  NAMESPACE Ostrel::
  DESTINATION ${OSTREL_INSTALL_CMAKEDIR}
  COMPONENT Development)
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/OstrelGingaCommonCoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OstrelGingaCommonCoreConfig.cmake
  INSTALL_DESTINATION ${OSTREL_INSTALL_CMAKEDIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/OstrelGingaCommonCoreConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OstrelGingaCommonCoreConfig.cmake
              ${PROJECT_BINARY_DIR}/OstrelGingaCommonCoreConfigVersion.cmake
  DESTINATION ${OSTREL_INSTALL_CMAKEDIR}
  COMPONENT Development)

# pkg-config: the prefix is found from the .pc file's own place, so an
# installed tree may be moved (or staged with DESTDIR) as a whole.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(OSTREL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(OSTREL_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
  set(OSTREL_PC_PREFIX "\${pcfiledir}/..")
  string(REPLACE "/" ";" parts "${CMAKE_INSTALL_LIBDIR}")
  foreach(part IN LISTS parts)
    string(APPEND OSTREL_PC_PREFIX "/..")
  endforeach()
  set(OSTREL_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(OSTREL_PC_INCLUDEDIR "${OSTREL_INSTALL_INCLUDEDIR}")
else()
  set(OSTREL_PC_INCLUDEDIR "\${prefix}/${OSTREL_INSTALL_INCLUDEDIR}")
endif()

# ostrel_pkg_config(library description requires requires_private libs_private)
function(ostrel_pkg_config library description requires requires_private libs_private)
  set(PC_NAME ${library})
  set(PC_DESCRIPTION "${description}")
  set(PC_REQUIRES "${requires}")
  set(PC_REQUIRES_PRIVATE "${requires_private}")
  set(PC_LIBS_PRIVATE "${libs_private}")
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/OstrelLibrary.pc.in
                 ${PROJECT_BINARY_DIR}/pkgconfig/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${library}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
endfunction()

ostrel_pkg_config(OstrelLogger "Receiver logger (stand-in)" "" "" "-pthread")
ostrel_pkg_config(OstrelGingaCommands "Receiver command library (stand-in)" "" "" "-pthread")
ostrel_pkg_config(OstrelISDBTUtils "Receiver ISDB-T table library (stand-in)" "" "" "")
ostrel_pkg_config(OstrelGingaCommonCore "Ginga common core for ISDB-Tb receivers"
                  "OstrelGingaCommands OstrelISDBTUtils OstrelLogger" "" "-pthread")
