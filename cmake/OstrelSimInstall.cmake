# Installation of the receiver simulator, for a middleware's own tests:
# the static libraries OstrelSim and OstrelTs (the transport-stream toolkit it
# builds on; position-independent, C++17 asked of their users), the published
# headers and ostrel-mksample (ostrel-scan: scan/CMakeLists.txt), all in the
# Simulator component. Included from sim/CMakeLists.txt after the core's rules
# (OstrelInstall), whose directories and pkg-config prefix it reuses.
#
# Layout under the prefix:
#   include/Ostrel/sim/                        the simulator's headers, apart
#                                              from the core's (C++17, and on
#                                              the include path of its users only)
#   <libdir>/libOstrelSim.a, libOstrelTs.a
#   <libdir>/cmake/OstrelGingaCommonCore/OstrelSimTargets.cmake
#                                              Ostrel::OstrelSim and
#                                              Ostrel::OstrelTs, loaded by the
#                                              core's package when present
#   <libdir>/pkgconfig/OstrelSim.pc
#   bin/ostrel-scan, bin/ostrel-mksample (bin/ostrel-dvb-emu where built:
#                                              tools/dvb-emu/CMakeLists.txt)
#   share/man/man1/ostrel-*.1                  their manual pages
#   share/bash-completion/completions/ostrel-scan

# Published: what a test binds and plays. The rest (tuners, demultiplexer,
# filters, controls) stays inside the library.
set(OSTREL_SIM_PUBLIC_HEADERS
  sim/ReceiverSimulator.h
  sim/FaultPlan.h
  ts/SampleStream.h
  ts/TsPacketWriter.h)
set(OSTREL_SIM_INSTALL_INCLUDEDIR ${OSTREL_INSTALL_INCLUDEDIR}/sim)

foreach(target OstrelSim OstrelTs)
  target_include_directories(${target} INTERFACE
                             $<INSTALL_INTERFACE:${OSTREL_SIM_INSTALL_INCLUDEDIR}>)
endforeach()

install(TARGETS OstrelSim OstrelTs
  EXPORT OstrelSimTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Simulator)
install(TARGETS ostrel-mksample
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Simulator)
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/ostrel-mksample.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Simulator)
foreach(header IN LISTS OSTREL_SIM_PUBLIC_HEADERS)
  install(FILES ${PROJECT_SOURCE_DIR}/${header}
          DESTINATION ${OSTREL_SIM_INSTALL_INCLUDEDIR} COMPONENT Simulator)
endforeach()

# The core's package includes this file when it is there.
install(EXPORT OstrelSimTargets
  NAMESPACE Ostrel::
  DESTINATION ${OSTREL_INSTALL_CMAKEDIR}
  COMPONENT Simulator)

# pkg-config: a static library, so its dependencies are public ones.
set(OSTREL_SIM_PC_INCLUDEDIR "${OSTREL_PC_INCLUDEDIR}/sim")
configure_file(${CMAKE_CURRENT_LIST_DIR}/OstrelSim.pc.in ${PROJECT_BINARY_DIR}/pkgconfig/OstrelSim.pc
               @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/OstrelSim.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Simulator)

# The programs find the project's shared libraries beside them.
set_target_properties(ostrel-mksample PROPERTIES
                      INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
